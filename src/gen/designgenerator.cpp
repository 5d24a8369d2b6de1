// Growing a design block by block. A block is tried alone first, with inputs of the same types: only one that gets
// types and can be simulated is added, so the whole stays well typed.
#include "gen/designgenerator.h"

#include "gen/scheduledmodels.h"
#include "orvo/silence.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/simulator.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <set>

namespace orvo::gen {

namespace {

/// Beyond these a design says no more and only runs longer.
constexpr std::size_t kMostLeaves = 64;
constexpr int kMostBits = 300;
/// So many signals back an input is looked for.
constexpr std::size_t kWindow = 48;
constexpr std::uint32_t kAttempts = 4;
constexpr std::size_t kChoices = 24;
constexpr std::size_t kMostTrials = 200000;
constexpr std::size_t kMostOnBus = (std::size_t{1} << kBusAddressWidth) / kBusAddresses;

/// Types of the inputs at the top.
constexpr const char *kInputTypes[] = {
    "(typeSFixed 4 4)",
    "(typeUFixed 1 0)",
    "(typeUFixed 3 0)",
    "(typeSFixed 8 0)",
    "(typeUFixed 4 2)",
    "(typeUFixed 2 0)",
    "(typeVector 3 (typeSFixed 3 2))",
    "(typeComplex (typeSFixed 3 3))",
    "(typeSFloatIEEE 10 5)",
    "(typeAggregate (typeUFixed 4 0) (typeSFixed 2 2))",
    "(typeVector 2 (typeComplex (typeSFixed 4 1)))",
    "(typeSFloatIEEE 23 8)",
    "(typeVector 3 (typeUFixed 1 0))",
    "(typeVector 2 (typeVector 3 (typeUFixed 3 1)))",
    "(typeComplex (typeSFloatIEEE 10 5))",
    "(typeVector 2 (typeSFloatIEEE 10 5))",
    "(typeAggregate (typeComplex (typeSFixed 2 1)) (typeVector 2 (typeUFixed 3 0)) (typeAggregate (typeUFixed 1 0)))",
    "(typeSFixed 60 12)",
    "(typeSFixed 1 0)",
    "(typeUFixed 8 -2)",
    "(typeSFixed -1 6)",
    "(typeVector 1 (typeSFixed 4 0))",
    "(typeVector 3 (typeUFixed 2 0))",
    "(typeUFixed 8 0)",
    "(typeSFloatIEEE 52 11)",
    "(typeSFloatIEEE 3 4)",
    "(typeVector 2 (typeAggregate (typeUFixed 2 0) (typeSFixed 1 1)))",
    "(typeUFixed 64 0)",
    "(typeSFixed 60 5)",
    "(typeUFixed 100 29)",
    "(typeComplex (typeSFixed 5 0))",
};

struct Signal {
    Wire *wire = nullptr;
    SignalShape shape;
    /// It goes out of its model, read or not: the pin at it alone tells the type of what it reads.
    bool isKept = false;
    /// It comes from a pack of parts of different types, which must not hear of a type from behind it: it would tell
    /// both parts one.
    bool isUnequal = false;
    /// Its type comes out of an instance, whose blocks hear of types only when those around it have been told: a pack
    /// of unequal parts would tell it another type first.
    bool isLate = false;
    const PureValueRef &type() const { return shape.type; }
};

bool isControl(const SignalShape &shape) {
    return shape.isFixed() && shape.isScalar() && !shape.isSigned && shape.width == 1 && shape.fraction == 0;
}

bool isSmall(const SignalShape &shape) {
    return shape.isFixed() && shape.isScalar() && !shape.isSigned && shape.fraction == 0 && shape.width <= 4;
}

/// Signals that may meet in one block.
bool meets(const Signal &a, const Signal &b) {
    if (a.shape.isRecord || b.shape.isRecord) {
        return a.type() == b.type();
    }
    const bool sameLanes = a.shape.dims == b.shape.dims || b.shape.dims.empty();
    return sameLanes && a.shape.isFloat == b.shape.isFloat &&
           (!a.shape.isFloat || (a.shape.width == b.shape.width && a.shape.isComplex == b.shape.isComplex));
}

} // namespace

const char *nameOf(DataClass dataClass) {
    constexpr const char *names[] = {"scalar", "vector",         "complex", "complex vector",
                                     "float",  "compound float", "record"};
    return names[static_cast<std::size_t>(dataClass)];
}

DataClass classOf(const SignalShape &shape) {
    if (shape.isRecord) {
        return DataClass::Record;
    }
    if (shape.isFloat) {
        return shape.isScalar() ? DataClass::Float : DataClass::FloatCompound;
    }
    return shape.isComplex ? (shape.dims.empty() ? DataClass::Complex : DataClass::ComplexVector)
                           : (shape.dims.empty() ? DataClass::Scalar : DataClass::Vector);
}

/// One design on its way.
class DesignBuilder {
  public:
    DesignBuilder(DesignGenerator &generator, Context *context)
        : mGenerator(generator), mContext(context), mDesign(std::make_unique<Design>(context)) {
        mLevels.push_back(level("top"));
        mLevels[0].model->setParam(A_SYNTH_OUTPUT_MODE, A_TRUE);
        for (const char *text : kInputTypes) {
            const PureValueRef type(Value::parse(text, mContext));
            mInputs.push_back({nullptr, shapeOf(type, mContext)});
        }
    }

