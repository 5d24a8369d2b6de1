// Names and constrained points through the taking apart of blocks.
#include <orvo/compoundportcorrespondence.h>

#include <orvo/block.h>
#include <orvo/design.h>
#include <orvo/orvoutils.h>
#include <orvo/staticstrings.h>

#include <gtest/gtest.h>

#include <optional>

namespace orvo {
namespace {

class LaneUnroller final : public Unroller {
  public:
    const std::string &getSuffix() const override {
        static const std::string suffix = "vunroll";
        return suffix;
    }
};

class CorrespondenceTest : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    Block &block(const std::string &name, const StaticString &type) {
        Block &made = *Block::create(model, value(name));
        made.setParam(A_BLOCK_TYPE, type);
        return made;
    }
    Wire &wire(Block &of, const std::string &name) { return *Wire::create(of, value(name)); }
    std::string param(const Block &of, const StaticString &key) {
        const ValueRef held = of.getParam(key);
        return held ? held->toString() : "";
    }
    CompoundDecorIndex lane(int number) { return CompoundDecorIndex::createVectorIndex(number); }
    UnrollMappings lanesOf(const std::string &port) {
        UnrollMappings mappings;
        mappings.addMapping(value(port), lane(0), value("(" + port + " 0)"));
        mappings.addMapping(value(port), lane(1), value("(" + port + " 1)"));
        return mappings;
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
};

TEST_F(CorrespondenceTest, aPortBecomesRealWithItsWire) {
    Wire &a = wire(block("a", A_CONST_BLOCK), "w");
    Wire &b = wire(block("b", A_CONST_BLOCK), "w");
    Block &reader = block("r", A_ADD_BLOCK);
    const MaybePort port(reader, value("0"));
    EXPECT_EQ(port.getPort(), nullptr);
    EXPECT_EQ(port.getWire(), nullptr);
    port.setWire(a);
    EXPECT_EQ(port.getPort(), reader.getPort(value("0")));
    EXPECT_EQ(port.getWire(), &a);
    // A reference to a port holds beyond the port.
    const std::vector<MaybePort> readers = maybePortsOf(a);
    ASSERT_EQ(readers.size(), 1U);
    reader.setParam(value("0"), nullptr);
    EXPECT_EQ(readers[0].getPort(), nullptr);
    readers[0].setWire(b);
    EXPECT_EQ(port.getWire(), &b);
    EXPECT_EQ(&readers[0].getBlock(), &reader);
    EXPECT_EQ(readers[0].getKey(), value("0"));
}

TEST_F(CorrespondenceTest, aSubstituteTakesAllParametersButConnections) {
    Block &source = block("s", A_CONST_BLOCK);
    Block &add = block("a", A_ADD_BLOCK);
    add.setParam(value("0"), wire(source, "w"));
    add.setParam(value("note"), value("(1 2)"));
    Block &substitute = LaneUnroller().createSubstitute(add);
    EXPECT_EQ(substitute.getName(), value("(a vunroll)"));
    EXPECT_EQ(&substitute.getModel(), &model);
    EXPECT_EQ(substitute.type(), A_ADD_BLOCK.get_ptr());
    EXPECT_EQ(PureValueRef(substitute.getParam(value("note"))), value("(1 2)"));
    EXPECT_EQ(substitute.port_size(), 0U);
    EXPECT_EQ(substitute.size(), 0U);
}

TEST_F(CorrespondenceTest, anUnrollerReportsItsAttachedPorts) {
    struct Listener final : UnrollerNotifier {
        std::string text;
        void add(const char *kind, const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                 const PureValueRef &newName) {
            text += std::string(kind) + " " + oldBlock.getName()->toString() + "." + oldName->toString() + " " +
                    newBlock.getName()->toString() + "." + newName->toString() + "\n";
        }
        void unrollPort(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                        const PureValueRef &newName) override {
            add("port", oldBlock, oldName, newBlock, newName);
        }
        void unrollWire(const Block &oldBlock, const PureValueRef &oldName, const Block &newBlock,
                        const PureValueRef &newName) override {
            add("wire", oldBlock, oldName, newBlock, newName);
        }
    } listener;
    Block &old = block("o", A_ADD_BLOCK);
    Block &first = block("f", A_ADD_BLOCK);
    Block &second = block("s", A_ADD_BLOCK);
    LaneUnroller unroller;
    unroller.addAttachedPort(MaybePort(first, value("1")));
    // Nobody listens yet, and nobody is missed.
    unroller.notifyUnrollAttachedPorts(old, value("0"));
    unroller.notifyUnrollWire(old, value("w"), first, value("w"));
    unroller.setUnrollerNotifier(&listener);
    unroller.clearAttachedPorts();
    EXPECT_TRUE(unroller.attachedPorts().empty());
    unroller.addAttachedPort(MaybePort(first, value("2")));
    unroller.addAttachedPort(MaybePort(second, value("3")));
    unroller.notifyUnrollAttachedPorts(old, value("0"));
    unroller.notifyUnrollWire(old, value("w"), first, value("x"));
    unroller.notifyUnrollPort(old, value("1"), first, value("1"));
    EXPECT_EQ(listener.text, "port o.0 f.2\nport o.0 s.3\nwire o.w f.x\nport o.1 f.1\n");
    unroller.setUnrollerNotifier(nullptr);
    unroller.notifyUnrollWire(old, value("w"), first, value("x"));
    EXPECT_EQ(listener.text.size(), std::string("port o.0 f.2\nport o.0 s.3\nwire o.w f.x\nport o.1 f.1\n").size());
}

class UnrolledNamesTest : public CorrespondenceTest {
  protected:
    /// The names of the points that a name stands for.
    std::string names(const Model &in, const std::string &blockName, bool isPort, const std::string &name,
                      const BoundaryUnrollMappingStateItem *mappings) {
        UnrolledPortWireNames found(in, value(blockName), isPort, value(name));
        // A second look finds the same.
        found.unrollNames(mappings);
        found.unrollNames(mappings);
        std::string text = found.getBlock() == nullptr ? "none" : found.getBlock()->getName()->toString() + ":";
        for (const Port *port : found.getPorts()) {
            text += " " + port->getName()->toString();
        }
        for (const Wire *each : found.getWires()) {
            EXPECT_TRUE(found.isMember(*each));
            text += " " + each->getName()->toString();
        }
        return text;
    }
    BoundaryUnrollMappingStateItem state;
};

TEST_F(UnrolledNamesTest, findThePartsOfAModelsInputsAndOutputs) {
    Block &in = block("in", A_INPUT_BLOCK);
    Block &out = block("out", A_OUTPUT_BLOCK);
    out.setParam(value("(y 0)"), wire(in, "(x 0)"));
    out.setParam(value("(y 1)"), wire(in, "(x 1)"));
    out.setParam(value("plain"), wire(in, "plain"));
    state.setInputUnrollMapping(model, lanesOf("x"));
    state.setOutputUnrollMapping(model, lanesOf("y"));
    EXPECT_EQ(names(model, A_INPUT_BLOCK.text(), false, "x", &state), "in: (x 0) (x 1)");
    EXPECT_EQ(names(model, A_OUTPUT_BLOCK.text(), true, "y", &state), "out: (y 0) (y 1)");
    EXPECT_EQ(names(model, A_OUTPUT_BLOCK.text(), true, "plain", &state), "out: plain");
    EXPECT_EQ(names(model, "in", false, "plain", nullptr), "in: plain");
    EXPECT_EQ(names(model, "in", false, "x", nullptr), "in:");
    // Only what is there.
    delete in.getWire(value("(x 0)"));
    EXPECT_EQ(names(model, "in", false, "x", &state), "in: (x 1)");
    EXPECT_EQ(names(model, "out", true, "y", &state), "out: (y 1)");
}

TEST_F(UnrolledNamesTest, readTheBlocksOfInterfacesAsBoundaries) {
    state.setInputUnrollMapping(model, lanesOf("a"));
    state.setOutputUnrollMapping(model, lanesOf("b"));
    for (const StaticString *type : {&A_CHANNEL_IN_BLOCK, &A_SIGNAL_IN_BLOCK}) {
        Block &made = block(type->text(), *type);
        wire(made, "(a 1)");
        wire(made, "(b 1)");
        EXPECT_EQ(names(model, type->text(), false, "a", &state), type->text() + ": (a 1)");
        EXPECT_EQ(names(model, type->text(), false, "b", &state), type->text() + ":");
    }
    for (const StaticString *type : {&A_CHANNEL_OUT_BLOCK, &A_SIGNAL_OUT_BLOCK}) {
        Block &made = block(type->text(), *type);
        wire(made, "(a 1)");
        wire(made, "(b 1)");
        EXPECT_EQ(names(model, type->text(), false, "a", &state), type->text() + ":");
        EXPECT_EQ(names(model, type->text(), false, "b", &state), type->text() + ": (b 1)");
    }
}

TEST_F(UnrolledNamesTest, readAModelBlockByTheMappingsOfItsModel) {
    Model &below = *Model::create(design, "below");
    Wire &source = wire(block("c", A_CONST_BLOCK), "w");
    Block &instance = block("i", A_MODEL_BLOCK);
    instance.setParam(A_MODEL_NODE, below);
    instance.setParam(value("(x 1)"), source);
    instance.setParam(value("x"), source);
    wire(instance, "(y 0)");
    state.setInputUnrollMapping(below, lanesOf("x"));
    state.setOutputUnrollMapping(below, lanesOf("y"));
    EXPECT_EQ(names(model, "i", true, "x", &state), "i: (x 1)");
    EXPECT_EQ(names(model, "i", false, "y", &state), "i: (y 0)");
    EXPECT_EQ(names(model, "i", true, "x", nullptr), "i: x");
}

TEST_F(UnrolledNamesTest, findTheFirstSubstituteOfABlock) {
    Block &first = block("(a 0)", A_ADD_BLOCK);
    Block &second = block("(a 1)", A_ADD_BLOCK);
    wire(first, "w");
    wire(second, "w");
    EXPECT_EQ(names(model, "a", false, "w", &state), "(a 0): w");
    EXPECT_EQ(names(model, "(a 1)", false, "w", &state), "(a 1): w");
    EXPECT_EQ(names(model, "a", false, "v", &state), "(a 0):");
    EXPECT_EQ(names(model, "b", false, "w", &state), "none");
    EXPECT_EQ(names(model, A_INPUT_BLOCK.text(), false, "w", &state), "none");
    UnrolledPortWireNames nothing(model, nullptr, false, value("w"));
    nothing.unrollNames(&state);
    EXPECT_EQ(nothing.getBlock(), nullptr);
    EXPECT_FALSE(nothing.isMember(*first.getWire(value("w"))));
}

TEST_F(UnrolledNamesTest, refuseABoundaryThatIsOnlyAPrefix) {
    block("(s 0)", A_SIGNAL_IN_BLOCK);
    EXPECT_DEATH(names(model, "s", false, "w", nullptr), "was itself taken apart");
    block("(i 0)", A_MODEL_BLOCK).setParam(A_MODEL_NODE, *Model::create(design, "below"));
    EXPECT_EQ(names(model, "i", false, "w", nullptr), "(i 0):");
    EXPECT_DEATH(names(model, "i", false, "w", &state), "was itself taken apart");
}

class ReferencePointsTest : public CorrespondenceTest {
  protected:
    const PassContext::PassMap passes{};
    const PassContext::ParamsMap params{};
    void setEntries(Block &of, const StaticString &key, const std::string &text) {
        of.setParam(key, Value::parse(text, mgr.context()));
    }
    /// An updater for the model as an instance reached by `chain`, that is told of what `unroll` does.
    template <class Unroll> void update(const RefChain &chain, Unroll unroll) {
        const PassContext context(design, passes, params, nullptr);
        NetlistReferencePointsUpdater updater(context, model, chain);
        LaneUnroller unroller;
        updater.setupUnrollerNotifier(&unroller);
        unroll(unroller);
    }
};

TEST_F(ReferencePointsTest, aConstraintFollowsAWireToAllItsParts) {
    Block &in = block("in", A_SIGNAL_IN_BLOCK);
    setEntries(in, A_SCHEDULE_CONSTRAINT_WIRES, "((x true (0 3) ()) (z true (1) ()))");
    setEntries(in, A_SCHEDULE_CONSTRAINT_PORTS, "((x true (2) ()))");
    update({}, [&](const Unroller &unroller) {
        unroller.notifyUnrollWire(in, value("x"), in, value("(x 0)"));
        unroller.notifyUnrollWire(in, value("x"), in, value("(x 1)"));
        unroller.notifyUnrollWire(in, value("x"), in, value("(x 1)"));
        unroller.notifyUnrollPort(in, value("y"), in, value("(y 0)"));
    });
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_WIRES), "(((x 0) true (0 3) ()) ((x 1) true (0 3) ()) (z true (1) ()))");
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_PORTS), "((x true (2) ()))");
}

