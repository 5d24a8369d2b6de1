// Complex signals come apart inside models and at their boundaries, and the design computes the same.
#include "orvo/unrollcomplexpass.h"

#include "orvo/complexunrollers.h"
#include "orvo/replacedsignals.h"
#include "orvo/unrollpasses.h"

#include "support/cataloguefindings.h"
#include "support/checkedrun.h"
#include "support/heardmessages.h"
#include "support/invariants.h"
#include "support/lowering.h"
#include "support/randomdesigns.h"
#include "support/samebehaviour.h"
#include "support/simulatorfixture.h"
#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/blockclass.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/unrollmappings.h>
#include <orvo/xmlservices.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

namespace orvo {
namespace {

/// The signals that have no place in a part: vectors of complex numbers at the boundaries of models, and what has no
/// type. They are told of by these lines.
class Misfits {
  public:
    explicit Misfits(Design &design) : mDesign(design) { add(); }
    /// Those that there are now.
    void add() {
        PassScheduler scheduler;
        scheduler.requirePass("GlobalTypePass");
        scheduler.requirePass("ModelTreePass");
        const PassResults results = scheduler.apply(mDesign);
        GlobalTypePass &types = *results.getPass<GlobalTypePass>();
        internal::DistinctInstances instances(*results.getPass<ModelTreePass>(), types);
        for (Model &model : mDesign) {
            for (const RefChain &chain : instances.of(model)) {
                addOf(model, chain, types);
            }
        }
    }
    bool tell(const std::string &line) const { return mLines.count(line) != 0; }

  private:
    void addOf(const Model &model, const RefChain &chain, GlobalTypePass &types) {
        for (const Block &block : model) {
            for (const Wire &wire : block) {
                if (isMisfit(block, types.getType(wire, chain))) {
                    mLines.insert("UNCOMPLEX_INVALID_WIRE_TYPE wire=" + wire.value()->getPath());
                }
            }
            for (const Port &port : block.ports()) {
                if (isMisfit(block, types.getType(port, chain))) {
                    mLines.insert("UNCOMPLEX_INVALID_PORT_TYPE block=" + block.value()->getPath() +
                                  " port=" + port.getName()->toString());
                }
            }
        }
    }
    bool isMisfit(const Block &block, const PureValueRef &type) const {
        const Value *of = block.type();
        const bool isBoundary =
            of == A_INPUT_BLOCK.get_ptr() || of == A_OUTPUT_BLOCK.get_ptr() || of == A_MODEL_BLOCK.get_ptr();
        Context *context = mDesign.getContext();
        return !type ||
               (isBoundary && VectorDecorSpec(type, context).isVector() && ComplexDecorSpec(type, context).isComplex());
    }

    Design &mDesign;
    std::set<std::string> mLines;
};

/// What is left whole, and told so; models whose instances differ, too.
bool isExpected(const std::string &line) {
    const char *const details[] = {"its signals differ in type between the instances",
                                   "both sides of the boundary disagree", "the name of a part is in use"};
    return test::isRefusal(line) || (line.find("UNCOMPLEX_INVALID_EXPAND_TYPE") == 0 &&
                                     std::any_of(std::begin(details), std::end(details), [&](const char *detail) {
                                         return line.find(detail) != std::string::npos;
                                     }));
}

void computesTheSame(const std::vector<const char *> &passes) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    const std::vector<gen::Recipe> recipes = *test::recipes(40);
    const auto before = generator.make(recipes);
    const auto design = generator.make(recipes);
    Misfits misfits(*design);
    std::vector<std::string> heard = test::runChecked(*design, passes, [&misfits] { misfits.add(); });
    std::erase_if(heard, [&misfits](const std::string &line) { return isExpected(line) || misfits.tell(line); });
    const auto show = [&] {
        std::ostringstream text;
        XMLServices().toXML(text, *before);
        return text.str();
    };
    if (!heard.empty()) {
        RC_LOG() << heard.front() << show();
    }
    RC_ASSERT(heard.empty());
    const std::vector<std::string> findings = test::newCatalogueFindings(*before, *design);
    if (!findings.empty()) {
        RC_LOG() << findings.front() << show();
    }
    RC_ASSERT(findings.empty());
    sim::CompareOptions options;
    options.cycles = 40;
    const auto same = test::sameBehaviour(*before, *design, "top", options);
    if (!same) {
        RC_LOG() << same.message() << show();
    }
    RC_ASSERT(static_cast<bool>(same));
}

RC_GTEST_PROP(UnrollComplexPassOnRandomDesigns, computesTheSame, ()) { computesTheSame({"UnrollComplexPass"}); }

RC_GTEST_PROP(UnrollComplexCrossModelPassOnRandomDesigns, computesTheSame, ()) {
    computesTheSame({"UnrollComplexCrossModelPass"});
}

RC_GTEST_PROP(UnrollComplexPassesOnRandomDesigns, computeTheSame, ()) {
    computesTheSame({"UnrollComplexPass", "UnrollComplexCrossModelPass", "ElideUnpackPass", "DeadBlockPass"});
}

RC_GTEST_PROP(UnrollComplexPassesOnRandomDesigns, computeTheSameBehindVectors, ()) {
    computesTheSame({"UnrollVectorPass", "UnrollVectorCrossModelPass", "ElideUnpackPass", "UnrollComplexPass",
                     "UnrollComplexCrossModelPass", "ElideUnpackPass", "DeadBlockPass"});
}

/// The blocks of the top model at which a signal is complex.
std::vector<const Block *> complexBlocksOf(Design &design) {
    PassScheduler scheduler;
    scheduler.requirePass("GlobalTypePass");
    const PassResults results = scheduler.apply(design);
    GlobalTypePass &types = *results.getPass<GlobalTypePass>();
    std::vector<const Block *> found;
    for (Block &block : *design.getModel(StringValue::get("top", design.getContext()))) {
        const auto isComplex = [&](const auto &end) {
            return ComplexDecorSpec(types.getType(end, {}), design.getContext()).isComplex();
        };
        const auto ports = block.ports();
        if (std::any_of(ports.begin(), ports.end(), isComplex) || std::any_of(block.begin(), block.end(), isComplex)) {
            found.push_back(&block);
        }
    }
    return found;
}

/// How many blocks of complex signals of a type came apart, and how many stayed.
struct Tally {
    std::size_t apart = 0;
    std::size_t whole = 0;
};

/// Of each block type that has an unroller, blocks of complex signals come apart, and few stay. Every other design is
/// compared.
TEST(UnrollComplexPassOnRandomDesigns, computesTheSameForEveryTypeThatComesApart) {
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context());
    std::map<const Value *, Tally> tallies;
    for (std::uint64_t seed = 1; seed <= 400; ++seed) {
        const std::vector<gen::Recipe> recipes = gen::recipesOf(seed, 80);
        const auto before = generator.make(recipes);
        const auto design = generator.make(recipes);
        std::map<std::string, const Value *> complexBlocks;
        for (const Block *block : complexBlocksOf(*design)) {
            complexBlocks.emplace(block->getName()->toString(), block->type());
        }
        test::HeardMessages heard(mgr.context());
        PassScheduler unrolling;
        unrolling.addPass("UnrollComplexPass");
        unrolling.addPass("ElideUnpackPass");
        unrolling.apply(*design);
        EXPECT_TRUE(test::checkInvariants(*design));
        EXPECT_EQ(test::newCatalogueFindings(*before, *design), std::vector<std::string>{}) << seed;
        std::size_t stayed = 0;
        for (const Block *block : complexBlocksOf(*design)) {
            if (block->getClass()->get<ComplexUnrollHandler>() != nullptr) {
                ++tallies[block->type()].whole;
                ++stayed;
            }
            complexBlocks.erase(block->getName()->toString());
        }
        EXPECT_TRUE(stayed == 0 || !heard.take().empty()) << seed;
        for (const auto &[name, type] : complexBlocks) {
            ++tallies[type].apart;
        }
        if (seed % 2 != 0) {
            sim::CompareOptions options;
            options.cycles = 12;
            options.streams = 1;
            EXPECT_TRUE(test::sameBehaviour(*before, *design, "top", options)) << seed;
        }
    }
    std::size_t all = 0;
    for (const internal::ComplexUnrollRow &row : internal::complexUnrollRows()) {
        if (internal::comesApart(row)) {
            const Tally &tally = tallies[row.blockType->get_ptr()];
            EXPECT_GT(tally.apart, 4 * tally.whole) << row.blockType->text();
            all += tally.apart;
        }
    }
    std::cout << all << " blocks of complex signals came apart\n";
}

