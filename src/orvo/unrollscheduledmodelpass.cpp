// Models that come scheduled get the ports that they were compiled with.
#include "orvo/unrollscheduledmodelpass.h"

#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/scheduledmodelhandle.h>
#include <orvo/signalpacker.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace orvo {

ORVO_DEFINE_PASS(UnrollScheduledModelPass,
                 "Models that come scheduled get the scalar ports that they were compiled with, and packs and unpacks "
                 "to the signals around them.")

namespace {

/// Tells of the points that the block's ports and wires have become.
class ScheduledModelUnroller final : public Unroller {
  public:
    const std::string &getSuffix() const override {
        static const std::string suffix = "sunroll";
        return suffix;
    }
};

/// A port or wire of a compound signal.
struct Compound {
    PureValueRef name;
    CompoundTypeInfo shape;
    /// The names of its scalars, in their order.
    std::vector<PureValueRef> scalars;
};

/// What a wire has beside its readers.
using WireParams = std::vector<std::pair<PureValueRef, ValueRef>>;

/// A block that stands for a scheduled model. All is looked at before anything changes.
class ScheduledBlock {
  public:
    explicit ScheduledBlock(Block &block)
        : mBlock(block),
          mHandle(ScheduledModelHandle::fromValue(PureValueRef(block.getParam(A_SCHEDULED_MODEL_VALUE)))) {
        if (!mHandle.valid()) {
            mFault = "its value is no handle of a scheduled model";
            return;
        }
        const ScheduledModelTypes *original = mHandle.getOriginalModelTypes();
        const ScheduledModelTypes &types = original == nullptr ? mHandle.getScheduledModelTypes() : *original;
        for (const Port &port : block.ports()) {
            note(port.getName(), types.getInputPortType(port.getName()), mPorts);
        }
        for (const Wire &wire : block) {
            note(wire.getName(), types.getOutputPortType(wire.getName()), mWires);
        }
        if (original == nullptr && hasWork()) {
            mFault = "the handle does not tell the types that the model had";
            return;
        }
        nameScalars(mPorts, mHandle.getInputUnrollMappings(),
                    [&block](const PureValueRef &name) { return block.findParam(name.get_ptr()) != nullptr; });
        // A wire that the model did not have waits for a scalar.
        nameScalars(mWires, mHandle.getOutputUnrollMappings(), [&](const PureValueRef &name) {
            return block.getWire(name) != nullptr && types.getOutputPortType(name);
        });
    }

    /// Empty if the handle fits the block.
    const std::string &fault() const { return mFault; }
    bool hasWork() const { return !mPorts.empty() || !mWires.empty(); }

    void unroll(const Unroller &unroller) {
        unrollPorts(unroller);
        unrollWires(unroller);
        mBlock.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, A_FALSE);
    }

  private:
    static void note(const PureValueRef &name, const PureValueRef &type, std::vector<Compound> &compounds) {
        const CompoundTypeInfo shape = CompoundTypeInfo::createFromValue(type);
        if (shape.valid()) {
            compounds.push_back({name, shape, {}});
        }
    }

    template <class IsThere>
    void nameScalars(std::vector<Compound> &compounds, const UnrollMappings &mappings, IsThere isThere) {
        std::set<PureValueRef> going;
        for (const Compound &compound : compounds) {
            going.insert(compound.name);
        }
        std::set<PureValueRef> taken;
        for (Compound &compound : compounds) {
            for (const CompoundDecorIndex path : compound.shape) {
                const PureValueRef name = mappings.getUnrolledPortName(compound.name, path);
                compound.scalars.push_back(name);
                if (!name) {
                    mFault = "the mappings do not name each scalar of " + compound.name->toString();
                    return;
                }
                if (!taken.insert(name).second || (isThere(name) && going.count(name) == 0)) {
                    mFault = "the name " + name->toString() + " of a scalar is taken";
                    return;
                }
            }
        }
    }