TEST_F(ReferencePointsTest, listsEndAtTheLatestPoints) {
    Block &in = block("in", A_SIGNAL_IN_BLOCK);
    setEntries(in, A_SCHEDULE_CONSTRAINT_PORTS, "((x true () (5)))");
    update({}, [&](const Unroller &unroller) {
        unroller.notifyUnrollPort(in, value("x"), in, value("a"));
        unroller.notifyUnrollPort(in, value("x"), in, value("b"));
        unroller.notifyUnrollPort(in, value("b"), in, value("c"));
        // Keeps its name for one part.
        unroller.notifyUnrollPort(in, value("c"), in, value("c"));
        unroller.notifyUnrollPort(in, value("c"), in, value("d"));
        unroller.notifyUnrollPort(in, value("d"), in, value("c"));
    });
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_PORTS), "((a true () (5)) (c true () (5)))");
}

TEST_F(ReferencePointsTest, aCircleOfNamesLeavesTheConstraintWhereItIs) {
    Block &in = block("in", A_SIGNAL_IN_BLOCK);
    setEntries(in, A_SCHEDULE_CONSTRAINT_PORTS, "((x true () (5)))");
    update({}, [&](const Unroller &unroller) {
        unroller.notifyUnrollPort(in, value("x"), in, value("y"));
        unroller.notifyUnrollPort(in, value("y"), in, value("x"));
    });
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_PORTS), "((x true () (5)))");
}