class UnrollComplexPassTest : public test::SimulatorFixture {
  protected:
    using Names = std::vector<std::string>;
    /// Without the types that differ, for which there is a test.
    static Names withoutTypes(Names lines) {
        for (std::string &line : lines) {
            line = line.substr(0, line.find(": ", line.find("instances of the model")));
        }
        return lines;
    }
    Names run(const char *pass) {
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler(&state);
        scheduler.addPass(pass);
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        mHeard = heard.take();
        return withoutTypes(mHeard);
    }
    /// Runs the pass over the insides of models, after which the design must compute the same.
    Names runAndCompare() {
        std::stringstream text;
        XMLServices().toXML(text, design);
        Design before(mgr.context());
        EXPECT_TRUE(XMLServices().fromXML(text, before, XMLServices::defaultErrorFunc));
        const Names heard = run("UnrollComplexPass");
        sim::CompareOptions options;
        options.cycles = 50;
        test::expectSameBehaviour(before, design, "top", options);
        return heard;
    }
    const Names kTypesDiffer{"UNCOMPLEX_INVALID_EXPAND_TYPE block=/below/sum detail=its signals differ in type between "
                             "the instances of the model"};
    /// A level that combines its inputs x and y, and a top that uses it.
    void makeTwoLevels(const std::string &x, const std::string &y, const char *type = "addBlock") {
        Block &sum = block(below, "sum", type);
        sum.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
        sum.setParam(value("1"), *Wire::create(*below.getInputBlock(), value("y")));
        output(below, "z", *Wire::create(sum, A_PRIM_WIRE_OUT));
        use("use", "z", input(model, "x", x), input(model, "y", y));
    }
    void use(const char *name, const char *out, Wire &x, Wire &y) {
        Block &made = block(model, name, "modelBlock");
        made.setParam(A_MODEL_NODE, below);
        made.setParam(value("x"), x);
        made.setParam(value("y"), y);
        output(model, out, *Wire::create(made, value("z")));
    }
    /// A level of one block p with an operand, in a design of its own, and a top that uses it with both types.
    void makeTwoInstances(const char *type, const char *first, const char *second, const char *port = "0") {
        ofLevels = std::make_unique<Design>(mgr.context());
        Model &top = *Model::create(*ofLevels, "top");
        levels = Model::create(*ofLevels, "inner");
        Block &product = block(*levels, "p", type);
        product.setParam(value(port), *Wire::create(*Block::create(*levels, "in", A_INPUT_BLOCK), value("x")));
        output(*levels, "z", *Wire::create(product, A_PRIM_WIRE_OUT));
        for (const auto &[name, text] : {std::pair("a", first), std::pair("b", second)}) {
            Block &made = block(top, name, "modelBlock");
            made.setParam(A_MODEL_NODE, *levels);
            made.setParam(value("x"), input(top, std::string("x") + name, text));
            output(top, std::string("z") + name, *Wire::create(made, value("z")));
        }
    }
    /// Further operands of p.
    void factors(const std::vector<const char *> &ports, const char *type) {
        for (const char *port : ports) {
            at(*levels, "p")->setParam(value(port), input(*levels, std::string("in") + port, type));
        }
        for (Block &one : *ofLevels->getModel(value("top"))) {
            for (const char *port : ports) {
                if (one.type() == A_MODEL_BLOCK.get_ptr()) {
                    const std::string name = std::string("in") + port;
                    one.setParam(value(name), input(one.getModel(), name + one.getName()->toString(), type));
                }
            }
        }
    }
    Names runOverLevels() {
        std::stringstream text;
        XMLServices().toXML(text, *ofLevels);
        Design before(mgr.context());
        EXPECT_TRUE(XMLServices().fromXML(text, before, XMLServices::defaultErrorFunc));
        test::HeardMessages heard(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("UnrollComplexPass");
        scheduler.apply(*ofLevels);
        EXPECT_TRUE(test::checkInvariants(*ofLevels));
        sim::CompareOptions options;
        options.cycles = 50;
        test::expectSameBehaviour(before, *ofLevels, "top", options);
        return withoutTypes(heard.take());
    }
    Block *at(Model &of, const char *name) { return of.getBlock(value(name)); }
    /// The ends of constraints in the lower level, by block.
    Names endsAt(const StaticString &list) {
        Names ends;
        for (const Block &one : below) {
            if (const Value *entries = one.findParam(list)) {
                ends.push_back(one.getName()->toString() + " " + entries->toString());
            }
        }
        return ends;
    }

    Design design{mgr.context()};
    Model &model = *Model::create(design, "top");
    Model &below = *Model::create(design, "below");
    std::unique_ptr<Design> ofLevels;
    Model *levels = nullptr;
    PassSchedulerState state;
    /// The last run of the pass, with all that was said.
    Names mHeard;
};

TEST_F(UnrollComplexPassTest, joinsPartsToTheBoundariesOfModels) {
    makeTwoLevels("c s4.0", "s4.0");
    EXPECT_EQ(run("UnrollComplexPass"), Names{});
    EXPECT_EQ(portsOf(*at(model, "use")), (Names{"x", "y"}));
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"x", "y"}));
    EXPECT_EQ(at(below, "sum"), nullptr);
    for (const char *name :
         {"(sum real)", "(sum imag)", "(sum 0 cunpack)", "(sum 1 imagZero)", "(sum primWireOut cpack)"}) {
        EXPECT_NE(at(below, name), nullptr) << name;
    }
}

