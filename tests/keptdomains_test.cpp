// Domains at blocks that stay, through passes that replace, join and move what stands between them.
#include "support/keptdomains.h"
#include "support/randomdesigns.h"

#include <rapidcheck/gtest.h>

#include <set>

namespace orvo {
namespace {

class KeptDomainsTest : public test::KeptDomainsRig {
  protected:
    static std::string atGoto(const std::string &name) { return portAt(name, A_GOTO_PORT_IN.text()); }
    static std::string atFrom(const std::string &name) { return wireAt(name, A_FROM_WIRE_OUT.text()); }
    static std::string atWire(const std::string &name) { return wireAt(name, A_PRIM_WIRE_OUT.text()); }
    Model &add(const std::string &name) { return *Model::create(design, value(name)); }
    void clear() {
        while (top.begin() != top.end()) {
            delete &*top.begin();
        }
    }
    /// None, a begin or an end at each of the places, as the digits of `number` to the base 3 tell, of two domains, as
    /// the bits of `domains` do.
    static std::string edgesAt(const std::vector<std::string> &places, std::size_t number, std::size_t domains) {
        std::string specs;
        for (std::size_t i = 0; i < places.size(); ++i, number /= 3) {
            const std::string domain = (domains >> i & 1) != 0 ? "red" : "blue";
            specs += number % 3 == 0 ? "" : number % 3 == 1 ? begin(domain, places[i]) : end(domain, places[i]);
        }
        return specs;
    }
    /// Whether the design that was just drawn agrees with these edges; if so, the pass must keep its domains.
    bool keeps(const std::string &specs, const std::string &pass) {
        mark(top, "(" + specs + ")");
        messages.lines.clear();
        keptDomains();
        if (!messages.lines.empty()) {
            return false;
        }
        expectKept(pass);
        return true;
    }
};

TEST_F(KeptDomainsTest, anEdgeGoesOnIfItsNewPlaceIsReplacedToo) {
    for (const bool inOrder : {true, false}) {
        const std::string first = inOrder ? "m1" : "m3";
        const std::string last = inOrder ? "m3" : "m1";
        for (const std::string &edge : {begin("red", portAt(first)), end("red", portAt(first)),
                                        begin("red", portAt("m2")), end("red", portAt("m2"))}) {
            SCOPED_TRACE(edge);
            clear();
            draw(top, "d0 delay in/x\n" + first + " min d0\nm2 min " + first + "\n" + last + " min m2\nr delay " +
                          last + "\ny out r");
            mark(top, "(" + edge + ")");
            expectKept("DecomposeCompositePass");
            EXPECT_NE(edges(top), "");
        }
    }
}

TEST_F(KeptDomainsTest, anEdgeAtABlockThatBecomesAWireGoesOnThroughBlocksThatAreReplaced) {
    for (const char *name : {"a", "z"}) {
        for (const std::string &edge : {begin("red", portAt(name)), end("red", portAt(name)),
                                        begin("red", atWire(name)), end("red", atWire(name))}) {
            SCOPED_TRACE(edge);
            clear();
            const std::string least(name);
            draw(top, "d0 delay in/x\nb abs d0\n" + least + " min b\nc abs " + least + "\nr delay c\ny out r");
            mark(top, "(" + edge + ")");
            expectKept("DecomposeCompositePass");
        }
    }
}

TEST_F(KeptDomainsTest, aLatencyConstraintGoesOnIfItsNewPlaceIsReplacedToo) {
    draw(top, "d0 delay in/x\nm1 min d0\nm2 min m1\nr delay m2\ny out r");
    top.getBlock(value("m1"))->setParam(A_SCHEDULE_CONSTRAINT_PORTS, any("((0 true (0) ()))"));
    run("DecomposeCompositePass");
    const ValueRef moved = top.getBlock(value("r"))->getParam(A_SCHEDULE_CONSTRAINT_PORTS);
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->toString(), "((0 true (0) ()))");
}

TEST_F(KeptDomainsTest, anEdgeGoesOnFromALaneToABlockThatIsUnrolledLater) {
    for (const auto &mayBegin : {true, false}) {
        clear();
        draw(top, "d0 delay in/x\nd1 delay in/x\np vpack d0 d1\ne0 delay in/x\ne1 delay in/x\nq vpack e0 e1");
        Block &lane = make(top, "a", A_VSELECTOR_BLOCK);
        lane.setParam(A_VSELECTOR_INDICIES, any("((0))"));
        lane.setParam(A_VSELECTOR_PORT_IN, driver(top, "p"));
        Block &sum = make(top, "kadd", A_ADD_BLOCK);
        sum.setParam(value("0"), driver(top, "q"));
        sum.setParam(value("1"), *Wire::create(lane, A_PRIM_WIRE_OUT));
        Wire::create(sum, A_PRIM_WIRE_OUT);
        draw(top, "u vunpack kadd\nr delay u/0\ny out r");
        const std::string place = portAt("a", A_VSELECTOR_PORT_IN.text());
        mark(top, "(" + (mayBegin ? begin("red", place) : end("red", place)) + ")");
        run("UnrollVectorPass");
        EXPECT_NE(edges(top), "");
        EXPECT_EQ(keptDomains().at(mayBegin ? "r in" : "d0 out"), "red") << edges(top);
        EXPECT_EQ(messages.lines, Lines());
    }
}

TEST_F(KeptDomainsTest, whatStandsAtABlockThatBecomesAWireLeavesOtherReadersOfItsDriverAlone) {
    for (const std::string &edge :
         {begin("red", atWire("m")), end("red", atWire("m")), begin("red", portAt("m")), end("red", portAt("m"))}) {
        SCOPED_TRACE(edge);
        clear();
        draw(top, "d0 delay in/x\nm min d0\nr delay m\nnear delay d0\ny out r\nz out near");
        mark(top, "(" + edge + ")");
        const test::KeptDomains before = keptDomains();
        run("DecomposeCompositePass");
        EXPECT_EQ(keptDomains(), before) << edges(top);
        EXPECT_EQ(messages.lines, Lines());
    }
}

TEST_F(KeptDomainsTest, twoEdgesAtABlockThatBecomesAWireKeepBothSides) {
    draw(top, "d0 delay in/x\nm min d0\nr delay m\nnear delay d0\ny out r\nz out near");
    mark(top, "(" + end("red", portAt("m")) + begin("blue", atWire("m")) + ")");
    const test::KeptDomains before = keptDomains();
    run("DecomposeCompositePass");
    EXPECT_EQ(keptDomains(), before) << edges(top);
}

/// Below "top", "low" delays its input.
class KeptInHierarchyTest : public KeptDomainsTest {
  protected:
    Model &low = add("low");
    void expectKeptFlat() {
        expectKept("ElideFromGotoPass");
        expectKept("FlattenEverythingPass");
    }
};

TEST_F(KeptInHierarchyTest, anEndBesideAnInstanceThatReadsTheSameWire) {
    draw(low, "i delay in/x\ny out i");
    Model &other = add("other");
    draw(other, "j delay in/x\ny out j");
    draw(top, "d0 delay in/x\ng goto t Local d0\ncall call low x=d0\nf from t\ncall2 call other x=f\n"
              "y out call/y\nz out call2/y");
    mark(top, "(" + end("red", atGoto("g")) + ")");
    expectKeptFlat();
}

TEST_F(KeptInHierarchyTest, aBeginAtAFromThatFeedsAnInstance) {
    draw(low, "i delay in/x\ny out i");
    draw(top, "d0 delay in/x\ng goto t Local d0\nnear delay d0\nf from t\ncall call low x=f\ny out call/y\n"
              "f2 from t\nw delay f2\nz out near");
    mark(top, "(" + begin("red", atFrom("f")) + begin("blue", atFrom("f2")) + ")");
    expectKeptFlat();
}

TEST_F(KeptInHierarchyTest, anEndAtAGotoThatReadsAnInput) {
    draw(low, "i delay in/x\ng goto t Global in/x\ny out i");
    draw(top, "d0 delay in/x\ncall call low x=d0\nf from t\ndz delay f\ny out call/y\nz out dz");
    mark(low, "(" + end("red", atGoto("g")) + ")");
    expectKeptFlat();
}

TEST_F(KeptInHierarchyTest, aBeginAtAFromThatDrivesAnOutput) {
    draw(low, "f from t\ny out f");
    draw(top, "d0 delay in/x\ng goto t Global d0\ncall call low\ndy delay call/y\ny out dy");
    mark(low, "(" + begin("red", atFrom("f")) + ")");
    expectKeptFlat();
}

TEST_F(KeptInHierarchyTest, theFirstOfTwoGotosWithOneTag) {
    draw(low, "i delay in/x\ng2 goto t Global i\ny out i");
    draw(top, "d0 delay in/x\ng goto t Global d0\nnear delay d0\ncall call low x=d0\nf from t\nq delay f\n"
              "y out call/y\nz out q");
    mark(top, "(" + end("red", atGoto("g")) + ")");
    expectKeptFlat();
}

TEST_F(KeptInHierarchyTest, edgesAtAnInstanceGoToWhatLasts) {
    const std::string x = portAt("call", "x");
    const std::string y = wireAt("call", "y");
    for (const std::string &specs :
         {begin("red", x), end("red", x), begin("red", y), end("red", y), end("red", x) + begin("blue", y),
          begin("red", x) + end("red", y), end("red", x) + end("blue", y)}) {
        SCOPED_TRACE(specs);
        clear();
        while (low.begin() != low.end()) {
            delete &*low.begin();
        }
        draw(low, "i delay in/x\ny out i");
        draw(top, "d0 delay in/x\nnear delay d0\ncall call low x=d0\nr delay call/y\ns delay call/y\nz out r");
        mark(top, "(" + specs + ")");
        expectKept("FlattenEverythingPass");
        EXPECT_NE(edges(top), "");
    }
}

TEST_F(KeptInHierarchyTest, edgesAtInstancesOfInstancesAndStraightThrough) {
    Model &mid = add("mid");
    draw(low, "y out in/x\nv out in/x\ni delay in/x");
    draw(mid, "c call low x=in/x\nk delay c/y\ny out c/v");
    draw(top, "d0 delay in/x\nnear delay d0\ncall call mid x=d0\nr delay call/y\nz out r");
    mark(mid, "(" + begin("blue", portAt("c", "x")) + end("blue", wireAt("c", "v")) + ")");
    mark(top, "(" + end("red", portAt("call", "x")) + ")");
    expectKept("FlattenEverythingPass");
    EXPECT_EQ(keptDomains().at("k in"), "blue");
    EXPECT_EQ(keptDomains().at("near in"), "red");
}

/// Delays "a0" and "a1", a pack, an unpack, delays "b0" and "b1", and another reader of "a0".
class KeptAtPairTest : public KeptDomainsTest {
  protected:
    void pair(bool isRead = true) {
        draw(top, "a0 delay in/x\na1 delay in/x1\nn0 delay a0\np vpack a0 a1\nu vunpack p\nb1 delay u/1\ny out b1");
        driver(top, "u/0");
        if (isRead) {
            draw(top, "b0 delay u/0\nz out b0");
        }
    }
    static std::vector<std::string> places() {
        return {portAt("p", "0"),
                portAt("p", "1"),
                wireAt("p", A_VPACK_WIRE_OUT.text()),
                portAt("u", A_VUNPACK_PORT_IN.text()),
                wireAt("u", "0"),
                wireAt("u", "1")};
    }
};

TEST_F(KeptAtPairTest, anEndKeepsTheDriversWhateverIsNearerToTheReaders) {
    pair();
    mark(top, "(" + end("red", places()[3]) + begin("blue", portAt("b0")) + begin("blue", portAt("b1")) + ")");
    expectKept("ElideUnpackPass");
    EXPECT_EQ(keptDomains().at("n0 in"), "red");
}

TEST_F(KeptAtPairTest, anEndKeepsTheDriverOfALaneThatNobodyReads) {
    pair(false);
    mark(top, "(" + end("red", places()[3]) + ")");
    expectKept("ElideUnpackPass");
    EXPECT_EQ(keptDomains().at("a0 out"), "red");
}

TEST_F(KeptAtPairTest, anEdgeOfOneLaneTellsTheDomainOfTheOthers) {
    pair();
    mark(top, "(" + begin("red", places()[0]) + ")");
    expectKept("ElideUnpackPass");
    EXPECT_EQ(keptDomains().at("a1 out"), "red");
}

/// With or without a begin at a reader.
TEST_F(KeptAtPairTest, allEdgesThatDoNotContradictEachOther) {
    const std::vector<std::string> all = places();
    std::size_t kept = 0;
    for (std::size_t number = 0; number < 729; ++number) {
        for (const std::size_t domains : {0U, 0x15U, 0x4cU}) {
            const std::string specs =
                edgesAt(all, number, domains) + (number % 2 == 0 ? "" : begin("green", portAt("b0")));
            clear();
            pair();
            kept += keeps(specs, "ElideUnpackPass") ? 1 : 0;
            ASSERT_FALSE(HasFailure()) << specs;
        }
    }
    EXPECT_GT(kept, 500U);
}

TEST_F(KeptDomainsTest, aSumThatLosesItsCastsKeepsTheDomainsOfBothSides) {
    const std::vector<std::string> all{atWire("a"), portAt("k"), atWire("k"), portAt("l"), atWire("l")};
    std::size_t kept = 0;
    for (std::size_t number = 0; number < 243; ++number) {
        for (const std::size_t domains : {0U, 0x15U, 0x06U}) {
            const std::string specs = edgesAt(all, number, domains);
            clear();
            draw(top, "d0 delay in/x\nd1 delay in/x");
            for (const auto &[name, type] :
                 {std::pair("a", &A_ADD_BLOCK), {"k", &A_CAST_BLOCK}, {"l", &A_CAST_BLOCK}}) {
                Block &block = make(top, name, *type);
                block.setParam(value("0"), driver(top, *type == A_ADD_BLOCK       ? "d0"
                                                       : name == std::string("k") ? "a"
                                                                                  : "k"));
                Wire::create(block, A_PRIM_WIRE_OUT);
                if (*type == A_ADD_BLOCK) {
                    block.setParam(value("1"), driver(top, "d1"));
                } else {
                    block.setParam(A_CAST_OUTPUT_TYPE, any("(typeSFixed 8 0)"));
                }
            }
            draw(top, "r delay l\ns delay l\ny out r\nz out s");
            if (keeps(specs, "RemoveNoGrowthCastsPass")) {
                ++kept;
                EXPECT_EQ(top.getBlock(value("l")), nullptr);
            }
            ASSERT_FALSE(HasFailure()) << specs;
        }
    }
    EXPECT_GT(kept, 500U);
}

TEST_F(KeptDomainsTest, aDeadReaderLeavesItsDriverTheDomain) {
    for (const char *pass : {"DeadBlockPass", "AggressiveDeadBlockPass"}) {
        for (const std::string &specs :
             {end("red", portAt("dead")), end("red", atWire("d0")) + begin("blue", portAt("dead")),
              end("red", atWire("dead"))}) {
            SCOPED_TRACE(pass + specs);
            clear();
            draw(top, "d0 delay in/x\nr delay d0\ny out r");
            draw(top, "dead min d0");
            mark(top, "(" + specs + ")");
            expectKept(pass);
            EXPECT_EQ(edges(top).find("dead"), std::string::npos);
            EXPECT_EQ(keptDomains().at("d0 out"), "red");
        }
    }
}

TEST_F(KeptDomainsTest, aPinThatKeepsATypeLetsDomainsPass) {
    for (const std::string &specs : {begin("red", atWire("d0")), end("red", portAt("r")), begin("red", portAt("d0"))}) {
        SCOPED_TRACE(specs);
        clear();
        Wire::create(make(top, "raw", A_INPUT_BLOCK), value("x"));
        draw(top, "d0 delay raw/x\nr delay d0\ny out r");
        Block &hanging = make(top, "hanging", A_TYPE_PIN_BLOCK);
        hanging.setParam(A_TYPE_PIN_TYPE, any("(typeSFixed 8 0)"));
        hanging.setParam(value("0"), driver(top, "d0"));
        mark(top, "(" + specs + ")");
        expectKept("DeadBlockPass");
        EXPECT_EQ(top.getBlock(value("hanging")), nullptr);
        EXPECT_NE(top.getBlock(value("(d0 typePin primWireOut)")), nullptr);
    }
}

TEST_F(KeptDomainsTest, anEdgeOfAnUnknownKindStays) {
    draw(top, "d0 delay in/x\ng goto t Local d0\nf from t\nr delay f\ny out r");
    const std::string wrong = "((scheduleDomainBegn red " + atGoto("g") + "))";
    mark(top, wrong);
    run("ElideFromGotoPass");
    EXPECT_EQ(edges(top), wrong);
}

/// A design of two models with tags, blocks that become wires, and edges everywhere. What only hands on is read once:
/// where a domain ends at a wire its readers are apart, also those that shared a net behind that.
class Growth {
  public:
    struct Drawn {
        std::string lines[2];
        std::string edges[2];
        /// The ports of delays where a domain ends. One that could only end where others are goes.
        std::set<std::string> ended;
    };