    void add(const Recipe &recipe) {
        // Blocks mostly; among them what makes hierarchy and feedback.
        constexpr std::uint32_t kKinds = 32;
        switch (recipe.kind % kKinds) {
        case 1:
        case 2:
            addConstant(recipe);
            break;
        case 3:
            addFeedback(recipe);
            break;
        case 4:
            openModel(recipe);
            break;
        case 5:
            closeModel();
            break;
        case 6:
            callAgain(recipe);
            break;
        case 7:
            addTags(recipe);
            break;
        case 8:
            addTold(recipe, mGenerator.mTold[recipe.kind / kKinds % mGenerator.mTold.size()]);
            break;
        case 9:
            addScheduled(recipe);
            break;
        default:
            addBlock(recipe, *mGenerator.mOrdinary[recipe.kind / kKinds % mGenerator.mOrdinary.size()]);
        }
    }

    std::unique_ptr<Design> finish() {
        while (mLevels.size() > 1) {
            closeModel();
        }
        closeLoops();
        Block &out = *Block::create(*mLevels[0].model, "out", A_OUTPUT_BLOCK);
        std::size_t number = 0;
        for (const Signal &signal : mLevels[0].pool) {
            if (signal.wire->port_size() == 0 || signal.isKept) {
                out.setParam(text("y" + std::to_string(number++)), *signal.wire);
            }
        }
        return std::move(mDesign);
    }

    /// The classes of data that a shape takes, found by trying.
    std::vector<DataClass> classesOf(const BlockShape &shape) {
        std::vector<DataClass> classes;
        std::map<std::string, std::size_t> refusals;
        for (std::size_t at = 0; at < kDataClasses; ++at) {
            for (std::uint32_t number = 0; number < 6; ++number) {
                Recipe recipe{0, {}};
                for (std::uint32_t i = 0; i < kChoices; ++i) {
                    recipe.choices.push_back(number == 0 ? 0 : number * 977 + i * 31 + number * number * i);
                }
                Chooser chooser(recipe, 0);
                const auto fromInputs = [this, &chooser](auto fits) -> std::optional<Signal> {
                    std::vector<const Signal *> found;
                    for (const Signal &input : mInputs) {
                        if (fits(input)) {
                            found.push_back(&input);
                        }
                    }
                    return found.empty() ? std::nullopt : std::optional(*found[chooser.below(found.size())]);
                };
                const std::optional<Plan> plan = makePlan(shape, static_cast<DataClass>(at), chooser, fromInputs);
                const std::string refusal = plan ? tryPlan(*plan).refusal : "no input fits";
                if (refusal.empty()) {
                    classes.push_back(static_cast<DataClass>(at));
                    break;
                }
                ++refusals[refusal];
            }
        }
        if (classes.empty()) {
            mGenerator.mTallies[shape.name].refused = refusals;
        }
        return classes;
    }

  private:
    using Trial = DesignGenerator::Trial;
    using Filter = std::function<bool(const Signal &)>;

    struct Plan {
        const BlockShape *shape;
        std::vector<std::pair<PureValueRef, Signal>> inputs;
        std::vector<std::pair<PureValueRef, ValueRef>> params;
        std::vector<PureValueRef> wires;
        DataClass dataClass = DataClass::Scalar;
    };
    struct Loop {
        Block *delay;
        Signal pinned;
    };
    struct Level {
        Model *model = nullptr;
        Block *in = nullptr;
        /// The block above that stands for this model.
        Block *call = nullptr;
        std::vector<Signal> pool;
        std::vector<PureValueRef> inputTypes;
        std::vector<Loop> loops;
        std::size_t blocks = 0;
        /// Not to be called again.
        bool isUnique = false;
    };
    struct Tag {
        PureValueRef name;
        PureValueRef type;
        /// The model of a local tag or the scope root of a scoped one.
        Model *scope;
        bool isLocal;
    };
    struct Callable {
        Model *model;
        std::vector<PureValueRef> inputTypes;
        std::vector<PureValueRef> outputTypes;
        bool hasUnequal = false;
    };

    PureValueRef text(const std::string &text) const { return PureValueRef(StringValue::get(text, mContext)); }
    PureValueRef number(std::size_t value) const { return NumberValue::get(static_cast<int>(value), mContext); }

    Level level(const std::string &name) {
        Level made;
        made.model = Model::create(*mDesign, name);
        made.model->setParam(A_SYNTH_CLOCK_FREQ, NumberValue::get(kClock, mContext));
        made.in = Block::create(*made.model, "in", A_INPUT_BLOCK);
        return made;
    }
    std::string nextName(Level &at) { return "b" + std::to_string(at.blocks++); }
    Signal signal(Wire &wire, const PureValueRef &type) { return {&wire, shapeOf(type, mContext)}; }