TEST_F(UnrollComplexPassTest, takesBoundariesApartAndKeepsTheMappings) {
    makeTwoLevels("c s4.0", "s4.0");
    EXPECT_EQ(run("UnrollComplexPass"), Names{});
    EXPECT_EQ(run("UnrollComplexCrossModelPass"), Names{});
    EXPECT_EQ(portsOf(*at(model, "use")), (Names{"y", "(x imag)", "(x real)"}));
    EXPECT_EQ(wiresOf(*at(model, "use")), (Names{"(z imag)", "(z real)"}));
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"y", "(x imag)", "(x real)"}));
    EXPECT_EQ(portsOf(*below.getOutputBlock()), (Names{"(z imag)", "(z real)"}));
    const auto *item =
        dynamic_cast<BoundaryUnrollMappingStateItem *>(state.getItemOfState(A_BOUNDARY_UNROLL_STATE_KEY));
    ASSERT_NE(item, nullptr);
    for (const Model *level : {&model, &below}) {
        const CompoundDecorIndex part = CompoundDecorIndex::createComplexIndex(RealOrImaginary::Imaginary);
        const UnrollMappings &inputs = item->getInputUnrollMapping(*level);
        EXPECT_EQ(inputs.getUnrolledPortName(value("x"), part), value("(x imag)"));
        EXPECT_TRUE(inputs.getUnrolledPortNameList(value("y")).empty());
        EXPECT_EQ(item->getOutputUnrollMapping(*level).getUnrolledPortNameList(value("z")).size(), 2U);
    }
}

TEST_F(UnrollComplexPassTest, putsItsMappingsBehindThoseOfVectors) {
    output(model, "y", input(model, "x", "[2] c s4.0"));
    EXPECT_EQ(run("UnrollVectorCrossModelPass"), Names{});
    EXPECT_EQ(run("UnrollComplexCrossModelPass"), Names{});
    const auto *item =
        dynamic_cast<BoundaryUnrollMappingStateItem *>(state.getItemOfState(A_BOUNDARY_UNROLL_STATE_KEY));
    ASSERT_NE(item, nullptr);
    const CompoundDecorIndex path = CompoundDecorIndex::createVectorIndex(1)
                                    << CompoundDecorIndex::createComplexIndex(RealOrImaginary::Real);
    EXPECT_EQ(item->getInputUnrollMapping(model).getUnrolledPortName(value("x"), path), value("(x real 1)"));
    EXPECT_NE(model.getInputBlock()->getWire(value("(x real 1)")), nullptr);
}

TEST_F(UnrollComplexPassTest, leavesVectorsOfComplexNumbersWholeAtBoundaries) {
    output(model, "y", input(model, "x", "[2] c s4.0"));
    EXPECT_EQ(run("UnrollComplexCrossModelPass"), (Names{"UNCOMPLEX_INVALID_WIRE_TYPE wire=/top/in/x",
                                                         "UNCOMPLEX_INVALID_PORT_TYPE block=/top/out port=y"}));
    EXPECT_NE(model.getInputBlock()->getWire(value("x")), nullptr);
}

TEST_F(UnrollComplexPassTest, putsThePartBeforeTheLastPartOfAName) {
    output(model, "y", input(model, "(a b)", "c s4.0"));
    EXPECT_EQ(run("UnrollComplexCrossModelPass"), Names{});
    EXPECT_EQ(wiresOf(*model.getInputBlock()), (Names{"(a imag b)", "(a real b)"}));
}

TEST_F(UnrollComplexPassTest, leavesABoundaryWholeWhoseNamesWouldClash) {
    output(model, "y", input(model, "x", "c s4.0"));
    output(model, "w", input(model, "(x real)", "s4.0"));
    EXPECT_EQ(run("UnrollComplexCrossModelPass"),
              Names{"UNCOMPLEX_INVALID_EXPAND_TYPE block=/top/in detail=the name of a part is in use"});
    EXPECT_NE(model.getInputBlock()->getWire(value("x")), nullptr);
}

TEST_F(UnrollComplexPassTest, leavesABlockWholeWhoseNamesWouldClash) {
    Block &signals = block(model, "signals", "signalInBlock");
    signals.setParam(value("x"), input(model, "x", "c s4.0"));
    signals.setParam(value("(x imag)"), input(model, "taken", "s4.0"));
    EXPECT_EQ(run("UnrollComplexPass"),
              Names{"UNCOMPLEX_INVALID_EXPAND_TYPE block=/top/signals detail=the name of a part is in use"});
    EXPECT_NE(signals.getPort(value("x")), nullptr);
}

TEST_F(UnrollComplexPassTest, leavesAnInputOfUnknownTypeAloneThatNobodyReads) {
    makeTwoLevels("c s4.0", "s4.0");
    Wire::create(*model.getInputBlock(), value("unused"));
    EXPECT_EQ(run("UnrollComplexCrossModelPass"), Names{});
    EXPECT_NE(model.getInputBlock()->getWire(value("unused")), nullptr);
    EXPECT_EQ(model.getInputBlock()->getWire(value("x")), nullptr);
}

TEST_F(UnrollComplexPassTest, judgesAnInputThatNobodyReadsByTheInstancesThatConnectIt) {
    makeTwoLevels("c s4.0", "s4.0");
    Wire::create(*below.getInputBlock(), value("unread"));
    use("again", "w", *model.getInputBlock()->getWire(value("x")), *model.getInputBlock()->getWire(value("y")));
    at(model, "again")->setParam(value("unread"), input(model, "u", "c s4.0"));
    EXPECT_EQ(run("UnrollComplexPass"), Names{});
    EXPECT_EQ(run("UnrollComplexCrossModelPass"), Names{});
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"y", "(unread imag)", "(unread real)", "(x imag)", "(x real)"}));
    EXPECT_EQ(portsOf(*at(model, "again")), wiresOf(*below.getInputBlock()));
    EXPECT_EQ(portsOf(*at(model, "use")), (Names{"y", "(x imag)", "(x real)"}));
}