    Drawn grow(const std::vector<gen::Recipe> &recipes) {
        for (const std::size_t model : {0U, 1U}) {
            delays[model] = {model == 0 ? "d0" : "l0"};
            drawn.lines[model] = model == 0 ? "d0 delay in/x\ncall call low x=d0\n" : "l0 delay in/x\n";
        }
        endsAtMins = !recipes.empty() && recipes.front().kind % 2 == 0;
        once[0] = {"call/y"};
        once[1] = {"in/x"};
        for (const gen::Recipe &recipe : recipes) {
            gen::Chooser chooser(recipe, 0);
            step(chooser, recipe.kind % 5);
        }
        // A delay, so that no ring of tags is without a driver.
        drawn.lines[1] += "y out " + delays[1].back() + "\n";
        return drawn;
    }

  private:
    void edge(gen::Chooser &chooser, std::size_t model, const std::string &place, bool mayEnd = true,
              bool mayBegin = true) {
        if ((mayEnd || mayBegin) && chooser.chance(1, 3)) {
            const char *domain[] = {"red", "blue", "green"};
            const bool begins = mayBegin && (!mayEnd || chooser.chance(1, 2));
            drawn.edges[model] += std::string("(scheduleDomain") + (begins ? "Begin " : "End ") +
                                  domain[chooser.below(3)] + " (" + place + "))";
            if (!begins && place[0] == 'd') {
                drawn.ended.insert(place.substr(0, place.find(' ')) + " in");
            }
        }
    }
    std::string source(gen::Chooser &chooser, std::size_t model) {
        std::vector<std::string> &handed = once[model];
        if (!handed.empty() && chooser.chance(2, 3)) {
            const std::size_t at = chooser.below(handed.size());
            const std::string taken = handed[at];
            handed.erase(handed.begin() + static_cast<std::ptrdiff_t>(at));
            return taken;
        }
        return delays[model][chooser.below(delays[model].size())];
    }
    void step(gen::Chooser &chooser, std::uint32_t kind) {
        const std::size_t model = chooser.below(2);
        const std::string number = std::to_string(++count);
        std::string &lines = drawn.lines[model];
        const std::string port = " " + A_PORT_TAG.text() + " ";
        const std::string wire = " " + A_WIRE_TAG.text() + " ";
        if (kind == 0) {
            const std::string from = source(chooser, model);
            lines += "g" + number + " goto t" + number + " Global " + from + "\n";
            // A begin there reaches nobody before the tag is a wire.
            edge(chooser, model, "g" + number + port + A_GOTO_PORT_IN.text(), from[0] != 'f', false);
            tags.push_back("t" + number);
        } else if (kind == 1 && !tags.empty()) {
            const std::string &tag = tags[chooser.below(tags.size())];
            lines += "f" + number + " from " + tag + "\n";
            // A From has no driver for which a domain could end there or at a Goto behind.
            edge(chooser, model, "f" + number + wire + A_FROM_WIRE_OUT.text(), false, !endsAtMins);
            once[model].push_back("f" + number);
        } else if (kind == 2) {
            lines += "m" + number + " min " + source(chooser, model) + "\n";
            // Of a way that both a begin and an end cut nothing is left that could keep its ends apart.
            edge(chooser, model, "m" + number + port + "0", endsAtMins, !endsAtMins);
            edge(chooser, model, "m" + number + wire + A_PRIM_WIRE_OUT.text(), endsAtMins, !endsAtMins);
            once[model].push_back("m" + number);
        } else {
            lines += "d" + number + " delay " + source(chooser, model) + "\n";
            edge(chooser, model, "d" + number + port + "0");
            delays[model].push_back("d" + number);
        }
    }