    /// A signal of the level that fits; one from above becomes an input, at the top a new one of the design.
    std::optional<Signal> pick(std::size_t at, Chooser &chooser, const Filter &fits) {
        Level &level = mLevels[at];
        std::vector<Signal> found;
        const std::size_t first = level.pool.size() - std::min(level.pool.size(), kWindow);
        for (std::size_t i = level.pool.size(); i-- > first;) {
            if (fits(level.pool[i])) {
                found.push_back(level.pool[i]);
            }
        }
        // One from outside now and then, or where there is no other.
        if (!found.empty() && !chooser.chance(1, 6)) {
            return found[chooser.below(found.size())];
        }
        if (at != 0) {
            const std::optional<Signal> above = pick(at - 1, chooser, fits);
            return above ? std::optional(import(at, *above)) : std::nullopt;
        }
        std::vector<std::size_t> fresh;
        for (std::size_t i = 0; i < mInputs.size(); ++i) {
            if (fits(mInputs[i])) {
                fresh.push_back(i);
            }
        }
        if (fresh.empty()) {
            return std::nullopt;
        }
        return topInput(fresh[chooser.below(fresh.size())]);
    }
    Signal import(std::size_t at, const Signal &above) {
        Level &level = mLevels[at];
        const std::string name = "x" + std::to_string(level.inputTypes.size());
        level.inputTypes.push_back(above.type());
        level.call->setParam(text(name), *above.wire);
        level.pool.push_back(signal(*Wire::create(*level.in, name), above.type()));
        level.pool.back().isUnequal = above.isUnequal;
        level.pool.back().isLate = above.isLate;
        return level.pool.back();
    }
    /// Each type once, and now and then anew.
    Signal topInput(std::size_t kind) {
        Level &top = mLevels[0];
        const std::string name = "x" + std::to_string(kind);
        Signal &input = mInputs[kind];
        if (input.wire == nullptr) {
            input = pinned(top, *Wire::create(*top.in, name), input.type());
            top.pool.push_back(input);
        }
        return input;
    }

    template <class Pick>
    std::optional<Plan> makePlan(const BlockShape &shape, DataClass wanted, Chooser &chooser, Pick pickSignal) {
        Plan plan{&shape, {}, {}, {}, wanted};
        constexpr std::size_t counts[] = {2, 1, 3, 4};
        std::size_t repeats = counts[chooser.below(std::size(counts))];
        if (shape.type == A_SCALAR_PRODUCT_BLOCK) {
            repeats = repeats > 2 ? 4 : 2;
        }
        const bool hasZero = std::any_of(shape.ports.begin(), shape.ports.end(),
                                         [this](const PinShape &pin) { return pin.key == number(0); });
        std::optional<Signal> first;
        std::vector<SignalShape> data;
        bool fails = false;
        const auto addInput = [&](const PureValueRef &key, PinShape::Role role) {
            const bool isVector =
                role != PinShape::Role::Data && first && first->shape.dims.size() == 1 && chooser.chance(1, 8);
            const std::optional<Signal> found = pickSignal([&](const Signal &one) {
                switch (role) {
                case PinShape::Role::Control:
                    return isVector ? one.shape.isFixed() && one.shape.dims == first->shape.dims &&
                                          one.shape.width == 1 && !one.shape.isSigned
                                    : isControl(one.shape);
                case PinShape::Role::Small:
                    return isVector ? one.shape.isFixed() && one.shape.dims == first->shape.dims &&
                                          !one.shape.isSigned && one.shape.fraction == 0 && !one.shape.isComplex
                                    : isSmall(one.shape);
                case PinShape::Role::Channel:
                    return one.shape.isFixed() && one.shape.isScalar() && !one.shape.isSigned && one.shape.width == 8 &&
                           one.shape.fraction == 0;
                case PinShape::Role::Data:
                    break;
                }
                if (one.isUnequal && tellsTypes(shape)) {
                    return false;
                }
                if (first && isPack(shape) && one.type() != first->type() && (one.isLate || first->isLate)) {
                    return false;
                }
                return first ? meets(*first, one) : classOf(one.shape) == wanted;
            });
            if (!found) {
                fails = true;
                return;
            }
            plan.inputs.emplace_back(key, *found);
            if (role == PinShape::Role::Data) {
                data.push_back(found->shape);
                if (!first) {
                    first = found;
                }
            }
        };
        std::vector<PureValueRef> freeNames;
        const auto addPort = [&](const PinShape &pin) {
            if (pin.isFree) {
                const std::size_t names = (hasZero ? 0 : 1) + chooser.below(2);
                for (std::size_t i = 0; i < names; ++i) {
                    freeNames.push_back(number(i + (hasZero ? 1 : 0)));
                    addInput(freeNames.back(), pin.role);
                }
            } else if (pin.isRepeated) {
                for (std::size_t i = 0; i < repeats; ++i) {
                    addInput(keyed(pin, i), pin.role);
                }
            } else if (!pin.isOptional || isAddress(pin) || chooser.chance(1, 2)) {
                addInput(pin.key, pin.role);
            }
        };
        // Data first, since it says how many lanes there are.
        for (const bool isData : {true, false}) {
            for (const PinShape &pin : shape.ports) {
                if ((pin.role == PinShape::Role::Data) == isData && !fails) {
                    addPort(pin);
                }
            }
        }
        if (fails) {
            return std::nullopt;
        }
        if (!first && wanted != DataClass::Scalar) {
            return std::nullopt;
        }
        if (first && shape.type == A_VUNPACK_BLOCK) {
            repeats = first->shape.dims.empty() ? 1 : static_cast<std::size_t>(first->shape.dims[0]);
        } else if (first && shape.type == A_AUNPACK_BLOCK) {
            repeats = std::max<std::size_t>(first->shape.fields.size(), 1);
        }
        for (const ParamShape &param : shape.params) {
            if (param.isOptional && !chooser.chance(1, param.provider != nullptr ? 2 : 3)) {
                continue;
            }
            const ValueRef value = param.provider != nullptr ? param.provider({mContext, chooser, data, repeats})
                                                             : param.values[chooser.below(param.values.size())];
            if (value) {
                plan.params.emplace_back(param.key, value);
            }
        }
        for (const PinShape &pin : shape.wires) {
            if (pin.isFree) {
                plan.wires.insert(plan.wires.end(), freeNames.begin(), freeNames.end());
            } else if (pin.isRepeated) {
                for (std::size_t i = 0; i < repeats; ++i) {
                    plan.wires.push_back(keyed(pin, i));
                }
            } else if (!pin.isOptional || !chooser.chance(1, 4)) {
                plan.wires.push_back(pin.key);
            }
        }
        return plan;
    }
    PureValueRef keyed(const PinShape &pin, std::size_t index) const {
        return pin.key == number(0) ? number(index)
                                    : PureValueRef(PureTupleValue::get(pin.key, number(index), mContext));
    }