TEST_F(UnrollComplexPassTest, leavesABoundaryWholeWhoseUnreadInputIsComplexInOneInstanceOnly) {
    makeTwoLevels("c s4.0", "s4.0");
    Wire::create(*below.getInputBlock(), value("unread"));
    use("again", "w", *model.getInputBlock()->getWire(value("x")), *model.getInputBlock()->getWire(value("y")));
    at(model, "again")->setParam(value("unread"), input(model, "u", "c s4.0"));
    at(model, "use")->setParam(value("unread"), input(model, "v", "s4.0"));
    EXPECT_EQ(run("UnrollComplexCrossModelPass"), Names{"UNCOMPLEX_INVALID_WIRE_TYPE wire=/below/in/unread"});
    EXPECT_NE(below.getInputBlock()->getWire(value("x")), nullptr);
}

TEST_F(UnrollComplexPassTest, leavesABoundaryWholeWhoseUnreadInputIsConnectedToAnUnknownType) {
    makeTwoLevels("c s4.0", "s4.0");
    Wire::create(*below.getInputBlock(), value("unread"));
    use("again", "w", *model.getInputBlock()->getWire(value("x")), *model.getInputBlock()->getWire(value("y")));
    at(model, "again")->setParam(value("unread"), input(model, "u", "c s4.0"));
    at(model, "use")->setParam(value("unread"), *Wire::create(block(model, "what", "extIfaceBlock"), value("v")));
    EXPECT_EQ(run("UnrollComplexCrossModelPass"), Names{"UNCOMPLEX_INVALID_PORT_TYPE block=/top/use port=unread"});
    EXPECT_NE(below.getInputBlock()->getWire(value("x")), nullptr);
}

TEST_F(UnrollComplexPassTest, tellsOfUnknownTypes) {
    Block &sum = block(below, "sum", "addBlock");
    sum.setParam(value("0"), *Wire::create(*Block::create(below, "in", A_INPUT_BLOCK), value("x")));
    Wire::create(sum, A_PRIM_WIRE_OUT);
    EXPECT_EQ(run("UnrollComplexPass"), (Names{"UNCOMPLEX_INVALID_WIRE_TYPE wire=/below/sum/primWireOut",
                                               "UNCOMPLEX_INVALID_PORT_TYPE block=/below/sum port=0"}));
    EXPECT_NE(at(below, "sum"), nullptr);
}

TEST_F(UnrollComplexPassTest, leavesAModelWholeThatIsComplexInOneInstanceOnly) {
    makeTwoLevels("c s4.0", "s4.0");
    use("again", "w", input(model, "real", "s4.0"), *model.getInputBlock()->getWire(value("y")));
    EXPECT_EQ(run("UnrollComplexPass"), (Names{"UNCOMPLEX_INVALID_WIRE_TYPE wire=/below/sum/primWireOut",
                                               "UNCOMPLEX_INVALID_PORT_TYPE block=/below/sum port=0"}));
    EXPECT_NE(at(below, "sum"), nullptr);
}

TEST_F(UnrollComplexPassTest, leavesTheBoundaryWholeOfAModelThatGivesItselfARealInput) {
    makeTwoLevels("c s4.0", "s4.0");
    Block &again = block(below, "again", "modelBlock");
    again.setParam(A_MODEL_NODE, below);
    Block &real = block(below, "real", "constBlock", {{"constValue", "3"}, {"constType", "(typeSFixed 4 0)"}});
    again.setParam(value("x"), *Wire::create(real, A_PRIM_WIRE_OUT));
    EXPECT_EQ(run("UnrollComplexCrossModelPass"),
              Names{"UNCOMPLEX_INVALID_EXPAND_TYPE block=/below/again detail=both sides of the boundary disagree"});
    EXPECT_EQ(portsOf(*at(model, "use")), (Names{"x", "y"}));
    EXPECT_EQ(wiresOf(*below.getInputBlock()), (Names{"x", "y"}));
    EXPECT_EQ(portsOf(again), Names{"x"});
}

TEST_F(UnrollComplexPassTest, writesNoTypesThatDifferBetweenInstances) {
    makeTwoLevels("c s4.0", "c s4.0", "multBlock");
    at(below, "sum")->setParam(A_MULT_TYPE, value("(typeSFixed 6 0)"));
    use("again", "w", input(model, "wider", "c s8.0"), *model.getInputBlock()->getWire(value("y")));
    EXPECT_EQ(run("UnrollComplexPass"), kTypesDiffer);
    EXPECT_EQ(mHeard, Names{kTypesDiffer[0] + ": port '0' is (typeComplex (typeSFixed 4 0)) in one and (typeComplex "
                                              "(typeSFixed 8 0)) in another"});
    EXPECT_NE(at(below, "sum"), nullptr);
}

TEST_F(UnrollComplexPassTest, leavesWhatRealNumbersDriveInOneInstanceAlone) {
    Block &held = block(below, "sum", "syncRegisterBlock");
    held.setParam(A_SYNC_REGISTER_DATA_TYPE, value("(typeComplex (typeSFixed 8 0))"));
    Block &in = *Block::create(below, "in", A_INPUT_BLOCK);
    held.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, *Wire::create(in, value("x")));
    held.setParam(A_SYNC_REGISTER_PORT_ICLK_ENABLE, *Wire::create(in, value("y")));
    output(below, "z", *Wire::create(held, A_SYNC_REGISTER_WIRE_ICLK_DATA));
    Wire &enable = input(model, "y", "u1.0");
    use("use", "z", input(model, "x", "s8.0"), enable);
    use("again", "w", input(model, "wider", "c s8.0"), enable);
    EXPECT_EQ(run("UnrollComplexPass"), kTypesDiffer);
    EXPECT_EQ(mHeard, Names{kTypesDiffer[0] + ": wire 'x' is (typeSFixed 8 0) in one and (typeComplex (typeSFixed 8 "
                                              "0)) in another"});
    EXPECT_NE(at(below, "sum"), nullptr);
}

TEST_F(UnrollComplexPassTest, takesProductsOfComplexNumbersApartWhoseInstancesDifferInWidth) {
    const std::pair<const char *, const char *> widths[] = {
        {"c s4.0", "c s8.0"}, {"c s3.1", "c u5.2"}, {"[2] c s4.0", "[2] c s8.0"}, {"c float(10,5)", "c float(23,8)"}};
    for (const auto &[first, second] : widths) {
        makeTwoInstances("multBlock", first, second);
        factors({"1"}, first);
        EXPECT_EQ(runOverLevels(), Names{}) << first;
        for (const char *sum : {"(p realSub)", "(p imagAdd)"}) {
            ASSERT_NE(at(*levels, sum), nullptr) << first << sum;
            EXPECT_EQ(at(*levels, sum)->getParam(A_ADD_TYPE), nullptr) << first << sum;
        }
    }
}

