// Edges of domains at tags that become wires: what the domains were at all ends that last, they are afterwards.
#include "support/domainrig.h"
#include "support/invariants.h"
#include "support/randomdesigns.h"

#include <orvo/pass.h>

#include <rapidcheck/gtest.h>

#include <array>
#include <functional>
#include <map>

namespace orvo {
namespace {

/// The domains at ports and wires that tags do not take with them, by paths from the top.
using Domains = std::map<std::string, std::string>;

Domains domainsOf(const Model &top) {
    DomainAnalysisInfo info = DomainInference::inferDomains({&top}, DomainInference::DefaultInferenceModifier());
    Domains domains;
    RefChain chain;
    const std::function<void(const Model &, const std::string &)> walk = [&](const Model &model,
                                                                             const std::string &way) {
        const unsigned long id = info.getRefChainCollection().getOrCreateId(chain);
        for (const Block &block : model) {
            const std::string at = way + "/" + block.getName()->toString();
            if (block.type() == A_GOTO_BLOCK.get_ptr() || block.type() == A_FROM_BLOCK.get_ptr()) {
                continue;
            }
            const auto add = [&](const char *kind, const PureValueRef &name, const PureValueRef &domain) {
                domains[at + kind + name->toString()] = domain ? domain->toString() : "-";
            };
            for (const Port &port : block.ports()) {
                add(" port ", port.getName(), info.getDomain(port, id));
            }
            for (const Wire &wire : block) {
                add(" wire ", wire.getName(), info.getDomain(wire, id));
            }
            if (const Model *below = Node::from<Model>(block.getParam(A_MODEL_NODE))) {
                chain.push_back(&block);
                walk(*below, at);
                chain.pop_back();
            }
        }
    };
    walk(top, "");
    return domains;
}

Wire &receiverIn(Model &model, const std::string &name, const std::string &tag = "t") {
    Block &block = *Block::create(model, name, A_FROM_BLOCK);
    block.setParam(A_GOTO_TAG, StringValue::get(tag, model.getContext()));
    return *Wire::create(block, A_FROM_WIRE_OUT);
}

Block &senderIn(Model &model, const std::string &name, Wire &wire, const std::string &tag = "t",
                const StaticString &reach = A_GOTO_TAG_TYPE_LOCAL) {
    Block &block = *Block::create(model, name, A_GOTO_BLOCK);
    block.setParam(A_GOTO_TAG, StringValue::get(tag, model.getContext()));
    block.setParam(A_GOTO_TAG_TYPE, reach);
    block.setParam(A_GOTO_PORT_IN, wire);
    return block;
}

void elide(Design &design) {
    PassScheduler scheduler;
    scheduler.addPass("ElideFromGotoPass");
    scheduler.apply(design);
}

class ElidedDomainEdgesTest : public test::DomainRig {
  protected:
    /// A delay, which lies in one domain.
    Wire &delay(Model &model, const std::string &name, Wire &driver) {
        return operation(model, name, A_DELAY_BLOCK, {&driver});
    }
    static std::string atGoto(const std::string &name) { return portAt(name, A_GOTO_PORT_IN.text()); }
    static std::string atFrom(const std::string &name) { return wireAt(name, A_FROM_WIRE_OUT.text()); }
    std::string edges(const Model &model) {
        const ValueRef all = model.getParam(A_SYNTH_SCHEDULE_DOMAINS);
        return all ? all->toString() : "";
    }
    /// The driver "d0" of the Goto "g", and a delay behind each From.
    Wire &pairOf(std::size_t froms) {
        Wire &driver = delay(top, "d0", source(top, "s"));
        senderIn(top, "g", driver);
        for (std::size_t i = 1; i <= froms; ++i) {
            const std::string number = std::to_string(i);
            delay(top, "d" + number, receiverIn(top, "f" + number));
        }
        return driver;
    }
    /// Ends without a domain may get one that now flows to them.
    void expectKept(bool mayFlow = false) {
        const Domains before = domainsOf(top);
        EXPECT_EQ(messages.lines, Lines());
        elide(design);
        EXPECT_TRUE(test::checkInvariants(design));
        Domains after = domainsOf(top);
        EXPECT_EQ(messages.lines, Lines());
        for (const auto &[end, was] : before) {
            if (!mayFlow || was != "-") {
                EXPECT_EQ(after[end], was) << end;
            }
        }
    }
};

TEST_F(ElidedDomainEdgesTest, twoFromsOfATagBeginDomainsOfTheirOwn) {
    pairOf(2);
    mark(top, "(" + begin("red", atFrom("f1")) + " " + begin("blue", atFrom("f2")) + ")");
    expectKept();
    EXPECT_EQ(edges(top), "(" + begin("red", portAt("d1")) + " " + begin("blue", portAt("d2")) + ")");
}

TEST_F(ElidedDomainEdgesTest, aBeginAtAFromDoesNotReachTheDriver) {
    pairOf(2);
    mark(top, "(" + begin("red", atFrom("f1")) + ")");
    expectKept();
}

TEST_F(ElidedDomainEdgesTest, aBeginAtAFromGoesToEachReader) {
    pairOf(1);
    Wire &tagged = *top.getBlock(value("f1"))->getWire(A_FROM_WIRE_OUT);
    operation(top, "both", A_ADD_BLOCK, {&tagged, &tagged});
    mark(top, "(" + begin("red", atFrom("f1")) + ")");
    expectKept();
    EXPECT_EQ(edges(top), "(" + begin("red", portAt("d1")) + " " + begin("red", portAt("both")) + " " +
                              begin("red", portAt("both", "1")) + ")");
}

TEST_F(ElidedDomainEdgesTest, anEndAtTheGotoAndABeginAtAFromStayApart) {
    pairOf(2);
    mark(top, "(" + begin("red", atFrom("f1")) + " " + end("blue", atGoto("g")) + ")");
    expectKept();
}

TEST_F(ElidedDomainEdgesTest, aBeginAtTheDriverAndOneAtAFromStayApart) {
    pairOf(2);
    mark(top, "(" + begin("red", atFrom("f1")) + " " + begin("blue", wireAt("d0")) + ")");
    expectKept(true);
}

TEST_F(ElidedDomainEdgesTest, anEndAtAGotoLeavesTheOtherReadersOfTheWireTheirDomain) {
    delay(top, "near", pairOf(1));
    mark(top, "(" + end("blue", atGoto("g")) + ")");
    expectKept();
}

TEST_F(ElidedDomainEdgesTest, anEndAtAGotoAndABeginAtEachFromLeaveTheOtherReadersTheirDomain) {
    delay(top, "near", pairOf(2));
    mark(top, "(" + begin("red", atFrom("f1")) + begin("green", atFrom("f2")) + end("blue", atGoto("g")) + ")");
    expectKept();
}

TEST_F(ElidedDomainEdgesTest, anEndAtAGotoThatNobodyReadsLeavesTheDriverItsDomain) {
    delay(top, "near", pairOf(0));
    mark(top, "(" + end("blue", atGoto("g")) + ")");
    expectKept();
}

TEST_F(ElidedDomainEdgesTest, anEndAtAGotoMeetsAnEdgeAtTheDriver) {
    delay(top, "near", pairOf(1));
    mark(top, "(" + end("green", wireAt("d0")) + end("blue", atGoto("g")) + ")");
    expectKept();
    EXPECT_EQ(edges(top), "(" + end("green", wireAt("d0")) + ")");
}

TEST_F(ElidedDomainEdgesTest, anEndAtAGotoKeepsItsReadersFromADomainThatBeginsAtTheDriver) {
    delay(top, "near", pairOf(1));
    mark(top, "(" + begin("green", wireAt("d0")) + end("blue", atGoto("g")) + begin("red", wireAt("d1")) + ")");
    const Domains before = domainsOf(top);
    elide(design);
    Domains after = domainsOf(top);
    EXPECT_EQ(messages.lines, Lines());
    EXPECT_EQ(after["/d1 port 0"], "blue");
    after["/d1 port 0"] = before.at("/d1 port 0");
    EXPECT_EQ(after, before);
}

TEST_F(ElidedDomainEdgesTest, anEdgeAtAReaderComesBeforeTheFroms) {
    pairOf(1);
    delay(top, "d2", *top.getBlock(value("f1"))->getWire(A_FROM_WIRE_OUT));
    mark(top, "(" + begin("red", atFrom("f1")) + begin("blue", portAt("d1")) + ")");
    expectKept();
    EXPECT_EQ(edges(top), "(" + begin("red", portAt("d2")) + " " + begin("blue", portAt("d1")) + ")");
}

TEST_F(ElidedDomainEdgesTest, theNearestEdgeOfAChainOfTagsCounts) {
    pairOf(1);
    Wire &first = *top.getBlock(value("f1"))->getWire(A_FROM_WIRE_OUT);
    senderIn(top, "again", first, "u");
    delay(top, "last", receiverIn(top, "fu", "u"));
    senderIn(top, "plain", first, "v");
    delay(top, "through", receiverIn(top, "fv", "v"));
    mark(top, "(" + begin("red", atFrom("f1")) + begin("blue", atFrom("fu")) + end("green", atGoto("g")) + ")");
    expectKept(true);
    EXPECT_EQ(edges(top), "(" + begin("red", portAt("d1")) + " " + begin("red", portAt("through")) + " " +
                              begin("blue", portAt("last")) + " " + end("green", wireAt("d0")) + ")");
}

TEST_F(ElidedDomainEdgesTest, anEndInsideAChainOfTagsHoldsOnTheNetBeforeIt) {
    pairOf(1);
    senderIn(top, "again", *top.getBlock(value("f1"))->getWire(A_FROM_WIRE_OUT), "u");
    delay(top, "last", receiverIn(top, "fu", "u"));
    mark(top, "(" + end("red", atGoto("again")) + end("green", atGoto("g")) + ")");
    expectKept();
}

TEST_F(ElidedDomainEdgesTest, anEndAtAFromHoldsForTheDriver) {
    delay(top, "near", pairOf(1));
    mark(top, "(" + begin("red", portAt("d0")) + end("red", atFrom("f1")) + end("blue", wireAt("d1")) + ")");
    expectKept(true);
    EXPECT_EQ(domainsOf(top).at("/d1 port 0"), "blue");
    EXPECT_EQ(domainsOf(top).at("/near wire w"), "red");
}

TEST_F(ElidedDomainEdgesTest, aBeginAtAGotoReachesItsReaders) {
    delay(top, "near", pairOf(2));
    mark(top, "(" + begin("red", atGoto("g")) + ")");
    expectKept(true);
    EXPECT_EQ(edges(top), "(" + begin("red", portAt("d1")) + " " + begin("red", portAt("d2")) + ")");
}

TEST_F(ElidedDomainEdgesTest, routedTagsKeepTheirDomainsApart) {
    Model &low = *Model::create(design, "low");
    instance(top, "call", low);
    Wire &driver = delay(top, "d0", source(top, "s"));
    senderIn(top, "g", driver, "t", A_GOTO_TAG_TYPE_GLOBAL);
    delay(top, "near", driver);
    delay(low, "d1", receiverIn(low, "f1"));
    delay(low, "d2", receiverIn(low, "f2"));
    mark(low, "(" + begin("red", atFrom("f1")) + " " + begin("blue", atFrom("f2")) + ")");
    mark(top, "(" + end("green", atGoto("g")) + ")");
    expectKept();
    EXPECT_EQ(edges(low), "(" + begin("red", portAt("d1")) + " " + begin("blue", portAt("d2")) + ")");
    EXPECT_EQ(edges(top), "(" + end("green", wireAt("d0")) + " " + begin("green", portAt("near")) + ")");
}

TEST_F(ElidedDomainEdgesTest, aRouteThroughATagThatIsFedByAnotherKeepsItsEdges) {
    Model &low = *Model::create(design, "low");
    instance(top, "call", low);
    // Met before what feeds it is resolved.
    delay(low, "d2", receiverIn(low, "f2", "u"));
    Wire &driver = delay(top, "d0", source(top, "s"));
    senderIn(top, "g", driver);
    Wire &first = receiverIn(top, "f1");
    delay(top, "d1", first);
    senderIn(top, "again", first, "u", A_GOTO_TAG_TYPE_GLOBAL);
    mark(top, "(" + end("red", atGoto("again")) + end("green", atGoto("g")) + ")");
    expectKept();
}

TEST_F(ElidedDomainEdgesTest, edgesStayOutOfTheWayOfFlattening) {
    Model &low = *Model::create(design, "low");
    Block &call = instance(top, "call", low);
    call.setParam(value("x"), source(top, "s"));
    Block &in = make(low, "in", A_INPUT_BLOCK);
    Wire &x = wire(in, "x");
    delay(low, "near", x);
    senderIn(low, "g", x);
    delay(low, "d1", receiverIn(low, "f1"));
    Wire &driver = delay(low, "d0", source(low, "ls"));
    senderIn(low, "h", driver, "u");
    make(low, "out", A_OUTPUT_BLOCK).setParam(value("y"), receiverIn(low, "f2", "u"));
    delay(top, "last", wire(call, "y"));
    mark(low, "(" + end("green", atGoto("g")) + " " + begin("blue", atFrom("f2")) + ")");
    elide(design);
    EXPECT_EQ(edges(low), "(" + begin("green", portAt("near")) + ")");
    EXPECT_EQ(edges(top), "(" + end("green", portAt("call", "x")) + " " + begin("blue", wireAt("call", "y")) + ")");
    const Domains domains = domainsOf(top);
    EXPECT_EQ(domains.at("/call/near wire w"), "green");
    EXPECT_EQ(domains.at("/call/d1 wire w"), "-");
    EXPECT_EQ(domains.at("/call/d0 port 0"), "-");
    EXPECT_EQ(domains.at("/last wire w"), "blue");
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(ElidedDomainEdgesTest, whatStandsElsewhereStays) {
    pairOf(1);
    const std::string others = end("blue", wireAt("d0", "other")) + " " + end("red", wireAt("f1", "other")) + " 7";
    mark(top, "(" + begin("red", atFrom("f1")) + " " + others + ")");
    elide(design);
    EXPECT_EQ(edges(top), "(" + begin("red", portAt("d1")) + " " + others + ")");
}

TEST_F(ElidedDomainEdgesTest, aFromThatStaysKeepsItsEdge) {
    delay(top, "d1", receiverIn(top, "f1", "unknown"));
    senderIn(top, "g", *top.getBlock(value("f1"))->getWire(A_FROM_WIRE_OUT), "u");
    delay(top, "d2", receiverIn(top, "f2", "u"));
    mark(top, "(" + begin("red", atFrom("f1")) + " " + begin("blue", atFrom("f2")) + ")");
    elide(design);
    EXPECT_EQ(edges(top), "(" + begin("red", atFrom("f1")) + " " + begin("blue", portAt("d2")) + ")");
}

/// A delay of a compound signal, between the packs that the texts tell, with edges at all ends of the delay and at
/// those of the pack and the unpack; and the passes that take it apart.
struct Compound {
    const char *type;
    const StaticString &pack;
    const StaticString &packOut;
    std::array<PureValueRef, 2> parts;
    std::array<PureValueRef, 2> wires;
    const StaticString &unpack;
    const StaticString &unpackIn;
    const char *pass;
};

class CompoundDomainEdgesTest : public ElidedDomainEdgesTest {
  protected:
    std::vector<Compound> compounds() {
        const std::array<PureValueRef, 2> numbers{value("0"), value("1")};
        const std::array<PureValueRef, 2> parts{PureValueRef(A_CPACK_PORT_REAL), PureValueRef(A_CPACK_PORT_IMAG)};
        const std::array<PureValueRef, 2> wires{PureValueRef(A_CUNPACK_WIRE_REAL), PureValueRef(A_CUNPACK_WIRE_IMAG)};
        return {{"vector", A_VPACK_BLOCK, A_VPACK_WIRE_OUT, numbers, numbers, A_VUNPACK_BLOCK, A_VUNPACK_PORT_IN,
                 "UnrollVectorPass"},
                {"complex", A_CPACK_BLOCK, A_CPACK_WIRE_OUT, parts, wires, A_CUNPACK_BLOCK, A_CUNPACK_PORT_IN,
                 "UnrollComplexPass"},
                {"record", A_APACK_BLOCK, A_APACK_WIRE_OUT, numbers, numbers, A_AUNPACK_BLOCK, A_AUNPACK_PORT_IN,
                 "UnrollAggregatePass"}};
    }
    /// Plain delays "a0" and "a1", a pack, the delay "c" of what it gives, an unpack, and plain delays "b0" and "b1".
    void draw(const Compound &of) {
        Block &pack = make(top, "pack", of.pack);
        Block &unpack = make(top, "unpack", of.unpack);
        for (std::size_t i = 0; i < 2; ++i) {
            const std::string number = std::to_string(i);
            Block &pin = make(top, "pin" + number, A_TYPE_PIN_BLOCK);
            pin.setParam(A_TYPE_PIN_TYPE, value("(typeSFixed 8 0)"));
            pin.setParam(value("0"), wire(make(top, "in" + number, A_INPUT_BLOCK), "x" + number));
            pack.setParam(of.parts[i], plainDelay("a" + number, wire(pin, "0")));
        }
        unpack.setParam(of.unpackIn, plainDelay("c", wire(pack, of.packOut.text())));
        Block &out = make(top, "out", A_OUTPUT_BLOCK);
        for (std::size_t i = 0; i < 2; ++i) {
            const std::string number = std::to_string(i);
            out.setParam(value("y" + number), plainDelay("b" + number, *Wire::create(unpack, of.wires[i])));
        }
    }
    Wire &plainDelay(const std::string &name, Wire &driver) {
        Block &block = make(top, name, A_DELAY_BLOCK);
        block.setParam(A_DELAY_LENGTH, value("1"));
        block.setParam(value("0"), driver);
        return *Wire::create(block, A_PRIM_WIRE_OUT);
    }
    /// The domains at the plain delays must be kept.
    void expectKeptBy(const Compound &of) {
        const Domains before = domainsOf(top);
        ASSERT_EQ(messages.lines, Lines());
        PassScheduler scheduler;
        scheduler.addPass(of.pass);
        scheduler.addPass("ElideUnpackPass");
        scheduler.apply(design);
        EXPECT_TRUE(test::checkInvariants(design));
        EXPECT_EQ(top.getBlock(value("pack")), nullptr);
        EXPECT_EQ(top.getBlock(value("unpack")), nullptr);
        Domains after = domainsOf(top);
        EXPECT_EQ(messages.lines, Lines());
        for (const char *block : {"a0", "a1", "b0", "b1"}) {
            for (const char *end : {" port 0", " wire primWireOut"}) {
                const std::string at = std::string("/") + block + end;
                EXPECT_EQ(after[at], before.at(at)) << at;
            }
        }
    }
    void expectKeptWith(const std::string &specs) {
        for (const Compound &of : compounds()) {
            SCOPED_TRACE(of.type + (" " + specs));
            while (top.begin() != top.end()) {
                delete &*top.begin();
            }
            draw(of);
            std::string spelt = specs;
            const std::pair<std::string, std::string> words[] = {{"UNPACKIN", of.unpackIn.text()},
                                                                 {"UNPACK0", of.wires[0]->toString()},
                                                                 {"PACKOUT", of.packOut.text()},
                                                                 {"PACK0", of.parts[0]->toString()}};
            for (const auto &[word, name] : words) {
                for (std::size_t at; (at = spelt.find(word)) != std::string::npos;) {
                    spelt.replace(at, word.size(), name);
                }
            }
            mark(top, "(" + spelt + ")");
            expectKeptBy(of);
        }
    }
};

TEST_F(CompoundDomainEdgesTest, edgesAtTheCompoundBlockMoveToItsParts) {
    expectKeptWith(begin("red", wireAt("c", A_PRIM_WIRE_OUT.text())) + end("blue", portAt("c")));
    expectKeptWith(begin("blue", portAt("c")) + end("red", wireAt("c", A_PRIM_WIRE_OUT.text())));
}

TEST_F(CompoundDomainEdgesTest, edgesAtPacksAndUnpacksMoveToTheReaders) {
    expectKeptWith(begin("red", wireAt("pack", "PACKOUT")));
    expectKeptWith(end("red", wireAt("pack", "PACKOUT")));
    expectKeptWith(begin("red", portAt("unpack", "UNPACKIN")));
    expectKeptWith(begin("red", wireAt("unpack", "UNPACK0")));
    expectKeptWith(end("red", portAt("pack", "PACK0")));
}

TEST_F(CompoundDomainEdgesTest, aDomainThatEndsAtAnUnpackEndsAtItsReaders) {
    for (const Compound &of : compounds()) {
        while (top.begin() != top.end()) {
            delete &*top.begin();
        }
        draw(of);
        mark(top, "(" + end("red", portAt("unpack", of.unpackIn.text())) + ")");
        PassScheduler scheduler;
        scheduler.addPass(of.pass);
        scheduler.addPass("ElideUnpackPass");
        scheduler.apply(design);
        const Domains domains = domainsOf(top);
        for (const char *number : {"0", "1"}) {
            EXPECT_EQ(domains.at(std::string("/a") + number + " wire primWireOut"), "red");
            EXPECT_EQ(domains.at(std::string("/b") + number + " port 0"), "-") << of.type;
            EXPECT_EQ(domains.at(std::string("/b") + number + " wire primWireOut"), "-") << of.type;
        }
        EXPECT_EQ(messages.lines, Lines());
    }
}

/// A net of delays and tags, with domains that begin at both. None ends: where one does, the readers of the wire are
/// apart, also those that shared the net of a From.
void grow(Design &design, Model &top, const std::vector<gen::Recipe> &recipes) {
    Context *context = design.getContext();
    Block &start = *Block::create(top, "start", A_TYPE_PIN_BLOCK);
    std::vector<Wire *> wires{Wire::create(start, "w")};
    std::vector<ValueRef> edges;
    std::size_t number = 0;
    for (const gen::Recipe &recipe : recipes) {
        gen::Chooser chooser(recipe, 0);
        const std::string name = std::to_string(number++);
        Wire &wire = *wires[chooser.below(wires.size())];
        const std::string tag = std::to_string(chooser.below(4));
        const std::string domain = chooser.chance(1, 2) ? "red" : "blue";
        switch (recipe.kind % 4) {
        case 0: {
            Block &made = *Block::create(top, "d" + name, A_DELAY_BLOCK);
            made.setParam(StringValue::get("0", context), wire);
            wires.push_back(Wire::create(made, "w"));
            break;
        }
        case 1:
            senderIn(top, "g" + name, wire, tag);
            break;
        case 2:
            wires.push_back(&receiverIn(top, "f" + name, tag));
            break;
        default:
            edges.push_back(Value::parse("(scheduleDomainBegin " + domain + " (" +
                                             wire.getBlock().getName()->toString() + " " + A_WIRE_TAG.text() + " " +
                                             wire.getName()->toString() + "))",
                                         context));
        }
    }
    if (!edges.empty()) {
        top.setParam(A_SYNTH_SCHEDULE_DOMAINS, TupleValue::get(edges, context));
    }
}

RC_GTEST_FIXTURE_PROP(ElidedDomainEdgesTest, keepsTheDomainsThatBeginAtFroms, ()) {
    grow(design, top, *test::recipes(40));
    const Domains before = domainsOf(top);
    RC_PRE(messages.lines.empty());
    elide(design);
    messages.lines.clear();
    Domains after = domainsOf(top);
    for (const std::string &line : messages.lines) {
        RC_ASSERT(line.rfind("BAD_DOMAIN_OVERWRITING", 0) == 0);
    }
    // Where domains meet that tags kept apart, either may come first.
    RC_PRE(messages.lines.empty());
    for (const auto &[end, was] : before) {
        RC_ASSERT(was == "-" || after[end] == was);
    }
}

} // namespace
} // namespace orvo
