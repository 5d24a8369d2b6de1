// What flattening does to all that designs carry beside their blocks: metadata, domains, latency constraints, and
// inputs that nothing drives. Each block and each model block of a design by chance gets a number of its own as
// metadata. A copy carries the numbers of the model blocks that it came through, so that it is known which instance of
// which block it is, and each can be held against what it was.
#include "orvo/flattener.h"

#include "orvo/scheduleconstraints.h"
#include "support/flattenmarks.h"
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/randomdesigns.h"

#include <orvo/annotation.h>
#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/domainboundary.h>
#include <orvo/domaininfer.h>
#include <orvo/latencyconstraints.h>
#include <orvo/modelkinds.h>
#include <orvo/orvoutils.h>
#include <orvo/pass.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace orvo {
namespace {

constexpr const char *kEverything = "FlattenEverythingPass";
constexpr const char *kExplicit = "FlattenExplicitPass";
constexpr const char *kZRT = "FlattenZRTExplicitPass";
constexpr const char *kSimulink = "FlattenSimulinkPass";

bool isOfType(const Block &block, const StaticString &type) { return block.type() == type.get_ptr(); }

/// Those that go when their model dissolves.
bool isBoundary(const Block &block) { return isOfType(block, A_INPUT_BLOCK) || isOfType(block, A_OUTPUT_BLOCK); }

Model *instantiatedModel(const Block &block) { return Node::from<Model>(block[A_MODEL_NODE]); }

/// None for a value that is no tuple.
std::vector<ValueRef> elementsOf(const ValueRef &value) {
    std::vector<ValueRef> elements;
    if (const TupleValueRef tuple = tupleVR(value)) {
        elements.assign(tuple->begin(), tuple->end());
    }
    return elements;
}

// --- decorations

/// The blocks of a model that outlive it, with at least `wires` wires and `ports` ports.
std::vector<Block *> lastingBlocks(Model &model, std::size_t wires, std::size_t ports) {
    std::vector<Block *> found;
    for (Block &block : model) {
        if (!isBoundary(block) && !isOfType(block, A_MODEL_BLOCK) && block.size() >= wires &&
            block.port_size() >= ports) {
            found.push_back(&block);
        }
    }
    return found;
}

std::vector<Block *> modelBlocks(Model &model) {
    std::vector<Block *> found;
    for (Block &block : model) {
        if (isOfType(block, A_MODEL_BLOCK)) {
            found.push_back(&block);
        }
    }
    return found;
}

/// Adds one thing a recipe to a design. The same recipes add the same to equal designs.
class Decorator {
  public:
    explicit Decorator(Design &design) : mDesign(design), mContext(design.getContext()) {
        for (Model &model : design) {
            mModels.push_back(&model);
        }
    }

    void decorate(const std::vector<gen::Recipe> &recipes) {
        for (const gen::Recipe &recipe : recipes) {
            gen::Chooser chooser(recipe, 0);
            switch (recipe.kind % 5) {
            case 0:
                comment(chooser);
                break;
            case 1:
            case 2:
                constrain(chooser);
                break;
            case 3:
                signpost(chooser);
                break;
            default:
                open(chooser);
            }
        }
        number();
    }

  private:
    PureValueRef value(const std::string &text) const { return PureValueRef(Value::parse(text, mContext)); }
    Model &model(gen::Chooser &chooser) const { return *mModels[chooser.below(mModels.size())]; }

    /// An entry that other blocks may carry, too.
    void comment(gen::Chooser &chooser) const {
        Model &in = model(chooser);
        std::vector<Block *> blocks = lastingBlocks(in, 0, 0);
        const std::vector<Block *> calls = modelBlocks(in);
        blocks.insert(blocks.end(), calls.begin(), calls.end());
        if (!blocks.empty()) {
            MetadataManipulator(*blocks[chooser.below(blocks.size())])
                .append(A_COMMENT_TAG, NumberValue::get(static_cast<std::int64_t>(chooser.below(3)), mContext));
        }
    }

