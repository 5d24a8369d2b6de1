// The gate in front of the scheduler: each mistake that it knows is told, with all that the message carries; what is no
// mistake is not; and nothing is ever changed.
#include "orvo/validatemodelpass.h"

#include "gen/designgenerator.h"
#include "support/typetable.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/wire.h>
#include <orvo/xmlservices.h>
#include <util/features.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace orvo {
namespace {

using Lines = std::vector<std::string>;

/// Hears "SEVERITY TAG name=value ..." of each message.
class Ear final : public ContextListener {
  public:
    explicit Ear(Context *context) : mContext(context) { context->setListener(this); }
    ~Ear() override { mContext->setListener(nullptr); }
    Ear(const Ear &) = delete;
    Ear &operator=(const Ear &) = delete;
    void onMessage(int severity, const char *tag, const log::LogParams &params) override {
        std::string line = severity == static_cast<int>(Severity::Error)     ? "error "
                           : severity == static_cast<int>(Severity::Warning) ? "warning "
                                                                             : "other ";
        line += tag;
        const MessageInfo *row = findMessage(tag);
        ASSERT_NE(row, nullptr) << tag;
        EXPECT_EQ(static_cast<int>(row->severity), severity) << tag;
        for (const auto &[name, value] : params) {
            EXPECT_NE(("," + std::string(row->parameters) + ",").find("," + name + ","), std::string::npos) << tag;
            line += " " + name + "=" + value;
        }
        lines.push_back(std::move(line));
    }
    Lines lines;

  private:
    Context *mContext;
};

class ValidateModel : public ::testing::Test {
  protected:
    PureValueRef value(const std::string &text) { return PureValueRef(Value::parse(text, mgr.context())); }
    PureValueRef key(int number) { return value(std::to_string(number)); }
    Block &make(Model &model, const std::string &name, const StaticString &type) {
        return *Block::create(model, name, type);
    }
    Block &make(const std::string &name, const StaticString &type) { return make(top, name, type); }
    /// A signal of a type in the short form, from a block that every check lets stand.
    Wire &source(Model &model, const std::string &shortForm) {
        Block &pin = make(model, "pin" + std::to_string(mPins++), A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, value(testing::typeText(shortForm)));
        return *Wire::create(pin, key(0));
    }
    Wire &source(const std::string &shortForm) { return source(top, shortForm); }
    /// A block of the top model that stands for another, with an input of that type.
    Block &instance(Model &below, const std::string &name, const std::string &inputType) {
        Block &block = make(name, A_MODEL_BLOCK);
        block.setParam(A_MODEL_NODE, below);
        block.setParam(value("x"), source(inputType));
        return block;
    }
    std::string xml() const {
        std::ostringstream out;
        XMLServices().toXML(out, design);
        return out.str();
    }
    /// What the pass tells. It may not change anything.
    Lines validate() {
        const std::string before = xml();
        const std::uint64_t edits = design.editCount();
        Ear ear(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("ValidateModelPass");
        scheduler.apply(design);
        EXPECT_EQ(design.editCount(), edits);
        EXPECT_EQ(xml(), before);
        return std::move(ear.lines);
    }

    ContextMgr mgr;
    Design design{mgr.context()};
    Model &top = *Model::create(design, "top");

  private:
    int mPins = 0;
};

/// Sets a feature while it lives.
class FeatureScope {
  public:
    explicit FeatureScope(const char *name) : mName(name) { util::SetFeatureBoolean(name, true); }
    ~FeatureScope() { util::SetFeatureBoolean(mName, false); }
    FeatureScope(const FeatureScope &) = delete;
    FeatureScope &operator=(const FeatureScope &) = delete;

