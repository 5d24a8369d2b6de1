// The root of a netlist and the dispatch of its events.
#include <orvo/design.h>

#include <orvo/annotation.h>
#include <orvo/context.h>
#include <orvo/generic.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>

namespace orvo {

namespace internal {
void failNullCallback() {
    orvoAssertHandler("callback", __FILE__, __LINE__, __func__, "a null callback stands in a list of events");
}
} // namespace internal

GenericModel::~GenericModel() = default;
GenericConnection::~GenericConnection() = default;

Design::Design(Context *context)
    : Node(NodeKind::Design, A_ROOT_NAME, nullptr), mContext(context),
      mListener(std::make_unique<TransferMetadataListener>(*this)) {
    ORVO_ASSERT(context != nullptr, "a design needs a context");
}

Design::~Design() {
    mListener.reset();
    cleanup();
}

void Design::setName(const PureValueRef &) {}

void Design::sendChangedEvent() { mEvents.designChanged.fire(*this); }

void Design::sendDyingEvent() { mEvents.designDying.fire(*this); }

Model *Design::getModel(const PureValueRef &name) const { return static_cast<Model *>(getChild(name)); }

void Design::registerModel(Model *model) { addChild(model); }

void Design::unregisterModel(Model *model) { removeChild(model); }

} // namespace orvo