    struct Instance {
        RefChain chain;
        Model *model;
    };
    Instance walk(Model &start, gen::Chooser &chooser) const {
        Instance at{{}, &start};
        for (;;) {
            const std::vector<Block *> calls = modelBlocks(*at.model);
            const std::size_t choice = chooser.below(calls.size() + 2);
            if (choice >= calls.size()) {
                return at;
            }
            at.chain.push_back(calls[choice]);
            at.model = instantiatedModel(*calls[choice]);
        }
    }
    /// A block with a wire and a port that may be ends of constraints.
    Block &marker(Model &in, const StaticString &type) const {
        const PureValueRef name(StringValue::get(std::string("marker ") + type.text(), mContext));
        if (Block *known = in.getBlock(name)) {
            return *known;
        }
        Block &made = *Block::create(in, name);
        made.setParam(A_BLOCK_TYPE, type);
        Wire &wire = *Wire::create(made, "w");
        Wire *driver = &wire;
        for (Block *block : lastingBlocks(in, 1, 0)) {
            driver = &*block->begin();
        }
        made.setParam(value("p"), *driver);
        return made;
    }
    void constrain(gen::Chooser &chooser) const {
        Model &root = model(chooser);
        const Instance start = walk(root, chooser);
        const Instance end = walk(root, chooser);
        const Block &from = marker(*start.model, A_SIGNAL_IN_BLOCK);
        const Block &to = marker(*end.model, A_SIGNAL_OUT_BLOCK);
        LatencyConstraintCreator creator(mDesign);
        creator.from(from.getWire(value("w")), start.chain).to(to.getPort(value("p")), end.chain);
        const int latency = static_cast<int>(chooser.below(9));
        chooser.chance(1, 2) ? creator.lessEqual(latency) : creator.greaterThan(latency);
        if (chooser.chance(1, 3)) {
            creator.modifier(value("soft"));
        }
        creator.end();
    }

    void signpost(gen::Chooser &chooser) const {
        Model &in = model(chooser);
        const bool atPort = chooser.chance(1, 2);
        const std::vector<Block *> blocks = lastingBlocks(in, atPort ? 0 : 1, atPort ? 1 : 0);
        if (blocks.empty()) {
            return;
        }
        const Block &block = *blocks[chooser.below(blocks.size())];
        const std::size_t which = chooser.below(atPort ? block.port_size() : block.size());
        const bool ends = chooser.chance(1, 3);
        DomainBoundaryCreator creator(mDesign, value(chooser.chance(1, 6) ? "blue" : "red"));
        if (atPort) {
            const Port *port = &*std::next(block.port_begin(), static_cast<std::ptrdiff_t>(which));
            ends ? creator.stop(port) : creator.start(port);
        } else {
            const Wire *wire = &*std::next(block.begin(), static_cast<std::ptrdiff_t>(which));
            ends ? creator.stop(wire) : creator.start(wire);
        }
    }

    /// An input of a model block, or an output of a model.
    void open(gen::Chooser &chooser) const {
        Model &in = model(chooser);
        std::vector<Block *> blocks = modelBlocks(in);
        if (!in.getParentBlocks().empty() && in.getOutputBlock() != nullptr) {
            blocks.push_back(in.getOutputBlock());
        }
        if (blocks.empty()) {
            return;
        }
        Block &block = *blocks[chooser.below(blocks.size())];
        if (block.port_size() != 0) {
            const std::size_t which = chooser.below(block.port_size());
            block.setParam(std::next(block.port_begin(), static_cast<std::ptrdiff_t>(which))->getName(), nullptr);
        }
    }

    void number() const {
        std::int64_t next = 0;
        for (Model *model : mModels) {
            for (Block &block : *model) {
                if (!isBoundary(block)) {
                    MetadataManipulator(block).append(A_XNODE_ID_TAG, NumberValue::get(next++, mContext));
                }
            }
        }
    }