    /// The types of the wires that a block of the plan has, or why there is none.
    const Trial &tryPlan(const Plan &plan) {
        std::string key = plan.shape->name;
        for (const auto &[name, input] : plan.inputs) {
            key += "\n" + name->toString() + " " + input.type()->toString();
        }
        for (const auto &[name, value] : plan.params) {
            key += "\n" + name->toString() + "=" + value->toString();
        }
        for (const PureValueRef &wire : plan.wires) {
            key += "\n>" + wire->toString();
        }
        if (mGenerator.mTrials.size() > kMostTrials) {
            mGenerator.mTrials.clear();
        }
        const auto [at, isNew] = mGenerator.mTrials.try_emplace(std::move(key));
        if (isNew) {
            at->second = tryAlone(plan);
        }
        return at->second;
    }
    Trial tryAlone(const Plan &plan) const {
        // What is worth a message is no well-typed block.
        const internal::Silence silence(mContext);
        Design design(mContext);
        Model &model = *Model::create(design, "trial");
        Block &in = *Block::create(model, "in", A_INPUT_BLOCK);
        std::size_t count = 0;
        std::vector<Wire *> pins;
        for (const auto &[key, input] : plan.inputs) {
            Block &pin = *Block::create(model, "pin" + std::to_string(count), A_TYPE_PIN_BLOCK);
            pin.setParam(A_TYPE_PIN_TYPE, ValueRef(input.type()));
            pin.setParam(number(0), *Wire::create(in, "x" + std::to_string(count++)));
            pins.push_back(Wire::create(pin, number(0)));
        }
        Block &block = *Block::create(model, "block", plan.shape->type);
        for (std::size_t i = 0; i < pins.size(); ++i) {
            block.setParam(plan.inputs[i].first, *pins[i]);
        }
        for (const auto &[key, value] : plan.params) {
            block.setParam(key, value);
        }
        Block &out = *Block::create(model, "out", A_OUTPUT_BLOCK);
        count = 0;
        for (const PureValueRef &key : plan.wires) {
            out.setParam(text("y" + std::to_string(count++)), *Wire::create(block, key));
        }
        Trial trial;
        GlobalTypePass types;
        types.bindEvents(design);
        for (const PureValueRef &key : plan.wires) {
            const PureValueRef type = types.getType(*block.getWire(key), {});
            const SignalShape shape = shapeOf(type, mContext);
            if (shape.leaves == 0) {
                trial.refusal = "no type";
            } else if (shape.leaves > kMostLeaves || shape.width > kMostBits || (!shape.isRecord && shape.width < 1)) {
                trial.refusal = "a type beyond the limits";
            }
            trial.types.push_back(type);
        }
        // A block may tell a type to what feeds it.
        for (std::size_t i = 0; i < pins.size(); ++i) {
            const PureValueRef &type = plan.inputs[i].second.type();
            const PureValueRef atPort = types.getType(block.getPort(plan.inputs[i].first), {});
            if (types.getType(*pins[i], {}) != type || (atPort && atPort != type)) {
                trial.refusal = "an input must have another type";
            }
        }
        types.unbindEvents();
        if (trial.refusal.empty() && mGenerator.mDraws == Draws::Schedulable) {
            PassScheduler scheduler;
            scheduler.addPass("ValidateModelPass");
            scheduler.apply(design);
        }
        if (trial.refusal.empty()) {
            try {
                const sim::Simulator simulator(design, model);
            } catch (const sim::SimulationError &error) {
                trial.refusal = error.what();
            }
        }
        if (!silence.last().empty()) {
            trial.refusal = silence.last();
        }
        return trial;
    }