TEST_F(ReferencePointsTest, onlyEntriesOfThisInstanceAreRewritten) {
    Model &top = *Model::create(design, "top");
    Block &instance = *Block::create(top, "i");
    instance.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    instance.setParam(A_MODEL_NODE, model);
    Block &in = block("in", A_SIGNAL_IN_BLOCK);
    const std::string entries = "((x ((top j)) (0) ()) (x ((other i)) (1) ()) (x ((top i) (m n)) (2) ()) (x () (3) ()) "
                                "(x ((top i 1)) (4) ()) (x (top) (5) ()) (x false (6) ()) (x true (7)) x "
                                "(x true (8) () ()))";
    setEntries(in, A_SCHEDULE_CONSTRAINT_WIRES, entries);
    const auto unroll = [&](const Unroller &unroller) { unroller.notifyUnrollWire(in, value("x"), in, value("y")); };
    update({&instance}, unroll);
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_WIRES), entries);
    setEntries(in, A_SCHEDULE_CONSTRAINT_WIRES, "((x ((top i)) (0) ()) (x true (1) ()) (x ((top j)) (2) ()))");
    update({&instance}, unroll);
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_WIRES), "((y ((top i)) (0) ()) (y true (1) ()) (x ((top j)) (2) ()))");
    // The top has no chain to name.
    setEntries(in, A_SCHEDULE_CONSTRAINT_WIRES, "((x () (0) ()))");
    update({}, unroll);
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_WIRES), "((x () (0) ()))");
}

