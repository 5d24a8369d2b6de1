// What block types say to the unrolling of records, as far as most of them agree.
#include <orvo/aggregateunroller.h>

#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/limits.h>
#include <orvo/logging.h>
#include <orvo/orvoutils.h>
#include <orvo/signalpacker.h>
#include <orvo/staticstrings.h>

#include <fmt/format.h>

#include <algorithm>

namespace orvo {

const std::string AggregateUnroller::mNameSuffix = "aunroll";

std::shared_ptr<AggregateUnroller> AggregateUnrollHandler::createUnroller(Block &block) const {
    return std::make_shared<SimplePrimAggregateUnroller>(block);
}

namespace {

void appendFlatTypes(const AggregateTypeSpec &spec, const AggregateTypeManager &manager,
                     std::vector<PureValueRef> &types) {
    for (const PureValueRef &type : spec.types()) {
        if (isAggregateType(type.get_ptr())) {
            appendFlatTypes(manager.specOf(type), manager, types);
        } else {
            types.push_back(type);
        }
    }
}

PureValueRef numberOf(std::size_t number, Context *context) {
    return NumberValue::get(static_cast<int>(number), context);
}

std::string textOf(const AggregateTypeSpec &spec, Context *context) { return spec.toValue(context)->toString(); }

std::string textOf(const PureValueRef &key) { return key ? key->toString() : "*INVALID*"; }

} // namespace

const AggregateTypeSpec &AggregateTypeManager::specOf(const PureValueRef &type) const {
    const AggregateTypeSpec &spec = mCache.specOf(type);
    if (spec.isAggregate()) {
        mFlatOfKnown.try_emplace(&spec);
    }
    return spec;
}

const AggregateTypeManager::Flat &AggregateTypeManager::flatOf(const AggregateTypeSpec &spec) const {
    const auto known = mFlatOfKnown.find(&spec);
    if (known != mFlatOfKnown.end() && known->second != nullptr) {
        return *known->second;
    }
    const auto [at, isNew] = mFlat.try_emplace(spec.types());
    if (isNew && spec.isAggregate()) {
        const CompoundTypeInfo shape = CompoundTypeInfo::createAggregateTypeInfo(spec, false);
        // Short designs have records of any number of members, and of any number of levels.
        if (shape.valid() && shape.size() <= limits::kLanes) {
            appendFlatTypes(spec, *this, at->second.types);
            at->second.shape = shape;
        }
    }
    // Asking for the types of records inside has made entries, so that the iterator may be void.
    if (const auto own = mFlatOfKnown.find(&spec); own != mFlatOfKnown.end()) {
        own->second = &at->second;
    }
    return at->second;
}

const std::vector<PureValueRef> &AggregateTypeManager::getFlatContainerTypes(const AggregateTypeSpec &spec) const {
    static const std::vector<PureValueRef> none;
    return spec.isAggregate() ? flatOf(spec).types : none;
}

bool AggregateTypeManager::comesApart(const AggregateTypeSpec &spec) const {
    return spec.isAggregate() && flatOf(spec).shape.valid();
}

CompoundDecorIndex AggregateTypeManager::pathTo(const AggregateTypeSpec &spec, int flatIndex) const {
    ORVO_ASSERT(spec.isAggregate() && flatIndex >= 0 && static_cast<std::size_t>(flatIndex) < flatOf(spec).shape.size(),
                "a record has no member of this number");
    return flatOf(spec).shape.getIndexDeep(flatIndex);
}

void AggregateTypeManager::addUnrolledMapping(UnrollMappings *mappings, const PureValueRef &oldName,
                                              const PureValueRef &newName, const AggregateTypeSpec &spec,
                                              int flatIndex) const {
    mappings->addMapping(oldName, pathTo(spec, flatIndex), newName);
}

bool AggregateUnroller::writesTypes() const { return false; }

bool AggregateUnroller::waits() const { return false; }

void AggregateUnroller::fail(const std::string &text) {
    if (mFailure.empty()) {
        mFailure = text;
    }
}

namespace internal {

bool isVectorOfRecords(const PureValueRef &type) {
    PureValueRef inner;
    const VectorDecorSpec vectors(type, inner, nullptr);
    return vectors.isVector() && isAggregateType(inner.get_ptr());
}

namespace {

/// Compares two types part by part. A part that is there many times is looked at once, and what is nested deeper than a
/// text can be is not alike.
class Comparison {
  public:
    bool alike(const PureValueRef &a, const PureValueRef &b) {
        if (a == b || !a || !b) {
            return a == b;
        }
        const std::pair pair(a.get_ptr(), b.get_ptr());
        if (mAlike.count(pair) != 0) {
            return true;
        }
        if (mDepth > limits::kTupleDepth) {
            return false;
        }
        ++mDepth;
        const bool are = areAlike(a, b);
        --mDepth;
        if (are) {
            mAlike.insert(pair);
        }
        return are;
    }