    Design &mDesign;
    Context *mContext;
    std::vector<Model *> mModels;
};

// --- what is seen of a design

/// Which block of which instance: the number of the block, then those of the model blocks around it from within.
using Key = std::vector<const Value *>;

struct Place {
    const Block *block;
    RefChain chain;
    /// The entries that others may carry, too, with those of the model blocks around, each once.
    std::vector<const Value *> comments;
};

/// A wire or port of a block; empty for one that nothing drives, or that a ring of models drives.
struct End {
    Key key;
    const Value *name = nullptr;
    bool operator==(const End &) const = default;
    auto operator<=>(const End &) const = default;
};

/// Relation, latency and modifiers, with both ends.
using Constraint = std::tuple<std::vector<const Value *>, std::vector<End>, std::vector<End>>;

/// All instances of all blocks below a model.
class Instances {
  public:
    explicit Instances(Model &top) { walk(top); }

    const std::map<Key, Place> &places() const { return mPlaces; }
    const std::multiset<Constraint> &constraints() const { return mConstraints; }
    bool isUnique() const { return mUnique; }

    End driver(const Place &place, const PureValueRef &port) const {
        RefChain chain = place.chain;
        const Block *block = place.block;
        PureValueRef name = port;
        // No way passes an end twice unless it is a ring.
        std::set<std::tuple<RefChain, const Block *, const Value *>> passed;
        for (;;) {
            const Port *reader = block->getPort(name);
            if (reader == nullptr || !passed.emplace(chain, block, name.get_ptr()).second) {
                return {};
            }
            const Wire &wire = *reader->peekWire();
            block = &wire.getBlock();
            name = wire.getName();
            if (isOfType(*block, A_MODEL_BLOCK)) {
                chain.push_back(block);
                block = instantiatedModel(*block)->getOutputBlock();
                if (block == nullptr) {
                    return {};
                }
            } else if (isOfType(*block, A_INPUT_BLOCK) && !chain.empty()) {
                block = chain.back();
                chain.pop_back();
            } else {
                return {keyOf(*block, chain), name.get_ptr()};
            }
        }
    }

  private:
    struct Carried {
        std::vector<const Value *> numbers;
        std::vector<const Value *> comments;
    };
    static Carried carriedBy(const Block &block) {
        Carried carried;
        for (const ValueRef &entry : elementsOf(block.getParam(A_METADATA))) {
            (tupleVR(entry)->at(0) == A_XNODE_ID_TAG ? carried.numbers : carried.comments).push_back(entry.get_ptr());
        }
        return carried;
    }
    /// Blocks of the top model's edge have none, so that their names stand in.
    static Key keyOf(const Block &block, const RefChain &chain) {
        Key key = carriedBy(block).numbers;
        if (key.empty()) {
            key.push_back(block.getName().get_ptr());
        }
        for (auto around = chain.rbegin(); around != chain.rend(); ++around) {
            const std::vector<const Value *> numbers = carriedBy(**around).numbers;
            key.insert(key.end(), numbers.begin(), numbers.end());
        }
        return key;
    }

    void walk(const Model &model) {
        for (const Block &block : model) {
            if (isOfType(block, A_MODEL_BLOCK)) {
                mChain.push_back(&block);
                walk(*instantiatedModel(block));
                mChain.pop_back();
            } else if (!isBoundary(block)) {
                Place place{&block, mChain, carriedBy(block).comments};
                for (auto around = mChain.rbegin(); around != mChain.rend(); ++around) {
                    for (const Value *comment : carriedBy(**around).comments) {
                        if (std::find(place.comments.begin(), place.comments.end(), comment) == place.comments.end()) {
                            place.comments.push_back(comment);
                        }
                    }
                }
                mUnique = mPlaces.emplace(keyOf(block, mChain), place).second && mUnique;
            }
        }
        for (const ValueRef &record : elementsOf(model.getParam(A_SYNTH_SCHEDULE_CONSTRAINTS))) {
            const std::vector<ValueRef> elements = elementsOf(record);
            Constraint constraint;
            for (std::size_t i = internal::kRecordRelation; i < elements.size(); ++i) {
                std::get<0>(constraint).push_back(elements[i].get_ptr());
            }
            std::get<1>(constraint) = endsOf(model, elements[0], A_SCHEDULE_CONSTRAINT_WIRES, internal::kEntryFrom);
            std::get<2>(constraint) = endsOf(model, elements[0], A_SCHEDULE_CONSTRAINT_PORTS, internal::kEntryTo);
            mConstraints.insert(std::move(constraint));
        }
    }

