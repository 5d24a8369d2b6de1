// From the catalogue to shapes.
#include "gen/blockshape.h"

#include "gen/toldblocks.h"

#include <orvo/blockclass.h>
#include <orvo/blocksinfo.h>
#include <orvo/context.h>
#include <orvo/simulator.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinfer.h>

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace orvo::gen {

namespace {

ValueRef parsed(const ParamRequest &request, const std::string &text) { return Value::parse(text, request.context); }

/// Numbers at which rules change: ends of ranges, halves, powers of two and their neighbours.
std::string cornerNumber(Chooser &chooser) {
    constexpr const char *numbers[] = {"1",  "0",   "-1",   "2",     "3",    "0.5", "-0.75", "7",   "8",  "-8",
                                       "15", "255", "-128", "0.125", "-0.5", "100", "1.25",  "-17", "64", "65535"};
    return numbers[chooser.below(std::size(numbers))];
}

std::string fixedType(Chooser &chooser) {
    const bool isSigned = chooser.chance(1, 2);
    const std::size_t whole = 1 + chooser.below(10);
    const std::size_t fraction = chooser.chance(1, 2) ? chooser.below(9) : 0;
    return fmt::format("(type{}Fixed {} {})", isSigned ? "S" : "U", whole, fraction);
}

/// One of these for each of so many, as a tuple.
template <class Element> std::string tupleOf(std::size_t count, Element element) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += (i == 0 ? "" : " ") + element(i);
    }
    return "(" + text + ")";
}

ValueRef scalarType(const ParamRequest &request) { return parsed(request, fixedType(request.chooser)); }

/// Mostly none: a type that is given narrows, and so hides what others would show.
ValueRef seldomType(const ParamRequest &request) {
    return request.chooser.chance(1, 4) ? scalarType(request) : ValueRef();
}

template <int low, int high> ValueRef integer(const ParamRequest &request) {
    return parsed(request, std::to_string(low + static_cast<int>(request.chooser.below(high - low + 1))));
}

ValueRef repeats(const ParamRequest &request) { return parsed(request, std::to_string(request.repeats)); }

ValueRef inputType(const ParamRequest &request) {
    return request.inputs.empty() ? ValueRef() : ValueRef(request.inputs[0].type);
}

/// A number, or parts and lanes where the input has such.
ValueRef constant(const ParamRequest &request) {
    Chooser &chooser = request.chooser;
    const bool isComplex =
        request.inputs.empty() ? chooser.chance(1, 6) : request.inputs[0].isComplex && chooser.chance(2, 3);
    const auto number = [&] {
        return isComplex
                   ? fmt::format("({} {} {})", A_COMPLEX_ROLL_TAG.text(), cornerNumber(chooser), cornerNumber(chooser))
                   : cornerNumber(chooser);
    };
    const std::size_t lanes = request.inputs.empty()               ? (chooser.chance(1, 6) ? 3 : 0)
                              : request.inputs[0].dims.size() == 1 ? static_cast<std::size_t>(request.inputs[0].dims[0])
                                                                   : 0;
    if (lanes == 0 || !chooser.chance(1, 2)) {
        return parsed(request, number());
    }
    const std::string tag(A_VECTOR_ROLL_TAG.text());
    return parsed(request, tupleOf(lanes + 1, [&](std::size_t i) { return i == 0 ? tag : number(); }));
}

/// Of the data input's width, as casts that reinterpret and selects of bits want it. A record stays what it is.
ValueRef wholeType(const ParamRequest &request) {
    Chooser &chooser = request.chooser;
    if (!request.inputs.empty() && request.inputs[0].isRecord) {
        return inputType(request);
    }
    if (request.inputs.empty() || chooser.chance(1, 2)) {
        return parsed(request, fixedType(chooser));
    }
    const std::string scalar =
        chooser.chance(1, 6)
            ? "(typeSFloatIEEE 10 5)"
            : fmt::format("(type{}Fixed {} {})", chooser.chance(1, 2) ? "S" : "U",
                          std::max(request.inputs[0].width, 1) - static_cast<int>(chooser.below(3)), chooser.below(3));
    return parsed(request, request.inputs[0].isComplex ? "(typeComplex " + scalar + ")" : scalar);
}

ValueRef bitOffset(const ParamRequest &request) {
    const int width = request.inputs.empty() ? 1 : std::max(request.inputs[0].width, 1);
    const int offset = static_cast<int>(request.chooser.below(static_cast<std::size_t>(width)));
    return parsed(request, std::to_string(request.chooser.chance(1, 4) ? -1 - offset : offset));
}

ValueRef bitOffsets(const ParamRequest &request) {
    const auto width = static_cast<std::size_t>(request.inputs.empty() ? 1 : std::max(request.inputs[0].width, 1));
    return parsed(request, tupleOf(4, [&](std::size_t) { return std::to_string(request.chooser.below(width)); }));
}

