// Type rules of the blocks at the borders of what orvo handles itself: regions that nobody schedules, interfaces to the
// outside, models that come scheduled, stall regions, enables.
#include "orvo/pairsin.h"
#include "orvo/pipeinput.h"
#include "orvo/typerules.h"

#include <orvo/scheduledmodelhandle.h>

namespace orvo::internal {

namespace {

/// Each connected port's type on the like-named wire.
void passByName(TypeInferAPI2 &api) {
    for (const Port &port : api.getBlock().ports()) {
        api.setWireType(port.getName(), api.getPortType(port.getName()));
    }
}

/// Runs as inputs arrive, each for itself.
class ByNameTypeHandler : public NewlySetTypeHandler {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        for (const Port &port : api.iterateNewlySetPorts()) {
            api.setWireType(port.getName(), api.getPortType(port.getName()));
        }
    }
};

class UnschedTypeHandler final : public ByNameTypeHandler {};
class BoundaryTypeHandler final : public ByNameTypeHandler {};

class IfaceTypeHandler final : public ByNameTypeHandler {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        forNamesIn(api.getParam(A_EXT_IFACE_BOOLEAN_DECL_PORTS),
                   [&](const PureValueRef &name) { setPort(api, name, NumTypeSpec::boolean()); });
        forNamesIn(api.getParam(A_EXT_IFACE_BOOLEAN_DECL_WIRES),
                   [&](const PureValueRef &name) { setWire(api, name, NumTypeSpec::boolean()); });
    }
    void inferForward(TypeInferAPI2 &api) const override {
        for (const Port &port : api.iterateNewlySetPorts()) {
            // A wire declared boolean keeps that whatever comes in.
            if (!api.getWireType(port.getName())) {
                api.setWireType(port.getName(), api.getPortType(port.getName()));
            }
        }
    }
};

class LatencyPlaceholderTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        forPairsIn(api.getParam(A_LATENCY_PLACEHOLDER_TYPEMAP),
                   [&](const PureValueRef &name, const PureValueRef &type) {
                       api.setPortType(name, type);
                       api.setWireType(name, type);
                   });
    }
};

/// The boundary of a model that was scheduled elsewhere: as its ports are or, while the block stands for the model of
/// before its signals were taken apart, as they were.
class ScheduledModelTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        const ScheduledModelHandle handle =
            ScheduledModelHandle::fromValue(PureValueRef(api.getParam(A_SCHEDULED_MODEL_VALUE)));
        if (!handle.valid()) {
            return;
        }
        const bool isWhole = isParamTrue(api, A_SCHEDULED_MODEL_ORIGINAL_TYPES);
        const ScheduledModelTypes *original = isWhole ? handle.getOriginalModelTypes() : nullptr;
        const ScheduledModelTypes &types = original != nullptr ? *original : handle.getScheduledModelTypes();
        for (NameEnumerator ports = api.getPortNames(); ports.next();) {
            api.setPortType(ports.get(), types.getInputPortType(ports.get()));
        }
        for (NameEnumerator wires = api.getWireNames(); wires.next();) {
            api.setWireType(wires.get(), types.getOutputPortType(wires.get()));
        }
    }
};

/// Types come from the front end that made the block.
class UnsupportedTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        Context *context = contextOf(api);
        for (NameEnumerator ports = api.getPortNames(); ports.next();) {
            const PureValueRef key = PureTupleValue::get(A_UNSUPPORTED_PORTKEY, ports.get(), context);
            api.setPortType(ports.get(), PureValueRef(api.getParam(key)));
        }
        for (NameEnumerator wires = api.getWireNames(); wires.next();) {
            const PureValueRef key = PureTupleValue::get(A_UNSUPPORTED_WIREKEY, wires.get(), context);
            api.setWireType(wires.get(), PureValueRef(api.getParam(key)));
        }
    }
};

void setBooleanPorts(TypeInferAPI2 &api, std::initializer_list<const StaticString *> names) {
    for (const StaticString *name : names) {
        setPort(api, *name, NumTypeSpec::boolean());
    }
}

void setBooleanWires(TypeInferAPI2 &api, std::initializer_list<const StaticString *> names) {
    for (const StaticString *name : names) {
        setWire(api, *name, NumTypeSpec::boolean());
    }
}

struct NumberedPass {
    const StaticString &portKey;
    const StaticString &wireKey;
};

