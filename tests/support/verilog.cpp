// The module around the blocks, and what all rows share.
#include "support/verilog.h"
#include "support/verilogwriter.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/nonsblocks.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <fmt/format.h>
#include <gmp.h>

#include <algorithm>

namespace orvo::test {

namespace {

using Rows = std::map<const Value *, const VerilogRow *>;

const Rows &rows() {
    static const Rows table = [] {
        Rows made;
        for (const auto family : {arithmeticVerilog(), bitVerilog(), stateVerilog(), wiringVerilog()}) {
            for (const VerilogRow &row : family) {
                made.emplace(row.type->get_ptr(), &row);
            }
        }
        return made;
    }();
    return table;
}

/// The scalars of a wire of this type, with names to come.
NetSignal signalOf(const PureValueRef &type, Context *context, const std::string &wire) {
    const NumTypeSpec spec(type, context);
    if (!spec.isFixed() || spec.fixedBits() < 1) {
        throw VerilogError("wire '" + wire + "' has no fixed-point type");
    }
    NetSignal signal;
    std::size_t count = spec.isComplex() ? 2 : 1;
    signal.element = static_cast<int>(count);
    for (std::size_t i = 0; i < spec.vectorDepth(); ++i) {
        signal.dims.push_back(spec.vectorLengthRev(i));
        count *= static_cast<std::size_t>(signal.dims.back());
    }
    signal.nets.assign(count, {"", spec.fixedBits(), spec.fracBits(), spec.isSigned()});
    return signal;
}

/// The names of the scalars of a signal, as in x[2].re.
std::vector<std::string> scalarNames(const NetSignal &signal, const std::string &name) {
    std::vector<std::string> names{name};
    for (const int length : signal.dims) {
        std::vector<std::string> longer;
        for (const std::string &one : names) {
            for (int i = 0; i < length; ++i) {
                longer.push_back(fmt::format("{}[{}]", one, i));
            }
        }
        names.swap(longer);
    }
    if (signal.element == 2) {
        std::vector<std::string> parts;
        for (const std::string &one : names) {
            parts.push_back(one + ".re");
            parts.push_back(one + ".im");
        }
        names.swap(parts);
    }
    return names;
}

/// The bits of an integer in two's complement.
std::string binary(mpz_srcptr value, int width) {
    mpz_t pattern;
    mpz_init(pattern);
    mpz_fdiv_r_2exp(pattern, value, static_cast<mp_bitcnt_t>(width));
    std::string digits(static_cast<std::size_t>(width), '0');
    for (int bit = 0; bit < width; ++bit) {
        if (mpz_tstbit(pattern, static_cast<mp_bitcnt_t>(bit)) != 0) {
            digits[static_cast<std::size_t>(width - 1 - bit)] = '1';
        }
    }
    mpz_clear(pattern);
    return digits;
}

class ModuleWriter {
  public:
    ModuleWriter(const Design &design, const Model &top) : mTop(top), mContext(design.getContext()) {
        mTypes.bindEvents(design);
        mVariants.populate();
    }
    ~ModuleWriter() { mTypes.unbindEvents(); }
    ModuleWriter(const ModuleWriter &) = delete;
    ModuleWriter &operator=(const ModuleWriter &) = delete;

    VerilogModule write(const std::string &name) {
        writeModel(mTop, {}, nullptr);
        std::string ports = "input wire clk";
        for (const VerilogPort &port : mModule.inputs) {
            ports += ", input wire " + declared(port);
        }
        for (const VerilogPort &port : mModule.outputs) {
            ports += ", output wire " + declared(port);
        }
        mModule.text = "module " + name + "(" + ports + ");\n" + mDeclarations + mText.text() + "endmodule\n";
        return std::move(mModule);
    }

  private:
    using Signals = std::map<const Wire *, NetSignal>;