TEST_F(UnrollComplexPassTest, leavesProductsOfComplexNumbersWholeThatAreToBeOfThreeMultipliers) {
    const Names kept{"UNCOMPLEX_INVALID_EXPAND_TYPE block=/inner/p detail=its signals differ in type between the "
                     "instances of the model"};
    makeTwoInstances("multBlock", "c s4.0", "c s8.0");
    factors({"1"}, "c s4.0");
    at(*levels, "p")->setParam(A_COMPLEX_KARATSUBA, A_TRUE);
    EXPECT_EQ(runOverLevels(), kept);
    // As those of more factors.
    makeTwoInstances("multBlock", "c s4.0", "c s8.0");
    factors({"1", "2"}, "c s4.0");
    EXPECT_EQ(runOverLevels(), kept);
}

TEST_F(UnrollComplexPassTest, addsAZeroOfOneBitWhereTheComplexOperandIsAsWideInAllInstances) {
    struct Case {
        const char *type;
        const char *first;
        const char *second;
        const char *real;
        bool comesApart;
    };
    const Case cases[] = {
        {"addBlock", "c s4.0", "c s8.0", "s4.0", true},         {"addBlock", "c s4.1", "c s8.2", "u3.1", true},
        {"addBlock", "[3] c s4.0", "[3] c s8.0", "s4.0", true}, {"subBlock", "c s4.0", "c u8.0", "s4.0", true},
        {"subBlock", "c u4.0", "c u8.0", "u4.0", true},         {"addBlock", "c s4.0", "c s8.0", "s5.0", true},
        {"addBlock", "c s4.0", "c s8.0", "s4.1", true},         {"addBlock", "c s4.0", "c s8.0", "[2] s4.0", true},
    };
    for (const Case &of : cases) {
        for (const bool isRealFirst : {false, true}) {
            SCOPED_TRACE(std::string(of.type) + " " + of.first + " " + of.second + " " + of.real);
            makeTwoInstances(of.type, of.first, of.second, isRealFirst ? "1" : "0");
            factors({isRealFirst ? "0" : "1"}, of.real);
            // The real operand is of one type in all instances, which its zero can have.
            EXPECT_EQ(runOverLevels(), Names{});
            EXPECT_EQ(at(*levels, "p") == nullptr, of.comesApart);
        }
    }
    const Names kept{"UNCOMPLEX_INVALID_EXPAND_TYPE block=/inner/p detail=its signals differ in type between the "
                     "instances of the model"};
    const Case reals[] = {
        {"addBlock", "s4.0", "s8.0", "c s8.0", true},
        {"addBlock", "s4.1", "u7.0", "c s8.1", true},
        {"subBlock", "s4.0", "u7.0", "c s8.0", true},
        {"addBlock", "s4.0", "s9.0", "c s8.0", false},
        {"addBlock", "s4.0", "s4.1", "c s8.0", false},
        {"addBlock", "s4.0", "[2] s4.0", "[2] c s8.0", true},
        {"addBlock", "float(10,5)", "float(7,5)", "c float(10,5)", false},
        {"muxBlock", "s4.0", "s8.0", "c s8.0", false},
    };
    for (const Case &of : reals) {
        SCOPED_TRACE(std::string(of.type) + " " + of.first + " " + of.second + " " + of.real);
        makeTwoInstances(of.type, of.first, of.second);
        factors({"1"}, of.real);
        if (std::string(of.type) == "muxBlock") {
            factors({"muxPortSelect"}, "u1.0");
        }
        EXPECT_EQ(runOverLevels(), of.comesApart ? Names{} : kept);
        EXPECT_EQ(at(*levels, "p") == nullptr, of.comesApart);
    }
    makeTwoInstances("addBlock", "s4.0", "s8.0");
    factors({"1"}, "c s8.0");
    at(*levels, "p")->setParam(A_ADD_NO_GROWTH, A_TRUE);
    EXPECT_EQ(runOverLevels(), Names{});
    makeTwoInstances("addBlock", "s4.0", "s8.0");
    factors({"1"}, "c s8.0");
    at(*levels, "p")->setParam(A_ADD_TYPE, value("(typeSFixed 7 0)"));
    EXPECT_EQ(runOverLevels(), kept);
}

TEST_F(UnrollComplexPassTest, takesAModelApartWhoseInstancesDifferInWidth) {
    makeTwoLevels("c s4.0", "c s4.0");
    use("again", "w", input(model, "wider", "c s8.0"), *model.getInputBlock()->getWire(value("y")));
    EXPECT_EQ(run("UnrollComplexPass"), Names{});
    EXPECT_EQ(run("UnrollComplexCrossModelPass"), Names{});
    EXPECT_EQ(at(below, "sum"), nullptr);
    EXPECT_EQ(wiresOf(*at(model, "again")), (Names{"(z imag)", "(z real)"}));
}

TEST_F(UnrollComplexPassTest, takesProductsWithARealFactorApartWhoseInstancesDifferInWidth) {
    makeTwoLevels("c s4.0", "s4.0", "multBlock");
    use("again", "w", input(model, "wider", "c s8.0"), *model.getInputBlock()->getWire(value("y")));
    EXPECT_EQ(runAndCompare(), Names{});
    EXPECT_NE(at(below, "(sum realMult1)"), nullptr);
    EXPECT_EQ(at(below, "(sum realMult1)")->getParam(A_MULT_TYPE), nullptr);
}

TEST_F(UnrollComplexPassTest, takesProductsByARealConstantApartWhoseInstancesDifferInWidth) {
    const std::pair<const char *, const char *> widths[] = {{"c s3.1", "c s5.2"}, {"c float(10,5)", "c float(17,8)"}};
    for (const auto &[first, second] : widths) {
        makeTwoInstances("constmultBlock", first, second);
        at(*levels, "p")->setParam(A_CONST_VALUE, value("3"));
        EXPECT_EQ(runOverLevels(), Names{}) << first;
        EXPECT_NE(at(*levels, "(p realMult1)"), nullptr) << first;
    }
}

TEST_F(UnrollComplexPassTest, leavesProductsByConstantsWholeThatNeedATypeOfTheirOwnInEachInstance) {
    const std::vector<std::pair<const char *, const char *>> params[] = {
        {{"constValue", "(complexRollTag 1 2)"}},
        {{"constValue", "3"}, {"outputPrecision", "(fractionSpecified (typeSFixed 5 1))"}},
    };
    const Names kept{"UNCOMPLEX_INVALID_EXPAND_TYPE block=/inner/p detail=its signals differ in type between the "
                     "instances of the model"};
    for (const auto &[real, wide] : {std::pair("s3.1", "s5.2"), std::pair("c s3.1", "c s5.2")}) {
        for (const auto &of : params) {
            if (of.size() == 1 || std::string(real) == "c s3.1") {
                makeTwoInstances("constmultBlock", real, wide);
                for (const auto &[key, text] : of) {
                    at(*levels, "p")->setParam(value(key), value(text));
                }
                EXPECT_EQ(runOverLevels(), kept) << real << " " << of.back().second;
            }
        }
    }
}

