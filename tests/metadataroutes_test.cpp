// Where metadata go when blocks take each other's places: each way of rewriting, ways one behind the other, and all of
// them by chance.
#include "support/invariants.h"
#include "support/randomdesigns.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <set>

namespace orvo {
namespace {

std::vector<PureValueRef> entriesOf(const Block &block) {
    const PureTupleValueRef metadata = pureTupleVR(block.getParam(A_METADATA));
    return metadata ? std::vector<PureValueRef>(metadata->begin(), metadata->end()) : std::vector<PureValueRef>();
}

/// Whether a block is rewritten when it, what it reads or what reads it was rewritten before. Where rewrites overlap,
/// only the first heir of a signal is beyond doubt.
enum class Where { Apart, Anywhere };

/// Rewrites one model, and knows by itself which blocks took whose place.
class Rewriter {
  public:
    Rewriter(Model &model, Where where)
        : mModel(model), mListener(*model.getDesign().getMetadataTransferListener()), mWhere(where) {
        std::size_t number = 0;
        for (Block &block : model) {
            add(block);
            // Some blocks carry nothing of their own and only hand on.
            if (++number % 4 != 0) {
                const PureValueRef entry = tuple(A_COMMENT_TAG, NumberValue::get(static_cast<long>(number), context()));
                MetadataManipulator(block).appendToVector(entry);
                mEntries.push_back({idOf(block), entry});
            }
        }
    }

    void step(std::uint32_t kind, std::uint32_t choice) {
        if (kind % 8 == 7) {
            nest(choice);
            return;
        }
        std::vector<Block *> blocks;
        for (const auto &[block, id] : mIds) {
            if (block->getWireCount() != 0 && (mWhere == Where::Anywhere || isUntouched(*block))) {
                blocks.push_back(block);
            }
        }
        if (blocks.empty()) {
            return;
        }
        std::sort(blocks.begin(), blocks.end(), [&](Block *a, Block *b) { return idOf(*a) < idOf(*b); });
        Block &block = *blocks[choice % blocks.size()];
        touch(block);
        switch (kind % 8) {
        case 0:
        case 1:
            replace(block, false);
            break;
        case 2:
            replace(block, true);
            break;
        case 3:
            elide(block);
            break;
        case 4:
            fuse(block);
            break;
        case 5:
            fold(block);
            break;
        default:
            insertBehind(block);
            break;
        }
    }

    void open() {
        mListener.push();
        if (mOpen++ == 0) {
            mFirstNew = mLastId + 1;
            mOldDeaths = 0;
        }
    }
    void close() {
        mListener.pop();
        --mOpen;
    }
    void closeAll() {
        while (mOpen > 0) {
            close();
        }
        // When a single block dies, all that is new may stand for it.
        mExact = mExact && mOldDeaths != 1;
    }

    /// Whether each entry is where it belongs, once, and at no block that took nobody's place; where rewrites were
    /// apart, whether it is nowhere else.
    void check() const {
        for (const auto &[source, entry] : mEntries) {
            std::set<int> live;
            std::set<int> seen;
            const bool clear = gather(source, live, seen);
            for (const auto &[block, id] : mIds) {
                const std::vector<PureValueRef> entries = entriesOf(*block);
                const auto count = std::count(entries.begin(), entries.end(), entry);
                const bool must = live.count(id) != 0;
                const bool may = must || (mMoved.count(id) != 0 && !(clear && mExact && mWhere == Where::Apart));
                if (count > (may ? 1 : 0) || count < (must ? 1 : 0)) {
                    RC_LOG() << "the entry of block " << source << " stands " << count << " times at block " << id
                             << ", " << block->getName()->toString() << "\n";
                }
                RC_ASSERT(count <= (may ? 1 : 0));
                RC_ASSERT(count >= (must ? 1 : 0));
            }
        }
    }