    /// Which entry is written at no address is as unknown as it gets, and another one in each memory that this one
    /// comes apart into.
    static bool isAddress(const PinShape &pin) {
        return pin.key == A_DUAL_MEM_PORT_ADDR1 || pin.key == A_DUAL_MEM_PORT_ADDR2;
    }
    /// Whether parameters of the block tell what it reads its type.
    static bool tellsTypes(const BlockShape &shape) {
        return shape.type == A_TYPE_PIN_BLOCK || shape.type == A_SYNC_REGISTER_BLOCK ||
               shape.type == A_LATENCY_PLACEHOLDER_BLOCK;
    }
    static bool isPack(const BlockShape &shape) { return shape.type == A_CPACK_BLOCK || shape.type == A_VPACK_BLOCK; }
    static bool isUnequal(const Plan &plan) {
        const bool packs = isPack(*plan.shape);
        return std::any_of(plan.inputs.begin(), plan.inputs.end(), [&](const auto &input) {
            return input.second.isUnequal || (packs && input.second.type() != plan.inputs.front().second.type());
        });
    }

    /// Adds the block of a plan to the level that is open.
    Block &place(const Plan &plan, const Trial &trial) {
        Level &level = mLevels.back();
        Block &block = *Block::create(*level.model, nextName(level), plan.shape->type);
        for (const auto &[key, input] : plan.inputs) {
            block.setParam(key, *input.wire);
        }
        for (const auto &[key, value] : plan.params) {
            block.setParam(key, value);
        }
        for (std::size_t i = 0; i < plan.wires.size(); ++i) {
            level.pool.push_back(signal(*Wire::create(block, plan.wires[i]), trial.types[i]));
            level.pool.back().isUnequal = isUnequal(plan);
            level.pool.back().isLate = std::any_of(plan.inputs.begin(), plan.inputs.end(),
                                                   [](const auto &input) { return input.second.isLate; });
        }
        return block;
    }

    void addBlock(const Recipe &recipe, const BlockShape &shape) {
        if (!shape.family.empty() && (mLevels.size() > 1 || mFamilies.count(shape.family) != 0)) {
            return;
        }
        const std::size_t at = static_cast<std::size_t>(&shape - mGenerator.mShapes.data());
        std::unique_ptr<std::vector<DataClass>> &classes = mGenerator.mClasses[at];
        if (classes == nullptr) {
            classes = std::make_unique<std::vector<DataClass>>(classesOf(shape));
        }
        Tally &tally = mGenerator.mTallies[shape.name];
        for (std::uint32_t attempt = 0; attempt < kAttempts && !classes->empty(); ++attempt) {
            Chooser chooser(recipe, attempt);
            const DataClass wanted = (*classes)[chooser.below(classes->size())];
            const auto fromPool = [this, &chooser](const Filter &fits) {
                return pick(mLevels.size() - 1, chooser, fits);
            };
            const std::optional<Plan> plan = makePlan(shape, wanted, chooser, fromPool);
            if (!plan) {
                ++tally.refused["no input fits"];
                continue;
            }
            const Trial &trial = tryPlan(*plan);
            if (trial.refusal.empty()) {
                place(*plan, trial);
                if (!shape.family.empty()) {
                    mFamilies.insert(shape.family);
                }
                ++tally.made[wanted];
                return;
            }
            ++tally.refused[trial.refusal];
        }
    }

    Signal pinned(Level &level, Wire &wire, const PureValueRef &type) {
        Block &pin = *Block::create(*level.model, nextName(level), A_TYPE_PIN_BLOCK);
        pin.setParam(A_TYPE_PIN_TYPE, ValueRef(type));
        pin.setParam(number(0), wire);
        return signal(*Wire::create(pin, number(0)), type);
    }

    void addConstant(const Recipe &recipe) {
        const auto at = std::find_if(mGenerator.mOrdinary.begin(), mGenerator.mOrdinary.end(),
                                     [](const BlockShape *shape) { return shape->type == A_CONST_BLOCK; });
        addBlock(recipe, **at);
    }