TEST_F(UnrollComplexPassTest, takesScalarProductsWithRealFactorsApartWhoseInstancesDifferInWidth) {
    const std::pair<const char *, const char *> widths[] = {
        {"c s3.1", "c s5.2"}, {"[3] c s3.1", "[3] c u5.2"}, {"c float(10,5)", "c float(17,8)"}};
    for (const auto &[first, second] : widths) {
        const bool isFloat = std::string(first).find("float") != std::string::npos;
        const char *factor = isFloat ? "float(17,8)" : "s4.0";
        for (const bool isComplexFirst : {true, false}) {
            makeTwoInstances("scalarProductBlock", first, second, isComplexFirst ? "0" : "1");
            factors({isComplexFirst ? "1" : "0"}, factor);
            EXPECT_EQ(runOverLevels(), Names{}) << first;
            for (const char *part : {isFloat ? "(p dotReal)" : "(p dotRR)", isFloat          ? "(p dotImag)"
                                                                            : isComplexFirst ? "(p dotIR)"
                                                                                             : "(p dotRI)"}) {
                ASSERT_NE(at(*levels, part), nullptr) << first << part;
                EXPECT_EQ(at(*levels, part)->getParam(A_MULT_TYPE), nullptr) << first << part;
            }
        }
    }
}

TEST_F(UnrollComplexPassTest, takesSumsOfProductsWithRealFactorsApartWhoseInstancesDifferInWidth) {
    for (const bool isSubtractive : {false, true}) {
        makeTwoInstances("scalarProductBlock", "c s3.1", "c s5.2");
        factors({"1", "3"}, "s4.0");
        factors({"2", "scalarProductPortChainin"}, "c u2.3");
        at(*levels, "p")->setParam(A_SUBTRACTIVE, isSubtractive ? A_TRUE : A_FALSE);
        EXPECT_EQ(runOverLevels(), Names{});
        EXPECT_NE(at(*levels, "(p dotIR)"), nullptr);
    }
}

TEST_F(UnrollComplexPassTest, leavesScalarProductsWholeWhosePartsNeedTypes) {
    const Names kept{"UNCOMPLEX_INVALID_EXPAND_TYPE block=/inner/p detail=its signals differ in type between the "
                     "instances of the model"};
    using Ports = std::vector<const char *>;
    const std::pair<Ports, Ports> cases[] = {
        {{}, {"1"}},                             // both factors complex
        {{"1", "2", "3"}, {}},                   // a pair without a complex factor
        {{"1", "2"}, {"3"}},                     // the other side of another pair
        {{"1", "scalarProductPortChainin"}, {}}, // a chain-in that adds to the real part alone
    };
    for (const auto &[real, complex] : cases) {
        makeTwoInstances("scalarProductBlock", "c s3.1", "c s5.2");
        factors(real, "s4.0");
        factors(complex, "c s4.0");
        EXPECT_EQ(runOverLevels(), kept) << real.size() << complex.size();
    }
    makeTwoInstances("scalarProductBlock", "c s3.1", "c s5.2");
    factors({"1"}, "s4.0");
    at(*levels, "p")->setParam(A_MULT_TYPE, value("(typeSFixed 8 0)"));
    EXPECT_EQ(runOverLevels(), kept);
    makeTwoInstances("scalarProductBlock", "c float(10,5)", "c float(17,8)");
    factors({"1"}, "float(10,5)");
    at(*levels, "p")->setParam(A_SUBTRACTIVE, A_TRUE);
    EXPECT_EQ(runOverLevels(), kept);
}

/// Products and sums of products of any complex and real factors, in a level whose first factor is of one type in one
/// instance and of another in the other: they come apart, or say that they do not, and compute the same.
RC_GTEST_FIXTURE_PROP(UnrollComplexPassTest, takesNoProductApartToOtherTypes, ()) {
    const bool isFloat = *rc::gen::arbitrary<bool>();
    const auto type = [&](bool isComplex) {
        const std::string scalar = isFloat ? *rc::gen::element<std::string>("float(10,5)", "float(7,8)")
                                           : *rc::gen::element<std::string>("s3.1", "u2.2", "s5.0", "u4.3");
        return (isComplex ? "c " : "") + scalar;
    };
    const std::string kind =
        *rc::gen::element<std::string>("multBlock", "constmultBlock", "scalarProductBlock", "scalarProductBlock");
    const bool isFirst = *rc::gen::arbitrary<bool>();
    makeTwoInstances(kind.c_str(), type(isFirst).c_str(), type(isFirst).c_str());
    std::vector<const char *> ports{"1"};
    if (kind == "constmultBlock") {
        ports.clear();
        at(*levels, "p")->setParam(A_CONST_VALUE, value(*rc::gen::element<std::string>("3", "(complexRollTag 1 -9)")));
    } else if (kind == "scalarProductBlock") {
        for (const char *port : {"2", "3"}) {
            if (*rc::gen::arbitrary<bool>() || ports.size() == 2) {
                ports.push_back(port);
            }
        }
        if (ports.size() == 2) {
            ports.pop_back();
        }
        if (*rc::gen::arbitrary<bool>()) {
            ports.push_back("scalarProductPortChainin");
            at(*levels, "p")->setParam(A_SUBTRACTIVE_CHAININ, *rc::gen::arbitrary<bool>() ? A_TRUE : A_FALSE);
        }
        at(*levels, "p")->setParam(A_SUBTRACTIVE, *rc::gen::arbitrary<bool>() ? A_TRUE : A_FALSE);
    }
    RC_LOG() << kind << " " << isFirst << " of floats: " << isFloat;
    for (const char *port : ports) {
        const std::string of = type(*rc::gen::arbitrary<bool>());
        RC_LOG() << " " << port << " " << of;
        factors({port}, of.c_str());
    }
    const Names heard = runOverLevels();
    RC_ASSERT(!HasFailure());
    const bool isApart = at(*levels, "p") == nullptr;
    RC_CLASSIFY(isApart, "apart");
    RC_CLASSIFY(!heard.empty(), "whole");
    RC_ASSERT(heard.empty() || !isApart);
}

TEST_F(UnrollComplexPassTest, leavesProductsOfAGivenTypeWholeWhoseInstancesDifferInWidth) {
    makeTwoLevels("c s4.0", "s4.0", "multBlock");
    at(below, "sum")->setParam(A_MULT_TYPE, value("(typeSFixed 8 0)"));
    use("again", "w", input(model, "wider", "c s8.0"), *model.getInputBlock()->getWire(value("y")));
    EXPECT_EQ(runAndCompare(), kTypesDiffer);
}