TEST_F(ReferencePointsTest, aConstraintMovesToAnotherBlock) {
    Block &old = block("a", A_SIGNAL_IN_BLOCK);
    Block &next = block("b", A_SIGNAL_IN_BLOCK);
    setEntries(old, A_SCHEDULE_CONSTRAINT_WIRES, "((x true (0 1) ()))");
    setEntries(next, A_SCHEDULE_CONSTRAINT_WIRES, "((z true (1) (2)) (w true (4) ()))");
    update({}, [&](const Unroller &unroller) {
        unroller.notifyUnrollWire(old, value("x"), next, value("z"));
        unroller.notifyUnrollWire(old, value("x"), next, value("v"));
    });
    EXPECT_EQ(param(old, A_SCHEDULE_CONSTRAINT_WIRES), "");
    EXPECT_EQ(param(next, A_SCHEDULE_CONSTRAINT_WIRES), "((z true (1 0) (2)) (w true (4) ()) (v true (0 1) ()))");
}

TEST_F(ReferencePointsTest, pointsThatBecomeOneShareAnEntry) {
    Block &in = block("in", A_SIGNAL_IN_BLOCK);
    setEntries(in, A_SCHEDULE_CONSTRAINT_WIRES,
               "((z true (9) ()) (x true (0) (1)) (y true (2) (1)) (z ((a b)) (3) ()))");
    update({}, [&](const Unroller &unroller) {
        unroller.notifyUnrollWire(in, value("x"), in, value("z"));
        unroller.notifyUnrollWire(in, value("y"), in, value("z"));
    });
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_WIRES), "((z true (9 0 2) (1)) (z ((a b)) (3) ()))");
}

