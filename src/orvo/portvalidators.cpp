// The checks of what the types of a block's ports are: vector widths, real numbers, and whether there is a type at all.
#include "orvo/modelvalidators.h"

#include "orvo/vectorunroll.h"

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace orvo {

namespace {

using internal::TypesOfModel;

/// Their ports carry signals that have nothing to do with each other, or lengths that are to differ.
constexpr const StaticString *kFreeDimensions[] = {
    &A_TYPE_PIN_BLOCK,
    &A_MODEL_BLOCK,
    &A_VCONCAT_BLOCK,
    &A_INPUT_BLOCK,
    &A_OUTPUT_BLOCK,
    &A_CHANNEL_IN_BLOCK,
    &A_CHANNEL_OUT_BLOCK,
    &A_SIGNAL_IN_BLOCK,
    &A_SIGNAL_OUT_BLOCK,
    &A_DEMUX_BLOCK,
    &A_LOOP_BLOCK,
    &A_APACK_BLOCK,
    &A_AUNPACK_BLOCK,
    &A_STALLENTER_BLOCK,
    &A_STALLEXIT_BLOCK,
    &A_STALLREG_BLOCK,
    &A_FOR_LOOP_BLOCK,
    // What stands for a whole model or for logic from outside has the ports of that.
    &A_SCHEDULED_MODEL_BLOCK,
    &A_EXT_IFACE_BLOCK,
    &A_HIDDEN_IFACE_BLOCK,
    // What marks or hands on several signals at once computes none from another.
    &A_BOUNDARY_BLOCK,
    &A_UNSCHED_BLOCK,
    &A_SHARED_FIFO_BLOCK,
    // The signals of a bus or stream have the lengths that its protocol gives each.
    &A_BUS_OUT_BLOCK,
    &A_BUS_SIGNALS_BLOCK,
    &A_SARNET_MM_MASTER_OUT_BLOCK,
    &A_SARNET_MM_SLAVE_OUT_BLOCK,
    &A_AXI4_STREAM_RECEIVER_BLOCK,
    &A_AXI4_STREAM_TRANSMITTER_BLOCK,
};

/// Those of them that say themselves what their ports take.
constexpr const StaticString *kOwnTypes[] = {
    &A_TYPE_PIN_BLOCK, &A_CHANNEL_IN_BLOCK, &A_CHANNEL_OUT_BLOCK, &A_SHARED_FIFO_BLOCK,
    &A_LOOP_BLOCK,     &A_MODEL_BLOCK,      &A_OUTPUT_BLOCK,
};

/// A port of a block type.
struct PortOfType {
    const StaticString *block;
    /// Null for all ports.
    const StaticString *port = nullptr;
};

/// What steers all lanes together, or each by itself.
constexpr PortOfType kFreePorts[] = {
    {&A_BARREL_LEFT_BLOCK, &A_BARREL_PORT_SHIFT},
    {&A_BARREL_RIGHT_BLOCK, &A_BARREL_PORT_SHIFT},
    {&A_BARREL_RIGHT_LZC_BLOCK, &A_BARREL_PORT_SHIFT},
};

constexpr PortOfType kRealOnly[] = {
    {&A_ABS_BLOCK},
    {&A_ACC_BLOCK},
    {&A_ACOS_BLOCK},
    {&A_AND_BLOCK},
    {&A_AND_REDUCE_BLOCK},
    {&A_ARCCOSPI_BLOCK},
    {&A_ARCSINPI_BLOCK},
    {&A_ARCTAN2_BLOCK},
    {&A_ARCTANPI_BLOCK},
    {&A_ASIN_BLOCK},
    {&A_ATAN_BLOCK},
    {&A_BARREL_LEFT_BLOCK, &A_BARREL_PORT_SHIFT},
    {&A_BARREL_RIGHT_BLOCK, &A_BARREL_PORT_SHIFT},
    {&A_BIT_COUNT_BLOCK},
    {&A_BIT_JOIN_REDUCE_BLOCK},
    {&A_CMP_GE_BLOCK},
    {&A_CMP_LT_BLOCK},
    {&A_COMPARECTRL_BLOCK},
    {&A_CORDIC_BLOCK, &A_CORDIC_PORT_MODE},
    {&A_COS_BLOCK},
    {&A_COSPIX_BLOCK},
    {&A_COT_BLOCK},
    {&A_COTPIX_BLOCK},
    {&A_COUNTER_BLOCK},
    {&A_CUBEROOT_BLOCK},
    {&A_DIM_BLOCK},
    {&A_DIVIDE_BLOCK},
    {&A_EXP10_BLOCK},
    {&A_EXP2_BLOCK},
    {&A_EXP_BLOCK},
    {&A_EXPM1_BLOCK},
    {&A_FLOAT_MULTACC_BLOCK},
    {&A_FOR_LOOP_BLOCK},
    {&A_HYPOT_BLOCK},
    {&A_ILOGB_BLOCK},
    {&A_LD_COUNTER_BLOCK},
    {&A_LOG10_BLOCK},
    {&A_LOG1P_BLOCK},
    {&A_LOG2_BLOCK},
    {&A_LOG_BLOCK},
    {&A_LOOP_BLOCK},
    {&A_MAGMAX_BLOCK},
    {&A_MAGMIN_BLOCK},
    {&A_MAX_BLOCK},
    {&A_MIN_BLOCK},
    {&A_MINMAX_BLOCK},
    {&A_MOD_BLOCK},
    {&A_MULT_POW2_BLOCK},
    {&A_NAND_BLOCK},
    {&A_NAND_REDUCE_BLOCK},
    {&A_NOR_BLOCK},
    {&A_NOR_REDUCE_BLOCK},
    {&A_NOT_BLOCK},
    {&A_OR_BLOCK},
    {&A_OR_REDUCE_BLOCK},
    {&A_POLYNOMIAL_BLOCK},
    {&A_POW_BLOCK},
    {&A_POWR_BLOCK},
    {&A_RECIP_SQRT_BLOCK},
    {&A_RECIPROCAL_BLOCK},
    {&A_REVERSE_BLOCK},
    {&A_SEQUENCE_BLOCK},
    {&A_SIN_BLOCK},
    {&A_SINCOSFUSED_BLOCK},
    {&A_SINCOSPIXFUSED_BLOCK},
    {&A_SINPIX_BLOCK},
    {&A_SQRT_BLOCK},
    {&A_TAN_BLOCK},
    {&A_TANPIX_BLOCK},
    {&A_XNOR_BLOCK},
    {&A_XNOR_REDUCE_BLOCK},
    {&A_XOR_BLOCK},
    {&A_XOR_REDUCE_BLOCK},
};

/// The rows of a table by the type of the block; a type has one row.
using PortTable = std::unordered_map<const Value *, const StaticString *>;
template <class Rows> PortTable tableOf(const Rows &rows) {
    PortTable table;
    for (const PortOfType &row : rows) {
        table.emplace(row.block->get_ptr(), row.port);
    }
    return table;
}

bool hasFreeDimensions(const Block &block) {
    static const std::unordered_set<const Value *> types = [] {
        std::unordered_set<const Value *> all;
        for (const StaticString *type : kFreeDimensions) {
            all.insert(type->get_ptr());
        }
        return all;
    }();
    return types.count(block.type()) != 0 || block.findParam(A_FOLDING_KERNEL_TAG) != nullptr;
}

bool hasOwnTypes(const Block &block) {
    if (block.type() == A_TYPE_PIN_BLOCK.get_ptr() && !block.getParam(A_TYPE_PIN_TYPE) &&
        !block.getParam(A_TYPE_PIN_PORT_TYPES)) {
        return false;
    }
    return std::any_of(std::begin(kOwnTypes), std::end(kOwnTypes),
                       [&](const StaticString *type) { return block.type() == type->get_ptr(); });
}

bool isFreePort(const Port &port) {
    static const PortTable table = tableOf(kFreePorts);
    const auto row = table.find(port.getBlock().type());
    return row != table.end() && port.getName() == *row->second;
}

/// Ports are counted, or have a name.
enum class PortKind { Numbered, Named };
PortKind kindOf(const Port &port) { return numberVR(port.getName()) ? PortKind::Numbered : PortKind::Named; }

/// The widest vectors met at the ports of a block, level by level from the innermost.
class WidestVectors {
  public:
    struct Level {
        int length;
        PortKind kind;
    };
    /// Takes the lengths at a port in. Gives what the first of them that disagrees with others met before stood
    /// against, and that length; null if all agree.
    std::optional<std::pair<Level, int>> take(const std::vector<int> &lengths, PortKind kind) {
        std::optional<std::pair<Level, int>> clash;
        mLevels.resize(std::max(mLevels.size(), lengths.size()), Level{1, kind});
        for (std::size_t i = 0; i < lengths.size(); ++i) {
            Level &widest = mLevels[i];
            if (lengths[i] != widest.length && lengths[i] != 1 && widest.length != 1 && !clash) {
                clash.emplace(widest, lengths[i]);
            }
            if (lengths[i] > widest.length) {
                widest = {lengths[i], kind};
            }
        }
        return clash;
    }

  private:
    std::vector<Level> mLevels;
};

log::LogParams placeOf(const Port &port) {
    return log::p("block", port.getBlock().value()) % log::p("port", port.getName());
}

void tellUnequal(const Port &port, int length) {
    log::msg(msg::error::UNEQUAL_PORT_VECTOR_WIDTHS, log::p("width", length) % placeOf(port));
}

void tellClash(const Port &port, const WidestVectors::Level &widest, int length) {
    if (widest.kind == kindOf(port)) {
        tellUnequal(port, length);
    } else {
        log::msg(msg::error::UNEQUAL_PORT_VECTOR_WIDTHS_MIXING,
                 log::p("expected", widest.length) % log::p("actual", length) % placeOf(port));
    }
}

/// The length of what drives a port at the innermost level where it does not fit the port's own, as the block's type
/// may tell that beforehand; null if all fit.
std::optional<int> unfitLength(const Port &port, const VectorDecorSpec &own, const TypesOfModel &types,
                               const RefChain &instance) {
    const Wire *wire = port.peekWire();
    const VectorDecorSpec driver(wire == nullptr ? PureValueRef() : types.at(*wire, instance),
                                 port.getBlock().getContext());
    if (!own.valid() || !driver.valid() || internal_vector::takesDriver(port, own, driver)) {
        return std::nullopt;
    }
    const std::vector<int> &asked = own.vectorLengths();
    const std::vector<int> &given = driver.vectorLengths();
    const auto at = [](const std::vector<int> &lengths, std::size_t i) { return i < lengths.size() ? lengths[i] : 1; };
    for (std::size_t i = 0; i < std::max(asked.size(), given.size()); ++i) {
        if (at(asked, i) != at(given, i)) {
            return at(given, i);
        }
    }
    return 1;
}

/// With `isFree`, each port by itself.
void checkDimensions(const Block &block, const TypesOfModel &types, bool isFree) {
    std::unordered_set<const Port *> told;
    for (const RefChain &instance : types.instances()) {
        WidestVectors widest;
        for (const Port &port : block.ports()) {
            if (isFreePort(port)) {
                continue;
            }
            const VectorDecorSpec vectors(types.at(port, instance), block.getContext());
            const auto clash =
                !isFree && vectors.isVector() ? widest.take(vectors.vectorLengths(), kindOf(port)) : std::nullopt;
            const auto unfit = unfitLength(port, vectors, types, instance);
            if ((clash || unfit) && told.insert(&port).second) {
                clash ? tellClash(port, clash->first, clash->second) : tellUnequal(port, *unfit);
            }
        }
    }
}

/// The first instance in which a block tells another type of a port than what drives it has, if `isUnfit` says so of
/// the two; null if there is none.
template <class IsUnfit>
const RefChain *unfitInstance(const Port &port, const TypesOfModel &types, const IsUnfit &isUnfit) {
    const Wire *wire = port.peekWire();
    if (wire == nullptr) {
        return nullptr;
    }
    for (const RefChain &instance : types.instances()) {
        const PureValueRef own = types.at(port, instance);
        const PureValueRef driver = types.at(*wire, instance);
        if (own && driver && !(own == driver) && isUnfit(own, driver)) {
            return &instance;
        }
    }
    return nullptr;
}

/// A type, or a member of it, without its vectors.
struct PartOfType {
    PartOfType(const PureValueRef &type, Context *context) : vectors(type, inner, context), record(inner) {}
    PureValueRef inner;
    VectorDecorSpec vectors;
    AggregateTypeSpec record;
};

/// Calls `agree` with two types that differ, then with the members at the same places of their records that do; true if
/// that is all it gave. What is no type is like any.
template <class Agree>
bool agreeEverywhere(const PureValueRef &own, const PureValueRef &driver, Context *context, const Agree &agree) {
    std::vector<std::pair<PureValueRef, PureValueRef>> open{{own, driver}};
    // Records may hold a record in several places.
    std::set<std::pair<const Value *, const Value *>> seen;
    for (bool isMember = false; !open.empty(); isMember = true) {
        const auto [typeA, typeB] = open.back();
        open.pop_back();
        if (!typeA || !typeB || typeA == typeB || !seen.emplace(typeA.get_ptr(), typeB.get_ptr()).second) {
            continue;
        }
        const PartOfType a(typeA, context);
        const PartOfType b(typeB, context);
        if (!agree(a, b, isMember)) {
            return false;
        }
        for (std::size_t i = 0; i < std::min(a.record.size(), b.record.size()); ++i) {
            open.emplace_back(a.record.at(i), b.record.at(i));
        }
    }
    return true;
}

/// Whether two types have the same members in their records, and the same vectors and complex numbers in these.
bool haveSameMembers(const PureValueRef &own, const PureValueRef &driver, Context *context) {
    return agreeEverywhere(own, driver, context, [context](const PartOfType &a, const PartOfType &b, bool isMember) {
        if (!isMember && !a.record.isAggregate() && !b.record.isAggregate()) {
            return true;
        }
        return (!isMember || a.vectors == b.vectors) && a.record.size() == b.record.size() &&
               ComplexDecorSpec(a.inner, context).isComplex() == ComplexDecorSpec(b.inner, context).isComplex();
    });
}

void checkMembers(const Block &block, const TypesOfModel &types) {
    for (const Port &port : block.ports()) {
        const RefChain *unfit = unfitInstance(port, types, [&](const PureValueRef &own, const PureValueRef &driver) {
            return !haveSameMembers(own, driver, block.getContext());
        });
        if (unfit != nullptr) {
            log::msg(msg::error::UNEQUAL_PORT_RECORDS, log::p("type", types.at(port, *unfit)) %
                                                           log::p("driver", types.at(*port.peekWire(), *unfit)) %
                                                           placeOf(port));
        }
    }
}

/// A port or wire in words.
std::string descriptiveName(const PureValueRef &name) {
    if (numberVR(name)) {
        return "data port " + name->toString();
    }
    const PureTupleValueRef pair = pureTupleVR(name);
    if (pair && stringVR(pair->maybeAt(0)) && numberVR(pair->maybeAt(1))) {
        return "port(" + pair->at(1)->toString() + ") " + pair->at(0)->toString();
    }
    return "port " + name->toString();
}

template <class End> void checkHasType(const End &end, const char *side, const TypesOfModel &types) {
    if (types.any(end, [](const PureValueRef &type) { return !AggregateTypeSpec(type).valid(); })) {
        const Block &block = end.getBlock();
        log::msg(msg::error::UNABLE_TO_INFER_TYPE,
                 log::p("port", descriptiveName(end.getName())) % log::p("block", block.value()) %
                     log::p("model", block.getModel().value()) % log::p("side", side));
    }
}

/// Whether complex numbers drive what the block itself tells to be real.
bool isComplexDriven(const Port &port, const TypesOfModel &types) {
    Context *context = port.getBlock().getContext();
    return unfitInstance(port, types, [&](const PureValueRef &own, const PureValueRef &driver) {
               // Records are told of as such.
               return ComplexDecorSpec(own, context).isReal() && ComplexDecorSpec(driver, context).isComplex() &&
                      haveSameMembers(own, driver, context);
           }) != nullptr;
}

/// Whether each number of the driver's type, or in a record of it, is one of the port's own at the same place.
bool holdsNumbersOf(const PureValueRef &own, const PureValueRef &driver, Context *context) {
    return agreeEverywhere(own, driver, context, [context](const PartOfType &a, const PartOfType &b, bool) {
        const NumTypeSpec numberA(a.inner, context);
        const NumTypeSpec numberB(b.inner, context);
        return !numberA.valid() || !numberB.valid() ||
               (numberA.isComplex() == numberB.isComplex() &&
                NumTypeSpec::typeOp(numberA, numberB, TYPE_OP_UNION) == numberA);
    });
}

/// Whether a port has a type that does not hold what drives it, though vectors, records and complex numbers agree,
/// which have validators of their own.
bool losesNumbers(const PureValueRef &own, const PureValueRef &driver, Context *context) {
    return own && driver && !(own == driver) && VectorDecorSpec(own, context) == VectorDecorSpec(driver, context) &&
           !(ComplexDecorSpec(own, context).isReal() && ComplexDecorSpec(driver, context).isComplex()) &&
           haveSameMembers(own, driver, context) && !holdsNumbersOf(own, driver, context);
}

/// A block that tells the type of an input by itself may tell another than what drives it has. Inference then lets
/// whichever it came to first stand for all readers of the wire, so the result hangs on the names of the blocks. Where
/// all readers have the same other type, it is theirs that stands, and which of them told it is not known any more.
void checkReaders(const Wire &wire, const TypesOfModel &types) {
    const Block &block = wire.getBlock();
    for (const RefChain &instance : types.instances()) {
        const PureValueRef driver = types.at(wire, instance);
        std::vector<std::pair<const Port *, PureValueRef>> unfit;
        std::size_t readers = 0;
        for (const Port &port : wire.ports()) {
            if (&port.getBlock().getModel() != &block.getModel()) {
                continue;
            }
            ++readers;
            PureValueRef own = types.at(port, instance);
            if (losesNumbers(own, driver, block.getContext())) {
                unfit.emplace_back(&port, std::move(own));
            }
        }
        if (unfit.empty()) {
            continue;
        }
        const PureValueRef &other = unfit.front().second;
        if (readers > 1 && unfit.size() == readers &&
            std::all_of(unfit.begin(), unfit.end(), [&](const auto &reader) { return reader.second == other; })) {
            log::msg(msg::warning::MODIFYING_WIRE_TYPE, log::p("newType", other) % log::p("oldType", driver) %
                                                            log::p("wire", wire.getName()) %
                                                            log::p("block", block.value()));
            return;
        }
        for (const auto &[port, own] : unfit) {
            log::msg(msg::warning::MODIFYING_PORT_TYPE,
                     log::p("newType", driver) % log::p("oldType", own) % placeOf(*port));
        }
        return;
    }
}

} // namespace

void PortDimensionsValidator::validate(ModelPassContext &context) {
    const TypesOfModel types = facts().typesOf(context);
    for (const Block &block : context.getModel()) {
        const bool isFree = hasFreeDimensions(block);
        if (!isFree || hasOwnTypes(block)) {
            checkDimensions(block, types, isFree);
        }
        checkMembers(block, types);
    }
}

void RealOnlyPortsValidator::validate(ModelPassContext &context) {
    static const PortTable table = tableOf(kRealOnly);
    const TypesOfModel types = facts().typesOf(context);
    for (const Block &block : context.getModel()) {
        const auto row = table.find(block.type());
        const auto isComplex = [&](const PureValueRef &type) {
            return ComplexDecorSpec(type, block.getContext()).isComplex();
        };
        for (const Port &port : block.ports()) {
            const bool isReal = row != table.end() && (row->second == nullptr || port.getName() == *row->second);
            if ((isReal && types.any(port, isComplex)) || isComplexDriven(port, types)) {
                log::msg(msg::error::REAL_ONLY_PORT_IS_COMPLEX,
                         log::p("block", block.value()) % log::p("port", port.getName()));
            }
        }
    }
}

void TypeInferenceValidator::validate(ModelPassContext &context) {
    const TypesOfModel types = facts().typesOf(context);
    for (const Block &block : context.getModel()) {
        for (const Wire &wire : block) {
            checkHasType(wire, "output", types);
            checkReaders(wire, types);
        }
        for (const Port &port : block.ports()) {
            checkHasType(port, "input", types);
        }
    }
}

} // namespace orvo