    /// Where a constraint of the model ends in this instance of it.
    std::vector<End> endsOf(const Model &model, const ValueRef &id, const StaticString &table, std::size_t place) {
        std::vector<End> ends;
        const std::size_t depth = mChain.size();
        const std::function<void(const Model &)> look = [&](const Model &at) {
            for (const Block &block : at) {
                for (const ValueRef &entry : elementsOf(block.getParam(table))) {
                    const std::vector<ValueRef> parts = elementsOf(entry);
                    const std::vector<ValueRef> ids = elementsOf(parts[place]);
                    const RefChain below(mChain.begin() + static_cast<std::ptrdiff_t>(depth), mChain.end());
                    const bool isHere =
                        below.empty() ? parts[1] == A_TRUE : tupleFromRefChain(below, block.getContext()) == parts[1];
                    if (isHere && std::find(ids.begin(), ids.end(), id) != ids.end()) {
                        ends.push_back({keyOf(block, mChain), parts[0].get_ptr()});
                    }
                }
                if (isOfType(block, A_MODEL_BLOCK)) {
                    mChain.push_back(&block);
                    look(*instantiatedModel(block));
                    mChain.pop_back();
                }
            }
        };
        look(model);
        std::sort(ends.begin(), ends.end());
        return ends;
    }