    /// A signal that goes on through a tag, a new one or one that is there. Types do not pass tags, so a pin tells it.
    void addTags(const Recipe &recipe) {
        Chooser chooser(recipe, 0);
        std::optional<Tag> tag = chooser.chance(1, 3) ? tagInReach(chooser) : std::nullopt;
        tag = tag ? tag : newTag(chooser);
        if (!tag) {
            return;
        }
        keepInScope(*tag);
        const std::size_t readers = 1 + chooser.below(2);
        Level &level = mLevels.back();
        for (std::size_t i = 0; i < readers; ++i) {
            Block &reader = *Block::create(*level.model, nextName(level), A_FROM_BLOCK);
            reader.setParam(A_GOTO_TAG, ValueRef(tag->name));
            level.pool.push_back(pinned(level, *Wire::create(reader, A_FROM_WIRE_OUT), tag->type));
        }
    }
    /// Local ones are in this model. Others come mostly from the top, since there must not be two of their Gotos.
    std::optional<Tag> newTag(Chooser &chooser) {
        const StaticString *const reaches[] = {&A_GOTO_TAG_TYPE_LOCAL, &A_GOTO_TAG_TYPE_GLOBAL, &A_GOTO_TAG_TYPE_SCOPED,
                                               &A_GOTO_TAG_TYPE_BUS};
        const std::size_t place = chooser.below(2 * std::size(reaches));
        const StaticString &reach = *reaches[place < std::size(reaches) ? place : 0];
        const bool isLocal = &reach == reaches[0];
        const std::size_t deepest = mLevels.size() - 1;
        const std::size_t at = isLocal ? deepest : chooser.chance(1, 2) ? chooser.below(mLevels.size()) : 0;
        const std::optional<Signal> from = pick(at, chooser, [](const Signal &one) { return !one.isUnequal; });
        if (!from) {
            return std::nullopt;
        }
        Tag tag{text("tag" + std::to_string(mTags.size())), from->type(), isLocal ? mLevels[at].model : nullptr,
                isLocal};
        Block &source = *Block::create(*mLevels[at].model, nextName(mLevels[at]), A_GOTO_BLOCK);
        source.setParam(A_GOTO_PORT_IN, chooser.chance(1, 2) ? wireBehindPin(*from->wire) : *from->wire);
        source.setParam(A_GOTO_TAG, ValueRef(tag.name));
        if (place != 0) {
            source.setParam(A_GOTO_TAG_TYPE, reach);
        }
        if (&reach == &A_GOTO_TAG_TYPE_SCOPED) {
            tag.scope = mLevels[chooser.below(at + 1)].model;
            tag.scope->setParam(PureTupleValue::get(A_GOTO_TAG_TYPE_SCOPED, tag.name, mContext), A_TRUE);
        }
        for (std::size_t i = 1; !isLocal && i <= at; ++i) {
            mLevels[i].isUnique = true;
        }
        mTags.push_back(tag);
        return tag;
    }
    std::optional<Tag> tagInReach(Chooser &chooser) const {
        std::vector<const Tag *> found;
        for (const Tag &tag : mTags) {
            const bool isInScope = std::any_of(mLevels.begin(), mLevels.end(),
                                               [&tag](const Level &level) { return level.model == tag.scope; });
            if (tag.scope == nullptr || (tag.isLocal ? tag.scope == mLevels.back().model : isInScope)) {
                found.push_back(&tag);
            }
        }
        return found.empty() ? std::nullopt : std::optional(*found[chooser.below(found.size())]);
    }
    /// Models that read a scoped tag are not called from outside of its scope.
    void keepInScope(const Tag &tag) {
        for (std::size_t i = mLevels.size(); tag.scope != nullptr && mLevels[--i].model != tag.scope;) {
            mLevels[i].isUnique |= tag.scope != mLevels[0].model;
        }
    }
    /// What a pin on a From reads: a Goto may hang on the From itself.
    Wire &wireBehindPin(Wire &wire) const {
        const Port *port = wire.getBlock().getPort(number(0));
        return port != nullptr && wire.getBlock().type() == A_TYPE_PIN_BLOCK.get_ptr() &&
                       port->peekWire()->getBlock().type() == A_FROM_BLOCK.get_ptr()
                   ? *port->peekWire()
                   : wire;
    }

    /// A model that was scheduled elsewhere. It stands in one instance.
    void addScheduled(const Recipe &recipe) {
        Chooser chooser(recipe, 0);
        WholeSignals inputs;
        std::vector<std::pair<PureValueRef, Wire *>> drivers;
        const std::size_t ports = 1 + chooser.below(2);
        for (std::size_t i = 0; i < ports; ++i) {
            // It tells its inputs their types from behind.
            if (const auto from = pick(mLevels.size() - 1, chooser, [](const Signal &one) { return !one.isUnequal; })) {
                drivers.emplace_back(text("p" + std::to_string(i)), from->wire);
                inputs.emplace_back(drivers.back().first, from->type());
            }
        }
        Level &level = mLevels.back();
        WholeSignals outputs;
        const std::size_t wires = 1 + chooser.below(2);
        for (std::size_t i = 0; i < wires; ++i) {
            outputs.emplace_back(text("q" + std::to_string(i)), mInputs[chooser.below(mInputs.size())].type());
        }
        const std::string name = nextName(level);
        Block &block = *Block::create(*level.model, name, A_SCHEDULED_MODEL_BLOCK);
        const ScheduledModelHandle handle =
            scheduledModel(text("scheduled" + std::to_string(mScheduled++)), inputs, outputs, mContext);
        block.setParam(A_SCHEDULED_MODEL_VALUE, ValueRef(handle.toValue(mContext)));
        block.setParam(A_SCHEDULED_MODEL_ORIGINAL_TYPES, A_TRUE);
        for (const auto &[key, wire] : drivers) {
            block.setParam(key, *wire);
        }
        for (const auto &[key, type] : outputs) {
            level.pool.push_back(signal(*Wire::create(block, key), type));
        }
        for (std::size_t i = 1; i < mLevels.size(); ++i) {
            mLevels[i].isUnique = true;
        }
    }

