// Domains: how the edges are read, how domains flow, what is said where two of them meet, and the dump.
#include <orvo/domaininfer.h>

#include "support/domainrig.h"
#include "support/invariants.h"

#include <orvo/domainboundary.h>

namespace orvo {
namespace {

class DomainPointTest : public test::DomainRig {};

TEST_F(DomainPointTest, isInvalidByItself) {
    const DomainPoint point;
    EXPECT_FALSE(point.valid());
    EXPECT_FALSE(point.isPort());
    EXPECT_FALSE(point.isWire());
    EXPECT_EQ(point.port(), nullptr);
    EXPECT_EQ(point.wire(), nullptr);
    EXPECT_EQ(point.block(), nullptr);
    EXPECT_FALSE(point.name());
    EXPECT_EQ(point, DomainPoint());
}

TEST_F(DomainPointTest, tellsPortsWiresAndInstancesApart) {
    Wire &w = source(top, "a");
    Block &reader = operation(top, "b", A_NEG_BLOCK, {&w}).getBlock();
    const Port &port = *reader.getPort(value("0"));
    const DomainPoint atWire(w, 3);
    const DomainPoint atPort(port, 3);
    EXPECT_TRUE(atWire.isWire() && !atWire.isPort() && atWire.valid());
    EXPECT_TRUE(atPort.isPort() && !atPort.isWire() && atPort.valid());
    EXPECT_EQ(atWire.wire(), &w);
    EXPECT_EQ(atWire.block(), &w.getBlock());
    EXPECT_EQ(atPort.port(), &port);
    EXPECT_EQ(atPort.block(), &reader);
    EXPECT_EQ(atPort.name(), value("0"));
    EXPECT_EQ(atWire.refChainId(), 3U);
    EXPECT_NE(atWire, atPort);
    EXPECT_NE(atWire, DomainPoint(w, 4));
    EXPECT_EQ(atWire, DomainPoint(w, 3));
}

TEST_F(DomainPointTest, isOrderedByNamesAndNotByAddresses) {
    Wire &late = source(top, "z");
    Wire &early = source(top, "a");
    Wire &both = operation(top, "m", A_ADD_BLOCK, {&late, &early});
    const Block &block = both.getBlock();
    const std::vector<DomainPoint> ordered{DomainPoint(),
                                           DomainPoint(early, 7),
                                           DomainPoint(*block.getPort(value("0")), 1),
                                           DomainPoint(*block.getPort(value("1")), 0),
                                           DomainPoint(both, 0),
                                           DomainPoint(both, 1),
                                           DomainPoint(late, 0)};
    for (std::size_t i = 0; i < ordered.size(); ++i) {
        for (std::size_t k = 0; k < ordered.size(); ++k) {
            EXPECT_EQ(ordered[i] < ordered[k], i < k) << i << " " << k;
        }
    }
}

class RefChains : public test::DomainRig {};

TEST_F(RefChains, getOneIdEach) {
    Model &below = *Model::create(design, "below");
    const Block &a = instance(top, "a", below);
    const Block &b = instance(top, "b", below);
    const Block &inner = make(below, "inner", A_MODEL_BLOCK);
    RefChainCollection collection;
    const auto deep = collection.getOrCreateId({&a, &inner});
    EXPECT_EQ(collection.size(), 3U);
    EXPECT_EQ(collection.getOrCreateId({}), 0U);
    EXPECT_EQ(collection.getOrCreateId({&a, &inner}), deep);
    const auto shallow = collection.getOrCreateId({&b});
    EXPECT_NE(collection.getOrCreateId({&b, &inner}), deep);
    EXPECT_EQ(collection.size(), 5U);
    EXPECT_EQ(collection.getRefChain(deep), (RefChain{&a, &inner}));
    EXPECT_EQ(collection.getRefChain(0), RefChain());
    EXPECT_EQ(collection.getAbove(shallow), 0U);
    EXPECT_EQ(collection.getBlock(shallow), &b);
    EXPECT_EQ(collection.findId(0, b), shallow);
    EXPECT_EQ(collection.findId(shallow, a), RefChainCollection::kNone);
    EXPECT_EQ(collection.size(), 5U);
}

TEST_F(RefChains, areFilledInForAllInstancesBelowTheOutputRoots) {
    Model &below = *Model::create(design, "below");
    Model &deepest = *Model::create(design, "deepest");
    Model &elsewhere = *Model::create(design, "elsewhere");
    const Block &a = instance(top, "a", below);
    const Block &b = instance(top, "b", below);
    const Block &inner = instance(below, "inner", deepest);
    instance(elsewhere, "x", deepest);
    RefChainCollection collection;
    DomainInference::calculateRefChainDatabase(design, DomainInference::DefaultInferenceModifier(), collection);
    std::vector<RefChain> chains;
    for (unsigned long id = 0; id < collection.size(); ++id) {
        chains.push_back(collection.getRefChain(id));
    }
    EXPECT_EQ(chains, (std::vector<RefChain>{{}, {&a}, {&a, &inner}, {&b}, {&b, &inner}}));
}

TEST_F(RefChains, ofAModelThatInstantiatesItselfComeToAnEnd) {
    Model &below = *Model::create(design, "below");
    instance(top, "a", below);
    instance(below, "again", below);
    instance(below, "up", top);
    RefChainCollection collection;
    DomainInference::addToDatabase(top, {}, DomainInference::DefaultInferenceModifier(), collection);
    EXPECT_EQ(collection.size(), 2U);
}

class DomainAnalysis : public test::DomainRig {};

TEST_F(DomainAnalysis, givesBackWhatWasSet) {
    Wire &w = source(top, "a");
    const Port &port = *operation(top, "b", A_NEG_BLOCK, {&w}).getBlock().getPort(value("0"));
    EXPECT_FALSE(info.getDomain(w, 0));
    info.setDomain(w, 0, value("red"));
    info.setDomain(w, 0x100000000UL, value("blue"));
    info.setDomain(port, 0, value("(a b)"));
    EXPECT_EQ(info.getDomain(w, 0), value("red"));
    EXPECT_EQ(info.getDomain(DomainPoint(w, 0x100000000UL)), value("blue"));
    EXPECT_EQ(info.getDomain(port, 0), value("(a b)"));
    EXPECT_FALSE(info.getDomain(port, 1));
    info.setDomain(DomainPoint(w, 0), value("green"));
    EXPECT_EQ(info.getDomain(w, 0), value("green"));
}

TEST_F(DomainAnalysis, takesANullValueForNoDomain) {
    Wire &w = source(top, "a");
    info.setDomain(w, 0, value("red"));
    info.setDomain(w, 0, nullptr);
    EXPECT_FALSE(info.getDomain(w, 0));
    info.setDomain(w, 1, nullptr);
    EXPECT_FALSE(info.getDomain(w, 1));
    info.setDomain(DomainPoint(), value("red"));
    EXPECT_FALSE(info.getDomain(DomainPoint()));
}

class DomainParsing : public test::DomainRig {
  protected:
    DomainParsing() {
        w = &source(top, "a");
        operation(top, "b", A_ADD_BLOCK, {w, w});
    }
    DomainInference::ParsedDomains parse(const std::string &specs) {
        mark(top, specs);
        return DomainInference::parseScheduledDomainsParameter(top);
    }
    /// Parses one entry beside a good one; gives the messages about it.
    Lines faultOf(const std::string &spec) {
        messages.lines.clear();
        const auto parsed = parse("(" + begin("red", wireAt("a")) + " " + spec + ")");
        EXPECT_EQ(parsed.begins.size(), 1U);
        EXPECT_TRUE(parsed.ends.empty());
        return messages.lines;
    }
    Wire *w;
};

TEST_F(DomainParsing, ofAModelWithoutTheParameterGivesNothing) {
    const auto parsed = DomainInference::parseScheduledDomainsParameter(top);
    EXPECT_TRUE(parsed.begins.empty() && parsed.ends.empty());
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainParsing, listsBeginsAndEndsInTheOrderOfTheParameter) {
    const auto parsed = parse("(" + end("d1", portAt("b", "1")) + " " + begin("(d 2)", wireAt("b")) + " " +
                              end("d3", wireAt("a")) + " " + begin("4", portAt("b", "0")) + ")");
    ASSERT_EQ(parsed.begins.size(), 2U);
    ASSERT_EQ(parsed.ends.size(), 2U);
    EXPECT_EQ(parsed.begins[0].domain, value("(d 2)"));
    EXPECT_EQ(parsed.begins[0].kind, DomainInference::SIGNPOST_BEGIN);
    EXPECT_TRUE(parsed.begins[0].point.isWire());
    EXPECT_EQ(parsed.begins[1].domain, value("4"));
    EXPECT_EQ(parsed.begins[1].point.name(), value("0"));
    EXPECT_EQ(parsed.ends[0].domain, value("d1"));
    EXPECT_EQ(parsed.ends[0].kind, DomainInference::SIGNPOST_END);
    EXPECT_EQ(parsed.ends[0].point.name(), value("1"));
    EXPECT_EQ(parsed.ends[1].point, DomainPoint(*w, 0));
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainParsing, refusesAParameterThatIsNoTuple) {
    EXPECT_TRUE(parse("red").begins.empty());
    EXPECT_EQ(messages.lines, Lines{"BAD_SCHEDULE_DOMAINS modelName=top scheduledDomains=red"});
}

TEST_F(DomainParsing, takesAnEmptyTupleForNoEdges) {
    EXPECT_TRUE(parse("()").begins.empty());
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainParsing, refusesAnEntryOfAnotherShape) {
    EXPECT_EQ(faultOf("red"), Lines{"BAD_DOMAIN_BOUNDARY_SPEC boundarySpec=red modelName=top"});
    EXPECT_EQ(faultOf("(scheduleDomainBegin red)"),
              Lines{"BAD_DOMAIN_BOUNDARY_SPEC boundarySpec=(scheduleDomainBegin red) modelName=top"});
}

TEST_F(DomainParsing, refusesAnEntryThatNeitherBeginsNorEnds) {
    const std::string spec = "(scheduleDomainMiddle red " + wireAt("b") + ")";
    EXPECT_EQ(faultOf(spec), Lines{"BAD_DOMAIN_BOUNDARY_SPEC_BEGINEND beginOrEnd=scheduleDomainMiddle boundarySpec=" +
                                   spec + " modelName=top"});
}

TEST_F(DomainParsing, refusesADomainThatIsNotPure) {
    const std::string spec = begin("[/top/a]", wireAt("b"));
    EXPECT_EQ(faultOf(spec), Lines{"BAD_DOMAIN_BOUNDARY_SPEC_INVALIDDOMAIN boundarySpec=" + spec + " modelName=top"});
}

TEST_F(DomainParsing, refusesASignpostOfAnotherShape) {
    for (const std::string &signpost :
         {std::string("here"), "(b " + A_WIRE_TAG.text() + ")", "(b " + A_BLOCK_TYPE.text() + " w)",
          "([/top/b] " + A_WIRE_TAG.text() + " w)", "(b " + A_PORT_TAG.text() + " [/top/b])"}) {
        const std::string spec = end("red", signpost);
        EXPECT_EQ(faultOf(spec), Lines{"BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST boundarySpec=" + spec +
                                       " modelName=top signpost=" + signpost});
    }
}

TEST_F(DomainParsing, refusesASignpostAtABlockThatIsNotThere) {
    const std::string spec = begin("red", wireAt("c"));
    EXPECT_EQ(faultOf(spec), Lines{"BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST_NOBLOCK blockName=c boundarySpec=" + spec +
                                   " modelName=top signpost=" + wireAt("c")});
}

TEST_F(DomainParsing, refusesASignpostAtAWireThatIsNotThere) {
    const std::string spec = begin("red", wireAt("b", "0"));
    EXPECT_EQ(faultOf(spec), Lines{"BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST_NOWIRE blockName=b boundarySpec=" + spec +
                                   " modelName=top wireName=0"});
}

TEST_F(DomainParsing, refusesASignpostAtAPortThatIsNotThere) {
    const std::string spec = end("red", portAt("b", "w"));
    EXPECT_EQ(faultOf(spec), Lines{"BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST_NOPORT blockName=b boundarySpec=" + spec +
                                   " modelName=top portName=w"});
}

TEST_F(DomainParsing, looksAtEachPartInTurnAndReportsTheFirstFault) {
    EXPECT_EQ(faultOf("(odd [/top/a] here)").size(), 1U);
    EXPECT_EQ(messages.lines[0].find("BAD_DOMAIN_BOUNDARY_SPEC_BEGINEND "), 0U);
    EXPECT_EQ(faultOf("(scheduleDomainEnd [/top/a] here)").size(), 1U);
    EXPECT_EQ(messages.lines[0].find("BAD_DOMAIN_BOUNDARY_SPEC_INVALIDDOMAIN "), 0U);
}

TEST_F(DomainParsing, readsATreeOfModelsEachModelOnce) {
    Model &below = *Model::create(design, "below");
    Model &scheduled = *Model::create(design, "scheduled");
    scheduled.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    source(below, "s");
    source(scheduled, "t");
    instance(top, "i1", below);
    instance(top, "i2", below);
    instance(below, "again", below);
    instance(top, "i3", scheduled);
    mark(top, "(" + begin("red", wireAt("a")) + ")");
    mark(below, "(" + begin("blue", wireAt("s")) + " nonsense)");
    mark(scheduled, "(nonsense)");
    const auto all = DomainInference::parsedDomainsModelTree(top, DomainInference::UnscheduledInferenceModifier());
    ASSERT_EQ(all.size(), 2U);
    ASSERT_EQ(all.at(&below).size(), 1U);
    EXPECT_EQ(all.at(&below).begin()->second.domain, value("blue"));
    EXPECT_EQ(all.at(&top).at(DomainPoint(*w, 0)).domain, value("red"));
    EXPECT_EQ(messages.lines, Lines{"BAD_DOMAIN_BOUNDARY_SPEC boundarySpec=nonsense modelName=below"});
}

TEST_F(DomainParsing, readsWhatTheCreatorOfBoundariesWrites) {
    const Block &reader = *top.getBlock(value("b"));
    DomainBoundaryCreator red(design, value("red"));
    red.start(w);
    red.stop(reader.getPort(value("0")));
    DomainBoundaryCreator blue(design, value("blue"));
    blue.start(reader.getPort(value("1")));
    blue.stop(reader.getWire(value("w")));
    const auto parsed = DomainInference::parseScheduledDomainsParameter(top);
    ASSERT_EQ(parsed.begins.size(), 2U);
    ASSERT_EQ(parsed.ends.size(), 2U);
    EXPECT_EQ(parsed.begins[0].point, DomainPoint(*w, 0));
    EXPECT_EQ(parsed.begins[1].point, DomainPoint(*reader.getPort(value("1")), 0));
    EXPECT_EQ(parsed.begins[1].domain, value("blue"));
    EXPECT_EQ(parsed.ends[0].point, DomainPoint(*reader.getPort(value("0")), 0));
    EXPECT_EQ(parsed.ends[0].domain, value("red"));
    EXPECT_EQ(parsed.ends[1].point, DomainPoint(*reader.getWire(value("w")), 0));
    EXPECT_EQ(messages.lines, Lines());
}

class DomainFlow : public test::DomainRig {};

TEST_F(DomainFlow, leavesAModelWithoutEdgesWithoutDomains) {
    Wire &a = source(top, "a");
    Wire &b = operation(top, "b", A_NEG_BLOCK, {&a});
    infer();
    EXPECT_EQ(of(a), "-");
    EXPECT_EQ(of(b), "-");
    EXPECT_EQ(of(b.getBlock(), "0"), "-");
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainFlow, looksOnlyBelowOutputRoots) {
    for (const auto &[mode, reached] :
         std::vector<std::pair<const StaticString *, std::string>>{{&A_SYNTH_OUTPUT_HDL_ROOT, "red"},
                                                                   {&A_SYNTH_OUTPUT_INTERNAL_ROOT, "red"},
                                                                   {&A_SYNTH_OUTPUT_STANDALONE_ROOT, "red"},
                                                                   {&A_TRUE, "-"}}) {
        Model &model = *Model::create(design, mode->text());
        Wire &a = source(model, "a");
        mark(model, "(" + begin("red", wireAt("a")) + ")");
        model.setParam(A_SYNTH_OUTPUT_MODE, *mode);
        infer();
        EXPECT_EQ(of(a), reached) << mode->text();
    }
}

TEST_F(DomainFlow, goesBothWaysThroughNetsAndBlocks) {
    Wire &a = source(top, "a");
    Wire &b = operation(top, "b", A_NEG_BLOCK, {&a});
    Wire &aside = source(top, "aside");
    Wire &c = operation(top, "c", A_ADD_BLOCK, {&b, &aside});
    Wire &d = operation(top, "d", A_NEG_BLOCK, {&c});
    Wire &other = operation(top, "other", A_NEG_BLOCK, {&b});
    mark(top, "(" + begin("red", portAt("c", "0")) + ")");
    infer();
    // Into the block and through it, forward and out of its other input.
    EXPECT_EQ(of(c), "red");
    EXPECT_EQ(of(d), "red");
    EXPECT_EQ(of(aside), "red");
    // But not out of the signpost.
    for (const Wire *wire : {&a, &b, &other}) {
        EXPECT_EQ(of(*wire), "-");
    }
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainFlow, ofABeginAtAWireLeavesTheBlockAlone) {
    Wire &a = source(top, "a");
    Wire &b = operation(top, "b", A_NEG_BLOCK, {&a});
    Wire &c = operation(top, "c", A_NEG_BLOCK, {&b});
    mark(top, "(" + begin("red", wireAt("b")) + ")");
    infer();
    EXPECT_EQ(of(b), "red");
    EXPECT_EQ(of(c), "red");
    EXPECT_EQ(of(b.getBlock(), "0"), "-");
    EXPECT_EQ(of(a), "-");
}

TEST_F(DomainFlow, ofAnEndGoesBackwardOnly) {
    Wire &a = source(top, "a");
    Wire &b = operation(top, "b", A_NEG_BLOCK, {&a});
    Wire &c = operation(top, "c", A_NEG_BLOCK, {&b});
    mark(top, "(" + end("red", wireAt("b")) + ")");
    infer();
    EXPECT_EQ(of(b.getBlock(), "0"), "red");
    EXPECT_EQ(of(a), "red");
    EXPECT_EQ(of(c.getBlock(), "0"), "-");
    mark(top, "(" + end("red", portAt("c")) + ")");
    infer();
    EXPECT_EQ(of(b), "red");
    EXPECT_EQ(of(a), "red");
    EXPECT_EQ(of(c.getBlock(), "0"), "red");
    EXPECT_EQ(of(c), "-");
}

TEST_F(DomainFlow, keepsTheTwoSidesOfANetApartWhereOneBeginsAndOneEnds) {
    Wire &a = source(top, "a");
    Wire &b = operation(top, "b", A_NEG_BLOCK, {&a});
    mark(top, "(" + begin("red", wireAt("a")) + " " + end("blue", portAt("b")) + ")");
    infer();
    EXPECT_EQ(of(a), "red");
    EXPECT_EQ(of(b.getBlock(), "0"), "blue");
    EXPECT_EQ(of(b), "-");
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainFlow, stopsAtASignpostOfAnotherDomain) {
    Wire &a = source(top, "a");
    Wire &b = operation(top, "b", A_NEG_BLOCK, {&a});
    Wire &c = operation(top, "c", A_NEG_BLOCK, {&b});
    Wire &d = operation(top, "d", A_NEG_BLOCK, {&c});
    mark(top, "(" + begin("red", wireAt("a")) + " " + begin("blue", wireAt("c")) + ")");
    infer();
    EXPECT_EQ(of(b), "red");
    EXPECT_EQ(of(c.getBlock(), "0"), "red");
    EXPECT_EQ(of(c), "blue");
    EXPECT_EQ(of(d), "blue");
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainFlow, reportsASecondSignpostAtOnePointAndKeepsTheFirst) {
    Wire &a = source(top, "a");
    mark(top, "(" + end("blue", wireAt("a")) + " " + begin("red", wireAt("a")) + ")");
    infer();
    EXPECT_EQ(of(a), "red");
    EXPECT_EQ(messages.lines, Lines{"BAD_DOMAIN_MULTIPLE_SIGNPOSTS blockName=a modelName=top"});
}

TEST_F(DomainFlow, reportsTwoDomainsAtOneWireOnceAndTheFirstStands) {
    // One comes along the net, which goes before the one that comes through the block.
    Wire &a = source(top, "a");
    Wire &b = operation(top, "b", A_TERMINAL_BLOCK, {&a});
    Block &pass = make(top, "pass", A_TERMINAL_BLOCK);
    pass.setParam(value("w"), b);
    Wire &met = wire(pass);
    Block &reader = operation(top, "reader", A_NEG_BLOCK, {&met}).getBlock();
    mark(top, "(" + end("red", portAt("reader")) + " " + begin("blue", portAt("pass", "w")) + ")");
    infer();
    EXPECT_EQ(of(met), "red");
    EXPECT_EQ(of(pass, "w"), "blue");
    EXPECT_EQ(of(reader, "0"), "red");
    EXPECT_EQ(messages.lines, Lines{"BAD_DOMAIN_OVERWRITING_DOMAIN_OUTPUT blockName=pass existingDomain=red "
                                    "modelName=top overwritingDomain=blue wireName=w"});
}

TEST_F(DomainFlow, reportsTwoDomainsAtOnePortOnceAndTheFirstStands) {
    Wire &a = source(top, "a");
    Block &met = make(top, "met", A_ADD_BLOCK);
    met.setParam(value("0"), a);
    Wire &far = source(top, "far");
    met.setParam(value("1"), far);
    // The block's other input begins a domain; it comes through the block after the one that comes along the net.
    mark(top, "(" + begin("red", wireAt("a")) + " " + begin("blue", portAt("met", "1")) + ")");
    infer();
    EXPECT_EQ(of(met, "0"), "red");
    EXPECT_EQ(of(met, "1"), "blue");
    EXPECT_EQ(messages.lines, Lines{"BAD_DOMAIN_OVERWRITING_DOMAIN_INPUT blockName=met existingDomain=red "
                                    "modelName=top overwritingDomain=blue portName=0"});
}

TEST_F(DomainFlow, givesAPointAtEqualDistanceToTheLesserDomain) {
    for (const bool swapped : {false, true}) {
        Model &model = *Model::create(design, swapped ? "swapped" : "straight");
        model.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_HDL_ROOT);
        Wire &a = source(model, "a");
        Wire &b = source(model, "b");
        Wire &sum = operation(model, "sum", A_ADD_BLOCK, {&a, &b});
        mark(model, "(" + begin(swapped ? "blue" : "red", wireAt("a")) + " " +
                        begin(swapped ? "red" : "blue", wireAt("b")) + ")");
        infer();
        EXPECT_EQ(of(sum), "blue");
        EXPECT_FALSE(messages.lines.empty());
    }
}

class DomainHierarchy : public test::DomainRig {
  protected:
    DomainHierarchy() {
        inX = &wire(make(below, "in", A_INPUT_BLOCK), "x");
        neg = &operation(below, "neg", A_NEG_BLOCK, {inX});
        make(below, "out", A_OUTPUT_BLOCK).setParam(value("y"), *neg);
        outY = below.getBlock(value("out"));
    }
    /// An instance that reads a wire.
    Block &use(const std::string &name, Wire &input) {
        Block &block = instance(top, name, below);
        block.setParam(value("x"), input);
        wire(block, "y");
        return block;
    }
    Model &below = *Model::create(design, "below");
    Wire *inX;
    Wire *neg;
    Block *outY;
};

TEST_F(DomainHierarchy, carriesADomainDownAndOut) {
    Wire &a = source(top, "a");
    Block &use1 = use("use1", a);
    Wire &after = operation(top, "after", A_NEG_BLOCK, {use1.getWire(value("y"))});
    mark(top, "(" + begin("red", wireAt("a")) + ")");
    infer();
    EXPECT_EQ(of(use1, "x"), "red");
    EXPECT_EQ(of(*inX, {&use1}), "red");
    EXPECT_EQ(of(*neg, {&use1}), "red");
    EXPECT_EQ(of(*outY, "y", {&use1}), "red");
    EXPECT_EQ(of(*use1.getWire(value("y"))), "red");
    EXPECT_EQ(of(after), "red");
    EXPECT_EQ(of(*neg), "-");
}

TEST_F(DomainHierarchy, carriesADomainBackwardThroughAModel) {
    Wire &a = source(top, "a");
    Block &use1 = use("use1", a);
    operation(top, "after", A_NEG_BLOCK, {use1.getWire(value("y"))});
    mark(top, "(" + end("red", portAt("after")) + ")");
    infer();
    EXPECT_EQ(of(*outY, "y", {&use1}), "red");
    EXPECT_EQ(of(*inX, {&use1}), "red");
    EXPECT_EQ(of(a), "red");
}

TEST_F(DomainHierarchy, givesEachInstanceItsOwnDomain) {
    Wire &a = source(top, "a");
    Wire &b = source(top, "b");
    Block &use1 = use("use1", a);
    Block &use2 = use("use2", b);
    Block &use3 = use("use3", *use2.getWire(value("y")));
    mark(top, "(" + begin("red", wireAt("a")) + " " + begin("blue", wireAt("b")) + ")");
    infer();
    EXPECT_EQ(of(*neg, {&use1}), "red");
    EXPECT_EQ(of(*neg, {&use2}), "blue");
    EXPECT_EQ(of(*neg, {&use3}), "blue");
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainHierarchy, putsASignpostOfAModelInEachOfItsInstances) {
    Wire &a = source(top, "a");
    Block &use1 = use("use1", a);
    Block &use2 = use("use2", a);
    mark(below, "(" + begin("red", wireAt("neg")) + ")");
    infer();
    for (const Block *one : {&use1, &use2}) {
        EXPECT_EQ(of(*neg, {one}), "red");
        EXPECT_EQ(of(*outY, "y", {one}), "red");
        EXPECT_EQ(of(*one->getWire(value("y"))), "red");
        EXPECT_EQ(of(*inX, {one}), "-");
    }
    EXPECT_EQ(of(a), "-");
}

TEST_F(DomainHierarchy, stopsAtTheEdgesOfAModelWhereSignpostsStand) {
    Wire &a = source(top, "a");
    Block &use1 = use("use1", a);
    Wire &after = operation(top, "after", A_NEG_BLOCK, {use1.getWire(value("y"))});
    mark(below, "(" + begin("blue", wireAt("in", "x")) + " " + end("blue", portAt("out", "y")) + ")");
    mark(top, "(" + end("red", portAt("use1", "x")) + " " + begin("green", wireAt("use1", "y")) + ")");
    infer();
    EXPECT_EQ(of(a), "red");
    EXPECT_EQ(of(use1, "x"), "red");
    EXPECT_EQ(of(*inX, {&use1}), "blue");
    EXPECT_EQ(of(*neg, {&use1}), "blue");
    EXPECT_EQ(of(*outY, "y", {&use1}), "blue");
    EXPECT_EQ(of(*use1.getWire(value("y"))), "green");
    EXPECT_EQ(of(after), "green");
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainHierarchy, goesThroughTwoLevels) {
    Model &middle = *Model::create(design, "middle");
    Wire &pass = wire(make(middle, "in", A_INPUT_BLOCK), "x");
    Block &inner = instance(middle, "inner", below);
    inner.setParam(value("x"), pass);
    make(middle, "out", A_OUTPUT_BLOCK).setParam(value("y"), wire(inner, "y"));
    Wire &a = source(top, "a");
    Block &outer = instance(top, "outer", middle);
    outer.setParam(value("x"), a);
    Wire &y = wire(outer, "y");
    mark(top, "(" + begin("red", wireAt("a")) + ")");
    infer();
    EXPECT_EQ(of(*neg, {&outer, &inner}), "red");
    EXPECT_EQ(of(*neg, {&inner}), "-");
    EXPECT_EQ(of(y), "red");
}

TEST_F(DomainHierarchy, keepsAnInstanceBelowAnotherRootApart) {
    Wire &a = source(top, "a");
    Block &use1 = use("use1", a);
    below.setParam(A_SYNTH_OUTPUT_MODE, A_SYNTH_OUTPUT_INTERNAL_ROOT);
    mark(top, "(" + begin("red", wireAt("a")) + ")");
    mark(below, "(nonsense " + begin("blue", wireAt("neg")) + ")");
    infer();
    EXPECT_EQ(of(*inX, {&use1}), "red");
    EXPECT_EQ(of(*inX), "-");
    EXPECT_EQ(of(*neg, {&use1}), "blue");
    EXPECT_EQ(of(*neg), "blue");
    // Both roots lead to the model, which is read once.
    EXPECT_EQ(messages.lines, Lines{"BAD_DOMAIN_BOUNDARY_SPEC boundarySpec=nonsense modelName=below"});
}

TEST_F(DomainHierarchy, leavesScheduledModelsUntouchedWhenAskedTo) {
    Wire &a = source(top, "a");
    Block &use1 = use("use1", a);
    Block &use2 = use("use2", *use1.getWire(value("y")));
    below.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    mark(top, "(" + begin("red", wireAt("a")) + ")");
    mark(below, "(" + begin("blue", wireAt("neg")) + ")");
    info = DomainInference::inferDomains(design, DomainInference::UnscheduledInferenceModifier());
    EXPECT_EQ(of(use1, "x"), "red");
    EXPECT_EQ(of(*inX, {&use1}), "-");
    EXPECT_EQ(of(*neg, {&use1}), "-");
    EXPECT_EQ(of(*use1.getWire(value("y"))), "-");
    EXPECT_EQ(of(use2, "x"), "-");
    infer();
    EXPECT_EQ(of(*inX, {&use1}), "red");
    EXPECT_EQ(of(*neg, {&use1}), "blue");
    // Delays may be shuffled in a model that is not scheduled; and one without the parameter is not, either.
    for (const ValueRef &timed : {ValueRef(A_FALSE), ValueRef(A_SYNTH_NO_SCHEDULE_NO_SHUFFLE), ValueRef()}) {
        below.setParam(A_SYNTH_CIRCUIT_TIMED, timed);
        info = DomainInference::inferDomains(design, DomainInference::UnscheduledInferenceModifier());
        EXPECT_EQ(of(*inX, {&use1}), "red");
    }
}

TEST_F(DomainHierarchy, crossesWhereTheModifierAllowsIt) {
    struct OnlyDown final : DomainInference::DefaultInferenceModifier {
        explicit OnlyDown(const Model &model) : inner(model) {}
        bool crossModelBoundary(const Model &from, const Model &) const override { return &from != &inner; }
        const Model &inner;
    };
    Wire &a = source(top, "a");
    Block &use1 = use("use1", a);
    mark(top, "(" + begin("red", wireAt("a")) + ")");
    info = DomainInference::inferDomains(design, OnlyDown(below));
    EXPECT_EQ(of(*outY, "y", {&use1}), "red");
    EXPECT_EQ(of(*use1.getWire(value("y"))), "-");
    struct Nowhere final : DomainInference::DefaultInferenceModifier {
        bool crossModelBoundary(const Model &, const Model &) const override { return false; }
    };
    mark(below, "(" + begin("blue", wireAt("neg")) + ")");
    info = DomainInference::inferDomains(design, Nowhere());
    EXPECT_EQ(of(use1, "x"), "red");
    EXPECT_EQ(of(*inX, {&use1}), "-");
    EXPECT_EQ(of(*outY, "y", {&use1}), "blue");
    EXPECT_EQ(of(*use1.getWire(value("y"))), "-");
}

TEST_F(DomainHierarchy, leavesOutARootThatTakesNoPart) {
    Wire &a = source(top, "a");
    mark(top, "(" + begin("red", wireAt("a")) + ")");
    top.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    info = DomainInference::inferDomains(design, DomainInference::UnscheduledInferenceModifier());
    EXPECT_EQ(of(a), "-");
    infer();
    EXPECT_EQ(of(a), "red");
}

TEST_F(DomainHierarchy, takesTheRootsThatAreGiven) {
    mark(below, "(" + begin("blue", wireAt("neg")) + ")");
    info = DomainInference::inferDomains({&below, &below}, DomainInference::DefaultInferenceModifier());
    EXPECT_EQ(of(*outY, "y"), "blue");
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(DomainHierarchy, comesToAnEndWhereAModelInstantiatesItself) {
    Block &again = instance(below, "again", below);
    again.setParam(value("x"), *neg);
    wire(again, "y");
    Wire &a = source(top, "a");
    Block &use1 = use("use1", a);
    mark(top, "(" + begin("red", wireAt("a")) + ")");
    infer();
    EXPECT_EQ(of(again, "x", {&use1}), "red");
    EXPECT_EQ(of(*again.getWire(value("y")), {&use1}), "-");
}

TEST_F(DomainFlow, takesABlockOfManyEndsOnceADomain) {
    // Each input reaches all others: as many visits of the block as it has inputs would not come to an end here.
    std::vector<Wire *> inputs;
    for (int i = 0; i < 100000; ++i) {
        inputs.push_back(&source(top, "s" + std::to_string(i)));
    }
    Wire &all = operation(top, "all", A_BIT_JOIN_BLOCK, inputs);
    mark(top, "(" + end("red", wireAt("all")) + ")");
    infer();
    EXPECT_EQ(of(*inputs.front()), "red");
    EXPECT_EQ(of(*inputs.back()), "red");
    EXPECT_EQ(of(all), "red");
    EXPECT_EQ(messages.lines, Lines());
}

class DomainDump : public test::DomainRig {
  protected:
    std::string dumped() {
        const PureValueRef key = value("(domainDumpKey refChainTag portsPartTag wiresPartTag)");
        const ValueRef found = design.getParam(key);
        return found ? found->toString() : "nothing";
    }
};

TEST_F(DomainDump, listsEachInstanceWithItsPortsAndWires) {
    Model &below = *Model::create(design, "below");
    Wire &x = wire(make(below, "in", A_INPUT_BLOCK), "x");
    make(below, "end", A_TERMINAL_BLOCK).setParam(value("0"), x);
    Wire &a = source(top, "a");
    source(top, "untouched");
    instance(top, "i1", below).setParam(value("x"), a);
    instance(top, "i2", below);
    Model::create(design, "aside");
    mark(top, "(" + begin("red", wireAt("a")) + ")");
    infer();
    DomainInference::domainDump(design, info);
    EXPECT_EQ(dumped(), "(((refChainTag top ()) (portsPartTag (i1 x red)) (wiresPartTag (a w red)))"
                        " ((refChainTag below ((top i1))) (portsPartTag (end 0 red)) (wiresPartTag (in x red)))"
                        " ((refChainTag below ((top i2))) (portsPartTag) (wiresPartTag)))");
    EXPECT_TRUE(test::checkInvariants(design));
}

TEST_F(DomainDump, replacesTheOneBefore) {
    Wire &a = source(top, "a");
    info.setDomain(a, info.getRefChainCollection().getOrCreateId({}), value("red"));
    DomainInference::domainDump(design, info);
    EXPECT_EQ(dumped(), "(((refChainTag top ()) (portsPartTag) (wiresPartTag (a w red))))");
    info.setDomain(a, 0, nullptr);
    DomainInference::domainDump(design, info);
    EXPECT_EQ(dumped(), "(((refChainTag top ()) (portsPartTag) (wiresPartTag)))");
    DomainInference::domainDump(design, DomainAnalysisInfo());
    EXPECT_EQ(dumped(), "()");
}

} // namespace
} // namespace orvo