  private:
    Context *context() const { return mModel.getContext(); }
    PureValueRef tuple(const PureValueRef &a, const PureValueRef &b) const {
        return PureTupleValue::get(a, b, context());
    }
    int idOf(const Block &block) const { return mIds.at(const_cast<Block *>(&block)); }
    void add(Block &block) { mIds[&block] = ++mLastId; }
    void kill(Block &block) {
        mOldDeaths += idOf(block) < mFirstNew ? 1 : 0;
        mIds.erase(&block);
        delete &block;
    }
    /// False if it is open to which blocks the entries of a block may go beside those found.
    bool gather(int id, std::set<int> &live, std::set<int> &seen) const {
        if (!seen.insert(id).second) {
            return true;
        }
        const auto places = mPlaces.find(id);
        if (places == mPlaces.end()) {
            live.insert(id);
            return true;
        }
        bool clear = mUnclear.count(id) == 0;
        for (const int place : places->second) {
            clear = gather(place, live, seen) && clear;
        }
        return clear;
    }
    static std::vector<Block *> neighbours(const Block &block) {
        std::vector<Block *> found;
        for (const Port &port : block.ports()) {
            found.push_back(&port.peekWire()->getBlock());
        }
        for (const Wire &wire : block) {
            for (const Port &port : wire.ports()) {
                found.push_back(&port.getBlock());
            }
        }
        return found;
    }
    bool isUntouched(const Block &block) const {
        const std::vector<Block *> around = neighbours(block);
        return mTouched.count(idOf(block)) == 0 && std::none_of(around.begin(), around.end(), [&](const Block *near) {
                   return near == &block || mTouched.count(idOf(*near)) != 0;
               });
    }
    void touch(const Block &block) {
        mTouched.insert(idOf(block));
        for (const Block *near : neighbours(block)) {
            mTouched.insert(idOf(*near));
        }
    }
    Block &make(const Block &like, const char *word) {
        Block &made =
            *Block::create(mModel, PureTupleValue::get(like.getName(), StringValue::get(word, context()), context()));
        made.setParam(A_BLOCK_TYPE, like.getParam(A_BLOCK_TYPE));
        add(made);
        mTouched.insert(idOf(made));
        mMoved.insert(idOf(made));
        return made;
    }
    static std::vector<Wire *> inputsOf(const Block &block) {
        std::vector<Wire *> wires;
        for (const Port &port : block.ports()) {
            wires.push_back(port.peekWire());
        }
        return wires;
    }
    void connect(Block &block, const std::vector<Wire *> &wires) const {
        for (Wire *wire : wires) {
            block.setParam(NumberValue::get(static_cast<long>(block.port_size()), context()), *wire);
        }
    }
    /// Moves the readers of each wire to one of the same name.
    static void takeWires(Block &from, Block &to) {
        for (Wire &wire : from) {
            wire.replace(*Wire::create(to, wire.getName()));
        }
    }

    /// before: -> block ->   after: -> (inner ->) made ->
    void replace(Block &block, bool withInner) {
        const bool unread = !block.hasReader();
        Block &made = make(block, "made");
        std::vector<Block *> places{&made};
        if (withInner) {
            Block &inner = make(block, "inner");
            connect(inner, inputsOf(block));
            connect(made, {Wire::create(inner, "w")});
            if (mWhere == Where::Apart) {
                places.push_back(&inner);
            }
        } else {
            connect(made, inputsOf(block));
        }
        takeWires(block, made);
        retireAs(block, unread, places);
    }
    void retireAs(Block &block, bool unread, const std::vector<Block *> &places) {
        if (unread) {
            // Nothing tells what took the place of a block that nobody reads.
            mPlaces[idOf(block)];
            mUnclear.insert(idOf(block));
        } else {
            for (const Block *place : places) {
                mPlaces[idOf(block)].push_back(idOf(*place));
            }
        }
        kill(block);
    }
    /// What only fed a block that is gone may go later, and then finds its heirs in those of its reader.
    void markDropped(const std::vector<Wire *> &wires) {
        for (Wire *wire : wires) {
            mUnclear.insert(idOf(wire->getBlock()));
        }
    }
    /// before: source -> block -> readers   after: source -> readers
    void elide(Block &block) {
        const std::vector<Wire *> inputs = inputsOf(block);
        if (inputs.empty() || &inputs.front()->getBlock() == &block) {
            return;
        }
        markDropped({inputs.begin() + 1, inputs.end()});
        std::set<Block *> readers;
        for (Wire &wire : block) {
            for (const Port &port : wire.ports()) {
                readers.insert(&port.getBlock());
            }
        }
        for (Wire &wire : block) {
            wire.replace(*inputs.front());
        }
        for (const Block *reader : readers) {
            mMoved.insert(idOf(*reader));
        }
        readers.erase(&block);
        retireAs(block, readers.empty(), {readers.begin(), readers.end()});
    }
    /// before: inner -> block ->   after: made ->
    void fuse(Block &block) {
        Block *inner = nullptr;
        for (const Port &port : block.ports()) {
            Block &driver = port.peekWire()->getBlock();
            const bool sole = std::all_of(driver.begin(), driver.end(), [&](const Wire &wire) {
                const auto ports = wire.ports();
                return std::all_of(ports.begin(), ports.end(),
                                   [&](const Port &reader) { return &reader.getBlock() == &block; });
            });
            if (&driver != &block && sole) {
                inner = &driver;
            }
        }
        if (inner == nullptr) {
            return;
        }
        const bool unread = !block.hasReader();
        std::vector<Wire *> inputs = inputsOf(*inner);
        for (Wire *wire : inputsOf(block)) {
            if (&wire->getBlock() != inner) {
                inputs.push_back(wire);
            }
        }
        Block &made = make(block, "fused");
        connect(made, inputs);
        takeWires(block, made);
        if (unread || inner == &made) {
            mUnclear.insert(idOf(*inner));
        }
        const int outer = idOf(block);
        mPlaces[idOf(*inner)].push_back(outer);
        // The inner block first or last.
        if (mLastId % 2 == 0) {
            kill(*inner);
            retireAs(block, unread, {&made});
        } else {
            retireAs(block, unread, {&made});
            kill(*inner);
        }
    }
    /// before: -> block ->   after: constant ->
    void fold(Block &block) {
        const bool unread = !block.hasReader();
        markDropped(inputsOf(block));
        Block &constant = make(block, "folded");
        takeWires(block, constant);
        retireAs(block, unread, {&constant});
    }
    /// before: block -> readers   after: block -> made -> readers
    void insertBehind(Block &block) {
        Wire &wire = *block.begin();
        if (wire.port_size() == 0) {
            return;
        }
        Block &made = make(block, "behind");
        wire.replace(*Wire::create(made, "w"));
        connect(made, {&wire});
    }
    void nest(std::uint32_t choice) {
        mExact = false;
        if (choice % 2 == 0) {
            open();
        } else if (mOpen > 1) {
            close();
        }
    }

