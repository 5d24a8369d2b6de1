// What the type rules of all block families share: reading ends as types, accumulating inputs, conditions, and the rows
// by which a family registers its rules.
#pragma once

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinfer.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <algorithm>
#include <limits>
#include <span>

namespace orvo::internal {

/// A row of a family's table of type rules.
struct TypeRuleRow {
    const StaticString *blockType;
    void (*registerIn)(BlockClass &blockClass);
    /// One line for users.
    const char *summary;
};

/// Registers a rule's one object, which keeps no state, under the interface that it implements.
template <class Handler> void registerTypeRule(BlockClass &blockClass) {
    static const Handler handler;
    if constexpr (std::is_base_of_v<TypeInferHandler2, Handler>) {
        blockClass.registerHandler<TypeInferHandler2>(&handler, false);
    } else {
        blockClass.registerHandler<TypeInferHandler>(&handler, false);
    }
}

#define ORVO_TYPE_RULE(BLOCK, HANDLER, SUMMARY)                                                                        \
    { &(BLOCK), &registerTypeRule<HANDLER>, SUMMARY }

void registerTypeRules(Context *context, std::span<const TypeRuleRow> rows);

/// The tables of the families.
std::span<const TypeRuleRow> primTypeRules();
std::span<const TypeRuleRow> mathTypeRules();
std::span<const TypeRuleRow> memoryTypeRules();
std::span<const TypeRuleRow> commonTypeRules();
std::span<const TypeRuleRow> miscTypeRules();
std::span<const TypeRuleRow> ipTypeRules();

template <class Api> Context *contextOf(const Api &api) { return api.getBlock().getContext(); }
template <class Api> PureValueRef numberKey(const Api &api, int number) {
    return NumberValue::get(number, contextOf(api));
}
template <class Api> bool isParamTrue(const Api &api, const StaticString &key) {
    return api.getBlock().findParam(key) == A_TRUE.get_ptr();
}
/// Whether control inputs of the block take any real fixed-point type.
template <class Api> bool relaxesBools(const Api &api) { return isParamTrue(api, A_PRIM_RELAX_BOOLS); }
template <class Api> NumTypeSpec paramType(const Api &api, const StaticString &key) {
    return NumTypeSpec(api.getParam(key), contextOf(api));
}
/// The number in a parameter without its fraction, `fallback` where there is none. What an `int` does not hold becomes
/// the nearest that it does, and what is no number the least, so that the rules' own bounds see it.
template <class Api> int paramInt(const Api &api, const StaticString &key, int fallback) {
    const NumberValueRef number = numberVR(api.getParam(key));
    if (!number) {
        return fallback;
    }
    constexpr double kLeast = std::numeric_limits<int>::min();
    constexpr double kMost = std::numeric_limits<int>::max();
    const double value = number->toDouble();
    return value >= kLeast ? static_cast<int>(std::min(value, kMost)) : std::numeric_limits<int>::min();
}

/// Ends of the block as types. What is connected is taken over by the end itself when it is read, so that each end
/// carries its own copy. Absent ends read as unknown, and setting them does nothing.
inline NumTypeSpec portSpec(TypeInferAPI &api, const PureValueRef &name) {
    return NumTypeSpec(api.getConnectedType(api.getPort(name)), contextOf(api));
}
inline NumTypeSpec portSpec(TypeInferAPI2 &api, const PureValueRef &name) {
    return NumTypeSpec(api.getPortType(name), contextOf(api));
}
inline NumTypeSpec wireSpec(TypeInferAPI2 &api, const PureValueRef &name) {
    return NumTypeSpec(api.getWireType(name), contextOf(api));
}
inline void setPort(TypeInferAPI &api, const PureValueRef &name, const NumTypeSpec &type) {
    api.setType(api.getPort(name), type.toValue(contextOf(api)));
}
inline void setPort(TypeInferAPI2 &api, const PureValueRef &name, const NumTypeSpec &type) {
    api.setPortType(name, type.toValue(contextOf(api)));
}
inline void setWire(TypeInferAPI &api, const PureValueRef &name, const NumTypeSpec &type) {
    api.setType(api.getWire(name), type.toValue(contextOf(api)));
}
inline void setWire(TypeInferAPI2 &api, const PureValueRef &name, const NumTypeSpec &type) {
    api.setWireType(name, type.toValue(contextOf(api)));
}
template <class Api> bool hasPort(const Api &api, const PureValueRef &name) {
    return api.getBlock().getPort(name) != nullptr;
}

/// A condition's type. With `relaxed` any real fixed-point type will do.
template <class Api> NumTypeSpec boolPort(Api &api, const PureValueRef &name, bool relaxed) {
    NumTypeSpec type = portSpec(api, name);
    type.requireBool(relaxed);
    return type;
}
/// A selecting or addressing input: real and fixed point.
template <class Api> NumTypeSpec realFixedPort(Api &api, const PureValueRef &name) {
    NumTypeSpec type = portSpec(api, name);
    type.requireReal();
    type.requireFixed();
    return type;
}
/// The boolean on the decorations of another type; invalid if that is.
inline NumTypeSpec booleanLike(NumTypeSpec type) {
    if (type.valid()) {
        type.setToFixed(false, 1, 0);
    }
    return type;
}

/// Replaces a computed type by a parameter's: the parameter tells the scalar, the data the decorations. An invalid
/// parameter changes nothing.
void overrideType(NumTypeSpec &computed, NumTypeSpec type);

/// Of a constant: the type that it is given, on the vectors and parts of its value, else the least that holds the
/// value. Invalid if neither tells.
NumTypeSpec typeOfConstant(const Block &block);

enum AccumMode {
    ACCUM_UNION = 0,
    ACCUM_UNION_FLOAT = 1,
    ACCUM_COMMON = 2,
    ACCUM_ADD = 3,
    ACCUM_ADD_SIGNED = 4,
    ACCUM_MUL = 5,
    ACCUM_BITJOIN = 6,
};

/// Base of rules over numbered inputs.
class AbstractPrimTypeHandler : public TypeInferHandler {
  protected:
    /// The numbered inputs taken together, in order of their numbers; invalid if one is. `maxPort` gets the largest
    /// number, -1 if there is none.
    static NumTypeSpec accumInputs(TypeInferAPI &api, AccumMode mode, int *maxPort = nullptr);
};

/// Calls `visit(number, port)` for each numbered port, in order.
template <class Visit> void forNumberedPorts(const Block &block, Visit visit) {
    for (const Port &port : block.ports()) {
        if (port.getName()->kind() == CoreType::Number) {
            visit(static_cast<const NumberValue *>(port.getName().get_ptr())->toInt(), port);
        }
    }
}

/// Base of rules that run whenever something new has arrived, not only when all has.
class NewlySetTypeHandler : public TypeInferHandler2 {
  public:
    bool enoughPortsHaveTypes(TypeInferAPI2 &api) const override { return !api.iterateNewlySetPorts().empty(); }
    bool enoughWiresHaveTypes(TypeInferAPI2 &api) const override { return !api.iterateNewlySetWires().empty(); }
};

} // namespace orvo::internal