    void unrollPorts(const Unroller &unroller) {
        std::vector<std::unique_ptr<SignalPacker>> unpacked;
        for (const Compound &port : mPorts) {
            unpacked.push_back(std::make_unique<SignalPacker>(port.shape, mBlock.getModel(), port.name));
            unpacked.back()->doUnpack(*mBlock.getPort(port.name)->peekWire());
        }
        // A scalar may have the name of a port that goes.
        for (const Compound &port : mPorts) {
            mBlock.setParam(port.name, nullptr);
        }
        for (std::size_t i = 0; i < mPorts.size(); ++i) {
            auto name = mPorts[i].scalars.begin();
            for (const CompoundDecorIndex path : mPorts[i].shape) {
                Wire *driver = unpacked[i]->getUnpackedWire(path);
                ORVO_ASSERT(driver != nullptr, "a leaf has no wire after the unpack");
                mBlock.setParam(*name, *driver);
                unroller.notifyUnrollPort(mBlock, mPorts[i].name, mBlock, *name++);
            }
        }
    }

    void unrollWires(const Unroller &unroller) {
        std::vector<std::unique_ptr<SignalPacker>> packed;
        std::vector<WireParams> params;
        for (const Compound &compound : mWires) {
            Wire &whole = *mBlock.getWire(compound.name);
            packed.push_back(std::make_unique<SignalPacker>(compound.shape, mBlock.getModel(), compound.name));
            packed.back()->doPack(maybePortsOf(whole));
            params.emplace_back();
            for (auto param : Params(whole)) {
                params.back().emplace_back(param.first, param.second);
            }
            delete &whole;
        }
        for (std::size_t i = 0; i < mWires.size(); ++i) {
            auto name = mWires[i].scalars.begin();
            for (const CompoundDecorIndex path : mWires[i].shape) {
                Wire *scalar = mBlock.getWire(*name);
                scalar = scalar == nullptr ? Wire::create(mBlock, *name) : scalar;
                for (const auto &[key, value] : params[i]) {
                    scalar->setParam(key, value);
                }
                for (const MaybePort &reader : packed[i]->getPackedPorts(path)) {
                    reader.setWire(*scalar);
                }
                unroller.notifyUnrollWire(mBlock, mWires[i].name, mBlock, *name++);
            }
        }
    }

    Block &mBlock;
    ScheduledModelHandle mHandle;
    std::string mFault;
    std::vector<Compound> mPorts;
    std::vector<Compound> mWires;
};

void tell(const Block &block, const std::string &fault) {
    log::msg(msg::error::BAD_SCHEDULED_MODEL_HANDLE, log::p("block", block.value()) % log::p("detail", fault));
}

} // namespace

void UnrollScheduledModelPass::declare(PassDeclarations &declarations) {
    declarations.requirePass(ModelTreePass::sName);
}

void UnrollScheduledModelPass::apply(ModelPassContext &context) {
    std::vector<Block *> blocks;
    for (Block &block : context.getModel()) {
        if (block.type() == A_SCHEDULED_MODEL_BLOCK.get_ptr() &&
            block.findParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES) == A_TRUE.get_ptr()) {
            blocks.push_back(&block);
        }
    }
    if (blocks.empty()) {
        return;
    }
    const std::vector<RefChain> instances = internal::instancesOf(context.getModel(), internal::unrolledTree(context));
    NetlistReferencePointsUpdater updater(context, context.getModel(), instances.front());
    updater.setInstances(instances);
    ScheduledModelUnroller unroller;
    updater.setupUnrollerNotifier(&unroller);
    for (Block *block : blocks) {
        ScheduledBlock scheduled(*block);
        if (!scheduled.fault().empty()) {
            tell(*block, scheduled.fault());
        } else if (scheduled.hasWork() && instances.size() != 1) {
            tell(*block, "its model is instantiated more than once");
        } else if (scheduled.hasWork()) {
            scheduled.unroll(unroller);
        }
    }
}

} // namespace orvo
