// Terminals and delays of no length dissolve into the wires that drive them. What stood at their ends, edges of domains
// and latency constraints, comes to stand at the ends that the wire then has.
#include "orvo/elideterminalpass.h"

#include "orvo/elideddomainedges.h"
#include "orvo/rewrittenpoints.h"
#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(ElideTerminalPass,
                 "Takes out each terminal that is driven and each delay of length 0: what read it reads its source.")

namespace {

/// Of all lanes, where they have lengths of their own.
bool isZero(const ValueRef &length) {
    if (const NumberValueRef number = numberVR(length)) {
        return number->isInt() && number->toInt() == 0;
    }
    const TupleValueRef lanes = tupleVR(length);
    if (!lanes) {
        return false;
    }
    const auto first = lanes->begin() + (lanes->size() != 0 && lanes->at(0) == A_VECTOR_ROLL_TAG ? 1 : 0);
    return first != lanes->end() && std::all_of(first, lanes->end(), isZero);
}

/// Whether the block is a wire. The length of a delay in a group may still change with those of the others.
bool isWire(const Block &block) {
    return block.type() == A_TERMINAL_BLOCK.get_ptr() ||
           (block.type() == A_DELAY_BLOCK.get_ptr() && block.findParam(A_DELAY_EQUIV_GROUP) == nullptr &&
            isZero(block.getParam(A_DELAY_LENGTH)));
}

/// What it reads; null for a block that stays, whatever it does. A terminal reads its one port, whatever the key: of
/// several nobody could tell which one it gives on.
Port *inputOf(const Block &block) {
    if (!isWire(block)) {
        return nullptr;
    }
    if (block.type() == A_TERMINAL_BLOCK.get_ptr()) {
        return block.port_size() == 1 ? &*block.port_begin() : nullptr;
    }
    return block.getPort(NumberValue::get(0, block.getContext()));
}

/// The blocks of one model that go.
class Elision {
  public:
    Elision(ModelPassContext &context, std::vector<Block *> blocks)
        : mModel(context.getModel()), mBlocks(std::move(blocks)), mGoing(mBlocks.begin(), mBlocks.end()) {
        if (std::any_of(mBlocks.begin(), mBlocks.end(),
                        [](const Block *block) { return internal::hasReferencePoints(*block); })) {
            ModelTreePass tree;
            mInstances = internal::instancesOf(mModel, tree);
            mPoints.emplace(context, mModel, mInstances, false);
        }
    }

    /// Edges are moved last, and before the points write down where they are.
    void run() {
        noteEdges();
        {
            internal::DomainEdgeList edges(mModel);
            for (Block *block : mBlocks) {
                elide(*block, edges);
            }
        }
        mEdges.move(mModel);
    }

  private:
    void noteEdges();
    bool isFed(const Block &start);
    void elide(Block &block, internal::DomainEdgeList &edges);

    Model &mModel;
    const std::vector<Block *> mBlocks;
    const std::unordered_set<const Block *> mGoing;
    std::vector<RefChain> mInstances;
    std::optional<internal::RewrittenPoints> mPoints;
    internal::ElidedDomainEdges mEdges;
    std::unordered_map<const Block *, bool> mFed;
};

/// Whether a block that stays drives it in the end. Of those that feed themselves no ends are left to stand at.
bool Elision::isFed(const Block &start) {
    std::vector<const Block *> way;
    const Block *at = &start;
    while (mGoing.count(at) != 0 && mFed.emplace(at, false).second) {
        way.push_back(at);
        at = &inputOf(*at)->peekWire()->getBlock();
    }
    const bool fed = mGoing.count(at) == 0 || mFed.at(at);
    for (const Block *passed : way) {
        mFed[passed] = fed;
    }
    return fed;
}

void Elision::noteEdges() {
    if (mModel.findParam(A_SYNTH_SCHEDULE_DOMAINS) == nullptr) {
        return;
    }
    const auto goes = [&](const Block &block) { return mGoing.count(&block) != 0; };
    for (const Block *block : mBlocks) {
        if (isFed(*block)) {
            mEdges.addPassage(*inputOf(*block), goes);
        }
    }
}

void Elision::elide(Block &block, internal::DomainEdgeList &edges) {
    const Port *input = inputOf(block);
    // What it read was fed by nothing but itself, and is gone.
    if (input == nullptr) {
        return;
    }
    Wire &source = *input->getWire();
    // Without the delay nobody would be told of the loop.
    if (&source.getBlock() == &block && block.type() == A_DELAY_BLOCK.get_ptr()) {
        return;
    }
    if (mPoints) {
        mPoints->begin(block);
    }
    for (Wire &wire : block) {
        wire.replace(source);
    }
    if (!edges.empty() && !mFed.at(&block)) {
        edges.remove(block);
    }
    delete &block;
    if (mPoints) {
        mPoints->end();
    }
}

} // namespace

void ElideTerminalPass::apply(ModelPassContext &context) {
    std::vector<Block *> blocks;
    for (Block &block : context.getModel()) {
        if (inputOf(block) != nullptr) {
            blocks.push_back(&block);
        }
    }
    if (!blocks.empty()) {
        Elision(context, std::move(blocks)).run();
    }
}

} // namespace orvo