ValueRef fourBits(const ParamRequest &request) {
    return parsed(request, request.chooser.chance(1, 2) ? "(typeSFixed 3 1)" : "(typeUFixed 4 0)");
}

/// Of elements like those that go in.
ValueRef elementType(const ParamRequest &request) {
    const bool isComplex = !request.inputs.empty() && request.inputs[0].isComplex;
    const std::string scalar = fixedType(request.chooser);
    return parsed(request, isComplex ? fmt::format("({} {})", A_TYPE_COMPLEX.text(), scalar) : scalar);
}

ValueRef seldomElementType(const ParamRequest &request) {
    return request.chooser.chance(1, 4) ? elementType(request) : ValueRef();
}

/// Of complex entries now and then.
ValueRef tableData(const ParamRequest &request) {
    Chooser &chooser = request.chooser;
    const std::size_t entries = 1 + chooser.below(9);
    const bool isComplex = chooser.chance(1, 5);
    return parsed(request, tupleOf(entries, [&](std::size_t) {
                      const std::string number = cornerNumber(chooser);
                      return isComplex
                                 ? fmt::format("({} {} {})", A_COMPLEX_ROLL_TAG.text(), number, cornerNumber(chooser))
                                 : number;
                  }));
}

ValueRef divisor(const ParamRequest &request) {
    constexpr const char *numbers[] = {"3", "-3", "1", "7", "-2", "10", "-17", "64"};
    return parsed(request, numbers[request.chooser.below(std::size(numbers))]);
}

ValueRef vectorIndices(const ParamRequest &request) {
    if (request.inputs.empty() || request.inputs[0].dims.empty()) {
        return {};
    }
    const std::vector<int> &dims = request.inputs[0].dims;
    const std::size_t levels = 1 + request.chooser.below(dims.size());
    return parsed(request, tupleOf(levels, [&](std::size_t level) {
                      return tupleOf(1 + request.chooser.below(3), [&](std::size_t) {
                          return std::to_string(request.chooser.below(static_cast<std::size_t>(dims[level])));
                      });
                  }));
}

/// Lengths that add up to the vector's.
ValueRef splitLayout(const ParamRequest &request) {
    if (request.inputs.empty() || request.inputs[0].dims.empty() || request.chooser.chance(1, 2)) {
        return {};
    }
    std::size_t left = static_cast<std::size_t>(request.inputs[0].dims[0]);
    if (left < request.repeats) {
        return {};
    }
    return parsed(request, tupleOf(request.repeats, [&](std::size_t i) {
                      const std::size_t others = request.repeats - i - 1;
                      const std::size_t own = others == 0 ? left : 1 + request.chooser.below(left - others);
                      left -= own;
                      return std::to_string(own);
                  }));
}

/// The data of banks of coefficients.
ValueRef coefficients(const ParamRequest &request) {
    return parsed(request,
                  tupleOf(1 + request.chooser.below(4), [&](std::size_t) { return cornerNumber(request.chooser); }));
}

struct OpenParam {
    const StaticString *key;
    Provider provider;
};