    static std::string declared(const VerilogPort &port) {
        return range({port.net, port.width, 0, port.isSigned}) + port.net;
    }
    /// The blocks of an instance, into the one module of all. `outside` is the model block as its model sees it.
    void writeModel(const Model &model, const RefChain &chain, const VerilogBlock *outside) {
        Signals signals;
        for (const Block &block : model) {
            for (const Wire &wire : block) {
                const bool isInput = block.type() == A_INPUT_BLOCK.get_ptr();
                if (isInput && outside != nullptr) {
                    signals.emplace(&wire, outside->need(wire.getName()));
                } else if (const PureValueRef type = mTypes.getType(wire, chain); type || wire.port_size() != 0) {
                    signals.emplace(&wire, declare(wire, type, isInput));
                }
            }
        }
        for (const Block &block : model) {
            writeBlock(block, chain, signals, outside);
        }
    }
    NetSignal declare(const Wire &wire, const PureValueRef &type, bool isInput) {
        const std::string wireName = wire.getName()->toString();
        NetSignal signal = signalOf(type, mContext, wireName);
        const std::vector<std::string> names = scalarNames(signal, wireName);
        for (std::size_t i = 0; i < signal.nets.size(); ++i) {
            Net &net = signal.nets[i];
            net.text = mText.freshName(isInput ? "i" : "w");
            if (isInput) {
                mModule.inputs.push_back({names[i], net.text, net.width, net.isSigned});
            } else {
                mDeclarations += "    wire " + range(net) + net.text + ";\n";
            }
        }
        return signal;
    }
    void writeBlock(const Block &block, const RefChain &chain, const Signals &signals, const VerilogBlock *outside) {
        VerilogBlock writer(block, signals, mText);
        if (block.type() == A_OUTPUT_BLOCK.get_ptr()) {
            writeOutputs(writer, outside);
        } else if (block.type() == A_MODEL_BLOCK.get_ptr()) {
            const Model *below = Node::from<Model>(block[A_MODEL_NODE]);
            if (below == nullptr) {
                writer.fail("it has no model");
            }
            RefChain longer = chain;
            longer.push_back(&block);
            writeModel(*below, longer, &writer);
        } else if (block.type() != A_INPUT_BLOCK.get_ptr()) {
            const Value *type = block.type();
            if (const auto plain = mVariants.lookup(block.getParam(A_BLOCK_TYPE)); plain && rows().count(type) == 0) {
                type = plain.get_ptr();
            }
            const auto row = rows().find(type);
            if (row == rows().end()) {
                writer.fail("its type cannot be written");
            }
            row->second->write(writer);
        }
    }
    /// To the ports of the module, or to the wires of the model block.
    void writeOutputs(const VerilogBlock &writer, const VerilogBlock *outside) {
        for (const Port &port : writer.block().ports()) {
            const NetSignal signal = writer.need(port.getName());
            const NetSignal beyond = outside != nullptr ? outside->out(port.getName()) : NetSignal();
            const std::vector<std::string> names = scalarNames(signal, port.getName()->toString());
            for (std::size_t i = 0; i < signal.nets.size(); ++i) {
                const Net &net = signal.nets[i];
                if (outside == nullptr) {
                    mModule.outputs.push_back({names[i], mText.freshName("o"), net.width, net.isSigned});
                    mText.add("assign " + mModule.outputs.back().net + " = " + net.text + ";");
                } else if (beyond.known()) {
                    mText.assign(beyond.nets.at(i), net.text);
                }
            }
        }
    }

