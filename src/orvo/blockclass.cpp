// The table of handlers of a block type.
#include <orvo/blockclass.h>

namespace orvo {

BlockHandler::~BlockHandler() = default;

bool TypeInfoCmpLt::operator()(const std::type_info *a, const std::type_info *b) const {
    // By the mangled names; names that are local to a translation unit, of which equal texts may be two types, by
    // address.
    return a->before(*b);
}

BlockClass::~BlockClass() {
    for (const std::type_info *interface : mOwned) {
        delete mHandlers.at(interface);
    }
}

const BlockHandler *BlockClass::lookupHandler(const std::type_info &interface) const {
    auto hit = mHandlers.find(&interface);
    return hit == mHandlers.end() ? nullptr : hit->second;
}

void BlockClass::registerHandler(const std::type_info &interface, const BlockHandler *handler, bool owned) {
    mHandlers[&interface] = handler;
    if (owned) {
        mOwned.insert(&interface);
    } else {
        mOwned.erase(&interface);
    }
}

void BlockClass::copyHandlersFrom(const std::list<const std::type_info *> &interfaces, const BlockClass &source) {
    // Two names of one type share a class: it keeps what it has, ownership included.
    if (&source == this) {
        return;
    }
    for (const std::type_info *interface : interfaces) {
        if (const BlockHandler *handler = source.lookupHandler(*interface); handler != nullptr) {
            registerHandler(*interface, handler, false);
        }
    }
}

} // namespace orvo
