// Domains that came through blocks which passes cut out of the way: what drives them and what reads them must stay
// where they were.
#include "support/keptdomains.h"

namespace orvo {
namespace {

class HeldDomainsTest : public test::KeptDomainsRig {
  protected:
    static std::string atWire(const std::string &name) { return wireAt(name, A_PRIM_WIRE_OUT.text()); }
    Wire &constant(const std::string &name, const std::string &type, const std::string &number) {
        Block &made = make(top, name, A_CONST_BLOCK);
        made.setParam(A_CONST_TYPE, any(type));
        made.setParam(A_CONST_VALUE, any(number));
        return *Wire::create(made, A_PRIM_WIRE_OUT);
    }
    Block &reading(const std::string &name, const StaticString &type, const std::vector<Wire *> &drivers) {
        Block &made = make(top, name, type);
        for (std::size_t i = 0; i < drivers.size(); ++i) {
            made.setParam(value(std::to_string(i)), *drivers[i]);
        }
        Wire::create(made, A_PRIM_WIRE_OUT);
        return made;
    }
    Block &cast(const std::string &name, Wire &driver, const std::string &type = "(typeSFixed 4 0)") {
        Block &made = reading(name, A_CAST_BLOCK, {&driver});
        made.setParam(A_CAST_OUTPUT_TYPE, any(type));
        return made;
    }
    /// A model whose input goes through a product by 0 and a delay.
    Model &productByZero() {
        Model &low = *Model::create(design, value("low"));
        Block &in = make(low, "in", A_INPUT_BLOCK);
        Block &product = make(low, "m", A_MULT_BLOCK);
        product.setParam(value("0"), *Wire::create(in, value("x")));
        Block &zero = make(low, "c", A_CONST_BLOCK);
        zero.setParam(A_CONST_TYPE, any("(typeUFixed 2 0)"));
        zero.setParam(A_CONST_VALUE, any("0"));
        product.setParam(value("1"), *Wire::create(zero, A_PRIM_WIRE_OUT));
        Wire::create(product, A_PRIM_WIRE_OUT);
        draw(low, "r delay m\ny out r");
        return low;
    }
    void clear() {
        while (top.begin() != top.end()) {
            delete &*top.begin();
        }
    }
    /// Before and after, also where there was none.
    void expectSame(const std::string &pass, const std::string &edges) {
        SCOPED_TRACE(edges);
        mark(top, "(" + edges + ")");
        const test::KeptDomains before = keptDomains();
        run(pass);
        EXPECT_EQ(keptDomains(), before) << this->edges(top);
        EXPECT_EQ(messages.lines, Lines());
    }
    /// "near" beside the product of "d0" by the constant 0, which the delays "r" and "s" read.
    void drawZeroProduct() {
        clear();
        draw(top, "d0 delay in/x\nnear delay d0");
        Wire &zero = constant("c", "(typeUFixed 2 0)", "0");
        reading("m", A_MULT_BLOCK, {&driver(top, "d0"), &zero});
        draw(top, "r delay m\ns delay m\nnear0 out near\nr0 out r\ns0 out s");
    }
    /// The casts "k1", "k2" of the constant "c", each before a delay, "r1" and "r2".
    void drawTwoCasts() {
        clear();
        Wire &c = constant("c", "(typeSFixed 8 0)", "100");
        cast("k1", c);
        cast("k2", c, "(typeSFixed 5 0)");
        draw(top, "r1 delay k1\nr2 delay k2\ny1 out r1\ny2 out r2");
    }
};

TEST_F(HeldDomainsTest, staysOnBothSidesOfAProductThatBecomesZero) {
    for (const char *pass : {"ConstMultPass", "PropagateConstantsPass"}) {
        SCOPED_TRACE(pass);
        for (const std::string &edge :
             {begin("red", portAt("d0")), begin("red", atWire("c")), begin("red", portAt("m")),
              begin("red", portAt("m", "1")), begin("red", atWire("m")), end("red", atWire("r")),
              end("red", portAt("m")), end("red", portAt("m", "1")), end("red", atWire("m")), end("red", portAt("r")),
              end("red", atWire("c")), begin("red", portAt("r"))}) {
            drawZeroProduct();
            expectSame(pass, edge);
            EXPECT_EQ(top.getBlock(value("m")), nullptr);
        }
    }
}

TEST_F(HeldDomainsTest, putsNoEdgeWhereTheDomainIsAnyway) {
    drawZeroProduct();
    expectSame("ConstMultPass", begin("red", portAt("d0")) + " " + begin("red", portAt("r")));
    const Block &zero = top.getBlock(value("s"))->ports().begin()->peekWire()->getBlock();
    EXPECT_EQ(edges(top), "(" + begin("red", portAt("d0")) + " " + begin("red", portAt("r")) + " " +
                              begin("red", atWire(zero.getName()->toString())) + ")");
    drawZeroProduct();
    expectSame("ConstMultPass", begin("red", atWire("m")));
    EXPECT_EQ(edges(top), "(" + begin("red", atWire("(m const)")) + ")");
}

TEST_F(HeldDomainsTest, leavesADesignWithoutEdgesWithout) {
    drawZeroProduct();
    top.setParam(A_SYNTH_SCHEDULE_DOMAINS, ValueRef());
    run("ConstMultPass");
    EXPECT_EQ(edges(top), "");
}

TEST_F(HeldDomainsTest, staysWhereAPeeledOperandLosesAConstant) {
    const auto drawPeeled = [&] {
        clear();
        draw(top, "d0 delay in/x\nd1 delay in/x\nnear delay d1");
        Wire &c = constant("c", "(typeUFixed 2 0)", "0");
        reading("j", A_BIT_JOIN_BLOCK, {&c, &driver(top, "d0")});
        reading("m", A_MULT_BLOCK, {&driver(top, "j"), &driver(top, "d1")});
        draw(top, "r delay m\ns delay m\nnear0 out near\nr0 out r\ns0 out s");
    };
    for (const std::string &edge : {begin("red", portAt("d1")), begin("red", atWire("c")), begin("red", portAt("m")),
                                    begin("red", atWire("m")), begin("red", portAt("j", "1")), end("red", atWire("r")),
                                    end("red", portAt("m", "1")), end("red", atWire("m")), end("red", atWire("j"))}) {
        drawPeeled();
        expectSame("PropagateConstantsPass", edge);
        EXPECT_NE(top.getBlock(value("m_extender")), nullptr);
    }
}

TEST_F(HeldDomainsTest, staysWhereAPeeledOperandIsAConstantOfADomain) {
    for (const std::string &edge : {begin("red", atWire("c")), begin("red", portAt("m")), end("red", portAt("r"))}) {
        clear();
        draw(top, "d0 delay in/x\nnear delay d0");
        Wire &c = constant("c", "(typeUFixed 4 0)", "4");
        reading("m", A_MULT_BLOCK, {&c, &driver(top, "d0")});
        draw(top, "r delay m\ns delay m\nnear0 out near\nr0 out r\ns0 out s");
        expectSame("PropagateConstantsPass", edge);
        EXPECT_NE(top.getBlock(value("m_extender")), nullptr);
    }
}

TEST_F(HeldDomainsTest, staysAtAShiftWhoseConstantGoes) {
    for (const std::string &edge :
         {begin("red", portAt("d0")), begin("red", atWire("c")), begin("red", portAt("b")),
          begin("red", portAt("b", A_BARREL_PORT_SHIFT.text())), end("red", portAt("b")), end("red", atWire("b")),
          end("red", portAt("b", A_BARREL_PORT_SHIFT.text())), end("red", atWire("r")), begin("red", atWire("b"))}) {
        clear();
        draw(top, "d0 delay in/x\nnear delay d0");
        Wire &c = constant("c", "(typeUFixed 3 0)", "2");
        reading("b", A_BARREL_LEFT_BLOCK, {&driver(top, "d0")}).setParam(A_BARREL_PORT_SHIFT, c);
        draw(top, "r delay b\ns delay b\nnear0 out near\nr0 out r\ns0 out s");
        expectSame("ElideConstShiftsPass", edge);
        EXPECT_EQ(top.getBlock(value("b")), nullptr);
    }
}

TEST_F(HeldDomainsTest, staysAtReadersOfEachCastOfAConstant) {
    for (const std::string &edge :
         {begin("red", atWire("c")), end("red", atWire("c")), end("red", portAt("r1")), begin("red", portAt("k1")),
          end("red", portAt("k1")), begin("red", atWire("k1")), end("red", atWire("k1")), begin("red", portAt("r1"))}) {
        drawTwoCasts();
        expectSame("ConstCastPass", edge);
        EXPECT_EQ(top.getBlock(value("c")), nullptr);
    }
}

TEST_F(HeldDomainsTest, beginsAtAllThatAConstantBecomes) {
    drawTwoCasts();
    expectSame("ConstCastPass", begin("red", atWire("c")));
    EXPECT_EQ(edges(top), "(" + begin("red", atWire("(c k1)")) + " " + begin("red", atWire("(c k2)")) + ")");
    drawTwoCasts();
    expectSame("ConstCastPass", begin("red", atWire("c")) + " " + begin("blue", portAt("k2")));
    EXPECT_EQ(edges(top), "(" + begin("red", atWire("(c k1)")) + " " + begin("blue", portAt("r2")) + ")");
}

TEST_F(HeldDomainsTest, endsWithAConstantThatGoes) {
    drawTwoCasts();
    expectSame("ConstCastPass", end("red", atWire("c")));
    EXPECT_EQ(edges(top), "");
}

TEST_F(HeldDomainsTest, staysAtAConstantThatIsReadBesideItsCast) {
    for (const std::string &edge : {begin("red", atWire("c")), end("red", portAt("k")), end("red", portAt("r")),
                                    begin("red", portAt("k")), end("red", atWire("c"))}) {
        clear();
        Wire &c = constant("c", "(typeSFixed 8 0)", "100");
        cast("k", c);
        draw(top, "r delay k\nother delay c\ny out r\nz out other");
        expectSame("ConstCastPass", edge);
        EXPECT_NE(top.getBlock(value("c")), nullptr);
        EXPECT_EQ(top.getBlock(value("k")), nullptr);
    }
}

TEST_F(HeldDomainsTest, goesThroughChainsOfCastsAndClipFlags) {
    for (const std::string &edge : {begin("red", atWire("c")), end("red", portAt("r")), end("red", portAt("q")),
                                    begin("red", portAt("k1")), begin("red", atWire("k0")), end("red", atWire("k1"))}) {
        clear();
        Wire &c = constant("c", "(typeSFixed 8 0)", "100");
        Block &first = cast("k0", c, "(typeSFixed 6 0)");
        cast("k1", *first.getWire(A_PRIM_WIRE_OUT));
        Wire::create(first, A_CAST_WIRE_CLIP);
        cast("k2", *first.getWire(A_CAST_WIRE_CLIP), "(typeUFixed 2 0)");
        draw(top, "r delay k1\nq delay k2\ny out r\nz out q");
        expectSame("ConstCastPass", edge);
        EXPECT_EQ(top.getBlock(value("k0")), nullptr);
        EXPECT_EQ(top.getBlock(value("k1")), nullptr);
        EXPECT_EQ(top.getBlock(value("k2")), nullptr);
    }
}

TEST_F(HeldDomainsTest, doesNotReachReadersThatAnEndKeptOut) {
    for (const char *pass : {"ConstCastPass", "ConstMultPass"}) {
        SCOPED_TRACE(pass);
        for (const bool isAlone : {true, false}) {
            clear();
            if (pass == std::string("ConstCastPass")) {
                cast("k", constant("c", "(typeSFixed 8 0)", "100"));
            } else {
                draw(top, "d0 delay in/x");
                reading("k", A_MULT_BLOCK, {&driver(top, "d0"), &constant("c", "(typeUFixed 2 0)", "0")});
            }
            draw(top, "r delay k\ny out r");
            if (!isAlone) {
                draw(top, "s delay k\nz out s");
            }
            expectSame(pass, begin("blue", portAt("k")) + " " + end("blue", portAt("r")));
            EXPECT_EQ(top.getBlock(value("k")), nullptr);
        }
    }
}

TEST_F(HeldDomainsTest, reachesTheModelAroundThroughAnInputThatNobodyReadsAnyMore) {
    Model &low = productByZero();
    draw(top, "d0 delay in/x\ncall1 call low x=d0\nr delay call1/y\ny out r");
    expectSame("ConstMultPass", end("red", portAt("r")));
    EXPECT_EQ(low.getBlock(value("m")), nullptr);
}

TEST_F(HeldDomainsTest, comesFromTheModelAround) {
    Model &low = productByZero();
    const auto drawTop = [&](const std::string &second) {
        clear();
        draw(top, "d0 delay in/x\nd1 delay in/x\ncall1 call low x=d0\ncall2 call low x=" + second +
                      "\ny out call1/y\nz out call2/y");
        mark(top, "(" + begin("red", atWire("d0")) + begin("blue", atWire("d1")) + ")");
    };
    // One edge cannot tell two domains.
    drawTop("d1");
    run("ConstMultPass");
    EXPECT_EQ(edges(low), "");
    ASSERT_EQ(low.getBlock(value("m")), nullptr);
    EXPECT_EQ(messages.lines, Lines());
}

TEST_F(HeldDomainsTest, comesFromTheModelAroundIntoAllItsInstances) {
    Model &low = productByZero();
    draw(top, "d0 delay in/x\ncall1 call low x=d0\ncall2 call low x=d0\ny out call1/y\nz out call2/y");
    expectSame("ConstMultPass", begin("red", atWire("d0")));
    EXPECT_EQ(edges(low), "(" + begin("red", atWire("(m const)")) + ")");
}

TEST_F(HeldDomainsTest, saysNothingOfEdgesThatContradictEachOther) {
    drawZeroProduct();
    mark(top, "(" + begin("red", atWire("c")) + " " + begin("blue", portAt("d0")) + " (scheduleDomainBegin) odd)");
    run("ConstMultPass");
    EXPECT_EQ(messages.lines, Lines());
    EXPECT_EQ(top.getBlock(value("m")), nullptr);
}

} // namespace
} // namespace orvo