    Drawn drawn;
    std::vector<std::string> delays[2];
    std::vector<std::string> once[2];
    std::vector<std::string> tags;
    std::size_t count = 0;
    /// Only ends at blocks that become wires and no edges at Froms, or else only begins at both.
    bool endsAtMins = false;
};

RC_GTEST_FIXTURE_PROP(KeptInHierarchyTest, whateverPassesJoinAndDissolve, ()) {
    const Growth::Drawn drawn = Growth().grow(*test::recipes(16));
    // The instance first, for the lower model names nothing of the upper.
    draw(low, drawn.lines[1]);
    draw(top, drawn.lines[0]);
    for (const auto &[model, text] : {std::pair(&top, drawn.edges[0]), std::pair(&low, drawn.edges[1])}) {
        if (!text.empty()) {
            mark(*model, "(" + text + ")");
        }
    }
    for (const std::size_t model : {0U, 1U}) {
        RC_LOG() << drawn.lines[model] << drawn.edges[model] << "\n";
    }
    const test::KeptDomains before = keptDomains();
    RC_PRE(messages.lines.empty());
    for (const char *pass : {"ElideFromGotoPass", "DecomposeCompositePass", "FlattenEverythingPass"}) {
        run(pass);
        test::KeptDomains after = keptDomains();
        for (const std::string &line : messages.lines) {
            if (line.rfind("BAD_DOMAIN_OVERWRITING", 0) != 0) {
                RC_FAIL(line);
            }
        }
        // Where domains meet that were apart by nothing that lasts, either may come first.
        RC_PRE(messages.lines.empty());
        for (const auto &[end, was] : before) {
            RC_LOG() << pass << " " << end << " was " << was << ", edges of top " << edges(top) << "\n";
            RC_ASSERT(was == "-" || after[end] == was || drawn.ended.count(end) != 0);
        }
    }
}

} // namespace
} // namespace orvo