const OpenParam kOpenParams[] = {
    {&A_ADD_TYPE, seldomType},
    {&A_MULT_TYPE, seldomType},
    {&A_DIVIDE_TYPE, seldomType},
    {&A_BARREL_OUTPUT_TYPE, seldomType},
    {&A_LUT_TYPE, seldomType},
    {&A_CONST_TYPE, seldomType},
    {&A_CONST_VALUE, constant},
    {&A_CAST_OUTPUT_TYPE, wholeType},
    {&A_BIT_SELECT_BIT_OFFSET, bitOffset},
    {&A_BIT_SELECT_OUTPUT_TYPE, wholeType},
    {&A_CHOOSE_BITS_BIT_OFFSETS, bitOffsets},
    {&A_CHOOSE_BITS_OUTPUT_TYPE, fourBits},
    {&A_XOR_BITS_BITLIST, bitOffsets},
    {&A_ROUND_BITS, integer<-1, 4>},
    {&A_RAW_SHIFT_VALUE, integer<-2, 4>},
    {&A_MOD_MULT_MODULUS_VALUE, integer<2, 40>},
    {&A_DECODE_ADDRESS, integer<0, 3>},
    {&A_DEMUX_CHANNEL_COUNT, repeats},
    {&A_FANOUT_OUTPUT_COUNT, repeats},
    {&A_LUT_DATA, tableData},
    {&A_DUAL_MEM_DATA, tableData},
    {&A_DUAL_MEM_DEPTH1, integer<4, 9>},
    {&A_DUAL_MEM_DEPTH2, integer<4, 9>},
    {&A_DUAL_MEM_TYPE_DATA1, elementType},
    {&A_DUAL_MEM_TYPE_DATA2, seldomElementType},
    {&A_COUNTER_LIMIT, integer<1, 12>},
    {&A_COUNTER_STEP, integer<1, 4>},
    {&A_COUNTER_INITIAL, integer<-1, 3>},
    {&A_DELAY_LENGTH, integer<0, 4>},
    {&A_REGISTER_INIT_VALUE, integer<0, 1>},
    {&A_SYNC_REGISTER_DATA_TYPE, inputType},
    {&A_FIFO_DEPTH, integer<1, 5>},
    {&A_FIFO_LOW_THRESHOLD, integer<0, 2>},
    {&A_FIFO_HIGH_THRESHOLD, integer<1, 4>},
    {&A_VSELECTOR_INDICIES, vectorIndices},
    {&A_VSPLIT_LAYOUT, splitLayout},
    {&A_TYPE_PIN_TYPE, seldomType},
    {&A_POLYNOMIAL_DATA, coefficients},
    {&A_FIR_INPUT_RATE, integer<1, 1>},
    {&A_FIR_CHANNEL_COUNT, integer<1, 1>},
    {&A_FIR_COEFS, coefficients},
    {&A_FIR_DECIM_FACTOR, integer<1, 3>},
    {&A_CIC_INPUT_RATE, integer<1, 1>},
    {&A_CIC_RATE_FACTOR, integer<1, 4>},
    {&A_CIC_STAGE_COUNT, integer<1, 3>},
    {&A_CIC_CHANNEL_COUNT, integer<1, 1>},
    {&A_CIC_DELAY_COUNT, integer<1, 2>},
    {&A_NCO_ACCUM_BIT_COUNT, integer<4, 16>},
    {&A_NCO_OUTPUT_RATE, integer<1, 1>},
    {&A_NCO_OUTPUT_TYPE, scalarType},
    {&A_MIXER_INPUT_RATE, integer<1, 1>},
    {&A_MIXER_CHANNEL_COUNT, integer<1, 1>},
    {&A_MIXER_FREQ_COUNT, integer<1, 1>},
    {&A_SCALE_OUTPUT_TYPE, scalarType},
    {&A_ACC_LSB, integer<-12, -2>},
    {&A_ACC_MSB, integer<3, 8>},
    {&A_ACC_MAXMSB, integer<1, 5>},
};

/// A type's own way with a parameter that others have, too.
struct OpenParamOfType {
    const StaticString *type;
    const StaticString *key;
    Provider provider;
};

const OpenParamOfType kOpenParamsOfTypes[] = {
    {&A_CONSTDIV_BLOCK, &A_CONST_VALUE, divisor},
};

/// Types that the generator makes in a way of its own, or not at all.
struct Apart {
    const StaticString *type;
    const char *reason;
};

const Apart kApart[] = {
    {&A_INPUT_BLOCK, "one in each model"},
    {&A_OUTPUT_BLOCK, "one in each model"},
    {&A_MODEL_BLOCK, "stands for the models below"},
    {&A_GOTO_BLOCK, "made in pairs"},
    {&A_FROM_BLOCK, "made in pairs"},
    {&A_SHARED_MEM_PLACEHOLDER_BLOCK, "needs what a pass makes of it"},
};

/// Blocks that give names to signals at the edge of the system: one of these beginnings stands once in a design.
constexpr const char *kFamilies[] = {kBusFamily, "A_SARNET_ST"};

/// Numbered ports that are no data.
struct NumberedRole {
    const StaticString *type;
    int port;
    PinShape::Role role;
};

const NumberedRole kNumberedRoles[] = {
    {&A_POWN_BLOCK, 1, PinShape::Role::Small},         {&A_MULT_POW2_BLOCK, 1, PinShape::Role::Small},
    {&A_ACC_BLOCK, 1, PinShape::Role::Control},        {&A_FLOAT_MULTACC_BLOCK, 2, PinShape::Role::Control},
    {&A_LD_COUNTER_BLOCK, 0, PinShape::Role::Control}, {&A_FOR_LOOP_BLOCK, 2, PinShape::Role::Control},
};

PinShape::Role roleOf(const std::string &name) {
    const auto has = [&name](const char *part) { return name.find(part) != std::string::npos; };
    for (const char *part : {"_LOAD_VALUE", "_PORTKEY_DATA", "_DEFAULT_DATA"}) {
        if (has(part)) {
            return PinShape::Role::Data;
        }
    }
    if (has("CHANNEL")) {
        return PinShape::Role::Channel;
    }
    for (const char *part : {"ADDR", "SHIFT", "LIMIT", "BANK", "MUX_PORT_SELECT", "SIZE", "COUNT"}) {
        if (has(part)) {
            return PinShape::Role::Small;
        }
    }
    for (const char *part : {"_EN", "CTRL", "VALID", "_GO", "FLUSH", "_ACK", "READ", "_WRITE", "BEGIN", "WREN",
                             "_SELECT", "DROP", "PACKET"}) {
        if (has(part)) {
            return PinShape::Role::Control;
        }
    }
    return PinShape::Role::Data;
}