TEST_F(ReferencePointsTest, substitutesKeepWhatTheyWereGiven) {
    Block *old = &block("a", A_SIGNAL_IN_BLOCK);
    setEntries(*old, A_SCHEDULE_CONSTRAINT_WIRES, "((x true (0) ()))");
    update({}, [&](const Unroller &unroller) {
        Block &substitute = unroller.createSubstitute(*old);
        unroller.notifyUnrollWire(*old, value("x"), substitute, value("x"));
        delete old;
    });
    EXPECT_EQ(param(*model.getBlock(value("(a vunroll)")), A_SCHEDULE_CONSTRAINT_WIRES), "((x true (0) ()))");
}

class DyingBlockTest : public ReferencePointsTest {
  protected:
    /// A constraint of four cycles from wire x of block a to port x of block t, which reads it.
    DyingBlockTest() {
        model.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
        target.setParam(value("x"), wire(*old, "x"));
        setRecords("((0 synthLConstraintGE 4))");
        setEntries(*old, A_SCHEDULE_CONSTRAINT_WIRES, "((x true (0) ()))");
        setEntries(target, A_SCHEDULE_CONSTRAINT_PORTS, "((x true () (0)))");
    }
    void setRecords(const std::string &text) {
        model.setParam(A_SYNTH_SCHEDULE_CONSTRAINTS, Value::parse(text, mgr.context()));
    }
    bool isConsistent() { return OrvoUtils::requireConstraintsConsistentWithDesign(design); }

    Block *old = &block("a", A_SIGNAL_IN_BLOCK);
    Block &target = block("t", A_SIGNAL_OUT_BLOCK);
};

TEST_F(DyingBlockTest, aSubstituteWithOtherWiresHasTheConstraintOnEachOfThem) {
    ASSERT_TRUE(isConsistent());
    update({}, [&](const Unroller &unroller) {
        Block &substitute = unroller.createSubstitute(*old);
        for (const char *part : {"(x 0)", "(x 1)"}) {
            target.setParam(value(part), wire(substitute, part));
            unroller.notifyUnrollWire(*old, value("x"), substitute, value(part));
            unroller.notifyUnrollPort(target, value("x"), target, value(part));
        }
        delete old;
    });
    EXPECT_EQ(param(*model.getBlock(value("(a vunroll)")), A_SCHEDULE_CONSTRAINT_WIRES),
              "(((x 0) true (0) ()) ((x 1) true (0) ()))");
    EXPECT_EQ(param(target, A_SCHEDULE_CONSTRAINT_PORTS), "(((x 0) true () (0)) ((x 1) true () (0)))");
    EXPECT_TRUE(isConsistent());
}

TEST_F(DyingBlockTest, aConstraintMovesToABlockThatWasThereBefore) {
    Block &other = block("b", A_SIGNAL_IN_BLOCK);
    update({}, [&](const Unroller &unroller) {
        target.setParam(value("x"), wire(other, "y"));
        unroller.notifyUnrollWire(*old, value("x"), other, value("y"));
        delete old;
    });
    EXPECT_EQ(param(other, A_SCHEDULE_CONSTRAINT_WIRES), "((y true (0) ()))");
    EXPECT_TRUE(isConsistent());
}

TEST_F(DyingBlockTest, anotherBlocksOwnEntryStaysEvenIfItLooksTheSame) {
    Block &other = block("b", A_SIGNAL_IN_BLOCK);
    wire(other, "x");
    setEntries(other, A_SCHEDULE_CONSTRAINT_WIRES, "((x true (0) ()))");
    update({}, [&](const Unroller &unroller) {
        target.setParam(value("x"), wire(other, "y"));
        unroller.notifyUnrollWire(*old, value("x"), other, value("y"));
        delete old;
    });
    EXPECT_EQ(param(other, A_SCHEDULE_CONSTRAINT_WIRES), "((x true (0) ()) (y true (0) ()))");
    EXPECT_TRUE(isConsistent());
}