    /// A block whose pins are told, on signals cast to their types. What the outside knows by a name or an address
    /// stands at the top, where there is one of it.
    void addTold(const Recipe &recipe, const std::pair<const ToldBlock *, std::string> &told) {
        const ToldBlock &shape = *told.first;
        const bool isOfOutside = shape.name != nullptr || shape.isOnBus;
        if (isOfOutside && mLevels.size() > 1) {
            return;
        }
        // An interface without a name is the bus.
        if (shape.isOnBus && ((!mHasBus && mFamilies.count(kBusFamily) != 0) || mTold >= kMostOnBus)) {
            return;
        }
        if (shape.isSingle && !mFamilies.insert(told.second).second) {
            return;
        }
        Chooser chooser(recipe, 0);
        Level &level = mLevels.back();
        std::vector<Wire *> inputs;
        for (const ToldPin &port : shape.ports) {
            Wire *input = signalOf(level, chooser, parsed(port.type));
            if (input == nullptr) {
                return;
            }
            inputs.push_back(input);
        }
        Block &block = *Block::create(*level.model, nextName(level), *shape.type);
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            block.setParam(parsed(shape.ports[i].key), *inputs[i]);
        }
        for (const auto &[key, value] : shape.params) {
            block.setParam(parsed(key), Value::parse(value, mContext));
        }
        const std::size_t number = mTold++;
        if (shape.name != nullptr) {
            block.setParam(*shape.name, ValueRef(text("edge" + std::to_string(number))));
        }
        if (shape.isOnBus) {
            mFamilies.insert(kBusFamily);
            mHasBus = true;
            mDesign->setParam(A_SYNTH_BUS_ADDR_WIDTH, NumberValue::get(kBusAddressWidth, mContext));
            mDesign->setParam(A_SYNTH_BUS_DATA_WIDTH, NumberValue::get(kBusDataWidth, mContext));
            block.setParam(A_BUS_BASE_ADDR, NumberValue::get(static_cast<int>(number) * kBusAddresses, mContext));
        }
        for (const ToldPin &pin : shape.wires) {
            Wire &wire = *Wire::create(block, parsed(pin.key));
            level.pool.push_back(pinned(level, wire, parsed(pin.type)));
            level.pool.back().isKept = true;
        }
        ++mGenerator.mTallies[told.second].made[DataClass::Scalar];
    }
    /// A signal of this type, of a vector packed from others; null if there is nothing to cast.
    Wire *signalOf(Level &level, Chooser &chooser, const PureValueRef &type) {
        PureValueRef element;
        VectorDecorSpec vectors(type, element, mContext);
        if (vectors.isVector()) {
            const int length = vectors.vectorLengthRev(0);
            vectors.removeVector();
            std::vector<Wire *> elements;
            for (int i = 0; i < length; ++i) {
                elements.push_back(signalOf(level, chooser, vectors.toValue(element, mContext)));
                if (elements.back() == nullptr) {
                    return nullptr;
                }
            }
            Block &pack = *Block::create(*level.model, nextName(level), A_VPACK_BLOCK);
            for (std::size_t i = 0; i < elements.size(); ++i) {
                pack.setParam(number(i), *elements[i]);
            }
            return Wire::create(pack, A_VPACK_WIRE_OUT);
        }
        const bool isBit = isControl(shapeOf(type, mContext));
        const auto from = pick(mLevels.size() - 1, chooser, [isBit](const Signal &one) {
            return one.shape.isFixed() && one.shape.isScalar() && (!isBit || isControl(one.shape));
        });
        if (!from) {
            return nullptr;
        }
        return from->type() == type && !from->isUnequal ? from->wire : &castTo(level, *from->wire, type);
    }
    PureValueRef parsed(const std::string &text) const { return PureValueRef(Value::parse(text, mContext)); }
    Wire &castTo(Level &level, Wire &wire, const PureValueRef &type) {
        Block &cast = *Block::create(*level.model, nextName(level), A_CAST_BLOCK);
        cast.setParam(number(0), wire);
        cast.setParam(A_CAST_OUTPUT_TYPE, ValueRef(type));
        return *Wire::create(cast, A_PRIM_WIRE_OUT);
    }

    /// A delay whose input comes later, from what is made of its output.
    void addFeedback(const Recipe &recipe) {
        Chooser chooser(recipe, 0);
        const std::optional<Signal> like =
            pick(mLevels.size() - 1, chooser, [](const Signal &one) { return !one.shape.isRecord; });
        if (!like) {
            return;
        }
        Level &level = mLevels.back();
        Block &delay = *Block::create(*level.model, nextName(level), A_DELAY_BLOCK);
        delay.setParam(A_DELAY_LENGTH, NumberValue::get(static_cast<int>(1 + chooser.below(3)), mContext));
        level.pool.push_back(pinned(level, *Wire::create(delay, A_PRIM_WIRE_OUT), like->type()));
        level.loops.push_back({&delay, level.pool.back()});
    }

    /// Gives each open delay of the level the latest signal of its kind, by a cast if the types differ.
    void closeLoops() {
        Level &level = mLevels.back();
        for (const Loop &loop : level.loops) {
            Wire *source = loop.pinned.wire;
            for (std::size_t i = level.pool.size(); i-- > 0;) {
                const Signal &one = level.pool[i];
                if (one.type() == loop.pinned.type() && !one.isUnequal) {
                    source = one.wire;
                    break;
                }
                const bool casts = one.shape.isFixed() && loop.pinned.shape.isFixed() &&
                                   one.shape.dims == loop.pinned.shape.dims &&
                                   one.shape.isComplex == loop.pinned.shape.isComplex;
                if (casts) {
                    source = &castTo(level, *one.wire, loop.pinned.type());
                    break;
                }
            }
            loop.delay->setParam(number(0), *source);
        }
        level.loops.clear();
    }