    Model &mModel;
    TransferMetadataListener &mListener;
    Where mWhere;
    int mOpen = 0;
    int mLastId = 0;
    int mFirstNew = 0;
    int mOldDeaths = 0;
    bool mExact = true;
    std::map<Block *, int> mIds;
    /// Who took the place of the dead.
    std::map<int, std::vector<int>> mPlaces;
    std::set<int> mUnclear;
    /// What was rewritten, and all around it.
    std::set<int> mTouched;
    /// What was made, and what reads another block in the place of one that is gone.
    std::set<int> mMoved;
    std::vector<std::pair<int, PureValueRef>> mEntries;
};

using Step = std::pair<std::uint32_t, std::uint32_t>;

/// Blocks with one wire, each reading up to three wires of any others.
void fillByChance(Model &model, const std::vector<std::vector<std::uint32_t>> &inputs) {
    Context *context = model.getContext();
    std::vector<Wire *> wires;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        wires.push_back(Wire::create(*Block::create(model, "b" + std::to_string(i), A_ADD_BLOCK), A_PRIM_WIRE_OUT));
    }
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        for (std::size_t k = 0; k < inputs[i].size() && k < 3; ++k) {
            wires[i]->getBlock().setParam(NumberValue::get(static_cast<long>(k), context),
                                          *wires[inputs[i][k] % wires.size()]);
        }
    }
}

RC_GTEST_PROP(MetadataRoutes, leadToAllThatTookTheDeadBlocksPlaces,
              (const std::vector<std::vector<std::uint32_t>> &inputs, const std::vector<Step> &steps)) {
    ContextMgr mgr;
    Design design(mgr.context());
    Model &model = *Model::create(design, "m");
    fillByChance(model, inputs);
    Rewriter rewriter(model, Where::Anywhere);
    rewriter.open();
    for (const Step &step : steps) {
        rewriter.step(step.first, step.second);
    }
    rewriter.closeAll();
    RC_ASSERT(static_cast<bool>(test::checkInvariants(design)));
    rewriter.check();
}

RC_GTEST_PROP(MetadataRoutes, leadNowhereElseWhereRewritesAreApart,
              (const std::vector<std::vector<std::uint32_t>> &inputs, const std::vector<Step> &steps)) {
    ContextMgr mgr;
    Design design(mgr.context());
    Model &model = *Model::create(design, "m");
    fillByChance(model, inputs);
    Rewriter rewriter(model, Where::Apart);
    rewriter.open();
    for (const Step &step : steps) {
        rewriter.step(step.first, step.second);
    }
    rewriter.closeAll();
    rewriter.check();
}

RC_GTEST_PROP(MetadataRoutes, leadOnFromSectionToSection,
              (const std::vector<std::vector<std::uint32_t>> &inputs, const std::vector<std::vector<Step>> &sections)) {
    ContextMgr mgr;
    Design design(mgr.context());
    Model &model = *Model::create(design, "m");
    fillByChance(model, inputs);
    Rewriter rewriter(model, Where::Anywhere);
    for (const std::vector<Step> &steps : sections) {
        rewriter.open();
        for (const Step &step : steps) {
            rewriter.step(step.first, step.second);
        }
        rewriter.closeAll();
        rewriter.check();
    }
}

RC_GTEST_PROP(MetadataRoutes, leadThroughRewritesOfDesignsOfAllBlockTypes, (const std::vector<Step> &steps)) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::unique_ptr<Design> design = generator.make(*test::recipes(24));
    Model &model = *design->getModel(StringValue::get("top", mgr.context()));
    Rewriter rewriter(model, Where::Anywhere);
    rewriter.open();
    for (const Step &step : steps) {
        rewriter.step(step.first, step.second);
    }
    rewriter.closeAll();
    rewriter.check();
}

} // namespace
} // namespace orvo