    RefChain mChain;
    std::map<Key, Place> mPlaces;
    std::multiset<Constraint> mConstraints;
    bool mUnique = true;
};

/// All of a block but what flattening is to change.
std::map<const Value *, const Value *> paramsOf(const Block &block) {
    std::map<const Value *, const Value *> params;
    for (auto param : Params(block)) {
        const bool isOther = param.first != A_METADATA && param.first != A_SCHEDULE_CONSTRAINT_PORTS &&
                             param.first != A_SCHEDULE_CONSTRAINT_WIRES && Node::from<Wire>(param.second) == nullptr;
        if (isOther) {
            params.emplace(param.first.get_ptr(), param.second.get_ptr());
        }
    }
    return params;
}

/// Of ports that the block has now: those that nothing drives may be gone.
std::map<std::pair<Key, std::string>, std::string> domainsOf(const Instances &instances, DomainAnalysisInfo &info) {
    std::map<std::pair<Key, std::string>, std::string> domains;
    const auto add = [&](const Key &key, const char *kind, const PureValueRef &name, const PureValueRef &domain) {
        domains[{key, kind + name->toString()}] = domain ? domain->toString() : "-";
    };
    for (const auto &[key, place] : instances.places()) {
        const unsigned long id = info.getRefChainCollection().getOrCreateId(place.chain);
        for (const Wire &wire : *place.block) {
            add(key, "wire ", wire.getName(), info.getDomain(wire, id));
        }
        for (const Port &port : place.block->ports()) {
            add(key, "port ", port.getName(), info.getDomain(port, id));
        }
    }
    return domains;
}

struct Tally {
    std::size_t instances = 0;
    std::size_t gone = 0;
    std::size_t open = 0;
    std::size_t constraints = 0;
    std::size_t across = 0;
    std::size_t domains = 0;
};

::testing::AssertionResult differs(const char *what, const Key &key) {
    auto failure = ::testing::AssertionFailure() << what << " of";
    for (const Value *part : key) {
        failure << " " << part->toString();
    }
    return failure;
}

::testing::AssertionResult sameBlocks(const Instances &before, const Instances &after, Tally &tally) {
    if (!before.isUnique() || !after.isUnique()) {
        return ::testing::AssertionFailure() << "two blocks carry the same";
    }
    for (const auto &[key, place] : after.places()) {
        if (before.places().count(key) == 0) {
            return differs("a block came", key);
        }
    }
    for (const auto &[key, was] : before.places()) {
        const auto found = after.places().find(key);
        if (found == after.places().end()) {
            return differs("the block is gone", key);
        }
        const Place &is = found->second;
        ++tally.instances;
        tally.gone += was.chain.size() - is.chain.size();
        if (was.comments != is.comments) {
            return differs("the metadata", key);
        }
        if (paramsOf(*was.block) != paramsOf(*is.block)) {
            return differs("the parameters", key);
        }
        for (const Port &port : was.block->ports()) {
            const End driver = before.driver(was, port.getName());
            tally.open += driver.name == nullptr ? 1 : 0;
            if (driver != after.driver(is, port.getName())) {
                return differs(port.getName()->toString().c_str(), key) << ": another driver";
            }
        }
        for (const Port &port : is.block->ports()) {
            if (was.block->getPort(port.getName()) == nullptr) {
                return differs(port.getName()->toString().c_str(), key) << ": a new input";
            }
        }
    }
    return ::testing::AssertionSuccess();
}

/// Whether a domain ends at a wire that is read in another level. What is behind the boundary is a net of its own, on
/// which the domain of one reader flows to the others; once it is one net with the wire, nothing flows from there.
bool endsAtBoundaries(const Design &design) {
    const auto isBoundary = [](const Port &port) {
        const Value *type = port.getBlock().type();
        return type == A_MODEL_BLOCK.get_ptr() || type == A_OUTPUT_BLOCK.get_ptr();
    };
    return std::any_of(design.begin(), design.end(), [&](const Model &model) {
        const auto parsed = DomainInference::parseScheduledDomainsParameter(model);
        return std::any_of(parsed.ends.begin(), parsed.ends.end(), [&](const auto &end) {
            const Wire *wire = end.point.wire();
            return wire != nullptr && std::any_of(wire->port_begin(), wire->port_end(), isBoundary);
        });
    });
}

/// Where nothing is open and no two domains meet: an open net is one as long as it lies in a model of its own, and
/// which of two domains stands is told by the length of their ways.
::testing::AssertionResult sameDomains(Design &before, const Instances &beforeInstances, Design &after,
                                       const Instances &afterInstances, bool open, test::HeardMessages &heard,
                                       Tally &tally) {
    const DomainInference::DefaultInferenceModifier modifier;
    DomainAnalysisInfo beforeInfo = DomainInference::inferDomains(before, modifier);
    const bool wasClear = heard.take().empty();
    DomainAnalysisInfo afterInfo = DomainInference::inferDomains(after, modifier);
    const std::vector<std::string> lines = heard.take();
    if (!wasClear || open || endsAtBoundaries(before)) {
        return ::testing::AssertionSuccess();
    }
    if (!lines.empty()) {
        return ::testing::AssertionFailure() << lines.front();
    }
    const auto were = domainsOf(beforeInstances, beforeInfo);
    for (const auto &[end, is] : domainsOf(afterInstances, afterInfo)) {
        tally.domains += is != "-" ? 1 : 0;
        if (were.at(end) != is) {
            return differs("the domain", end.first)
                   << ", " << end.second << ": " << is << " in place of " << were.at(end);
        }
    }
    return ::testing::AssertionSuccess();
}

struct Decorated {
    std::unique_ptr<Design> design;
    Model &top;
};

Decorated make(gen::DesignGenerator &generator, const std::vector<gen::Recipe> &recipes,
               const std::vector<gen::Recipe> &decorations) {
    std::unique_ptr<Design> design = generator.make(recipes);
    Model &top = *design->getModel(StringValue::get("top", design->getContext()));
    top.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
    PassScheduler scheduler;
    scheduler.addPass("DeadModelPass");
    scheduler.apply(*design);
    Decorator(*design).decorate(decorations);
    return {std::move(design), top};
}

::testing::AssertionResult keepsWhatDesignsCarry(const char *pass, const std::vector<gen::Recipe> &recipes,
                                                 const std::vector<gen::Recipe> &decorations, std::uint32_t marks,
                                                 Tally &tally) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    test::HeardMessages heard(mgr.context());
    const Decorated before = make(generator, recipes, decorations);
    const Decorated after = make(generator, recipes, decorations);
    for (Design *design : {before.design.get(), after.design.get()}) {
        test::markForFlattening(*design, marks);
        if (pass == kSimulink) {
            test::markScheduled(*design);
        }
    }
    if (!OrvoUtils::requireConstraintsConsistentWithDesign(*before.design)) {
        return ::testing::AssertionFailure() << "constraints were wrong before";
    }
    heard.take();
    PassScheduler scheduler;
    scheduler.addPass(pass);
    scheduler.addPass("DeadModelPass");
    scheduler.apply(*after.design);
    for (const std::string &line : heard.take()) {
        if (line.rfind("FLATTENING_JOINS_TAGS ", 0) != 0 && line.rfind("IOBLOCKS_OUTSIDE", 0) != 0 &&
            line.rfind("BLOCK_BETWEEN", 0) != 0 && line.rfind("EXPECTED_GP", 0) != 0) {
            return ::testing::AssertionFailure() << line;
        }
    }
    if (const auto sound = test::checkInvariants(*after.design); !sound) {
        return sound;
    }
    if (!OrvoUtils::requireConstraintsConsistentWithDesign(*after.design)) {
        return ::testing::AssertionFailure() << heard.take().front();
    }
    const Instances was(before.top);
    const Instances is(after.top);
    const std::size_t openBefore = tally.open;
    if (const auto same = sameBlocks(was, is, tally); !same) {
        return same;
    }
    if (was.constraints() != is.constraints()) {
        return ::testing::AssertionFailure()
               << "constraints: " << was.constraints().size() << " and " << is.constraints().size();
    }
    for (const Constraint &constraint : was.constraints()) {
        ++tally.constraints;
        const auto around = [](const std::vector<End> &ends) {
            return Key(ends.at(0).key.begin() + 1, ends[0].key.end());
        };
        tally.across += around(std::get<1>(constraint)) != around(std::get<2>(constraint)) ? 1 : 0;
    }
    return sameDomains(*before.design, was, *after.design, is, tally.open != openBefore, heard, tally);
}