TEST_F(UnrollComplexPassTest, conjugatesFloatsWhoseInstancesDifferInWidth) {
    makeTwoLevels("c float(10,5)", "c float(10,5)", "complexConjugateBlock");
    at(below, "sum")->setParam(value("1"), nullptr);
    use("again", "w", input(model, "wider", "c float(23,8)"), *model.getInputBlock()->getWire(value("y")));
    EXPECT_EQ(runAndCompare(), Names{});
    EXPECT_NE(at(below, "(sum imagNeg)"), nullptr);
}

TEST_F(UnrollComplexPassTest, conjugatesNumbersThatGrowInAllInstances) {
    const std::pair<const char *, const char *> widths[] = {
        {"c s3.1", "c s5.0"}, {"[2] c s3.1", "[2] c s5.0"}, {"c u3.1", "c u5.0"}};
    for (const auto &[first, second] : widths) {
        makeTwoInstances("complexConjugateBlock", first, second);
        EXPECT_EQ(runOverLevels(), Names{}) << first;
        EXPECT_NE(at(*levels, "(p realAdd)"), nullptr) << first;
        EXPECT_EQ(at(*levels, "(p realCast)"), nullptr) << first;
    }
    // One bit would make these wider by more than one.
    makeTwoInstances("complexConjugateBlock", "c s1.3", "c s5.0");
    EXPECT_EQ(runOverLevels(),
              Names{"UNCOMPLEX_INVALID_EXPAND_TYPE block=/inner/p detail=its signals differ in type between the "
                    "instances of the model"});
}

TEST_F(UnrollComplexPassTest, conjugatesNothingThatGrowsInOneInstanceOnly) {
    for (const char *second : {"c float(10,5)", "c float(23,8)"}) {
        for (const bool growsFirst : {true, false}) {
            Design local(mgr.context());
            Model &top = *Model::create(local, "top");
            Model &inner = *Model::create(local, "below");
            Block &same = block(inner, "sum", "complexConjugateBlock");
            same.setParam(value("0"), *Wire::create(*Block::create(inner, "in", A_INPUT_BLOCK), value("x")));
            output(inner, "z", *Wire::create(same, A_PRIM_WIRE_OUT));
            for (const bool isFirst : {true, false}) {
                const std::string name = isFirst ? "a" : "b";
                Block &use = block(top, name, "modelBlock");
                use.setParam(A_MODEL_NODE, inner);
                use.setParam(value("x"), input(top, "x" + name, isFirst == growsFirst ? "c s4.0" : second));
                output(top, "z" + name, *Wire::create(use, value("z")));
            }
            test::HeardMessages heard(mgr.context());
            PassScheduler scheduler;
            scheduler.addPass("UnrollComplexPass");
            scheduler.apply(local);
            EXPECT_EQ(withoutTypes(heard.take()), kTypesDiffer) << second;
        }
    }
}

/// Keeps the block, and names what is attached after the signal and the part.
class NamingUnroller final : public ComplexUnroller {
  public:
    NamingUnroller(Block &block, ComplexPortKind portKind, ComplexWireKind wireKind)
        : mBlock(block), mPortKind(portKind), mWireKind(wireKind) {}
    ComplexWireKind originalWire(Wire &wire, const ComplexDecorSpec &) override {
        if (mWireKind != ComplexWireKind::Leave) {
            mReplaced.add(wire);
        }
        return mWireKind;
    }
    ComplexPortKind originalPort(Port &port, const ComplexDecorSpec &) override {
        if (mPortKind != ComplexPortKind::Leave) {
            mReplaced.add(port);
        }
        return mPortKind;
    }
    void preAttach() override {}
    Wire *attachWire(Wire &wire, const ComplexDecorSpec &, bool imaginary,
                     const std::vector<MaybePort> &readers) override {
        Wire *made = Wire::create(mBlock, partOf(wire.getName(), imaginary));
        for (const MaybePort &reader : readers) {
            reader.setWire(*made);
        }
        return made;
    }
    void attachPort(Port &port, const ComplexDecorSpec &, bool imaginary, Wire &driver) override {
        const MaybePort attached(mBlock, partOf(port.getName(), imaginary));
        attached.setWire(driver);
        addAttachedPort(attached);
    }
    void postAttach() override { mReplaced.removeFrom(mBlock); }

  private:
    PureValueRef partOf(const PureValueRef &name, bool imaginary) const {
        return StringValue::get(name->toString() + (imaginary ? "_im" : "_re"), mBlock.getContext());
    }

    Block &mBlock;
    ComplexPortKind mPortKind;
    ComplexWireKind mWireKind;
    internal::ReplacedSignals mReplaced;
};

class NamingHandler final : public ComplexUnrollHandler {
  public:
    NamingHandler(ComplexPortKind portKind, ComplexWireKind wireKind) : mPortKind(portKind), mWireKind(wireKind) {}
    std::shared_ptr<ComplexUnroller> createUnroller(Block &block) const override {
        return std::make_shared<NamingUnroller>(block, mPortKind, mWireKind);
    }

  private:
    ComplexPortKind mPortKind;
    ComplexWireKind mWireKind;
};

class ComplexKindsTest : public UnrollComplexPassTest {
  protected:
    /// Takes a block of a complex signal x and a real one y apart by these kinds.
    Block &unrolled(ComplexPortKind portKind, ComplexWireKind wireKind) {
        Block &made = *oneBlock(design, "extIfaceBlock", {{"x", "c s4.0"}, {"y", "s4.0"}}, {{"x", ""}, {"y", ""}})
                           .getBlock(value("block"));
        const NamingHandler handler(portKind, wireKind);
        BlockClass &type = *mgr.context()->getBlockClass(A_EXT_IFACE_BLOCK);
        const auto *usual = type.get<ComplexUnrollHandler>();
        type.registerHandler<ComplexUnrollHandler>(&handler, false);
        EXPECT_EQ(run("UnrollComplexPass"), Names{});
        type.registerHandler<ComplexUnrollHandler>(usual, false);
        return made;
    }
    /// What drives each port, as "port from block wire".
    static Names driversOf(const Block &of) {
        Names drivers;
        for (const Port &port : of.ports()) {
            drivers.push_back(port.getName()->toString() + " from " +
                              port.peekWire()->getBlock().getName()->toString() + " " +
                              port.peekWire()->getName()->toString());
        }
        return drivers;
    }
    Names readersDrivers(const Block &of) { return driversOf(*of.getModel().getOutputBlock()); }
    /// Without complex signals there is nothing to take apart, and with one all signals are asked about.
    Names driversBy(ComplexPortKind kind) { return driversOf(unrolled(kind, ComplexWireKind::Leave)); }
    Names readersBy(ComplexWireKind kind) { return readersDrivers(unrolled(ComplexPortKind::Leave, kind)); }