/// The type of each port (`portKey` i) on the wire (`wireKey` i). What that tells other ports of the block is told on:
/// a block may read itself.
void passByNumber(TypeInferAPI2 &api, std::initializer_list<NumberedPass> passes) {
    for (const Port &port : api.iterateNewlySetPorts()) {
        const PureTupleValueRef key = pureTupleVR(port.getName());
        if (!key || key->size() != 2) {
            continue;
        }
        for (const NumberedPass &pass : passes) {
            if (key->at(0) == pass.portKey) {
                api.setWireType(PureTupleValue::get(pass.wireKey, key->at(1), contextOf(api)),
                                api.getPortType(port.getName()));
            }
        }
    }
}

class StallEnterTypeHandler final : public NewlySetTypeHandler {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        setBooleanPorts(api, {&A_STALLENTER_PORT_STALL_FRONT, &A_STALLENTER_PORT_VALID_BACK,
                              &A_STALLENTER_PORT_EMPTY_BACK, &A_STALLENTER_PORT_ALMOST_EMPTY_BACK});
        setBooleanWires(api, {&A_STALLENTER_WIRE_STALL_BACK, &A_STALLENTER_WIRE_VALID_FRONT,
                              &A_STALLENTER_WIRE_EMPTY_FRONT, &A_STALLENTER_WIRE_ALMOST_EMPTY_FRONT});
    }
    void inferForward(TypeInferAPI2 &api) const override {
        passByNumber(api, {{A_STALLENTER_PORTKEY_DATA_BACK, A_STALLENTER_WIREKEY_DATA_FRONT}});
    }
};

class StallExitTypeHandler final : public NewlySetTypeHandler {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        setBooleanPorts(api, {&A_STALLEXIT_PORT_STALL_FRONT, &A_STALLEXIT_PORT_VALID_BACK, &A_STALLEXIT_PORT_EMPTY_BACK,
                              &A_STALLEXIT_PORT_ALMOST_EMPTY_BACK});
        setBooleanWires(api, {&A_STALLEXIT_WIRE_STALL_BACK, &A_STALLEXIT_WIRE_VALID_FRONT,
                              &A_STALLEXIT_WIRE_EMPTY_FRONT, &A_STALLEXIT_WIRE_ALMOST_EMPTY_FRONT});
    }
    void inferForward(TypeInferAPI2 &api) const override {
        passByNumber(api, {{A_STALLEXIT_PORTKEY_DATA_BACK, A_STALLEXIT_WIREKEY_DATA_FRONT}});
    }
};

class StallRegTypeHandler final : public NewlySetTypeHandler {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        setBooleanPorts(api, {&A_STALLREG_PORT_STALL_FRONT});
        setBooleanWires(api, {&A_STALLREG_WIRE_STALL_BACK});
    }
    void inferForward(TypeInferAPI2 &api) const override {
        passByNumber(api, {{A_STALLREG_PORTKEY_VALID_BACK, A_STALLREG_WIREKEY_VALID_FRONT},
                           {A_STALLREG_PORTKEY_DATA_BACK, A_STALLREG_WIREKEY_DATA_FRONT}});
    }
};

class StallEnableTypeHandler final : public NewlySetTypeHandler {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        setBooleanWires(api, {&A_STALLENABLE_WIRE_ENABLE, &A_STALLENABLE_WIRE_STALL_BACK});
    }
    void inferForward(TypeInferAPI2 &api) const override {
        passByNumber(api, {{A_STALLENABLE_PORTKEY_VALID_BACK, A_STALLENABLE_WIREKEY_VALID_FRONT}});
    }
};

/// All that the connector joins are conditions.
class StallValidConnectorTypeHandler final : public NewlySetTypeHandler {
  public:
    void inferStatic(TypeInferAPI2 &api) const override {
        for (NameEnumerator ports = api.getPortNames(); ports.next();) {
            setPort(api, ports.get(), NumTypeSpec::boolean());
        }
        for (NameEnumerator wires = api.getWireNames(); wires.next();) {
            setWire(api, wires.get(), NumTypeSpec::boolean());
        }
    }
    void inferForward(TypeInferAPI2 &api) const override { passByName(api); }
};

class EnableTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override { setBooleanWires(api, {&A_PRIM_WIRE_OUT}); }
};

class ReadyTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override { setBooleanWires(api, {&A_PRIM_WIRE_OUT}); }
};

class ECCTypeHandler final : public TypeInferHandler2 {
  public:
    void inferStatic(TypeInferAPI2 &api) const override { setWire(api, A_PRIM_WIRE_OUT, NumTypeSpec::ufixed(2, 0)); }
};