/// Reads the catalogue's names for one context.
class Reader {
  public:
    explicit Reader(Context *context) : mContext(context) {}

    BlockShape read(const std::string &name, const BlockInfo &info) {
        BlockShape shape;
        shape.name = name;
        shape.type = StringValue::get(getBlocksInfo().get_mapping(name), mContext);
        for (const BlockConnection &connection : info.connections) {
            const bool isOfBus = connection.name.rfind(kBusFamily, 0) == 0 && name.rfind(kBusFamily, 0) != 0;
            if (isOfBus && connection.optional) {
                // A filter on a bus needs the bus of the whole design.
            } else if (connection.kind == "Param") {
                addParam(shape, connection);
            } else {
                (connection.kind == "Port" ? shape.ports : shape.wires).push_back(pin(connection));
            }
        }
        for (const Apart &apart : kApart) {
            if (shape.type == *apart.type) {
                shape.reason = apart.reason;
            }
        }
        for (const ToldBlock &told : toldBlocks()) {
            if (shape.type == *told.type) {
                shape.reason = "made with the pins that are told for it";
            }
        }
        for (const char *family : kFamilies) {
            if (name.rfind(family, 0) == 0) {
                shape.family = family;
            }
        }
        for (const auto &[type, number, role] : kNumberedRoles) {
            for (PinShape &port : shape.ports) {
                if (shape.type == *type && port.key == NumberValue::get(number, mContext)) {
                    port.role = role;
                }
            }
        }
        if (shape.reason.empty() && !sim::canSimulate(shape.type.get_ptr())) {
            shape.reason = "cannot be simulated";
        }
        if (shape.reason.empty() && !shape.wires.empty() && !hasTypeRule(shape.type)) {
            shape.reason = "has no type rule";
        }
        return shape;
    }

  private:
    bool hasTypeRule(const PureValueRef &type) const {
        const BlockClass &blockClass = *mContext->getBlockClass(ValueRef(type));
        return blockClass.lookupHandler(typeid(TypeInferHandler)) != nullptr ||
               blockClass.lookupHandler(typeid(TypeInferHandler2)) != nullptr;
    }
    PureValueRef value(const std::string &name) const {
        const std::string *text = name.compare(0, 2, "A_") == 0 ? getBlocksInfo().findMapping(name) : nullptr;
        return text != nullptr ? PureValueRef(StringValue::get(*text, mContext))
                               : PureValueRef(Value::parse(name, mContext));
    }
    PinShape pin(const BlockConnection &connection) const {
        PinShape shape;
        shape.isOptional = connection.optional;
        shape.role = roleOf(connection.name);
        std::string name = connection.name;
        if (name == "ANY") {
            shape.isFree = true;
            return shape;
        }
        if (name.size() > 3 && name.compare(name.size() - 3, 3, "...") == 0) {
            shape.isRepeated = true;
            name.resize(name.size() - 3);
        }
        shape.key = value(name);
        return shape;
    }
    void addParam(BlockShape &shape, const BlockConnection &connection) const {
        ParamShape param;
        param.key = value(connection.name);
        param.isOptional = connection.optional;
        const auto open = std::find_if(std::begin(kOpenParams), std::end(kOpenParams),
                                       [&param](const OpenParam &one) { return param.key == *one.key; });
        const auto own =
            std::find_if(std::begin(kOpenParamsOfTypes), std::end(kOpenParamsOfTypes),
                         [&](const OpenParamOfType &one) { return shape.type == *one.type && param.key == *one.key; });
        if (own != std::end(kOpenParamsOfTypes)) {
            param.provider = own->provider;
        } else if (open != std::end(kOpenParams)) {
            param.provider = open->provider;
        } else if (!connection.isOpen()) {
            for (const std::string &allowed : connection.values) {
                param.values.push_back(ValueRef(value(allowed)));
            }
        } else if (!connection.optional) {
            shape.reason = "nothing gives " + connection.name;
        } else {
            return;
        }
        shape.params.push_back(std::move(param));
    }

    Context *mContext;
};

} // namespace

std::vector<BlockShape> blockShapes(Context *context) {
    Reader reader(context);
    std::vector<BlockShape> shapes;
    for (const auto &[name, info] : getBlocksInfo().blocks()) {
        if (name != BlocksInfo::kGenericBlock) {
            shapes.push_back(reader.read(name, info));
        }
    }
    return shapes;
}

} // namespace orvo::gen