    /// The inputs, each behind a pin of its type.
    const std::string kX = " from (pin 0 cpack) cpackWireOut";
    const std::string kY = " from (dupName 0 pin) 0";
    const std::string kReal = "x_re from (block x cunpack) cunpackWireReal";
    const std::string kImaginary = "x_im from (block x cunpack) cunpackWireImag";
};

TEST_F(ComplexKindsTest, leavesPortsAndWiresAlone) {
    EXPECT_EQ(driversBy(ComplexPortKind::Leave), (Names{"x" + kX, "y" + kY}));
    EXPECT_EQ(readersBy(ComplexWireKind::Leave), (Names{"x from block x", "y from block y"}));
}

TEST_F(ComplexKindsTest, attachesWholePortsToTheirWires) {
    EXPECT_EQ(driversBy(ComplexPortKind::Whole), (Names{"x_re" + kX, "y_re" + kY}));
}

TEST_F(ComplexKindsTest, splitsComplexPortsAlone) {
    EXPECT_EQ(driversBy(ComplexPortKind::Split), (Names{kImaginary, kReal, "y_re" + kY}));
}

TEST_F(ComplexKindsTest, sharesRealPorts) {
    EXPECT_EQ(driversBy(ComplexPortKind::Share), (Names{kImaginary, kReal, "y_im" + kY, "y_re" + kY}));
}

TEST_F(ComplexKindsTest, givesRealPortsAZeroImaginaryPart) {
    EXPECT_EQ(driversBy(ComplexPortKind::SplitOrZero),
              (Names{kImaginary, kReal, "y_im from (block y imagZero) primWireOut", "y_re" + kY}));
}

TEST_F(ComplexKindsTest, makesWholeWiresRealResults) {
    EXPECT_EQ(readersBy(ComplexWireKind::Whole), (Names{"x from block x_re", "y from block y_re"}));
}

TEST_F(ComplexKindsTest, splitsComplexWiresAlone) {
    Block &made = unrolled(ComplexPortKind::Leave, ComplexWireKind::Split);
    EXPECT_EQ(readersDrivers(made), (Names{"x from (block x cpack) cpackWireOut", "y from block y_re"}));
    EXPECT_EQ(driversOf(*made.getModel().getBlock(value("(block x cpack)"))),
              (Names{"cpackPortImag from block x_im", "cpackPortReal from block x_re"}));
}

TEST_F(UnrollComplexPassTest, handsMetadataToBothParts) {
    Block &same = block(model, "same", "delayBlock", {{"delayLength", "1"}});
    same.setParam(value("0"), input(model, "x", "c u4.0"));
    same.setParam(A_METADATA, value("((comment hello))"));
    output(model, "y", *Wire::create(same, A_PRIM_WIRE_OUT));
    run("UnrollComplexPass");
    for (const char *part : {"(same real)", "(same imag)"}) {
        EXPECT_EQ(PureValueRef(at(model, part)->getParam(A_METADATA)), value("((comment hello))")) << part;
    }
}

TEST_F(UnrollComplexPassTest, handsMetadataToWhatAProductIsMadeOf) {
    makeTwoLevels("c s4.0", "c s4.0", "multBlock");
    at(below, "sum")->setParam(A_METADATA, value("((comment hello))"));
    run("UnrollComplexPass");
    for (const char *part : {"(sum realMult1)", "(sum imagMult2)", "(sum realSub)", "(sum imagAdd)"}) {
        EXPECT_EQ(PureValueRef(at(below, part)->getParam(A_METADATA)), value("((comment hello))")) << part;
    }
}

TEST_F(UnrollComplexPassTest, movesConstraintsAlongWithTheirPoints) {
    makeTwoLevels("c s4.0", "c s4.0", "multBlock");
    const PureValueRef atWire = value("((primWireOut true (1) ()))");
    at(below, "sum")->setParam(A_SCHEDULE_CONSTRAINT_WIRES, atWire);
    at(below, "sum")->setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (1)))"));
    below.getInputBlock()->setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((x true (2) ()))"));
    run("UnrollComplexPass");
    for (const char *result : {"(sum realSub)", "(sum imagAdd)"}) {
        EXPECT_EQ(PureValueRef(at(below, result)->getParam(A_SCHEDULE_CONSTRAINT_WIRES)), atWire) << result;
    }
    for (const char *reader : {"(sum realMult1)", "(sum realMult2)", "(sum imagMult1)", "(sum imagMult2)"}) {
        EXPECT_EQ(PureValueRef(at(below, reader)->getParam(A_SCHEDULE_CONSTRAINT_PORTS)), value("((0 true () (1)))"))
            << reader;
    }
    run("UnrollComplexCrossModelPass");
    EXPECT_EQ(PureValueRef(below.getInputBlock()->getParam(A_SCHEDULE_CONSTRAINT_WIRES)),
              value("(((x real) true (2) ()) ((x imag) true (2) ()))"));
}

TEST_F(UnrollComplexPassTest, movesTheEndsOfConstraintsToEachPart) {
    makeTwoLevels("c s4.0", "c s4.0");
    at(below, "sum")->setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (1) ()))"));
    at(below, "sum")->setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (1)))"));
    run("UnrollComplexPass");
    EXPECT_EQ(endsAt(A_SCHEDULE_CONSTRAINT_WIRES),
              (Names{"(sum imag) ((primWireOut true (1) ()))", "(sum real) ((primWireOut true (1) ()))"}));
    EXPECT_EQ(endsAt(A_SCHEDULE_CONSTRAINT_PORTS),
              (Names{"(sum imag) ((0 true () (1)))", "(sum real) ((0 true () (1)))"}));
}

TEST_F(UnrollComplexPassTest, movesTheEndOfAConstraintAtAComparisonBehindBothParts) {
    makeTwoLevels("c s4.0", "c s4.0", "cmpEqBlock");
    at(below, "sum")->setParam(A_SCHEDULE_CONSTRAINT_WIRES, value("((primWireOut true (1) ()))"));
    at(below, "sum")->setParam(A_SCHEDULE_CONSTRAINT_PORTS, value("((0 true () (1)))"));
    run("UnrollComplexPass");
    EXPECT_EQ(endsAt(A_SCHEDULE_CONSTRAINT_WIRES), Names{"(sum and) ((primWireOut true (1) ()))"});
    EXPECT_EQ(endsAt(A_SCHEDULE_CONSTRAINT_PORTS),
              (Names{"(sum imag) ((0 true () (1)))", "(sum real) ((0 true () (1)))"}));
}

} // namespace
} // namespace orvo