  private:
    const char *mName;
};

TEST_F(ValidateModel, hasNothingToSayOfAnEmptyModel) { EXPECT_EQ(validate(), Lines()); }

// Blocks outside of schedules.

using ShuffleDelayBlocks = ValidateModel;

TEST_F(ShuffleDelayBlocks, mayBeStructureAndLogicWithoutASchedule) {
    top.setParam(A_SYNTH_CIRCUIT_TIMED, A_FALSE);
    int number = 0;
    for (const StaticString *type :
         {&A_MUX_BLOCK, &A_LUT_BLOCK, &A_COUNTER_BLOCK, &A_INPUT_BLOCK, &A_OUTPUT_BLOCK, &A_MODEL_BLOCK, &A_CONST_BLOCK,
          &A_TYPE_PIN_BLOCK, &A_TERMINAL_BLOCK, &A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK, &A_CHANNEL_IN_BLOCK,
          &A_CHANNEL_OUT_BLOCK}) {
        make("b" + std::to_string(number++), *type);
    }
    EXPECT_EQ(validate(), Lines());
}

TEST_F(ShuffleDelayBlocks, mayBeNoOthers) {
    top.setParam(A_SYNTH_CIRCUIT_TIMED, A_FALSE);
    make("delay", A_DELAY_BLOCK);
    make("mux", A_MUX_BLOCK);
    make("sum", A_ADD_BLOCK);
    Block::create(top, "untyped");
    EXPECT_EQ(validate(), (Lines{"error INVALID_BLOCK_OUTSIDE_SCHEDULED_SUBSYSTEM block=/top/delay model=/top",
                                 "error INVALID_BLOCK_OUTSIDE_SCHEDULED_SUBSYSTEM block=/top/sum model=/top",
                                 "error INVALID_BLOCK_OUTSIDE_SCHEDULED_SUBSYSTEM block=/top/untyped model=/top"}));
}

TEST_F(ShuffleDelayBlocks, mayBeAnythingInModelsOfAnotherKind) {
    make("sum", A_ADD_BLOCK);
    EXPECT_EQ(validate(), Lines());
    for (const StaticString *timing : {&A_TRUE, &A_SYNTH_NO_SCHEDULE_NO_SHUFFLE}) {
        top.setParam(A_SYNTH_CIRCUIT_TIMED, *timing);
        EXPECT_EQ(validate(), Lines());
    }
}

// Vector widths.

class PortDimensions : public ValidateModel {
  protected:
    Block &sum(const std::vector<std::string> &types) {
        Block &block = make("sum", A_ADD_BLOCK);
        for (std::size_t i = 0; i < types.size(); ++i) {
            block.setParam(key(static_cast<int>(i)), source(types[i]));
        }
        return block;
    }
    Lines told(const std::vector<std::string> &types) {
        Block &block = sum(types);
        Lines lines = validate();
        delete &block;
        return lines;
    }
    static std::string unequal(int width, int port) {
        return "error UNEQUAL_PORT_VECTOR_WIDTHS block=/top/sum port=" + std::to_string(port) +
               " width=" + std::to_string(width);
    }
};

TEST_F(PortDimensions, agreeWhereLengthsAreEqualOrOne) {
    EXPECT_EQ(told({"[4] s8.0", "[4] s8.0"}), Lines());
    EXPECT_EQ(told({"[4] s8.0", "[1] s8.0"}), Lines());
    EXPECT_EQ(told({"[1] s8.0", "[4] s8.0", "[1] s8.0"}), Lines());
    EXPECT_EQ(told({"[4] s8.0", "s8.0"}), Lines());
    EXPECT_EQ(told({"[4] c s8.0", "[4] float(23,8)"}), Lines());
}

TEST_F(PortDimensions, differWhereTwoLengthsAreFound) {
    EXPECT_EQ(told({"[4] s8.0", "[2] s8.0"}), (Lines{unequal(2, 1)}));
    EXPECT_EQ(told({"[2] s8.0", "[1] s8.0", "[4] s8.0"}), (Lines{unequal(4, 2)}));
    EXPECT_EQ(told({"[4] {s8.0,u1.0}", "[3] {s8.0,u1.0}"}), (Lines{unequal(3, 1)}));
}

TEST_F(PortDimensions, areComparedWithTheWidestSoFar) {
    EXPECT_EQ(told({"[4] s8.0", "[2] s8.0", "[4] s8.0"}), (Lines{unequal(2, 1)}));
    EXPECT_EQ(told({"[2] s8.0", "[4] s8.0", "[4] s8.0"}), (Lines{unequal(4, 1)}));
    EXPECT_EQ(told({"[2] s8.0", "[4] s8.0", "[2] s8.0"}), (Lines{unequal(4, 1), unequal(2, 2)}));
}

TEST_F(PortDimensions, areComparedLevelByLevelFromTheInnermost) {
    EXPECT_EQ(told({"[3][4] s8.0", "[4] s8.0"}), Lines());
    EXPECT_EQ(told({"[3][1] s8.0", "[4] s8.0"}), Lines());
    EXPECT_EQ(told({"[3][4] s8.0", "[3] s8.0"}), (Lines{unequal(3, 1)}));
    EXPECT_EQ(told({"[3][4] s8.0", "[2][4] s8.0"}), (Lines{unequal(2, 1)}));
    // A port is told once, by its innermost level that differs.
    EXPECT_EQ(told({"[3][4] s8.0", "[2][5] s8.0"}), (Lines{unequal(5, 1)}));
    // A second level that only the second port has still counts against the third.
    EXPECT_EQ(told({"[4] s8.0", "[3][4] s8.0", "[2][4] s8.0"}), (Lines{unequal(2, 2)}));
}

TEST_F(PortDimensions, areOfTheSignalAndNotOfWhatARecordHolds) {
    EXPECT_EQ(told({"{[4] s8.0,u1.0}", "{[2] s8.0,u1.0}"}), Lines());
}

TEST_F(PortDimensions, ofDifferentKindsOfPortsAreToldSo) {
    Block &mux = make("mux", A_MUX_BLOCK);
    mux.setParam(key(0), source("[4] s8.0"));
    mux.setParam(key(1), source("[4] s8.0"));
    mux.setParam(A_MUX_PORT_SELECT, source("[2] u1.0"));
    const std::string select = A_MUX_PORT_SELECT.get_ptr()->toString();
    EXPECT_EQ(validate(),
              (Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS_MIXING actual=2 block=/top/mux expected=4 port=" + select}));
    mux.setParam(A_MUX_PORT_SELECT, source("[1] u1.0"));
    EXPECT_EQ(validate(), Lines());
}

TEST_F(PortDimensions, ofTwoNamedPortsAreOfOneKind) {
    Block &join = make("join", A_SELECT_BLOCK);
    join.setParam(value("(" + A_SELECT_PORTKEY_DATA.get_ptr()->toString() + " 0)"), source("[4] s8.0"));
    join.setParam(A_SELECT_PORT_DEFAULT_DATA, source("[3] s8.0"));
    const Lines lines = validate();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].find("error UNEQUAL_PORT_VECTOR_WIDTHS block=/top/join port="), 0U) << lines[0];
}

TEST_F(PortDimensions, mayDifferAtBlocksThatAreExempt) {
    int number = 0;
    for (const StaticString *type :
         {&A_TYPE_PIN_BLOCK, &A_MODEL_BLOCK, &A_VCONCAT_BLOCK, &A_INPUT_BLOCK, &A_OUTPUT_BLOCK, &A_CHANNEL_IN_BLOCK,
          &A_CHANNEL_OUT_BLOCK, &A_SIGNAL_IN_BLOCK, &A_SIGNAL_OUT_BLOCK, &A_DEMUX_BLOCK, &A_LOOP_BLOCK, &A_APACK_BLOCK,
          &A_AUNPACK_BLOCK, &A_STALLENTER_BLOCK, &A_STALLEXIT_BLOCK, &A_STALLREG_BLOCK, &A_FOR_LOOP_BLOCK}) {
        Block &block = make("b" + std::to_string(number++), *type);
        block.setParam(value("x"), source("[4] s8.0"));
        block.setParam(value("y"), source("[2] s8.0"));
    }
    EXPECT_EQ(validate(), Lines());
}

TEST_F(PortDimensions, mayDifferAtBlocksThatStandForWholeModels) {
    int number = 0;
    for (const StaticString *type : {&A_SCHEDULED_MODEL_BLOCK, &A_EXT_IFACE_BLOCK}) {
        Block &block = make("b" + std::to_string(number++), *type);
        block.setParam(value("x"), source("[4] s8.0"));
        block.setParam(value("y"), source("[2] s8.0"));
    }
    EXPECT_EQ(validate(), Lines());
}

TEST_F(PortDimensions, mayDifferAtBlocksWhosePortsHaveNothingInCommon) {
    int number = 0;
    for (const StaticString *type :
         {&A_HIDDEN_IFACE_BLOCK, &A_BOUNDARY_BLOCK, &A_UNSCHED_BLOCK, &A_AXI4_STREAM_RECEIVER_BLOCK,
          &A_AXI4_STREAM_TRANSMITTER_BLOCK, &A_SHARED_FIFO_BLOCK, &A_BUS_OUT_BLOCK, &A_BUS_SIGNALS_BLOCK,
          &A_SARNET_MM_MASTER_OUT_BLOCK, &A_SARNET_MM_SLAVE_OUT_BLOCK}) {
        Block &block = make("b" + std::to_string(number++), *type);
        block.setParam(key(0), source("[4] s8.0"));
        block.setParam(key(1), source("[2] s8.0"));
    }
    EXPECT_EQ(validate(), Lines());
    // A queue of one stream has one kind of data.
    Block &queue = make("queue", A_FIFO_BLOCK);
    queue.setParam(key(0), source("[4] s8.0"));
    queue.setParam(key(1), source("[2] s8.0"));
    EXPECT_EQ(validate(), (Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS block=/top/queue port=1 width=2"}));
}

TEST_F(PortDimensions, areThoseThatTheBlockTakes) {
    const std::string data = A_SYNC_REGISTER_PORT_ICLK_DATA.get_ptr()->toString();
    const std::string enable = A_SYNC_REGISTER_PORT_ICLK_ENABLE.get_ptr()->toString();
    const auto told = [&](const std::string &dataIn, const std::string &enableIn, const std::string &type) {
        Block &block = make("r", A_SYNC_REGISTER_BLOCK);
        block.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, source(dataIn));
        block.setParam(A_SYNC_REGISTER_PORT_ICLK_ENABLE, source(enableIn));
        block.setParam(A_SYNC_REGISTER_DATA_TYPE, value(testing::typeText(type)));
        Lines lines = validate();
        delete &block;
        return lines;
    };
    const auto unfit = [](int width, const std::string &port) {
        return Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS block=/top/r port=" + port + " width=" + std::to_string(width)};
    };
    EXPECT_EQ(told("[2] s4.0", "u1.0", "[2] s4.0"), Lines());
    EXPECT_EQ(told("[1] s8.0", "u1.0", "s4.0"), Lines());
    EXPECT_EQ(told("[2] s8.0", "[2] u1.0", "[2] s8.0"), unfit(2, enable));
    EXPECT_EQ(told("[2] s8.0", "u1.0", "s8.0"), unfit(2, data));
    EXPECT_EQ(told("[4] s8.0", "u1.0", "[1] s8.0"), unfit(4, data));
    EXPECT_EQ(told("[3][2] s8.0", "u1.0", "[4][2] s8.0"), unfit(3, data));
    EXPECT_EQ(told("[3][4] s8.0", "u1.0", "[4] s8.0"), unfit(3, data));
    // What has fewer dimensions serves all lanes.
    EXPECT_EQ(told("s8.0", "u1.0", "[2] s8.0"), Lines());
    EXPECT_EQ(told("s8.0", "u1.0", "[3][2] s8.0"), Lines());
    EXPECT_EQ(told("[1] s8.0", "[1] u1.0", "[2] s8.0"), Lines());
    EXPECT_EQ(told("[2] s8.0", "u1.0", "[3][2] s8.0"), Lines());
    EXPECT_EQ(told("[1][2] s8.0", "u1.0", "[3][2] s8.0"), Lines());
}

TEST_F(PortDimensions, areThoseThatAPinTells) {
    const auto told = [&](const std::string &in, const char *key, const std::string &type) {
        Block &pin = make("pin", A_TYPE_PIN_BLOCK);
        pin.setParam(this->key(0), source(in));
        pin.setParam(value(key), value(type));
        Lines lines = validate();
        delete &pin;
        return lines;
    };
    const auto unfit = [](int width) {
        return Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS block=/top/pin port=0 width=" + std::to_string(width)};
    };
    const std::string type = testing::typeText("[2] s8.0");
    for (const auto &[key, pinned] : {std::pair(A_TYPE_PIN_TYPE.get_ptr()->toString(), type),
                                      std::pair(A_TYPE_PIN_PORT_TYPES.get_ptr()->toString(), "(" + type + ")")}) {
        EXPECT_EQ(told("[2] s8.0", key.c_str(), pinned), Lines()) << key;
        EXPECT_EQ(told("[4] s8.0", key.c_str(), pinned), unfit(4)) << key;
        // It makes no vector of a number.
        EXPECT_EQ(told("s8.0", key.c_str(), pinned), unfit(1)) << key;
    }
    EXPECT_EQ(told("s8.0", A_TYPE_PIN_TYPE.get_ptr()->toString().c_str(), testing::typeText("[1] s8.0")), unfit(1));
}

TEST_F(PortDimensions, ofWhatIsTakenApartAreThoseOfItsParts) {
    const auto pinned = [&](const char *name, Wire &wire, const std::string &type) -> Block & {
        Block &pin = make(name, A_TYPE_PIN_BLOCK);
        pin.setParam(key(0), wire);
        pin.setParam(A_TYPE_PIN_TYPE, value(testing::typeText(type)));
        return pin;
    };
    Block &in = make("i", A_INPUT_BLOCK);
    Block &pin = pinned("p", *Wire::create(in, value("x")), "[2] s8.0");
    Block &signal = make("d", A_SIGNAL_IN_BLOCK);
    signal.setParam(key(0), *Wire::create(pin, key(0)));
    // The parts tell what is taken apart before the signal has a type of its own.
    Block &unpack = make("u", A_VUNPACK_BLOCK);
    unpack.setParam(A_VUNPACK_PORT_IN, *Wire::create(signal, key(0)));
    Block &first = pinned("p2", *Wire::create(unpack, key(0)), "s8.0");
    Block &second = pinned("p3", *Wire::create(unpack, key(1)), "s8.0");
    Block &out = make("o", A_OUTPUT_BLOCK);
    out.setParam(value("y"), *Wire::create(first, key(0)));
    out.setParam(value("z"), *Wire::create(second, key(0)));
    EXPECT_EQ(validate(), Lines());
    pin.setParam(A_TYPE_PIN_TYPE, value(testing::typeText("s8.0")));
    EXPECT_EQ(validate(), (Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS block=/top/u port=vunpackPortIn width=1"}));
}

TEST_F(PortDimensions, ofTheConditionsOfALoopAreNone) {
    const std::string go = A_LOOP_PORT_GO.get_ptr()->toString();
    Block &loop = make("loop", A_LOOP_BLOCK);
    loop.setParam(A_LOOP_PORT_LIMIT, source("[3] u2.0"));
    loop.setParam(A_LOOP_PORT_ENABLE, source("u1.0"));
    loop.setParam(A_LOOP_PORT_GO, source("[2] u1.0"));
    EXPECT_EQ(validate(), (Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS block=/top/loop port=" + go + " width=2"}));
    loop.setParam(A_LOOP_PORT_GO, source("[1] u1.0"));
    EXPECT_EQ(validate(), Lines());
}

TEST_F(PortDimensions, ofTheValidOfAChannelAreNone) {
    for (const StaticString *type : {&A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK, &A_SHARED_FIFO_BLOCK}) {
        Block &block = make("channel", *type);
        block.setParam(value("portValid"), source("[4] u1.0"));
        block.setParam(value("portChannel"), source("u8.0"));
        block.setParam(key(0), source("[3] s8.0"));
        block.setParam(key(1), source("[2] s8.0"));
        EXPECT_EQ(validate(), (Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS block=/top/channel port=portValid width=4"}))
            << type->text();
        block.setParam(value("portValid"), source("u1.0"));
        EXPECT_EQ(validate(), Lines()) << type->text();
        delete &block;
    }
}

TEST_F(PortDimensions, mayDifferAtTheKernelOfAFold) {
    Block &block = sum({"[4] s8.0", "[2] s8.0"});
    block.setParam(A_FOLDING_KERNEL_TAG, value("kernel"));
    EXPECT_EQ(validate(), Lines());
}

TEST_F(PortDimensions, leaveTheShiftOfABarrelOut) {
    for (const StaticString *type : {&A_BARREL_LEFT_BLOCK, &A_BARREL_RIGHT_BLOCK, &A_BARREL_RIGHT_LZC_BLOCK}) {
        Block &barrel = make("barrel", *type);
        barrel.setParam(key(0), source("[4] s8.0"));
        barrel.setParam(A_BARREL_PORT_SHIFT, source("[2] u3.0"));
        EXPECT_EQ(validate(), Lines());
        // Another port is not left out, nor is the name at another block.
        barrel.setParam(key(1), source("[2] s8.0"));
        EXPECT_EQ(validate(), (Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS block=/top/barrel port=1 width=2"}));
        delete &barrel;
    }
    Block &block = sum({"[4] s8.0"});
    block.setParam(A_BARREL_PORT_SHIFT, source("[2] u3.0"));
    EXPECT_EQ(validate(), (Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS_MIXING actual=2 block=/top/sum expected=4 port=" +
                                 A_BARREL_PORT_SHIFT.get_ptr()->toString()}));
}

// Complex numbers at blocks that compute on real ones.

class RealOnlyPorts : public ValidateModel {
  protected:
    static std::string complexAt(const std::string &block, const std::string &port) {
        return "error REAL_ONLY_PORT_IS_COMPLEX block=/top/" + block + " port=" + port;
    }
};

const StaticString *const kRealOnlyBlocks[] = {
    &A_ACOS_BLOCK,          &A_ASIN_BLOCK,
    &A_ATAN_BLOCK,          &A_ABS_BLOCK,
    &A_ACC_BLOCK,           &A_ARCCOSPI_BLOCK,
    &A_ARCSINPI_BLOCK,      &A_ARCTAN2_BLOCK,
    &A_ARCTANPI_BLOCK,      &A_BIT_COUNT_BLOCK,
    &A_COMPARECTRL_BLOCK,   &A_COS_BLOCK,
    &A_COSPIX_BLOCK,        &A_COT_BLOCK,
    &A_COTPIX_BLOCK,        &A_COUNTER_BLOCK,
    &A_CUBEROOT_BLOCK,      &A_DIM_BLOCK,
    &A_DIVIDE_BLOCK,        &A_EXP10_BLOCK,
    &A_EXP2_BLOCK,          &A_EXP_BLOCK,
    &A_EXPM1_BLOCK,         &A_FOR_LOOP_BLOCK,
    &A_HYPOT_BLOCK,         &A_ILOGB_BLOCK,
    &A_MULT_POW2_BLOCK,     &A_LD_COUNTER_BLOCK,
    &A_LOG10_BLOCK,         &A_LOG1P_BLOCK,
    &A_LOG2_BLOCK,          &A_LOG_BLOCK,
    &A_LOOP_BLOCK,          &A_MAGMAX_BLOCK,
    &A_MAGMIN_BLOCK,        &A_MAX_BLOCK,
    &A_MIN_BLOCK,           &A_MINMAX_BLOCK,
    &A_MOD_BLOCK,           &A_POLYNOMIAL_BLOCK,
    &A_POW_BLOCK,           &A_POWR_BLOCK,
    &A_RECIP_SQRT_BLOCK,    &A_RECIPROCAL_BLOCK,
    &A_SEQUENCE_BLOCK,      &A_SIN_BLOCK,
    &A_SINCOSFUSED_BLOCK,   &A_SINCOSPIXFUSED_BLOCK,
    &A_SINPIX_BLOCK,        &A_SQRT_BLOCK,
    &A_TAN_BLOCK,           &A_TANPIX_BLOCK,
    &A_FLOAT_MULTACC_BLOCK, &A_BIT_JOIN_REDUCE_BLOCK,
    &A_CMP_GE_BLOCK,        &A_CMP_LT_BLOCK,
    &A_AND_REDUCE_BLOCK,    &A_AND_BLOCK,
    &A_NAND_REDUCE_BLOCK,   &A_NAND_BLOCK,
    &A_OR_REDUCE_BLOCK,     &A_OR_BLOCK,
    &A_NOR_REDUCE_BLOCK,    &A_NOR_BLOCK,
    &A_XOR_REDUCE_BLOCK,    &A_XOR_BLOCK,
    &A_XNOR_REDUCE_BLOCK,   &A_XNOR_BLOCK,
    &A_NOT_BLOCK,           &A_REVERSE_BLOCK,
};

TEST_F(RealOnlyPorts, ofEachBlockThatComputesOnRealNumbersAreToldIfTheyAreComplex) {
    Lines expected;
    int number = 0;
    for (const StaticString *type : kRealOnlyBlocks) {
        const std::string name = "b" + std::to_string(number++);
        Block &block = make(name, *type);
        block.setParam(key(0), source("c s8.4"));
        block.setParam(key(1), source("s8.4"));
        block.setParam(value("extra"), source("c float(23,8)"));
        expected.push_back(complexAt(name, "0"));
        expected.push_back(complexAt(name, "extra"));
    }
    EXPECT_EQ(number, 70);
    Lines lines = validate();
    std::sort(lines.begin(), lines.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(lines, expected);
}

TEST_F(RealOnlyPorts, mayBeVectorsOfRealNumbersButNotOfComplexOnes) {
    Block &block = make("b", A_MAX_BLOCK);
    block.setParam(key(0), source("[2] s8.4"));
    block.setParam(key(1), source("[2] c s8.4"));
    EXPECT_EQ(validate(), (Lines{complexAt("b", "1")}));
}

TEST_F(RealOnlyPorts, ofSomeBlocksAreButOne) {
    struct Row {
        const StaticString *type;
        const StaticString *port;
    };
    for (const Row &row : {Row{&A_CORDIC_BLOCK, &A_CORDIC_PORT_MODE}, Row{&A_BARREL_LEFT_BLOCK, &A_BARREL_PORT_SHIFT},
                           Row{&A_BARREL_RIGHT_BLOCK, &A_BARREL_PORT_SHIFT}}) {
        Block &block = make("b", *row.type);
        block.setParam(key(0), source("c s8.4"));
        block.setParam(A_CORDIC_PORT_X, source("c s8.4"));
        EXPECT_EQ(validate(), Lines());
        block.setParam(*row.port, source("c u2.0"));
        EXPECT_EQ(validate(), (Lines{complexAt("b", row.port->get_ptr()->toString())}));
        delete &block;
    }
}

TEST_F(RealOnlyPorts, areNotThoseOfBlocksThatComputeOnComplexNumbers) {
    for (const StaticString *type : {&A_ADD_BLOCK, &A_MULT_BLOCK, &A_CMP_EQ_BLOCK, &A_BARREL_RIGHT_LZC_BLOCK}) {
        make(type->get_ptr()->toString(), *type).setParam(key(0), source("c s8.4"));
    }
    EXPECT_EQ(validate(), Lines());
}

// Latencies that depend on other models.

class DependentLatency : public ValidateModel {
  protected:
    /// A scheduled model below the top one.
    Model &scheduled(const std::string &name) {
        Model &model = *Model::create(design, name);
        model.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
        make("i_" + name, A_MODEL_BLOCK).setParam(A_MODEL_NODE, model);
        return model;
    }
    Model &drawn(const std::string &name, const std::string &path, bool allows) {
        Model &model = *Model::create(design, name);
        model.setParam(A_SIMULINK_PATH, text(path));
        if (allows) {
            model.setParam(A_SYNTH_LATENCY_CAN_BE_DEPENDED_UPON, A_TRUE);
        }
        return model;
    }
    PureValueRef text(const std::string &content) { return StringValue::get(content, mgr.context()); }
    void depend(Model &model, const PureValueRef &on) { model.setParam(A_SYNTH_LATENCY_DEPENDS_ON_SIMULINK_PATH, on); }
    static std::string bad(const std::string &model) { return "error BAD_MODEL_DEPENDS_UPON model=" + model; }
};

TEST_F(DependentLatency, isWellWhereTheOtherModelAllowsIt) {
    drawn("good", "d/good", true);
    depend(scheduled("m"), text("d/good"));
    EXPECT_EQ(validate(), Lines());
}

TEST_F(DependentLatency, isToldWhereTheOtherModelDoesNotAllowIt) {
    Model &other = drawn("bad", "d/bad", false);
    depend(scheduled("m"), text("d/bad"));
    EXPECT_EQ(validate(), (Lines{bad("/bad")}));
    other.setParam(A_SYNTH_LATENCY_CAN_BE_DEPENDED_UPON, A_FALSE);
    EXPECT_EQ(validate(), (Lines{bad("/bad")}));
}

TEST_F(DependentLatency, isToldByThePathWhereNoModelHasIt) {
    depend(scheduled("m"), text("d/none"));
    EXPECT_EQ(validate(), (Lines{bad("d/none")}));
}

TEST_F(DependentLatency, mayBeOnSeveralModels) {
    drawn("good", "d/good", true);
    drawn("bad", "d/bad", false);
    drawn("worse", "d/bad", false);
    depend(scheduled("m"), PureTupleValue::get(text("d/bad"), text("d/good"), text("d/none"), mgr.context()));
    EXPECT_EQ(validate(), (Lines{bad("/bad"), bad("/worse"), bad("d/none")}));
}

TEST_F(DependentLatency, isOnNothingWhereNothingIsNamed) {
    depend(scheduled("m"), text(""));
    scheduled("n");
    EXPECT_EQ(validate(), Lines());
}

TEST_F(DependentLatency, isOfModelsThatBeginASchedule) {
    // Not scheduled; without a parent; and below a scheduled one.
    depend(top, text("d/none"));
    Model &alone = *Model::create(design, "alone");
    alone.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    depend(alone, text("d/none"));
    Model &below = *Model::create(design, "below");
    below.setParam(A_SYNTH_CIRCUIT_TIMED, A_TRUE);
    depend(below, text("d/none"));
    make(alone, "i", A_MODEL_BLOCK).setParam(A_MODEL_NODE, below);
    Model &untimed = scheduled("untimed");
    untimed.setParam(A_SYNTH_CIRCUIT_TIMED, A_FALSE);
    depend(untimed, text("d/none"));
    EXPECT_EQ(validate(), Lines());
    // One parent outside of schedules is enough.
    make("i", A_MODEL_BLOCK).setParam(A_MODEL_NODE, below);
    EXPECT_EQ(validate(), (Lines{bad("d/none")}));
}

// Addresses of dual memories.

class DualMemAddr : public ValidateModel {
  protected:
    Block &memory() { return make("mem", A_DUAL_MEM_BLOCK); }
    static std::string warning(const std::string &what, int side, int bits) {
        return "warning DUALMEM_ADDRESS_" + what + " addr=" + std::to_string(side) + " bits=" + std::to_string(bits) +
               " block=/top/mem";
    }
    /// Each side of a memory with the same depth, or without one if it is empty.
    Lines told(const std::string &depth, const std::string &address) {
        Block &block = memory();
        if (!depth.empty()) {
            block.setParam(A_DUAL_MEM_DEPTH1, value(depth));
        }
        block.setParam(A_DUAL_MEM_PORT_ADDR1, source(address));
        const Lines lines = validate();
        delete &block;
        return lines;
    }
};

TEST_F(DualMemAddr, hasTheBitsOfTheDepth) {
    EXPECT_EQ(told("4", "u2.0"), Lines());
    EXPECT_EQ(told("4", "u3.0"), (Lines{warning("TRUNCATION", 1, 2)}));
    EXPECT_EQ(told("4", "u1.0"), (Lines{warning("ZEROPAD", 1, 2)}));
    EXPECT_EQ(told("5", "u3.0"), Lines());
    EXPECT_EQ(told("5", "u2.0"), (Lines{warning("ZEROPAD", 1, 3)}));
    EXPECT_EQ(told("1", "u1.0"), Lines());
    EXPECT_EQ(told("1024", "u10.0"), Lines());
}

TEST_F(DualMemAddr, countsBitsOfTheIntegerPart) {
    EXPECT_EQ(told("4", "u2.3"), Lines());
    EXPECT_EQ(told("4", "s2.0"), Lines());
    EXPECT_EQ(told("4", "u5.-3"), (Lines{warning("TRUNCATION", 1, 2)}));
    EXPECT_EQ(told("4", "[3] u3.0"), (Lines{warning("TRUNCATION", 1, 2)}));
}

TEST_F(DualMemAddr, isComparedForEachSide) {
    Block &block = memory();
    block.setParam(A_DUAL_MEM_DEPTH1, value("4"));
    block.setParam(A_DUAL_MEM_DEPTH2, value("8"));
    block.setParam(A_DUAL_MEM_PORT_ADDR1, source("u3.0"));
    block.setParam(A_DUAL_MEM_PORT_ADDR2, source("u3.0"));
    EXPECT_EQ(validate(), (Lines{warning("TRUNCATION", 1, 2)}));
    block.setParam(A_DUAL_MEM_PORT_ADDR1, source("u2.0"));
    block.setParam(A_DUAL_MEM_PORT_ADDR2, source("u2.0"));
    EXPECT_EQ(validate(), (Lines{warning("ZEROPAD", 2, 3)}));
}

TEST_F(DualMemAddr, fitsTheContentWhereNoDepthIsTold) {
    Block &block = memory();
    block.setParam(A_DUAL_MEM_PORT_ADDR1, source("u2.0"));
    block.setParam(A_DUAL_MEM_PORT_ADDR2, source("u3.0"));
    block.setParam(A_DUAL_MEM_DEPTH2, value("8"));
    block.setParam(A_DUAL_MEM_DATA, value("(1 2 3 4)"));
    EXPECT_EQ(validate(), Lines());
    block.setParam(A_DUAL_MEM_DATA, value("(1 2 3 4 5)"));
    EXPECT_EQ(validate(), (Lines{warning("ZEROPAD", 1, 3)}));
    block.setParam(A_DUAL_MEM_DATA,
                   PureTupleValue::get(A_VECTOR_ROLL_TAG, value("(1 2)"), value("(3 4)"), mgr.context()));
    EXPECT_EQ(validate(), (Lines{warning("TRUNCATION", 1, 1)}));
    block.setParam(A_DUAL_MEM_DEPTH1, value("4"));
    EXPECT_EQ(validate(), Lines());
}

TEST_F(DualMemAddr, isNotComparedWithoutADepthAnAddressOrItsBits) {
    EXPECT_EQ(told("", "u3.0"), Lines());
    for (const char *depth : {"0", "-4", "2.5", "word", "(4)", "100000000000000000000"}) {
        EXPECT_EQ(told(depth, "u3.0"), Lines()) << depth;
    }
    EXPECT_EQ(told("4", "float(23,8)"), Lines());
    memory().setParam(A_DUAL_MEM_DEPTH1, value("4"));
    EXPECT_EQ(validate(), Lines());
}

TEST_F(DualMemAddr, fitsTheDeepestMemory) {
    EXPECT_EQ(told("2147483647", "u31.0"), Lines());
    EXPECT_EQ(told("2147483647", "u32.0"), (Lines{warning("TRUNCATION", 1, 31)}));
}

// Look-up tables.

class LookupTable : public ValidateModel {
  protected:
    Lines told(const ValueRef &data, const std::string &address) {
        Block &block = make("lut", A_LUT_BLOCK);
        block.setParam(A_LUT_DATA, data);
        block.setParam(A_LUT_PORT_ADDR, source(address));
        const Lines lines = validate();
        delete &block;
        return lines;
    }
    static std::string tooLong(int entries, int bits) {
        return "warning LUT_INIT_EXCEEDS_ADDRESS_SPACE addrWidth=" + std::to_string(bits) +
               " block=/top/lut dataSize=" + std::to_string(entries);
    }
    PureValueRef rolled(const StaticString &tag, const std::string &first, const std::string &second) {
        return PureTupleValue::get(tag, value(first), value(second), mgr.context());
    }
};

TEST_F(LookupTable, hasNoMoreEntriesThanAddresses) {
    EXPECT_EQ(told(value("(1 2 3 4)"), "u2.0"), Lines());
    EXPECT_EQ(told(value("(1 2 3)"), "u2.0"), Lines());
    EXPECT_EQ(told(value("(1 2 3 4 5)"), "u2.0"), (Lines{tooLong(5, 2)}));
    EXPECT_EQ(told(value("(1 2 3 4 5)"), "u3.0"), Lines());
}

TEST_F(LookupTable, isReadByAllBitsOfItsAddress) {
    EXPECT_EQ(told(value("(1 2 3 4 5)"), "u2.1"), Lines());
    EXPECT_EQ(told(value("(1 2 3 4 5)"), "s3.0"), Lines());
    EXPECT_EQ(told(value("(1 2 3 4 5)"), "[3] u2.0"), (Lines{tooLong(5, 2)}));
    EXPECT_EQ(told(value("(1 2 3 4 5)"), "u62.0"), Lines());
    EXPECT_EQ(told(value("(1 2 3 4 5)"), "u64.0"), Lines());
    EXPECT_EQ(told(value("(1 2 3 4 5)"), "u100.29"), Lines());
    EXPECT_EQ(told(value("(1 2)"), "u2.-2"), (Lines{tooLong(2, 0)}));
}

TEST_F(LookupTable, ofARolledContentIsAsLongAsTheLongestInIt) {
    EXPECT_EQ(told(rolled(A_VECTOR_ROLL_TAG, "(1 2 3 4)", "(5 6 7 8)"), "u2.0"), Lines());
    EXPECT_EQ(told(rolled(A_VECTOR_ROLL_TAG, "(1 2 3 4)", "(5 6 7 8 9)"), "u2.0"), (Lines{tooLong(5, 2)}));
    EXPECT_EQ(told(PureTupleValue::get(A_VECTOR_ROLL_TAG, rolled(A_VECTOR_ROLL_TAG, "(1 2 3)", "(1)"), mgr.context()),
                   "u1.0"),
              (Lines{tooLong(3, 1)}));
    EXPECT_EQ(told(rolled(A_COMPLEX_ROLL_TAG, "(1 2 3)", "(5 6 7)"), "u1.0"), (Lines{tooLong(3, 1)}));
    // A number a lane, and complex numbers as entries.
    EXPECT_EQ(told(rolled(A_VECTOR_ROLL_TAG, "1", "2"), "u1.0"), Lines());
    const PureValueRef entry = rolled(A_COMPLEX_ROLL_TAG, "1", "2");
    EXPECT_EQ(told(PureTupleValue::get(entry, entry, mgr.context()), "u1.0"), Lines());
    EXPECT_EQ(told(PureTupleValue::get(entry, entry, entry, mgr.context()), "u1.0"), (Lines{tooLong(3, 1)}));
}

TEST_F(LookupTable, isNotComparedWithoutEntriesOrAnAddressOfBits) {
    EXPECT_EQ(told(value("()"), "u1.0"), Lines());
    EXPECT_EQ(told(value("7"), "u1.0"), Lines());
    EXPECT_EQ(told(value("word"), "u1.0"), Lines());
    EXPECT_EQ(told({}, "u1.0"), Lines());
    EXPECT_EQ(told(value("(1 2 3)"), "float(23,8)"), Lines());
    make("lut", A_LUT_BLOCK).setParam(A_LUT_DATA, value("(1 2 3)"));
    EXPECT_EQ(validate(), Lines());
}

// Ends of constraints on whole models.

class LatencyConstraint : public ValidateModel {
  protected:
    Lines told(const StaticString &pair, const StaticString &in, int ins, const StaticString &out, int outs) {
        Model &model = *Model::create(design, "m");
        model.setParam(A_SYNTH_LATENCY_CONSTRAINT_PAIR, pair);
        for (int i = 0; i < ins; ++i) {
            make(model, "in" + std::to_string(i), in);
        }
        for (int i = 0; i < outs; ++i) {
            make(model, "out" + std::to_string(i), out);
        }
        const Lines lines = validate();
        delete &model;
        return lines;
    }
    Lines channels(int ins, int outs) {
        return told(A_SYNTH_LATENCY_CONSTRAINT_CHANNEL_IO, A_CHANNEL_IN_BLOCK, ins, A_CHANNEL_OUT_BLOCK, outs);
    }
    Lines signals(int ins, int outs) {
        return told(A_SYNTH_LATENCY_CONSTRAINT_GP_IO, A_SIGNAL_IN_BLOCK, ins, A_SIGNAL_OUT_BLOCK, outs);
    }
    static std::string start(const std::string &what, const std::string &type) {
        return "error CONSTRAINT_" + what + "_START_BLOCK intype=" + type + " model=/m";
    }
    static std::string end(const std::string &what, const std::string &type) {
        return "error CONSTRAINT_" + what + "_END_BLOCK model=/m outtype=" + type;
    }
};

TEST_F(LatencyConstraint, hasOneStartAndOneEnd) {
    EXPECT_EQ(channels(1, 1), Lines());
    EXPECT_EQ(signals(1, 1), Lines());
}

TEST_F(LatencyConstraint, withoutAnEndIsTold) {
    EXPECT_EQ(channels(0, 1), (Lines{start("MISSING", "Channel-")}));
    EXPECT_EQ(channels(1, 0), (Lines{end("MISSING", "Channel-")}));
    EXPECT_EQ(signals(0, 0), (Lines{start("MISSING", "GP"), end("MISSING", "GP")}));
}

TEST_F(LatencyConstraint, withSeveralEndsIsTold) {
    EXPECT_EQ(channels(2, 1), (Lines{start("AMBIGUOUS", "Channel-")}));
    EXPECT_EQ(channels(1, 3), (Lines{end("AMBIGUOUS", "Channel-")}));
    EXPECT_EQ(signals(2, 2), (Lines{start("AMBIGUOUS", "GP"), end("AMBIGUOUS", "GP")}));
    EXPECT_EQ(signals(0, 2), (Lines{start("MISSING", "GP"), end("AMBIGUOUS", "GP")}));
}

TEST_F(LatencyConstraint, countsBlocksOfItsKind) {
    const StaticString &channel = A_SYNTH_LATENCY_CONSTRAINT_CHANNEL_IO;
    EXPECT_EQ(told(channel, A_SIGNAL_IN_BLOCK, 1, A_SIGNAL_OUT_BLOCK, 1),
              (Lines{start("MISSING", "Channel-"), end("MISSING", "Channel-")}));
    const StaticString &signal = A_SYNTH_LATENCY_CONSTRAINT_GP_IO;
    EXPECT_EQ(told(signal, A_CHANNEL_IN_BLOCK, 1, A_CHANNEL_OUT_BLOCK, 1),
              (Lines{start("MISSING", "GP"), end("MISSING", "GP")}));
}

TEST_F(LatencyConstraint, isNoneWithoutAPairThatIsKnown) {
    EXPECT_EQ(told(A_TRUE, A_SIGNAL_IN_BLOCK, 2, A_SIGNAL_OUT_BLOCK, 0), Lines());
    make("in", A_SIGNAL_IN_BLOCK);
    EXPECT_EQ(validate(), Lines());
}

// Signals without a type.

class TypeInference : public ValidateModel {
  protected:
    static std::string untyped(const std::string &side, const std::string &port, const std::string &block) {
        return "error UNABLE_TO_INFER_TYPE block=" + block + " model=" + block.substr(0, block.rfind('/')) +
               " port=" + port + " side=" + side;
    }
};

TEST_F(TypeInference, isToldForEachWireAndPortWithoutAType) {
    Wire &open = *Wire::create(make("in", A_INPUT_BLOCK), value("x"));
    Block &sum = make("sum", A_ADD_BLOCK);
    sum.setParam(key(0), open);
    sum.setParam(key(1), source("s8.0"));
    Wire::create(sum, A_PRIM_WIRE_OUT);
    EXPECT_EQ(validate(),
              (Lines{untyped("output", "port x", "/top/in"), untyped("output", "port primWireOut", "/top/sum"),
                     untyped("input", "data port 0", "/top/sum")}));
}

TEST_F(TypeInference, tellsPortsInWords) {
    Wire &open = *Wire::create(make("in", A_INPUT_BLOCK), key(7));
    Block &block = make("out", A_SCHEDULED_MODEL_BLOCK);
    for (const char *name : {"3", "word", "(word 2)", "(word two)", "(2 word)", "(other 4 5)", "(1)"}) {
        block.setParam(value(name), open);
    }
    const Lines lines = validate();
    const std::set<std::string> told(lines.begin(), lines.end());
    const std::set<std::string> expected = {
        untyped("output", "data port 7", "/top/in"),     untyped("input", "data port 3", "/top/out"),
        untyped("input", "port word", "/top/out"),       untyped("input", "port(2) word", "/top/out"),
        untyped("input", "port (word two)", "/top/out"), untyped("input", "port (2 word)", "/top/out"),
        untyped("input", "port(4) other", "/top/out"),   untyped("input", "port (1)", "/top/out")};
    EXPECT_EQ(told, expected);
    EXPECT_EQ(lines.size(), expected.size());
}

TEST_F(TypeInference, takesRecordsForTypes) {
    make("out", A_OUTPUT_BLOCK).setParam(key(0), source("{s8.0,[2] c u1.0}"));
    EXPECT_EQ(validate(), Lines());
}

TEST_F(TypeInference, tellsOfADriverThatAPortsOwnTypeDoesNotHold) {
    const auto pinned = [&](const std::string &name, const std::string &driver, const std::string &type) {
        Block &pin = make(name, A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, value(testing::typeText(type)));
        pin.setParam(key(0), source(driver));
        Lines lines = validate();
        delete &pin;
        return lines;
    };
    const auto told = [](const std::string &block, const std::string &driver, const std::string &type) {
        return Lines{"warning MODIFYING_PORT_TYPE block=" + block + " newType=" + testing::typeText(driver) +
                     " oldType=" + testing::typeText(type) + " port=0"};
    };
    // Whichever of the two names comes first.
    for (const char *name : {"a", "z"}) {
        const std::string path = std::string("/top/") + name;
        for (const auto &[driver, type] :
             std::vector<std::pair<const char *, const char *>>{{"s8.0", "s5.0"},
                                                                {"u8.0", "s8.0"},
                                                                {"s8.0", "float(23,8)"},
                                                                {"[2] s8.4", "[2] s8.3"},
                                                                {"s8.0", "c s8.0"},
                                                                {"{s8.0,u1.0}", "{s5.0,u1.0}"},
                                                                {"[2] {u1.0,{u2.0}}", "[2] {u1.0,{u1.0}}"}}) {
            EXPECT_EQ(pinned(name, driver, type), told(path, driver, type));
        }
        EXPECT_EQ(pinned(name, "s8.0", "s8.0"), Lines());
        EXPECT_EQ(pinned(name, "u3.0", "u8.0"), Lines()) << "it holds all of them";
        EXPECT_EQ(pinned(name, "{u3.0}", "{u8.0}"), Lines());
    }
}

TEST_F(TypeInference, tellsOfAWireWhoseReadersAllTookTheTypeOfOne) {
    Wire &data = source("s8.0");
    make("out", A_OUTPUT_BLOCK).setParam(key(0), data);
    const auto told = [&](const std::string &name) {
        Block &pin = make(name, A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, value("(typeSFixed 5 0)"));
        pin.setParam(key(0), data);
        Lines lines = validate();
        delete &pin;
        return lines;
    };
    EXPECT_EQ(told("a"), Lines{"warning MODIFYING_WIRE_TYPE block=/top/pin0 newType=(typeSFixed 5 0) "
                               "oldType=(typeSFixed 8 0) wire=0"});
    EXPECT_EQ(told("z"), Lines{"warning MODIFYING_PORT_TYPE block=/top/z newType=(typeSFixed 8 0) "
                               "oldType=(typeSFixed 5 0) port=0"});
}

TEST_F(TypeInference, asksForTheModelWhereItStands) {
    Model &below = *Model::create(design, "below");
    Wire &in = *Wire::create(make(below, "in", A_INPUT_BLOCK), value("x"));
    make(below, "out", A_OUTPUT_BLOCK).setParam(value("y"), in);
    EXPECT_EQ(validate(), (Lines{untyped("output", "port x", "/below/in"), untyped("input", "port y", "/below/out")}));
    Block &block = instance(below, "i", "s8.0");
    EXPECT_EQ(validate(), Lines());
    // Further up, too.
    Model &upper = *Model::create(design, "upper");
    make(upper, "i", A_MODEL_BLOCK).setParam(A_MODEL_NODE, top);
    EXPECT_EQ(validate(), Lines());
    block.setParam(value("x"), nullptr);
    EXPECT_EQ(validate(), (Lines{untyped("output", "port x", "/below/in"), untyped("input", "port y", "/below/out")}));
}

// Models of several instances.

class SeveralInstances : public ValidateModel {
  protected:
    Model &below = *Model::create(design, "below");
    Wire &in = *Wire::create(make(below, "in", A_INPUT_BLOCK), value("x"));
};

TEST_F(SeveralInstances, areAllAskedAndEachThingIsToldOnce) {
    make(below, "out", A_OUTPUT_BLOCK).setParam(value("y"), in);
    instance(below, "a", "s8.0");
    instance(below, "b", "[2] s8.0");
    EXPECT_EQ(validate(), Lines());
    for (const char *name : {"c", "d"}) {
        instance(below, name, "s8.0").setParam(value("x"), nullptr);
    }
    EXPECT_EQ(validate(), (Lines{"error UNABLE_TO_INFER_TYPE block=/below/in model=/below port=port x side=output",
                                 "error UNABLE_TO_INFER_TYPE block=/below/out model=/below port=port y side=input"}));
}

TEST_F(SeveralInstances, compareVectorsInsideAnInstanceOnly) {
    Block &sum = make(below, "sum", A_ADD_BLOCK);
    sum.setParam(key(0), in);
    sum.setParam(key(1), in);
    Wire::create(sum, A_PRIM_WIRE_OUT);
    instance(below, "a", "[4] s8.0");
    instance(below, "b", "[2] s8.0");
    EXPECT_EQ(validate(), Lines());
    sum.setParam(key(2), source(below, "[4] s8.0"));
    instance(below, "c", "[3] s8.0");
    Lines lines = validate();
    // What does not agree has no type either.
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string &line) { return line.find("INFER") != std::string::npos; }),
                lines.end());
    EXPECT_EQ(lines, (Lines{"error UNEQUAL_PORT_VECTOR_WIDTHS block=/below/sum port=2 width=4"}));
}

TEST_F(SeveralInstances, haveOtherMembersThanABlockTakesInOneOfThem) {
    const std::string taken = value(testing::typeText("{c s8.0,[2] s8.0}"))->toString();
    Block &held = make(below, "held", A_SYNC_REGISTER_BLOCK);
    held.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, in);
    held.setParam(A_SYNC_REGISTER_DATA_TYPE, Value::parse(taken, mgr.context()));
    instance(below, "a", "{c s4.0,[2] u7.0}");
    EXPECT_EQ(validate(), Lines());
    for (const char *driver : {"{s8.0,[2] s8.0}", "{c s8.0,s8.0}", "{c s8.0,[3] s8.0}", "{c s8.0,[2] s8.0,u1.0}",
                               "{c s8.0,{s8.0,s8.0}}", "c s8.0"}) {
        Block &other = instance(below, "b", driver);
        EXPECT_EQ(validate(), (Lines{"error UNEQUAL_PORT_RECORDS block=/below/held driver=" +
                                     value(testing::typeText(driver))->toString() +
                                     " port=syncRegisterPortIclkData type=" + taken}));
        delete &other;
    }
}

TEST_F(SeveralInstances, areComplexInOneOfThemWhereABlockTellsWhatItTakes) {
    Block &held = make(below, "held", A_SYNC_REGISTER_BLOCK);
    held.setParam(A_SYNC_REGISTER_PORT_ICLK_DATA, in);
    held.setParam(A_SYNC_REGISTER_DATA_TYPE, Value::parse("(typeSFixed 8 0)", mgr.context()));
    instance(below, "a", "s8.0");
    instance(below, "b", "c s8.0");
    EXPECT_EQ(validate(), (Lines{"error REAL_ONLY_PORT_IS_COMPLEX block=/below/held port=syncRegisterPortIclkData"}));
}

TEST_F(SeveralInstances, areComplexInOneOfThem) {
    make(below, "max", A_MAX_BLOCK).setParam(key(0), in);
    instance(below, "a", "s8.0");
    instance(below, "b", "c s8.0");
    instance(below, "c", "c s4.0");
    EXPECT_EQ(validate(), (Lines{"error REAL_ONLY_PORT_IS_COMPLEX block=/below/max port=0"}));
}

TEST_F(SeveralInstances, addressMemoriesByWidthsOfTheirOwn) {
    Block &memory = make(below, "mem", A_DUAL_MEM_BLOCK);
    memory.setParam(A_DUAL_MEM_DEPTH1, value("4"));
    memory.setParam(A_DUAL_MEM_PORT_ADDR1, in);
    instance(below, "a", "u2.0");
    instance(below, "b", "u3.0");
    instance(below, "c", "u4.0");
    const std::string truncated = "warning DUALMEM_ADDRESS_TRUNCATION addr=1 bits=2 block=/below/mem";
    EXPECT_EQ(validate(), (Lines{truncated}));
    instance(below, "d", "u1.0");
    EXPECT_EQ(validate(), (Lines{truncated, "warning DUALMEM_ADDRESS_ZEROPAD addr=1 bits=2 block=/below/mem"}));
}

TEST_F(SeveralInstances, readTablesByWidthsOfTheirOwn) {
    Block &table = make(below, "lut", A_LUT_BLOCK);
    table.setParam(A_LUT_DATA, value("(1 2 3 4 5)"));
    table.setParam(A_LUT_PORT_ADDR, in);
    instance(below, "a", "u3.0");
    EXPECT_EQ(validate(), Lines());
    instance(below, "b", "u2.0");
    instance(below, "c", "u1.0");
    EXPECT_EQ(validate(), (Lines{"warning LUT_INIT_EXCEEDS_ADDRESS_SPACE addrWidth=2 block=/below/lut dataSize=5"}));
}

TEST_F(SeveralInstances, areFoundThroughModelsInBetween) {
    make(below, "max", A_MAX_BLOCK).setParam(key(0), in);
    Model &middle = *Model::create(design, "middle");
    Wire &through = *Wire::create(make(middle, "in", A_INPUT_BLOCK), value("x"));
    for (const char *name : {"p", "q"}) {
        Block &block = make(middle, name, A_MODEL_BLOCK);
        block.setParam(A_MODEL_NODE, below);
        block.setParam(value("x"), through);
    }
    instance(middle, "a", "s8.0");
    EXPECT_EQ(validate(), Lines());
    instance(middle, "b", "c s8.0");
    EXPECT_EQ(validate(), (Lines{"error REAL_ONLY_PORT_IS_COMPLEX block=/below/max port=0"}));
}

TEST_F(SeveralInstances, mayBeAsManyAsDoublingMakes) {
    make(below, "max", A_MAX_BLOCK).setParam(key(0), in);
    Model *model = &below;
    for (int level = 0; level < 12; ++level) {
        Model &above = *Model::create(design, "level" + std::to_string(level));
        Wire &through = *Wire::create(make(above, "in", A_INPUT_BLOCK), value("x"));
        for (const char *name : {"p", "q"}) {
            Block &block = make(above, name, A_MODEL_BLOCK);
            block.setParam(A_MODEL_NODE, *model);
            block.setParam(value("x"), through);
        }
        model = &above;
    }
    instance(*model, "a", "c s8.0");
    EXPECT_EQ(validate(), (Lines{"error REAL_ONLY_PORT_IS_COMPLEX block=/below/max port=0"}));
}

TEST_F(SeveralInstances, ofAModelInItselfEndTheSearch) {
    Block &self = make(below, "self", A_MODEL_BLOCK);
    self.setParam(A_MODEL_NODE, below);
    self.setParam(value("x"), source(below, "s8.0"));
    validate();
    instance(below, "a", "s8.0");
    EXPECT_EQ(validate(), Lines());
}

// The list as a whole.

/// A model with a mistake for each check that has something to look at in it, and the message of each.
class AllChecks : public ValidateModel {
  protected:
    Lines fill(Model &model, const StaticString &timing) {
        const std::string name = model.getName()->toString();
        model.setParam(A_SYNTH_CIRCUIT_TIMED, timing);
        model.setParam(A_SYNTH_LATENCY_DEPENDS_ON_SIMULINK_PATH, value("nowhere"));
        model.setParam(A_SYNTH_LATENCY_CONSTRAINT_PAIR, A_SYNTH_LATENCY_CONSTRAINT_GP_IO);
        Block &table = make(model, "lut", A_LUT_BLOCK);
        table.setParam(A_LUT_DATA, value("(1 2 3)"));
        table.setParam(A_LUT_PORT_ADDR, source(model, "u1.0"));
        Block &memory = make(model, "mem", A_DUAL_MEM_BLOCK);
        memory.setParam(A_DUAL_MEM_DEPTH1, value("4"));
        memory.setParam(A_DUAL_MEM_PORT_ADDR1, source(model, "u1.0"));
        Block &max = make(model, "max", A_MAX_BLOCK);
        max.setParam(key(0), source(model, "[2] c s8.0"));
        max.setParam(key(1), source(model, "[3] s8.0"));
        make(model, "gpOut", A_SIGNAL_OUT_BLOCK);
        Wire::create(make(model, "in", A_INPUT_BLOCK), value("x"));
        const std::string at = "/" + name;
        const bool isShuffled = &timing == &A_FALSE;
        Lines lines;
        if (isShuffled) {
            lines = {"error INVALID_BLOCK_OUTSIDE_SCHEDULED_SUBSYSTEM block=" + at + "/max model=" + at,
                     "error INVALID_BLOCK_OUTSIDE_SCHEDULED_SUBSYSTEM block=" + at + "/mem model=" + at};
        }
        lines.push_back("error UNEQUAL_PORT_VECTOR_WIDTHS block=" + at + "/max port=1 width=3");
        lines.push_back("error REAL_ONLY_PORT_IS_COMPLEX block=" + at + "/max port=0");
        if (!isShuffled) {
            lines.push_back("error BAD_MODEL_DEPENDS_UPON model=nowhere");
        }
        lines.push_back("warning DUALMEM_ADDRESS_ZEROPAD addr=1 bits=2 block=" + at + "/mem");
        lines.push_back("warning LUT_INIT_EXCEEDS_ADDRESS_SPACE addrWidth=1 block=" + at + "/lut dataSize=3");
        lines.push_back("error CONSTRAINT_MISSING_START_BLOCK intype=GP model=" + at);
        lines.push_back("error UNABLE_TO_INFER_TYPE block=" + at + "/in model=" + at + " port=port x side=output");
        return lines;
    }
    /// Two models, between which each check finds something.
    Lines fillBoth() {
        Model &scheduled = *Model::create(design, "a");
        make("i", A_MODEL_BLOCK).setParam(A_MODEL_NODE, scheduled);
        Lines lines = fill(scheduled, A_TRUE);
        const Lines more = fill(*Model::create(design, "b"), A_FALSE);
        lines.insert(lines.end(), more.begin(), more.end());
        return lines;
    }
};

TEST_F(AllChecks, runInTheirOrderWhateverTheOnesBeforeFound) {
    const Lines expected = fillBoth();
    EXPECT_EQ(validate(), expected);
}

TEST_F(AllChecks, areLeftOutByTheFeature) {
    fillBoth();
    const FeatureScope off("DISABLE_VALIDATE_MODEL_PASS");
    EXPECT_EQ(validate(), Lines());
}

TEST_F(AllChecks, followChangesBetweenRuns) {
    const Lines expected = fillBoth();
    EXPECT_EQ(validate(), expected);
    delete design.getModel(value("b"));
    EXPECT_EQ(validate(), Lines(expected.begin(), expected.begin() + 7));
    // One pass in one run, and a change of the design behind it.
    Ear ear(mgr.context());
    PassScheduler scheduler;
    scheduler.requirePass("ValidateModelPass");
    scheduler.addPass("ValidateModelPass");
    scheduler.apply(design);
    Lines twice(expected.begin(), expected.begin() + 7);
    twice.insert(twice.end(), expected.begin(), expected.begin() + 7);
    EXPECT_EQ(ear.lines, twice);
}

TEST_F(AllChecks, letOddBlocksStand) {
    // Without ports or parameters, and with parameters that are no connections where ports are.
    int number = 0;
    for (const StaticString *type : {&A_DUAL_MEM_BLOCK, &A_LUT_BLOCK, &A_MAX_BLOCK, &A_CORDIC_BLOCK, &A_MODEL_BLOCK,
                                     &A_BARREL_LEFT_BLOCK, &A_ADD_BLOCK}) {
        Block &block = make("b" + std::to_string(number++), *type);
        for (const StaticString *port : {&A_LUT_PORT_ADDR, &A_DUAL_MEM_PORT_ADDR1, &A_BARREL_PORT_SHIFT}) {
            block.setParam(*port, value("7"));
        }
    }
    Block::create(top, "untyped");
    EXPECT_EQ(validate(), Lines());
}

TEST(ValidateModelByChance, findsNothingWrongInDesignsThatAreWellMade) {
    constexpr std::uint64_t kDesigns = 500;
    ContextMgr mgr;
    gen::DesignGenerator generator(mgr.context(), gen::Draws::Schedulable);
    std::size_t blocks = 0;
    for (std::uint64_t seed = 0; seed < kDesigns; ++seed) {
        const auto design = generator.make(gen::recipesOf(seed, seed % 2 == 0 ? 40 : 6));
        Ear ear(mgr.context());
        PassScheduler scheduler;
        scheduler.addPass("ValidateModelPass");
        scheduler.apply(*design);
        EXPECT_EQ(ear.lines, Lines()) << "seed " << seed;
        for (const Model &model : *design) {
            blocks += model.size();
        }
    }
    EXPECT_GE(blocks, 10000U);
}

} // namespace
} // namespace orvo
