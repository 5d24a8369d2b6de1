// Type rules of the blocks that give a design its structure: the edges of models, packs and unpacks, and the markers
// through which signals pass unchanged. Many carry any type, so they work on the tuples and not on numbers.
#include "orvo/typerules.h"
#include "orvo/vectorsplit.h"

#include <algorithm>
#include <cstdint>
#include <unordered_set>
#include <vector>

namespace orvo::internal {

namespace {

/// The outermost dimension of a vector type; length 0 for any other type.
struct OuterVector {
    int length = 0;
    PureValueRef inner;
};

OuterVector peelOutermost(const PureValueRef &type) {
    const PureTupleValueRef tuple = pureTupleVR(type);
    if (!tuple || tuple->size() != 3 || !(tuple->at(0) == A_TYPE_VECTOR)) {
        return {};
    }
    const NumberValueRef length = numberVR(tuple->at(1));
    return length && length->isInt() && length->toInt() > 0 ? OuterVector{length->toInt(), tuple->at(2)}
                                                            : OuterVector{};
}

PureValueRef wrapVector(std::int64_t length, const PureValueRef &inner, Context *context) {
    if (!inner || length < 1 || length > INT32_MAX) {
        return {};
    }
    return PureTupleValue::get(A_TYPE_VECTOR, NumberValue::get(static_cast<int>(length), context), inner, context);
}

template <class Visit> void forNumberedWires(const Block &block, Visit visit) {
    for (const Wire &wire : block) {
        if (wire.getName()->kind() == CoreType::Number) {
            visit(static_cast<const NumberValue *>(wire.getName().get_ptr())->toInt(), wire);
        }
    }
}

int countNumberedPorts(const Block &block) {
    int count = 0;
    forNumberedPorts(block, [&count](int, const Port &) { ++count; });
    return count;
}

/// Never infers: the model behind the block does.
class ModelTypeHandler final : public TypeInferHandler2 {
  public:
    bool enoughPortsHaveTypes(TypeInferAPI2 &api) const override {
        return askForChild(api, !api.iterateNewlySetPorts().empty());
    }
    bool enoughWiresHaveTypes(TypeInferAPI2 &api) const override {
        return askForChild(api, !api.iterateNewlySetWires().empty());
    }

  private:
    static bool askForChild(TypeInferAPI2 &api, bool anyNews) {
        if (anyNews) {
            api.setFlag(TYPE_FLAG_UPDATE_CHILD);
        }
        return false;
    }
};

/// Carries types across the edge of a model: a port here is the like-named wire of the block that instantiates it.
class InOutTypeHandler final : public NewlySetTypeHandler {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        for (const Port &port : api.iterateNewlySetPorts()) {
            if (const PureValueRef type = api.getPortType(port.getName())) {
                api.setParentWireType(port.getName(), type);
                api.setFlag(TYPE_FLAG_UPDATE_PARENT);
            }
        }
    }
    void inferBackward(TypeInferAPI2 &api) const override {
        for (const Wire &wire : api.iterateNewlySetWires()) {
            if (const PureValueRef type = api.getWireType(wire.getName())) {
                api.setParentPortType(wire.getName(), type);
                api.setFlag(TYPE_FLAG_UPDATE_PARENT);
            }
        }
    }
};

/// The two ends are of one type, whichever is known.
void exchange(TypeInferAPI &api, const Port *port, const Wire *wire) {
    if (const PureValueRef type = api.getConnectedType(port)) {
        api.setType(wire, type);
    } else {
        api.setType(port, api.getConnectedType(wire));
    }
}

class SignalTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        for (const Port &port : api.getBlock().ports()) {
            exchange(api, &port, api.getWire(port.getName()));
        }
    }
};

class TerminalTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        if (api.getBlock().port_size() != 1) {
            return;
        }
        const Port &port = *api.getBlock().port_begin();
        // Whichever end knows the type tells all others, the wires that came before it, too.
        PureValueRef type = api.getConnectedType(port);
        for (const Wire &wire : api.getBlock()) {
            type = type ? type : api.getConnectedType(wire);
        }
        api.setType(port, type);
        for (const Wire &wire : api.getBlock()) {
            api.setType(wire, type);
        }
    }
};

class FoldingKernelBoundaryBlockTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        exchange(api, api.getPort(numberKey(api, 0)), api.getWire(A_PRIM_WIRE_OUT));
    }
};

class ChannelTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        for (const StaticString *port : {&A_PORT_VALID, &A_PORT_PACKET_BEGIN}) {
            setPort(api, *port, NumTypeSpec::boolean());
        }
        for (const StaticString *wire : {&A_WIRE_VALID, &A_WIRE_PACKET_BEGIN}) {
            setWire(api, *wire, NumTypeSpec::boolean());
        }
    }
    void inferForward(TypeInferAPI2 &api) const override {
        if (hasPort(api, A_PORT_CHANNEL)) {
            api.setWireType(A_WIRE_CHANNEL, api.getPortType(A_PORT_CHANNEL));
        } else {
            setWire(api, A_WIRE_CHANNEL, NumTypeSpec::ufixed(8, 0));
        }
        for (const Port &port : api.getBlock().ports()) {
            const PureValueRef &name = port.getName();
            if (name->kind() != CoreType::String) {
                api.setWireType(name, api.getPortType(name));
            }
        }
    }
};

/// Holds a type in a loop, so that inference settles.
class TypePinTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const Block &block = api.getBlock();
        PureValueRef type = PureValueRef(api.getParam(A_TYPE_PIN_TYPE));
        const TupleValueRef ofPorts = tupleVR(api.getParam(A_TYPE_PIN_PORT_TYPES));
        if (!type && block.port_size() != 0) {
            const Port &first = *block.port_begin();
            type = api.getConnectedType(first);
            // What it is given below wakes nobody.
            type = type ? type : typeOfNumber(ofPorts, first.getName());
        }
        Context *context = contextOf(api);
        type = checked(type, context);
        for (const Port &port : block.ports()) {
            const PureValueRef own = typeOfNumber(ofPorts, port.getName());
            api.setType(port, own ? checked(own, context) : type);
        }
        for (const Wire &wire : block) {
            const PureValueRef own = typeOfNumber(ofPorts, wire.getName());
            api.setType(wire, own && block.getPort(wire.getName()) != nullptr ? checked(own, context) : type);
        }
    }

  private:
    /// Null for what is no type: any other value, such as a vector without lanes, would pass for a known type up to the
    /// first block that computes with it.
    static PureValueRef checked(const PureValueRef &type, Context *context) {
        return isType(type, context) ? type : PureValueRef();
    }
    /// A number, or a record of such, and vectors of them. A record may hold another in several places.
    static bool isType(const PureValueRef &type, Context *context) {
        if (NumTypeSpec(type, context).valid()) {
            return true;
        }
        std::unordered_set<const Value *> seen;
        std::vector<PureValueRef> open{type};
        while (!open.empty()) {
            const PureValueRef part = std::move(open.back());
            open.pop_back();
            if (!seen.insert(part.get_ptr()).second || NumTypeSpec(part, context).valid()) {
                continue;
            }
            PureValueRef inner;
            if (!VectorDecorSpec(part, inner, context).valid()) {
                return false;
            }
            const AggregateTypeSpec record(inner);
            if (!record.isAggregate()) {
                return false;
            }
            for (std::size_t i = 0; i < record.size(); ++i) {
                open.push_back(record.at(i));
            }
        }
        return true;
    }
    static PureValueRef typeOfNumber(const TupleValueRef &types, const PureValueRef &name) {
        const NumberValueRef number = numberVR(name);
        if (!types || !number || !number->isInt() || number->toInt() < 0) {
            return {};
        }
        return PureValueRef(types->maybeAt(static_cast<std::size_t>(number->toInt())));
    }
};

class VecPackTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        PureValueRef element;
        forNumberedPorts(api.getBlock(), [&](int, const Port &port) { element = api.getPortType(port.getName()); });
        api.setWireType(A_VPACK_WIRE_OUT, wrapVector(countNumberedPorts(api.getBlock()), element, contextOf(api)));
    }
    void inferBackward(TypeInferAPI2 &api) const override {
        const OuterVector vector = peelOutermost(api.getWireType(A_VPACK_WIRE_OUT));
        forNumberedPorts(api.getBlock(), [&](int, const Port &port) { api.setPortType(port.getName(), vector.inner); });
    }
};

class VecUnpackTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const Port *port = api.getPort(A_VUNPACK_PORT_IN);
        if (const PureValueRef type = api.getConnectedType(port)) {
            const OuterVector vector = peelOutermost(type);
            forNumberedWires(api.getBlock(), [&](int number, const Wire &wire) {
                if (number >= 0 && number < vector.length) {
                    api.setType(wire, vector.inner);
                }
            });
            return;
        }
        PureValueRef element;
        int next = 0;
        bool allKnown = true;
        forNumberedWires(api.getBlock(), [&](int number, const Wire &wire) {
            element = api.getConnectedType(wire);
            // Where elements are left out, nobody tells how many there are.
            allKnown = allKnown && element && number == next++;
        });
        if (allKnown) {
            api.setType(port, wrapVector(next, element, contextOf(api)));
        }
    }
};

class VecConcatTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        std::int64_t length = 0;
        PureValueRef element;
        bool allKnown = true;
        forNumberedPorts(api.getBlock(), [&](int, const Port &port) {
            const PureValueRef type = api.getConnectedType(port);
            const OuterVector vector = peelOutermost(type);
            length += std::max(vector.length, 1);
            const PureValueRef part = vector.length > 0 ? vector.inner : type;
            element = element ? unite(element, part, contextOf(api)) : part;
            allKnown = allKnown && part && element;
        });
        if (allKnown) {
            api.setType(api.getWire(A_PRIM_WIRE_OUT), wrapVector(length, element, contextOf(api)));
        }
    }

  private:
    /// Equal types of any kind, or numbers that one type holds; null otherwise.
    static PureValueRef unite(const PureValueRef &a, const PureValueRef &b, Context *context) {
        if (a == b) {
            return a;
        }
        return NumTypeSpec::typeOp(NumTypeSpec(a, context), NumTypeSpec(b, context), TYPE_OP_UNION).toValue(context);
    }
};

class VecSplitTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const OuterVector vector = peelOutermost(api.getConnectedType(api.getPort(numberKey(api, 0))));
        if (vector.length == 0) {
            return;
        }
        const VectorSplit split(api.getBlock(), vector.length);
        for (const Wire &wire : api.getBlock()) {
            if (const std::optional<SplitPart> part = split.partOf(wire)) {
                api.setType(wire,
                            part->length == 1 ? vector.inner : wrapVector(part->length, vector.inner, contextOf(api)));
            }
        }
    }
};

class VecSelectorTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        const TupleValueRef levels = tupleVR(api.getParam(A_VSELECTOR_INDICIES));
        PureValueRef type = api.getPortType(A_VSELECTOR_PORT_IN);
        if (!levels) {
            return;
        }
        std::vector<std::size_t> lengths;
        for (const ValueRef &level : *levels) {
            const TupleValueRef indices = tupleVR(level);
            const OuterVector vector = peelOutermost(type);
            if (!indices || indices->size() == 0 || !areWithin(*indices, vector.length)) {
                return;
            }
            lengths.push_back(indices->size());
            type = vector.inner;
        }
        for (auto length = lengths.rbegin(); length != lengths.rend(); ++length) {
            type = *length == 1 ? type : wrapVector(static_cast<std::int64_t>(*length), type, contextOf(api));
        }
        api.setWireType(A_PRIM_WIRE_OUT, type);
    }

  private:
    static bool areWithin(const TupleValue &indices, int length) {
        return std::all_of(indices.begin(), indices.end(), [length](const ValueRef &index) {
            const NumberValueRef number = numberVR(index);
            return number && number->isInt() && number->toInt() >= 0 && number->toInt() < length;
        });
    }
};

/// The complex type of two real parts; invalid unless both are real.
NumTypeSpec joinParts(const NumTypeSpec &re, const NumTypeSpec &im) {
    NumTypeSpec type = NumTypeSpec::typeOp(re, im, TYPE_OP_UNION);
    type.requireReal();
    type.setComplex(true);
    return type;
}

NumTypeSpec partOf(NumTypeSpec type) {
    type.requireComplex();
    type.setComplex(false);
    return type;
}

class ComplexPackTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const NumTypeSpec type = joinParts(portSpec(api, A_CPACK_PORT_REAL), portSpec(api, A_CPACK_PORT_IMAG));
        if (type.valid()) {
            setWire(api, A_CPACK_WIRE_OUT, type);
            return;
        }
        const NumTypeSpec part =
            partOf(NumTypeSpec(api.getConnectedType(api.getWire(A_CPACK_WIRE_OUT)), contextOf(api)));
        for (const StaticString *name : {&A_CPACK_PORT_REAL, &A_CPACK_PORT_IMAG}) {
            if (const Port *port = api.getPort(*name); port != nullptr && !api.getConnectedType(port)) {
                setPort(api, *name, part);
            }
        }
    }
};

class ComplexUnpackTypeHandler final : public TypeInferHandler {
  public:
    void inferTypes(TypeInferAPI &api) const override {
        const Port *port = api.getPort(A_CUNPACK_PORT_IN);
        if (const PureValueRef whole = api.getConnectedType(port)) {
            const NumTypeSpec part = partOf(NumTypeSpec(whole, contextOf(api)));
            setWire(api, A_CUNPACK_WIRE_REAL, part);
            setWire(api, A_CUNPACK_WIRE_IMAG, part);
            return;
        }
        const Wire *re = api.getWire(A_CUNPACK_WIRE_REAL);
        const Wire *im = api.getWire(A_CUNPACK_WIRE_IMAG);
        if (re == nullptr && im == nullptr) {
            return;
        }
        // One part alone speaks for both.
        const NumTypeSpec a(api.getConnectedType(re != nullptr ? re : im), contextOf(api));
        const NumTypeSpec b(api.getConnectedType(im != nullptr ? im : re), contextOf(api));
        api.setType(port, joinParts(a, b).toValue(contextOf(api)));
    }
};

class AggPackTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        AggregateTypeSpec record;
        record.beginAggregate();
        forNumberedPorts(api.getBlock(),
                         [&](int, const Port &port) { record.addType(api.getPortType(port.getName())); });
        record.endAggregate();
        api.setWireType(A_APACK_WIRE_OUT, record.toValue(contextOf(api)));
    }
    void inferBackward(TypeInferAPI2 &api) const override {
        const AggregateTypeSpec record(api.getWireType(A_APACK_WIRE_OUT));
        std::size_t field = 0;
        forNumberedPorts(api.getBlock(), [&](int, const Port &port) {
            if (field < record.size()) {
                api.setPortType(port.getName(), record.at(field++));
            }
        });
    }
};

class AggUnpackTypeHandler final : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        const AggregateTypeSpec record(api.getPortType(A_AUNPACK_PORT_IN));
        forNumberedWires(api.getBlock(), [&](int number, const Wire &wire) {
            if (number >= 0 && static_cast<std::size_t>(number) < record.size()) {
                api.setWireType(wire.getName(), record.at(static_cast<std::size_t>(number)));
            }
        });
    }
    void inferBackward(TypeInferAPI2 &api) const override {
        AggregateTypeSpec record;
        record.beginAggregate();
        int next = 0;
        forNumberedWires(api.getBlock(), [&](int number, const Wire &wire) {
            // A field that nobody unpacks leaves the record unknown.
            record.addType(number == next++ ? api.getWireType(wire.getName()) : PureValueRef());
        });
        record.endAggregate();
        api.setPortType(A_AUNPACK_PORT_IN, record.toValue(contextOf(api)));
    }
};

constexpr const char *kByName = "each output has the like-named input's type, both ways";

const TypeRuleRow kRules[] = {
    ORVO_TYPE_RULE(A_MODEL_BLOCK, ModelTypeHandler, "the types at the edges of the model, both ways"),
    ORVO_TYPE_RULE(A_INPUT_BLOCK, InOutTypeHandler, "the types at the block that instantiates the model, both ways"),
    ORVO_TYPE_RULE(A_OUTPUT_BLOCK, InOutTypeHandler, "the types at the block that instantiates the model, both ways"),
    ORVO_TYPE_RULE(A_SIGNAL_IN_BLOCK, SignalTypeHandler, kByName),
    ORVO_TYPE_RULE(A_SIGNAL_OUT_BLOCK, SignalTypeHandler, kByName),
    ORVO_TYPE_RULE(A_TERMINAL_BLOCK, TerminalTypeHandler, "the input's type on every output, both ways"),
    ORVO_TYPE_RULE(A_FOLDING_KERNEL_BOUNDARY_BLOCK, FoldingKernelBoundaryBlockTypeHandler,
                   "the input's type, both ways"),
    ORVO_TYPE_RULE(A_CHANNEL_IN_BLOCK, ChannelTypeHandler, "data by name; valid is a boolean, the channel has 8 bits"),
    ORVO_TYPE_RULE(A_CHANNEL_OUT_BLOCK, ChannelTypeHandler, "data by name; valid is a boolean, the channel has 8 bits"),
    ORVO_TYPE_RULE(A_TYPE_PIN_BLOCK, TypePinTypeHandler, "the pinned type on all ports and wires"),
    ORVO_TYPE_RULE(A_VPACK_BLOCK, VecPackTypeHandler, "a vector of the inputs, outermost, both ways"),
    ORVO_TYPE_RULE(A_VUNPACK_BLOCK, VecUnpackTypeHandler, "the element of the outermost dimension, both ways"),
    ORVO_TYPE_RULE(A_VCONCAT_BLOCK, VecConcatTypeHandler, "the outermost lengths add, the elements are united"),
    ORVO_TYPE_RULE(A_VSPLIT_BLOCK, VecSplitTypeHandler, "parts of the outermost dimension by the layout"),
    ORVO_TYPE_RULE(A_VSELECTOR_BLOCK, VecSelectorTypeHandler, "as many elements a level as indices are given"),
    ORVO_TYPE_RULE(A_CPACK_BLOCK, ComplexPackTypeHandler, "complex, holds both parts, both ways"),
    ORVO_TYPE_RULE(A_CUNPACK_BLOCK, ComplexUnpackTypeHandler, "the part's type, both ways"),
    ORVO_TYPE_RULE(A_APACK_BLOCK, AggPackTypeHandler, "a record of the inputs, both ways"),
    ORVO_TYPE_RULE(A_AUNPACK_BLOCK, AggUnpackTypeHandler, "the record's fields, both ways"),
};

} // namespace

std::span<const TypeRuleRow> commonTypeRules() { return kRules; }

} // namespace orvo::internal