  private:
    bool areAlike(const PureValueRef &a, const PureValueRef &b) {
        PureValueRef elements[2];
        const VectorDecorSpec vectors[] = {VectorDecorSpec(a, elements[0], nullptr),
                                           VectorDecorSpec(b, elements[1], nullptr)};
        const AggregateTypeSpec records[] = {AggregateTypeSpec(elements[0]), AggregateTypeSpec(elements[1])};
        if (!vectors[0].valid() || vectors[0] != vectors[1] || records[0].isAggregate() != records[1].isAggregate() ||
            records[0].size() != records[1].size()) {
            return false;
        }
        if (!records[0].isAggregate()) {
            return ComplexDecorSpec(elements[0], nullptr).isComplex() ==
                   ComplexDecorSpec(elements[1], nullptr).isComplex();
        }
        return std::equal(records[0].types().begin(), records[0].types().end(), records[1].types().begin(),
                          [this](const PureValueRef &left, const PureValueRef &right) { return alike(left, right); });
    }

    std::size_t mDepth = 0;
    std::set<std::pair<const Value *, const Value *>> mAlike;
};

} // namespace

bool fallApartAlike(const PureValueRef &a, const PureValueRef &b) { return Comparison().alike(a, b); }

ValueRef valueOfMember(ValueRef value, const CompoundDecorIndex &path) {
    for (const CompoundDecorIndex::Step &step : path.steps()) {
        const TupleValueRef members = tupleVR(value);
        if (!members) {
            break;
        }
        value = members->maybeAt(static_cast<std::size_t>(step.index));
    }
    return value;
}

} // namespace internal

const AggregateTypeSpec &SimplePrimAggregateUnroller::spec() const {
    static const AggregateTypeSpec none;
    return mSpec == nullptr ? none : *mSpec;
}

void SimplePrimAggregateUnroller::note(const AggregateTypeSpec &spec, const AggregateTypeManager &manager) {
    if (!spec.isAggregate()) {
        mWaits = mWaits || (spec.valid() && internal::isVectorOfRecords(spec.at(0)));
    } else if (mSpec == nullptr) {
        mSpec = &spec;
        mFlatSize = manager.getFlatSize(spec);
        const std::vector<PureValueRef> &members = manager.getFlatContainerTypes(spec);
        if (std::any_of(members.begin(), members.end(),
                        [this](const PureValueRef &member) { return standsInTheWay(member); })) {
            fail("a record in a vector has no members, or too many of them");
        }
    }
}

/// A member that has to come apart into scalars must have some.
bool SimplePrimAggregateUnroller::standsInTheWay(const PureValueRef &memberType) const {
    if (!needsScalars(memberType)) {
        return false;
    }
    const CompoundTypeInfo scalars = CompoundTypeInfo::createFromValue(memberType);
    return !scalars.valid() || scalars.size() > limits::kLanes;
}

AggregateUnrollKind SimplePrimAggregateUnroller::originalWire(Wire &wire, const AggregateTypeSpec &spec,
                                                              const AggregateTypeManager &manager) {
    note(spec, manager);
    if (spec.isAggregate()) {
        validateAggregateTypeSpecForWire(wire, spec, manager);
    } else {
        mPlainWires.insert(wire.getName());
    }
    return AggregateUnrollKind::Flat;
}

AggregateUnrollKind SimplePrimAggregateUnroller::originalPort(Port &port, const AggregateTypeSpec &spec,
                                                              const AggregateTypeManager &manager) {
    note(spec, manager);
    if (spec.isAggregate()) {
        validateAggregateTypeSpecForPort(port, spec, manager);
    } else {
        mPlainPorts.insert(port.getName());
    }
    return AggregateUnrollKind::Flat;
}

void SimplePrimAggregateUnroller::validateAggregateTypeSpecForWire(const Wire &wire, const AggregateTypeSpec &spec,
                                                                   const AggregateTypeManager &) {
    if (spec.types() != mSpec->types()) {
        Context *context = mBlock.getContext();
        fail(fmt::format("SimplePrimAggregateUnroller does not support aggregate type on wire <{}>\n{}\nthat is "
                         "different from {}",
                         wire.value()->getPath(), textOf(spec, context), textOf(*mSpec, context)));
    }
}

void SimplePrimAggregateUnroller::validateAggregateTypeSpecForPort(const Port &port, const AggregateTypeSpec &spec,
                                                                   const AggregateTypeManager &) {
    if (spec.types() != mSpec->types()) {
        Context *context = mBlock.getContext();
        fail(fmt::format("SimplePrimAggregateUnroller does not support aggregate type on block {} (port {})\n{}\nthat "
                         "is different from {}",
                         mBlock.value()->getPath(), textOf(port.getName()), textOf(spec, context),
                         textOf(*mSpec, context)));
    }
}

void PrimAggregateUnroller::validateAggregateTypeSpecForWire(const Wire &wire, const AggregateTypeSpec &other,
                                                             const AggregateTypeManager &manager) {
    const std::size_t size = manager.getFlatSize(other);
    if (size != getFlatSize()) {
        fail(fmt::format("PrimAggregateUnroller does not support aggregate type on wire <{}>\n{}\nwith a flat-size {} "
                         "different from {}",
                         wire.value()->getPath(), textOf(other, block().getContext()), size, getFlatSize()));
    }
}

void PrimAggregateUnroller::validateAggregateTypeSpecForPort(const Port &port, const AggregateTypeSpec &other,
                                                             const AggregateTypeManager &manager) {
    const std::size_t size = manager.getFlatSize(other);
    if (size != getFlatSize()) {
        fail(fmt::format("PrimAggregateUnroller does not support aggregate type on block {} (port {})\n{}\nwith a "
                         "flat-size {} different from {}",
                         block().value()->getPath(), textOf(port.getName()), textOf(other, block().getContext()), size,
                         getFlatSize()));
    }
}

PureValueRef SimplePrimAggregateUnroller::makeUnrollBlockName(int flatIndex) const {
    Context *context = mBlock.getContext();
    return PureTupleValue::get(mBlock.getName(), NumberValue::get(flatIndex, context), context);
}

ValueRef SimplePrimAggregateUnroller::memberValue(const PureValueRef &, const ValueRef &value, int flatIndex,
                                                  const AggregateTypeManager &manager) const {
    if (!isAggregateType(value.get_ptr())) {
        return value;
    }
    const std::vector<PureValueRef> &types = manager.getFlatContainerTypes(manager.specOf(PureValueRef(value)));
    return types.size() == mFlatSize ? ValueRef(types[static_cast<std::size_t>(flatIndex)]) : value;
}

bool SimplePrimAggregateUnroller::needsScalars(const PureValueRef &) const { return false; }

Block &SimplePrimAggregateUnroller::createMember(const PureValueRef &name, int flatIndex,
                                                 const AggregateTypeManager &manager) const {
    Block &member = *Block::create(mBlock.getModel(), name);
    for (auto param : Params(mBlock)) {
        if (internal::isTakenOver(param.first, param.second)) {
            member.setParam(param.first, memberValue(param.first, param.second, flatIndex, manager));
        }
    }
    for (const Wire &wire : mBlock) {
        OrvoUtils::copyParams(*Wire::create(member, wire.getName()), wire);
    }
    return member;
}

void SimplePrimAggregateUnroller::preAttach(const AggregateTypeManager &manager) {
    ORVO_ASSERT(mMembers.empty(), "a block is taken apart twice");
    Context *context = mBlock.getContext();
    const std::vector<PureValueRef> &types = manager.getFlatContainerTypes(spec());
    for (std::size_t i = 0; i < types.size(); ++i) {
        const int flatIndex = static_cast<int>(i);
        const PureValueRef name = makeUnrollBlockName(flatIndex);
        Member member;
        member.scalars = needsScalars(types[i]) ? CompoundTypeInfo::createFromValue(types[i]) : CompoundTypeInfo();
        if (!member.scalars.valid()) {
            member.blocks.push_back(&createMember(name, flatIndex, manager));
        }
        for (std::size_t scalar = 0; scalar < member.scalars.size(); ++scalar) {
            const PureValueRef own =
                PureTupleValue::get(mBlock.getName(), numberOf(i, context), numberOf(scalar, context), context);
            member.blocks.push_back(&createMember(own, flatIndex, manager));
        }
        mMembers.push_back(std::move(member));
    }
}

std::vector<Block *> SimplePrimAggregateUnroller::memberBlocks() const {
    std::vector<Block *> all;
    for (const Member &member : mMembers) {
        all.insert(all.end(), member.blocks.begin(), member.blocks.end());
    }
    return all;
}

void SimplePrimAggregateUnroller::attach(Block &to, const PureValueRef &key, Wire &driver) {
    const MaybePort attached(to, key);
    attached.setWire(driver);
    addAttachedPort(attached);
}

namespace {

/// The first element of a vector in all dimensions; a scalar is its own.
Wire &firstLane(const Block &beside, const PureValueRef &key, Wire &whole, const PureValueRef &type) {
    Context *context = beside.getContext();
    Wire *lane = &whole;
    const std::size_t depth = VectorDecorSpec(type, context).vectorDepth();
    for (std::size_t k = 0; k < depth; ++k) {
        const PureValueRef name = PureTupleValue::get(beside.getName(), key, StringValue::get("first", context),
                                                      numberOf(k, context), context);
        Block &unpack = *Block::create(beside.getModel(), name);
        unpack.setParam(A_BLOCK_TYPE, A_VUNPACK_BLOCK);
        unpack.setParam(A_VUNPACK_PORT_IN, *lane);
        lane = Wire::create(unpack, numberOf(0, context));
    }
    return *lane;
}

} // namespace

void SimplePrimAggregateUnroller::attachPort(Port &port, const AggregateTypeSpec &member, int flatIndex, Wire &driver,
                                             const AggregateTypeManager &) {
    ORVO_ASSERT(!member.isAggregate(), "a record is attached to one of its members");
    const PureValueRef key = port.getName();
    if (mPlainPorts.count(key) != 0) {
        Wire &shared = sharesVectors() ? driver : firstLane(mBlock, key, driver, member.at(0));
        for (const Member &one : mMembers) {
            for (Block *to : one.blocks) {
                attach(*to, key, shared);
            }
        }
        return;
    }
    const Member &to = mMembers[static_cast<std::size_t>(flatIndex)];
    if (!to.scalars.valid()) {
        attach(*to.blocks.front(), key, driver);
        return;
    }
    Context *context = mBlock.getContext();
    SignalPacker packer(to.scalars, mBlock.getModel(),
                        PureTupleValue::get(mBlock.getName(), key, NumberValue::get(flatIndex, context), context));
    packer.doUnpack(driver);
    auto scalar = to.blocks.begin();
    for (const CompoundDecorIndex path : to.scalars) {
        attach(**scalar++, key, *packer.getUnpackedWire(path));
    }
}

Wire *SimplePrimAggregateUnroller::attachWire(Wire &wire, const AggregateTypeSpec &member, int flatIndex,
                                              const std::vector<MaybePort> &readers, const AggregateTypeManager &) {
    ORVO_ASSERT(!member.isAggregate(), "a record is attached to one of its members");
    const auto connect = [](const std::vector<MaybePort> &ports, Wire &to) {
        for (const MaybePort &port : ports) {
            port.setWire(to);
        }
    };
    const PureValueRef key = wire.getName();
    const Member &from = mMembers[static_cast<std::size_t>(flatIndex)];
    if (!from.scalars.valid() || mPlainWires.count(key) != 0) {
        Wire *taken = from.blocks.front()->getWire(key);
        connect(readers, *taken);
        return taken;
    }
    Context *context = mBlock.getContext();
    SignalPacker packer(from.scalars, mBlock.getModel(),
                        PureTupleValue::get(mBlock.getName(), key, NumberValue::get(flatIndex, context), context));
    packer.doPack(readers);
    auto scalar = from.blocks.begin();
    for (const CompoundDecorIndex path : from.scalars) {
        Wire &taken = *(*scalar++)->getWire(key);
        connect(packer.getPackedPorts(path), taken);
        notifyUnrollWire(mBlock, key, taken.getBlock(), taken.getName());
    }
    return nullptr;
}

void SimplePrimAggregateUnroller::postAttach() { delete &mBlock; }

} // namespace orvo
