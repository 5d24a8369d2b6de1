// Ports, classes and the links of hierarchy follow the parameters of a block.
#include <orvo/block.h>

#include <orvo/blockclass.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>

namespace orvo {
namespace {

/// One driven event as text.
struct DrivenLog {
    void onWireDriven(const Block &block, const Wire &wire, GraphState state) {
        lines.push_back(block.getName()->toString() + ">" + wire.getName()->toString() + ":" + std::to_string(state));
    }
    void onBlockDriven(const Wire &wire, const Block &block, GraphState state) {
        lines.push_back(wire.getName()->toString() + "<" + block.getName()->toString() + ":" + std::to_string(state));
    }
    void attach(Design &design) {
        design.events().wireDriven.add(
            util::Function<void(const Block &, const Wire &, GraphState)>::bind<&DrivenLog::onWireDriven>(this));
        design.events().blockDriven.add(
            util::Function<void(const Wire &, const Block &, GraphState)>::bind<&DrivenLog::onBlockDriven>(this));
    }
    std::vector<std::string> take() { return std::exchange(lines, {}); }
    std::vector<std::string> lines;
};

using Lines = std::vector<std::string>;

/// Sees the life state of a block at its birth and its end.
struct LifeLog {
    void onBorn(Block &block) { born = !block.newBorn() && !block.dying(); }
    void onDying(Block &block) { dying = block.dying(); }
    bool born = false;
    bool dying = false;
};

class BlockTest : public ::testing::Test {
  protected:
    PureValueRef number(int n) { return NumberValue::get(n, mgr.context()); }