    void openModel(const Recipe &recipe) {
        constexpr std::size_t kDeepest = 4;
        if (mLevels.size() > kDeepest) {
            return;
        }
        Chooser chooser(recipe, 0);
        Level made = level("m" + std::to_string(mModels++));
        Level &above = mLevels.back();
        made.call = Block::create(*above.model, nextName(above), A_MODEL_BLOCK);
        made.call->setParam(A_MODEL_NODE, *made.model);
        mLevels.push_back(std::move(made));
        const std::size_t inputs = 1 + chooser.below(3);
        for (std::size_t i = 0; i < inputs; ++i) {
            if (const auto from = pick(mLevels.size() - 2, chooser, [](const Signal &) { return true; })) {
                import(mLevels.size() - 1, *from);
            }
        }
    }

    /// Signals that nobody reads go out.
    void closeModel() {
        if (mLevels.size() < 2) {
            return;
        }
        closeLoops();
        Level closed = std::move(mLevels.back());
        mLevels.pop_back();
        Callable callable{closed.model, closed.inputTypes, {}};
        Block &out = *Block::create(*closed.model, "out", A_OUTPUT_BLOCK);
        for (const Signal &inner : closed.pool) {
            if (inner.wire->port_size() == 0 || inner.isKept) {
                out.setParam(text("y" + std::to_string(callable.outputTypes.size())), *inner.wire);
                callable.outputTypes.push_back(inner.type());
                callable.hasUnequal = callable.hasUnequal || inner.isUnequal;
            }
        }
        addOutputs(*closed.call, callable);
        if (!closed.isUnique) {
            mCallables.push_back(std::move(callable));
        }
    }
    void addOutputs(Block &call, const Callable &callable) {
        for (std::size_t i = 0; i < callable.outputTypes.size(); ++i) {
            mLevels.back().pool.push_back(
                signal(*Wire::create(call, text("y" + std::to_string(i))), callable.outputTypes[i]));
            mLevels.back().pool.back().isUnequal = callable.hasUnequal;
            mLevels.back().pool.back().isLate = true;
        }
    }

    /// A further instance of a model, on signals of the same types.
    void callAgain(const Recipe &recipe) {
        if (mCallables.empty()) {
            return;
        }
        Chooser chooser(recipe, 0);
        const Callable callable = mCallables[mCallables.size() - 1 - chooser.below(mCallables.size())];
        std::vector<Signal> inputs;
        for (const PureValueRef &type : callable.inputTypes) {
            const std::optional<Signal> found = pick(mLevels.size() - 1, chooser, [&type](const Signal &one) {
                return one.type() == type && !one.isUnequal;
            });
            if (!found) {
                return;
            }
            inputs.push_back(*found);
        }
        Level &level = mLevels.back();
        Block &call = *Block::create(*level.model, nextName(level), A_MODEL_BLOCK);
        call.setParam(A_MODEL_NODE, *callable.model);
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            call.setParam(text("x" + std::to_string(i)), *inputs[i].wire);
        }
        addOutputs(call, callable);
    }

    DesignGenerator &mGenerator;
    Context *mContext;
    std::unique_ptr<Design> mDesign;
    std::vector<Level> mLevels;
    std::vector<Signal> mInputs;
    std::vector<Callable> mCallables;
    std::set<std::string> mFamilies;
    std::size_t mModels = 0;
    std::vector<Tag> mTags;
    std::size_t mTold = 0;
    std::size_t mScheduled = 0;
    bool mHasBus = false;
};

DesignGenerator::DesignGenerator(Context *context, Draws draws)
    : mContext(context), mDraws(draws), mShapes(blockShapes(context)) {
    for (const BlockShape &shape : mShapes) {
        bool isOrdinary = shape.reason.empty();
        for (const ToldBlock &told : toldBlocks()) {
            if (shape.type == *told.type) {
                mTold.emplace_back(&told, shape.name);
                isOrdinary = isOrdinary && !told.isOnly;
            }
        }
        if (isOrdinary) {
            mOrdinary.push_back(&shape);
        }
    }
    mClasses.resize(mShapes.size());
}

DesignGenerator::~DesignGenerator() = default;

std::unique_ptr<Design> DesignGenerator::make(const std::vector<Recipe> &recipes) {
    DesignBuilder builder(*this, mContext);
    for (const Recipe &recipe : recipes) {
        builder.add(recipe);
    }
    return builder.finish();
}

std::vector<Recipe> recipesOf(std::uint64_t seed, std::size_t size) {
    util::SplitMix random(seed);
    std::vector<Recipe> recipes(size);
    for (Recipe &recipe : recipes) {
        recipe.kind = static_cast<std::uint32_t>(random.next() >> 32U);
        for (std::size_t i = 0; i < kChoices; ++i) {
            recipe.choices.push_back(static_cast<std::uint32_t>(random.next() >> 32U));
        }
    }
    return recipes;
}

} // namespace orvo::gen
