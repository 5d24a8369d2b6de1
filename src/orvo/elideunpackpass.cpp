// Pairs of a pack and an unpack of one kind dissolve into the wires that go through them.
#include "orvo/elideunpackpass.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/workqueue.h>

#include <algorithm>
#include <unordered_set>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(
    ElideUnpackPass,
    "Where a pack of a vector, a complex number or a record feeds an unpack of the same kind, the readers of "
    "the unpack read what went into the pack. The pack goes, too, when nothing else reads it.",
    {{"P_IGNORE_METADATA", nullptr,
      "A_TRUE also takes out pairs whose metadata differ; otherwise they stay, so that none are lost."}})

namespace {

/// A pack and the unpack that undoes it. A complex pair names its parts, the others number them.
struct Kind {
    const StaticString *pack;
    const StaticString *unpack;
};

constexpr Kind kKinds[] = {
    {&A_APACK_BLOCK, &A_AUNPACK_BLOCK},
    {&A_VPACK_BLOCK, &A_VUNPACK_BLOCK},
    {&A_CPACK_BLOCK, &A_CUNPACK_BLOCK},
};

const Kind *kindOfPack(const Block &block) {
    for (const Kind &kind : kKinds) {
        if (block.type() == kind.pack->get_ptr()) {
            return &kind;
        }
    }
    return nullptr;
}

/// The port of the pack whose signal leaves the unpack on `wire`; null if the pack has none.
Port *portFor(const Block &pack, const Wire &wire) {
    if (wire.getName() == A_CUNPACK_WIRE_REAL) {
        return pack.getPort(A_CPACK_PORT_REAL);
    }
    if (wire.getName() == A_CUNPACK_WIRE_IMAG) {
        return pack.getPort(A_CPACK_PORT_IMAG);
    }
    return pack.getPort(wire.getName());
}

bool allWiresHaveSources(const Block &pack, const Block &unpack) {
    for (const Wire &wire : unpack) {
        if (wire.port_size() != 0 && portFor(pack, wire) == nullptr) {
            return false;
        }
    }
    return true;
}

/// The unpacks that read the pack, in connection order, each once.
std::vector<Block *> unpacksOf(const Block &pack, const Kind &kind) {
    std::vector<Block *> unpacks;
    std::unordered_set<const Block *> known;
    for (const Wire &wire : pack) {
        for (const Port &port : wire.ports()) {
            Block &reader = port.getBlock();
            if (reader.type() == kind.unpack->get_ptr() && known.insert(&reader).second) {
                unpacks.push_back(&reader);
            }
        }
    }
    return unpacks;
}

/// The blocks that drive the readers of an unpack once it is gone. An element may go through the pair several times
/// before it leaves.
std::vector<Block *> driversBehind(const Block &pack, const Block &unpack) {
    std::vector<Block *> drivers;
    for (const Wire &wire : unpack) {
        const Wire *source = wire.port_size() == 0 ? nullptr : &wire;
        for (std::size_t steps = 0; source != nullptr && &source->getBlock() == &unpack; ++steps) {
            const Port *port = steps <= pack.port_size() ? portFor(pack, *source) : nullptr;
            source = port == nullptr ? nullptr : port->peekWire();
        }
        if (source != nullptr && std::find(drivers.begin(), drivers.end(), &source->getBlock()) == drivers.end()) {
            drivers.push_back(&source->getBlock());
        }
    }
    return drivers;
}

/// What a block that goes carried is on each of the others.
void handOver(const Block &gone, const std::vector<Block *> &survivors) {
    const PureTupleValueRef entries = MetadataManipulator(const_cast<Block &>(gone)).getTuple();
    for (Block *survivor : survivors) {
        if (survivor != &gone) {
            MetadataManipulator(*survivor).appendFrom(entries, true);
        }
    }
}

/// Takes out the unpacks behind a pack, and the pack if nothing reads it then. Packs that another look may now take out
/// are enqueued.
void elide(WorkQueue &queue, const Kind &kind, bool ignoreMetadata) {
    Block &pack = *queue.block();
    bool elided = false;
    for (Block *unpack : unpacksOf(pack, kind)) {
        const bool metadataAgree =
            ignoreMetadata || MetadataManipulator(pack).getTuple() == MetadataManipulator(*unpack).getTuple();
        if (!metadataAgree || !allWiresHaveSources(pack, *unpack)) {
            continue;
        }
        const std::vector<Block *> drivers = driversBehind(pack, *unpack);
        for (Wire &wire : *unpack) {
            if (Port *port = portFor(pack, wire); port != nullptr) {
                wire.replace(*port->getWire());
            }
        }
        handOver(*unpack, drivers);
        delete unpack;
        elided = true;
        for (Block *driver : drivers) {
            if (kindOfPack(*driver) != nullptr) {
                queue.enqueue(*driver);
            }
        }
    }
    if (elided && !pack.hasReader()) {
        std::vector<Block *> drivers;
        for (const Port &port : pack.ports()) {
            drivers.push_back(&port.peekWire()->getBlock());
        }
        handOver(pack, drivers);
        queue.deleteBlock();
    }
}

} // namespace

bool ElideUnpackPass::useMetadataTransferListener() const { return false; }

void ElideUnpackPass::apply(ModelPassContext &context) {
    const bool ignoreMetadata = context.getParam(this, "P_IGNORE_METADATA") == A_TRUE;
    WorkQueue queue(context.getModel());
    while (queue.next()) {
        if (const Kind *kind = kindOfPack(*queue.block()); kind != nullptr) {
            elide(queue, *kind, ignoreMetadata);
        }
    }
}

} // namespace orvo