    const Model &mTop;
    Context *mContext;
    GlobalTypePass mTypes;
    NONSBlockMap mVariants;
    VerilogText mText;
    std::string mDeclarations;
    VerilogModule mModule;
};

} // namespace

std::string range(const Net &net) { return fmt::format("{}[{}:0] ", net.isSigned ? "signed " : "", net.width - 1); }

int commonFraction(const std::vector<Net> &nets) {
    int fraction = nets.at(0).fraction;
    for (const Net &net : nets) {
        fraction = std::max(fraction, net.fraction);
    }
    return fraction;
}

Net literal(std::int64_t value, int width, int fraction) {
    mpz_t integer;
    mpz_init_set_si(integer, value);
    Net made{fmt::format("{}'sb{}", width, binary(integer, width)), width, fraction, true};
    mpz_clear(integer);
    return made;
}

Net literal(const NumberValueRef &number, const Net &type) {
    if (!number || number->isSpecial()) {
        throw VerilogError("what should be a fixed-point number is none");
    }
    mpz_t value;
    mpz_t bound;
    mpz_init(value);
    mpz_init(bound);
    number->toScaledMPZ(value, type.fraction);
    const auto places = static_cast<mp_bitcnt_t>(type.isSigned ? type.width - 1 : type.width);
    mpz_setbit(bound, places);
    if (mpz_cmp(value, bound) >= 0) {
        mpz_sub_ui(value, bound, 1);
    }
    mpz_neg(bound, bound);
    if (!type.isSigned) {
        mpz_set_ui(bound, 0);
    }
    if (mpz_cmp(value, bound) < 0) {
        mpz_set(value, bound);
    }
    Net made{fmt::format("{}'{}b{}", type.width, type.isSigned ? "s" : "", binary(value, type.width)), type.width,
             type.fraction, type.isSigned};
    mpz_clear(value);
    mpz_clear(bound);
    return made;
}

std::string truth(const Net &control) { return "(|" + control.text + ")"; }

std::string unknownBits(int width) {
    return fmt::format("{}'sb{}", width, std::string(static_cast<std::size_t>(width), 'x'));
}

Net VerilogText::define(const Net &shape, const std::string &expression) {
    Net made = shape;
    made.text = freshName("t");
    add("wire " + range(made) + made.text + " = " + expression + ";");
    return made;
}

Net VerilogText::exact(const Net &net) {
    return net.isSigned ? net : Net{"$signed({1'b0, " + net.text + "})", net.width + 1, net.fraction, true};
}

Net VerilogText::aligned(const Net &net, int fraction) {
    const Net value = exact(net);
    const int places = fraction - net.fraction;
    return places == 0
               ? value
               : define({"", value.width + places, fraction, true}, fmt::format("{} <<< {}", value.text, places));
}

std::vector<Net> VerilogText::aligned(const std::vector<Net> &nets, int fraction) {
    std::vector<Net> made;
    for (const Net &net : nets) {
        made.push_back(aligned(net, fraction));
    }
    return made;
}

void VerilogText::drive(const Net &out, const Net &value) {
    const Net from = exact(value);
    const int drop = from.fraction - out.fraction;
    assign(out, drop == 0 ? from.text : fmt::format("{} {} {}", from.text, drop > 0 ? ">>>" : "<<<", std::abs(drop)));
}

std::int64_t VerilogBlock::integer(const StaticString &key, std::int64_t fallback) const {
    const NumberValueRef number = numberVR(param(key));
    return number ? number->toInt64(0) : fallback;
}

NumberValueRef VerilogBlock::number(const StaticString &key, int scalar) const {
    const ValueRef value = param(key);
    const TupleValueRef tuple = tupleVR(value);
    if (!tuple) {
        return numberVR(value);
    }
    const bool isRolled =
        tuple->size() != 0 && (tuple->at(0) == A_VECTOR_ROLL_TAG || tuple->at(0) == A_COMPLEX_ROLL_TAG);
    return numberVR(tuple->maybeAt(static_cast<std::size_t>(scalar) + (isRolled ? 1 : 0)));
}

std::int64_t VerilogBlock::integerAt(const StaticString &key, int scalar, std::int64_t fallback) const {
    const NumberValueRef found = number(key, scalar);
    return found ? found->toInt64(0) : fallback;
}

NetSignal VerilogBlock::in(const PureValueRef &key) const {
    const Port *port = mBlock.getPort(key);
    const auto at = port == nullptr ? mSignals.end() : mSignals.find(port->peekWire());
    return at == mSignals.end() ? NetSignal() : at->second;
}

NetSignal VerilogBlock::in(int number) const { return in(PureValueRef(NumberValue::get(number, mBlock.getContext()))); }

NetSignal VerilogBlock::need(const PureValueRef &key) const {
    NetSignal signal = in(key);
    if (!signal.known()) {
        fail("'" + key->toString() + "' is not connected");
    }
    return signal;
}

NetSignal VerilogBlock::need(int number) const {
    return need(PureValueRef(NumberValue::get(number, mBlock.getContext())));
}

std::vector<NetSignal> VerilogBlock::numbered() const {
    std::vector<NetSignal> signals;
    for (NetSignal signal = need(0); signal.known(); signal = in(static_cast<int>(signals.size()))) {
        signals.push_back(std::move(signal));
    }
    return signals;
}

NetSignal VerilogBlock::out(const PureValueRef &key) const {
    const Wire *wire = mBlock.getWire(key);
    const auto at = wire == nullptr ? mSignals.end() : mSignals.find(wire);
    return at == mSignals.end() ? NetSignal() : at->second;
}

NetSignal VerilogBlock::out(int number) const {
    return out(PureValueRef(NumberValue::get(number, mBlock.getContext())));
}

void VerilogBlock::fail(const std::string &reason) const {
    throw VerilogError("block '" + mBlock.getName()->toString() + "': " + reason);
}

VerilogModule verilogModule(const Design &design, const Model &top, const std::string &name) {
    return ModuleWriter(design, top).write(name);
}

bool hasVerilog(const Value *blockType) {
    return blockType == A_INPUT_BLOCK.get_ptr() || blockType == A_OUTPUT_BLOCK.get_ptr() ||
           rows().count(blockType) != 0;
}

} // namespace orvo::test