void expectKept(const char *pass) {
    const bool holds = rc::check(std::string(pass) + " keeps what designs carry", [=] {
        const std::vector<gen::Recipe> recipes = *test::recipes(60);
        const std::vector<gen::Recipe> decorations = *test::recipes(20);
        const std::uint32_t marks =
            pass == kEverything ? 0 : *rc::gen::inRange<std::uint32_t>(0, std::numeric_limits<std::uint32_t>::max());
        Tally tally;
        const auto kept = keepsWhatDesignsCarry(pass, recipes, decorations, marks, tally);
        if (!kept) {
            ContextMgr mgr;
            gen::DesignGenerator generator(mgr.context());
            RC_LOG() << kept.message() << "\n";
            XMLServices().toXML(RC_LOG(), *make(generator, recipes, decorations).design);
        }
        RC_ASSERT(kept);
    });
    EXPECT_TRUE(holds);
}

TEST(FlattenDecorated, keepsWhatDesignsCarry) { expectKept(kEverything); }
TEST(FlattenDecorated, keepsWhatMarkedReceiversCarry) { expectKept(kExplicit); }
TEST(FlattenDecorated, keepsWhatMarkedSourcesCarry) { expectKept(kZRT); }
TEST(FlattenDecorated, keepsWhatScheduledSubsystemsCarry) { expectKept(kSimulink); }

// What the properties above rest on.
TEST(FlattenDecorated, meetsAllThatDesignsCarry) {
    Tally tally;
    for (std::uint64_t seed = 0; seed < 150; ++seed) {
        const auto kept = keepsWhatDesignsCarry(kEverything, gen::recipesOf(seed, 60),
                                                gen::recipesOf(seed + 1000, seed % 12), 0, tally);
        EXPECT_TRUE(kept) << seed;
    }
    EXPECT_GE(tally.instances, 5000U);
    EXPECT_GE(tally.gone, 3000U);
    EXPECT_GE(tally.open, 50U);
    EXPECT_GE(tally.constraints, 200U);
    EXPECT_GE(tally.across, 50U);
    EXPECT_GE(tally.domains, 2000U);
}

} // namespace
} // namespace orvo