    ContextMgr mgr;
    /// Before the design, whose end it still hears.
    DrivenLog log;
    LifeLog life;
    Design design{mgr.context()};
    Model &model = *Model::create(design, "m");
    Model &below = *Model::create(design, "below");
    Block &source = *Block::create(model, "source");
    Block &reader = *Block::create(model, "reader");
    Wire &wire = *Wire::create(source, "w");
};

TEST_F(BlockTest, makesAPortOfAParameterThatHoldsAWire) {
    reader.setParam(number(0), wire);
    Port *port = reader.getPort(number(0));
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->getWire(), &wire);
    EXPECT_EQ(&port->getBlock(), &reader);
    EXPECT_EQ(wire.port_size(), 1U);
    EXPECT_EQ(&*wire.port_begin(), port);
    EXPECT_EQ(port->getBackReference(), wire.port_begin());
}

TEST_F(BlockTest, makesNoPortOfAReferenceToABlockOrAModel) {
    reader.setParam(number(0), source);
    reader.setParam(number(1), below);
    EXPECT_EQ(reader.port_size(), 0U);
    EXPECT_EQ(reader.param_size(), 2U);
}

TEST_F(BlockTest, keepsThePortWhenItMovesToAnotherWire) {
    Wire &other = *Wire::create(source, "other");
    reader.setParam(number(0), wire);
    Port *port = reader.getPort(number(0));
    reader.setParam(number(0), other);
    EXPECT_EQ(reader.getPort(number(0)), port);
    EXPECT_EQ(port->getWire(), &other);
    EXPECT_EQ(wire.port_size(), 0U);
    EXPECT_EQ(other.port_size(), 1U);
}

TEST_F(BlockTest, dropsThePortWhenTheParameterTakesAPlainValue) {
    reader.setParam(number(0), wire);
    reader.setParam(number(0), ValueRef(number(7)));
    EXPECT_EQ(reader.getPort(number(0)), nullptr);
    EXPECT_EQ(wire.port_size(), 0U);
}

TEST_F(BlockTest, removesTheParametersOfAllReadersWhenAWireIsDeleted) {
    reader.setParam(number(0), wire);
    reader.setParam(number(1), wire);
    delete &wire;
    EXPECT_EQ(reader.getPort(number(0)), nullptr);
    EXPECT_FALSE(reader.getParam(number(0)));
    EXPECT_EQ(reader.param_size(), 0U);
}

TEST_F(BlockTest, disconnectsTheReadersOfADeletedBlock) {
    reader.setParam(number(0), wire);
    delete &source;
    EXPECT_EQ(reader.port_size(), 0U);
    EXPECT_EQ(reader.param_size(), 0U);
}

TEST_F(BlockTest, leavesTheWiresThatADeletedBlockRead) {
    reader.setParam(number(0), wire);
    source.setParam(number(0), wire);
    delete &reader;
    EXPECT_EQ(wire.port_size(), 1U);
}

TEST_F(BlockTest, readsItsOwnWire) {
    source.setParam(number(0), wire);
    EXPECT_EQ(wire.port_size(), 1U);
    delete &source;
    EXPECT_EQ(model.size(), 1U);
}

TEST_F(BlockTest, hearsOfAParameterThatIsSetToItsPresentValue) {
    reader.setParam(number(0), wire);
    reader.setParam(number(1), wire);
    log.attach(design);
    reader.setParam(number(0), wire);
    EXPECT_EQ(log.take(), (Lines{"w<reader:0", "w<reader:1"}));
    // The port went to the end of the wire's readers.
    EXPECT_EQ(wire.port_begin()->getName(), number(1));
}

TEST_F(BlockTest, firesDrivenEventsAsEdgesComeAndGo) {
    log.attach(design);
    Wire &other = *Wire::create(source, "other");
    EXPECT_EQ(log.take(), (Lines{"source>other:2"}));
    reader.setParam(number(0), wire);
    EXPECT_EQ(log.take(), (Lines{"w<reader:1"}));
    reader.getPort(number(0))->getWire();
    EXPECT_EQ(log.take(), (Lines{"w<reader:1"}));
    reader.getPort(number(0))->peekWire();
    EXPECT_EQ(log.take(), (Lines{}));
    wire.replace(other);
    EXPECT_EQ(log.take(), (Lines{"source>w:0", "w<reader:0", "other<reader:1"}));
}

TEST_F(BlockTest, firesOneEventWhenAWireWithoutReadersIsReplaced) {
    Wire &other = *Wire::create(source, "other");
    log.attach(design);
    wire.replace(other);
    EXPECT_EQ(log.take(), (Lines{"source>w:0"}));
}

TEST_F(BlockTest, movesAllReadersInOrderOnReplace) {
    Wire &other = *Wire::create(source, "other");
    for (int i = 0; i < 5; ++i) {
        reader.setParam(number(i), wire);
    }
    wire.replace(other);
    EXPECT_EQ(wire.port_size(), 0U);
    int expected = 0;
    for (const Port &port : other.ports()) {
        EXPECT_EQ(port.getName(), number(expected++));
    }
    EXPECT_EQ(expected, 5);
}

TEST_F(BlockTest, changesNothingWhenAWireIsReplacedByItself) {
    reader.setParam(number(0), wire);
    log.attach(design);
    wire.replace(wire);
    EXPECT_EQ(log.take(), (Lines{}));
    EXPECT_EQ(wire.port_size(), 1U);
}

TEST_F(BlockTest, entersTheModelsParentsOnceWhicheverParameterComesFirst) {
    Block &typeFirst = *Block::create(model, "i1");
    typeFirst.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    typeFirst.setParam(A_MODEL_NODE, below);
    Block &nodeFirst = *Block::create(model, "i2");
    nodeFirst.setParam(A_MODEL_NODE, below);
    EXPECT_EQ(below.getParentBlocks().size(), 1U);
    nodeFirst.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    EXPECT_EQ(below.getParentBlocks(), (std::list<Block *>{&typeFirst, &nodeFirst}));
}

TEST_F(BlockTest, leavesTheModelsParentsWithTypeNodeOrLife) {
    Block &byType = *Block::create(model, "i1");
    Block &byNode = *Block::create(model, "i2");
    Block &byLife = *Block::create(model, "i3");
    for (Block *block : {&byType, &byNode, &byLife}) {
        block->setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
        block->setParam(A_MODEL_NODE, below);
    }
    byType.setParam(A_BLOCK_TYPE, A_ADD_BLOCK);
    byNode.setParam(A_MODEL_NODE, nullptr);
    delete &byLife;
    EXPECT_TRUE(below.getParentBlocks().empty());
    byType.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    EXPECT_EQ(below.getParentBlocks().size(), 1U);
    byType.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    EXPECT_EQ(below.getParentBlocks().size(), 1U);
}

TEST_F(BlockTest, outlivesTheModelThatItInstantiates) {
    Block &block = *Block::create(model, "i");
    block.setParam(A_BLOCK_TYPE, A_MODEL_BLOCK);
    block.setParam(A_MODEL_NODE, below);
    delete &below;
    EXPECT_EQ(block.getParam(A_MODEL_NODE)->toString(), "[/below]");
    EXPECT_EQ(Node::from<Model>(block[A_MODEL_NODE]), nullptr);
    block.setParam(A_MODEL_NODE, model);
    EXPECT_EQ(model.getParentBlocks().size(), 1U);
}

TEST_F(BlockTest, changesItsClassWithItsType) {
    EXPECT_EQ(source.getClass(), mgr.context()->getBlockClass(nullptr));
    source.setParam(A_BLOCK_TYPE, A_ADD_BLOCK);
    EXPECT_EQ(source.getClass(), mgr.context()->getBlockClass(A_ADD_BLOCK));
    source.setParam(A_BLOCK_TYPE, nullptr);
    EXPECT_EQ(source.getClass(), mgr.context()->getBlockClass(nullptr));
}

TEST_F(BlockTest, isAliveAtItsBirthEventAndDyingAtItsLast) {
    design.events().blockBorn.add(util::Function<void(Block &)>::bind<&LifeLog::onBorn>(&life));
    design.events().blockDying.add(util::Function<void(Block &)>::bind<&LifeLog::onDying>(&life));
    delete Block::create(model, "x");
    EXPECT_TRUE(life.born);
    EXPECT_TRUE(life.dying);
}

TEST_F(BlockTest, dropsAHundredThousandPortsInLinearTime) {
    for (int i = 0; i < 100000; ++i) {
        reader.setParam(number(i), wire);
    }
    EXPECT_EQ(wire.port_size(), 100000U);
    delete &reader;
    EXPECT_EQ(wire.port_size(), 0U);
}

} // namespace
} // namespace orvo
