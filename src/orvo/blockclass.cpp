// The table of handlers of a block type.
#include <orvo/blockclass.h>

#include <cstring>
#include <functional>

namespace orvo {

BlockHandler::~BlockHandler() = default;

bool TypeInfoCmpLt::operator()(const std::type_info *a, const std::type_info *b) const {
    const char *nameA = a->name();
    const char *nameB = b->name();
    if (nameA[0] == '*' && nameB[0] == '*') {
        // Names that are local to a translation unit: equal texts may be two types.
        return std::less<const char *>()(nameA, nameB);
    }
    return std::strcmp(nameA, nameB) < 0;
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