TEST_F(DyingBlockTest, oneSubstitutePerLaneKeepsTheEntryThatEachWasGiven) {
    update({}, [&](const Unroller &unroller) {
        for (const int number : {0, 1}) {
            const PureValueRef name =
                PureTupleValue::get(value("a"), PureValueRef(NumberValue::get(number, mgr.context())), mgr.context());
            Block &substitute = *Block::create(model, name);
            substitute.setParam(A_BLOCK_TYPE, A_SIGNAL_IN_BLOCK);
            substitute.setParam(A_SCHEDULE_CONSTRAINT_WIRES, old->getParam(A_SCHEDULE_CONSTRAINT_WIRES));
            target.setParam(value(number == 0 ? "x" : "y"), wire(substitute, "x"));
            unroller.notifyUnrollWire(*old, value("x"), substitute, value("x"));
        }
        delete old;
    });
    EXPECT_EQ(param(*model.getBlock(value("(a 0)")), A_SCHEDULE_CONSTRAINT_WIRES), "((x true (0) ()))");
    EXPECT_EQ(param(*model.getBlock(value("(a 1)")), A_SCHEDULE_CONSTRAINT_WIRES), "((x true (0) ()))");
    EXPECT_TRUE(isConsistent());
}

TEST_F(DyingBlockTest, aSubstituteLosesTheEntryOfAPointThatWentElsewhere) {
    setRecords("((0 synthLConstraintGE 4) (1 synthLConstraintGE 2))");
    wire(*old, "y");
    setEntries(*old, A_SCHEDULE_CONSTRAINT_WIRES, "((y true (1) ()) (x true (0) ()))");
    setEntries(target, A_SCHEDULE_CONSTRAINT_PORTS, "((x true () (0 1)))");
    Block &other = block("b", A_SIGNAL_IN_BLOCK);
    update({}, [&](const Unroller &unroller) {
        Block &substitute = unroller.createSubstitute(*old);
        wire(substitute, "y");
        unroller.notifyUnrollWire(*old, value("y"), substitute, value("y"));
        target.setParam(value("x"), wire(other, "z"));
        unroller.notifyUnrollWire(*old, value("x"), other, value("z"));
        delete old;
    });
    EXPECT_EQ(param(*model.getBlock(value("(a vunroll)")), A_SCHEDULE_CONSTRAINT_WIRES), "((y true (1) ()))");
    EXPECT_EQ(param(other, A_SCHEDULE_CONSTRAINT_WIRES), "((z true (0) ()))");
    EXPECT_TRUE(isConsistent());
}

TEST_F(DyingBlockTest, substitutesOfSubstitutesHandTheConstraintOn) {
    update({}, [&](const Unroller &unroller) {
        Block &first = unroller.createSubstitute(*old);
        wire(first, "y");
        unroller.notifyUnrollWire(*old, value("x"), first, value("y"));
        delete old;
        Block &second = unroller.createSubstitute(first);
        target.setParam(value("x"), wire(second, "z"));
        unroller.notifyUnrollWire(first, value("y"), second, value("z"));
        delete &first;
    });
    EXPECT_EQ(param(*model.getBlock(value("((a vunroll) vunroll)")), A_SCHEDULE_CONSTRAINT_WIRES), "((z true (0) ()))");
    EXPECT_TRUE(isConsistent());
}

TEST_F(DyingBlockTest, aSubstituteIsKnownUnderTheNameThatAClashGaveIt) {
    update({}, [&](const Unroller &unroller) {
        unroller.createSubstitute(*old).setParam(A_SCHEDULE_CONSTRAINT_WIRES, nullptr);
        Block &substitute = unroller.createSubstitute(*old);
        target.setParam(value("x"), wire(substitute, "y"));
        unroller.notifyUnrollWire(*old, value("x"), substitute, value("y"));
        delete old;
    });
    const Block &substitute = target.getPort(value("x"))->peekWire()->getBlock();
    EXPECT_EQ(param(substitute, A_SCHEDULE_CONSTRAINT_WIRES), "((y true (0) ()))");
    EXPECT_TRUE(isConsistent());
}

