// Pairs of a pack and an unpack of one kind dissolve into the wires that go through them.
#include "orvo/elideunpackpass.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>
#include <orvo/workqueue.h>

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

/// The unpacks that read the pack, in connection order.
std::vector<Block *> unpacksOf(const Block &pack, const Kind &kind) {
    std::vector<Block *> unpacks;
    for (const Wire &wire : pack) {
        for (const Port &port : wire.ports()) {
            if (port.getBlock().type() == kind.unpack->get_ptr()) {
                unpacks.push_back(&port.getBlock());
            }
        }
    }
    return unpacks;
}

/// What the unpack carried goes to the blocks that drive its readers now.
void carryMetadata(const Block &pack, Block &unpack) {
    MetadataManipulator gone(unpack);
    if (!gone.getTuple()) {
        return;
    }
    for (const Wire &wire : unpack) {
        const Port *port = portFor(pack, wire);
        if (wire.port_size() != 0 && port != nullptr) {
            MetadataManipulator(port->peekWire()->getBlock()).appendFrom(gone);
        }
    }
}

/// Takes out the unpacks behind a pack, and the pack if nothing reads it then.
void elide(Block &pack, const Kind &kind, bool ignoreMetadata) {
    const std::vector<Block *> unpacks = unpacksOf(pack, kind);
    bool elided = false;
    for (Block *unpack : unpacks) {
        const bool metadataAgree =
            ignoreMetadata || MetadataManipulator(pack).getTuple() == MetadataManipulator(*unpack).getTuple();
        if (!metadataAgree || !allWiresHaveSources(pack, *unpack)) {
            continue;
        }
        carryMetadata(pack, *unpack);
        for (Wire &wire : *unpack) {
            if (Port *port = portFor(pack, wire); port != nullptr) {
                wire.replace(*port->getWire());
            }
        }
        delete unpack;
        elided = true;
    }
    if (elided && !pack.hasReader()) {
        delete &pack;
    }
}

} // namespace

bool ElideUnpackPass::useMetadataTransferListener() const { return false; }

void ElideUnpackPass::apply(ModelPassContext &context) {
    const bool ignoreMetadata = context.getParam(this, "P_IGNORE_METADATA") == A_TRUE;
    WorkQueue queue(context.getModel());
    while (queue.next()) {
        if (const Kind *kind = kindOfPack(*queue.block()); kind != nullptr) {
            elide(*queue.block(), *kind, ignoreMetadata);
        }
    }
}

} // namespace orvo
