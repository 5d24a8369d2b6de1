// The reading end of a connection.
#include <orvo/port.h>

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/wire.h>

namespace orvo {

Wire *Port::getWire() const {
    if (mWire != nullptr) {
        mBlock->getDesign().events().blockDriven.fire(*mWire, *mBlock, kGraphStatePresent);
    }
    return mWire;
}

} // namespace orvo