TEST_F(ReferencePointsTest, aNameThatIsTakenAgainLaterIsAnotherPoint) {
    Block &in = block("in", A_SIGNAL_IN_BLOCK);
    const auto rewritten = [&](const std::string &entries,
                               const std::vector<std::pair<const char *, const char *>> &steps) {
        setEntries(in, A_SCHEDULE_CONSTRAINT_PORTS, entries);
        update({}, [&](const Unroller &unroller) {
            for (const auto &[from, to] : steps) {
                unroller.notifyUnrollPort(in, value(from), in, value(to));
            }
        });
        return param(in, A_SCHEDULE_CONSTRAINT_PORTS);
    };
    EXPECT_EQ(rewritten("((x true (1) ()))", {{"b", "c"}, {"x", "b"}}), "((b true (1) ()))");
    EXPECT_EQ(rewritten("((x true (1) ()))", {{"x", "b"}, {"b", "c"}}), "((c true (1) ()))");
    EXPECT_EQ(rewritten("((0 true (0) ()) (1 true (1) ()))", {{"1", "2"}, {"1", "3"}, {"0", "0"}, {"0", "1"}}),
              "((0 true (0) ()) (1 true (0) ()) (2 true (1) ()) (3 true (1) ()))");
    EXPECT_EQ(rewritten("((0 true (0) ()) (1 true (1) ()))", {{"0", "0"}, {"0", "1"}, {"1", "2"}, {"1", "3"}}),
              "((0 true (0) ()) (2 true (0 1) ()) (3 true (0 1) ()))");
    // What left is not moved again by what happens to the newcomer, and one that stays goes with it.
    EXPECT_EQ(rewritten("((0 true (0) ()) (1 true (1) ()))", {{"1", "2"}, {"0", "1"}, {"1", "4"}}),
              "((4 true (0) ()) (2 true (1) ()))");
    EXPECT_EQ(
        rewritten("((0 true (0) ()) (1 true (1) ()))", {{"1", "1"}, {"1", "2"}, {"0", "1"}, {"1", "4"}, {"1", "5"}}),
        "((4 true (0 1) ()) (5 true (0 1) ()) (2 true (1) ()))");
    // Reports of one point go on whatever else is told between.
    EXPECT_EQ(rewritten("((x true (0) ()))", {{"x", "x"}, {"y", "z"}, {"x", "w"}}),
              "((x true (0) ()) (w true (0) ()))");
}

TEST_F(ReferencePointsTest, malformedEntriesStayApartWherePointsMeet) {
    Block &in = block("in", A_SIGNAL_IN_BLOCK);
    setEntries(in, A_SCHEDULE_CONSTRAINT_WIRES, "((z true 7 ()) (x true (1) 8) (y true (2) ()) (v true (3) (4)))");
    update({}, [&](const Unroller &unroller) {
        for (const char *name : {"x", "y", "v"}) {
            unroller.notifyUnrollWire(in, value(name), in, value("z"));
        }
    });
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_WIRES), "((z true 7 ()) (z true (1) 8) (z true (2 3) (4)))");
}

TEST_F(ReferencePointsTest, writesNothingWhereNothingIsReplaced) {
    Block &in = block("in", A_SIGNAL_IN_BLOCK);
    setEntries(in, A_SCHEDULE_CONSTRAINT_WIRES, "()");
    int changes = 0;
    struct Counter {
        int *count;
        void onChange(Block &) { ++*count; }
    } counter{&changes};
    const auto onChange = util::Function<void(Block &)>::bind<&Counter::onChange>(&counter);
    design.events().blockChanged.add(onChange);
    in.process(~ProcessFlags{0});
    update({}, [&](const Unroller &) {});
    update({}, [&](const Unroller &unroller) { unroller.notifyUnrollWire(in, value("q"), in, value("r")); });
    EXPECT_EQ(changes, 0);
    design.events().blockChanged.remove(onChange);
    EXPECT_EQ(param(in, A_SCHEDULE_CONSTRAINT_WIRES), "()");
}

TEST_F(ReferencePointsTest, refusesAModelOfAnotherDesign) {
    Design other(mgr.context());
    const PassContext context(other, passes, params, nullptr);
    EXPECT_DEATH(NetlistReferencePointsUpdater(context, model, {}), "another design");
}

} // namespace
} // namespace orvo