/// A pipelined reset, and what goes with it: each signal goes through for itself.
class PipeTypeHandler final : public NewlySetTypeHandler {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        // A signal that comes back to the pipe sets the type of another port meanwhile, which the list then has, too.
        const Port *main = pipeInput(api.getBlock(), A_PRIM_WIRE_OUT);
        for (const Port &port : api.iterateNewlySetPorts()) {
            const PureValueRef type = api.getPortType(port.getName());
            api.setWireType(port.getName(), type);
            if (&port == main) {
                api.setWireType(A_PRIM_WIRE_OUT, type);
            }
        }
    }
};

/// Three operands united, and a flag.
class MFuncTypeHandler : public TypeInferHandler2 {
  public:
    void inferForward(TypeInferAPI2 &api) const override {
        NumTypeSpec type = operand(api, 0);
        type.applyOp(operand(api, 1), TYPE_OP_UNION);
        type.applyOp(operand(api, 2), TYPE_OP_UNION);
        setWire(api, A_PRIM_WIRE_OUT, type);
        setWire(api, A_PRIM_WIRE_AUX, booleanLike(type));
    }

  protected:
    virtual void require(NumTypeSpec &type) const = 0;

  private:
    NumTypeSpec operand(TypeInferAPI2 &api, int number) const {
        NumTypeSpec type = portSpec(api, numberKey(api, number));
        require(type);
        return type;
    }
};

class FixedMFuncTypeHandler final : public MFuncTypeHandler {
    void require(NumTypeSpec &type) const override { type.requireFixed(); }
};

class FloatMFuncTypeHandler final : public MFuncTypeHandler {
    void require(NumTypeSpec &type) const override { type.requireFloat(); }
};

const TypeRuleRow kRules[] = {
    ORVO_TYPE_RULE(A_UNSCHED_BLOCK, UnschedTypeHandler, "each output has the like-named input's type"),
    ORVO_TYPE_RULE(A_BOUNDARY_BLOCK, BoundaryTypeHandler, "each output has the like-named input's type"),
    ORVO_TYPE_RULE(A_HIDDEN_IFACE_BLOCK, IfaceTypeHandler, "booleans as declared, else the like-named input's type"),
    ORVO_TYPE_RULE(A_EXT_IFACE_BLOCK, IfaceTypeHandler, "booleans as declared, else the like-named input's type"),
    ORVO_TYPE_RULE(A_LATENCY_PLACEHOLDER_BLOCK, LatencyPlaceholderTypeHandler, "as the type map tells"),
    ORVO_TYPE_RULE(A_SCHEDULED_MODEL_BLOCK, ScheduledModelTypeHandler, "the boundary types of the scheduled model"),
    ORVO_TYPE_RULE(A_UNSUPPORTED_BLOCK, UnsupportedTypeHandler, "the types that the front end stored on the block"),
    ORVO_TYPE_RULE(A_STALLREG_BLOCK, StallRegTypeHandler, "data by number; valid and stall are booleans"),
    ORVO_TYPE_RULE(A_STALLENABLE_BLOCK, StallEnableTypeHandler, "valid by number; enable and stall are booleans"),
    ORVO_TYPE_RULE(A_STALLENTER_BLOCK, StallEnterTypeHandler, "data by number; valid and stall are booleans"),
    ORVO_TYPE_RULE(A_STALLEXIT_BLOCK, StallExitTypeHandler, "data by number; valid and stall are booleans"),
    ORVO_TYPE_RULE(A_STALLVALID_CONNECTOR_BLOCK, StallValidConnectorTypeHandler, "booleans"),
    ORVO_TYPE_RULE(A_ENABLE_SINK_BLOCK, EnableTypeHandler, "a boolean"),
    ORVO_TYPE_RULE(A_ENABLE_SRC_BLOCK, EnableTypeHandler, "a boolean"),
    ORVO_TYPE_RULE(A_READY_BLOCK, ReadyTypeHandler, "a boolean"),
    ORVO_TYPE_RULE(A_ECC_SRC_BLOCK, ECCTypeHandler, "two unsigned bits"),
    ORVO_TYPE_RULE(A_PIPE_BLOCK, PipeTypeHandler,
                   "each output has the like-named input's type, the main one that of input 0"),
    ORVO_TYPE_RULE(A_FIXED_MFUNC_BLOCK, FixedMFuncTypeHandler,
                   "holds every fixed-point operand; the flag is a boolean"),
    ORVO_TYPE_RULE(A_FLOAT_MFUNC_BLOCK, FloatMFuncTypeHandler, "holds every float operand; the flag is a boolean"),
};

} // namespace

std::span<const TypeRuleRow> miscTypeRules() { return kRules; }

} // namespace orvo::internal
