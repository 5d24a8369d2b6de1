// The engine of the unrolling of records.
#include "orvo/aggregateunroll.h"

#include "orvo/unrollpasses.h"

#include <orvo/block.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>

#include <algorithm>

namespace orvo::internal_aggregate {

BlockUnrollerImpl::BlockUnrollerImpl(Block &block, const std::vector<RefChain> &instances,
                                     std::shared_ptr<AggregateUnroller> unroller, GlobalTypePass &types,
                                     const AggregateTypeManager &manager)
    : mBlock(block), mInstances(instances), mUnroller(std::move(unroller)), mManager(manager) {
    std::vector<Told> told;
    told.reserve(block.getWireCount() + block.getPortCount());
    std::vector<RefChain> some;
    for (const Wire &wire : block) {
        const std::vector<RefChain> &telling = internal::tellingInstances(wire, mInstances, types, some);
        told.push_back(telling.empty() ? Told{nullptr, true, false, true, true} : toldOf(wire, telling, types));
    }
    for (const Port &port : block.ports()) {
        told.push_back(toldOf(port, mInstances, types));
    }
    mHoldsRecords = std::any_of(told.begin(), told.end(), [](const Told &of) { return of.holdsRecord; });
    auto of = told.begin();
    mWires.reserve(block.getWireCount());
    for (Wire &wire : block) {
        if (of->spec == nullptr) {
            ++of;
            continue;
        }
        const AggregateUnrollKind kind = mUnroller->originalWire(wire, *of->spec, mManager);
        if (!of->known) {
            log::msg(msg::error::UNAGG_INVALID_WIRE_TYPE, log::p("wire", wire.value()));
            mFailed = true;
        }
        noteObstacle(*of, kind);
        mExpand = mExpand || of->spec->isAggregate();
        mWires.push_back({&wire, (of++)->spec, kind});
    }
    mPorts.reserve(block.getPortCount());
    for (Port &port : block.ports()) {
        const AggregateUnrollKind kind = mUnroller->originalPort(port, *of->spec, mManager);
        if (!of->known) {
            log::msg(msg::error::UNAGG_INVALID_PORT_TYPE,
                     log::p("port", port.getName()) % log::p("block", block.value()));
            mFailed = true;
        }
        noteObstacle(*of, kind);
        mExpand = mExpand || of->spec->isAggregate();
        mPorts.push_back({MaybePort(port), of->spec, &driverOf(port, *of, kind, types), kind});
        ++of;
    }
    if (!mFailed && !mObstacle.empty()) {
        failToExpand(mObstacle);
    } else if (hasWork() && !mUnroller->failure().empty()) {
        failToExpand(mUnroller->failure());
    }
}

void BlockUnrollerImpl::failOnBoundary() { failToExpand("the name of a member is in use, or both sides disagree"); }

void BlockUnrollerImpl::failToExpand(const std::string &detail) {
    log::msg(msg::error::UNAGG_INVALID_EXPAND_TYPE, log::p("block", mBlock.value()) % log::p("detail", detail));
    mFailed = true;
}

namespace {

bool holdsRecord(const PureValueRef &type) {
    return isAggregateType(type.get_ptr()) || (type && internal::isVectorOfRecords(type));
}

} // namespace

template <class End>
BlockUnrollerImpl::Told BlockUnrollerImpl::toldOf(const End &end, const std::vector<RefChain> &instances,
                                                  GlobalTypePass &types) const {
    const PureValueRef type = types.getType(end, instances.front());
    const auto fitsBounds = [this](const PureValueRef &of) {
        return !isAggregateType(of.get_ptr()) || mManager.comesApart(mManager.specOf(of));
    };
    Told told{nullptr, static_cast<bool>(type), holdsRecord(type), fitsBounds(type), true};
    // One netlist serves all instances.
    for (auto instance = instances.begin() + 1; instance != instances.end(); ++instance) {
        const PureValueRef other = types.getType(end, *instance);
        if (other == type) {
            continue;
        }
        told.known = told.known && other;
        told.holdsRecord = told.holdsRecord || holdsRecord(other);
        told.comesApart = told.comesApart && fitsBounds(other);
        told.agree =
            told.agree && told.comesApart && !mUnroller->writesTypes() && internal::fallApartAlike(other, type);
    }
    const bool serves = told.known && told.comesApart && (told.agree || !told.holdsRecord);
    told.spec = &mManager.specOf(serves ? type : PureValueRef());
    return told;
}

void BlockUnrollerImpl::noteObstacle(const Told &told, AggregateUnrollKind kind) {
    if (!mObstacle.empty()) {
        return;
    }
    if (!told.comesApart) {
        mObstacle = "a record has a part without members, or too many members or levels of them";
    } else if (!told.agree && (told.holdsRecord || (mHoldsRecords && kind != AggregateUnrollKind::Leave))) {
        mObstacle = "its signals differ in type between the instances of the model";
    }
}

const AggregateTypeSpec &BlockUnrollerImpl::driverOf(const Port &port, const Told &told, AggregateUnrollKind kind,
                                                     GlobalTypePass &types) {
    if (!mHoldsRecords || mUnroller->writesTypes() || !told.spec->valid() || told.spec->isAggregate()) {
        return *told.spec;
    }
    const Told driver = toldOf(*port.peekWire(), mInstances, types);
    if (driver.known) {
        noteObstacle(driver, kind);
    }
    return driver.spec->valid() && !driver.spec->isAggregate() ? *driver.spec : *told.spec;
}

void BlockUnrollerImpl::unroll(GlobalTypePass &) {
    if (!hasWork()) {
        return;
    }
    mUnroller->preAttach(mManager);
    for (const PortInfo &info : mPorts) {
        if (info.kind != AggregateUnrollKind::Leave) {
            unrollPort(info);
        }
    }
    for (const WireInfo &info : mWires) {
        if (info.kind != AggregateUnrollKind::Leave) {
            unrollWire(info);
        }
    }
    mUnroller->postAttach();
}

Block &BlockUnrollerImpl::create(const StaticString &type, const PureValueRef &key, const std::string &word) const {
    Context *context = mBlock.getContext();
    const PureValueRef name = PureTupleValue::get(mBlock.getName(), key, StringValue::get(word, context), context);
    Block &made = *Block::create(mBlock.getModel(), name);
    made.setParam(A_BLOCK_TYPE, type);
    return made;
}

void BlockUnrollerImpl::createUnpackTree(const PureValueRef &key, Wire &wire, const AggregateTypeSpec &spec,
                                         const std::string &path, int *nextIndex, const VisitPart &visit) {
    Block &unpack = create(A_AUNPACK_BLOCK, key, "unapack_" + path);
    unpack.setParam(A_AUNPACK_PORT_IN, wire);
    for (std::size_t i = 0; i < spec.size(); ++i) {
        Wire &part = *Wire::create(unpack, NumberValue::get(static_cast<int>(i), mBlock.getContext()));
        const AggregateTypeSpec &member = mManager.specOf(spec.at(i));
        if (member.isAggregate()) {
            createUnpackTree(key, part, member, path + "_" + std::to_string(i), nextIndex, visit);
        } else {
            visit(member, (*nextIndex)++, part);
        }
    }
}

void BlockUnrollerImpl::unrollPort(const PortInfo &info) {
    // Neighbours that were taken apart before have connected the port anew.
    Port *port = info.port.getPort();
    ORVO_ASSERT(port != nullptr, "a neighbour went without handing over its readers");
    Wire &driver = *port->peekWire();
    const PureValueRef &key = info.port.getKey();
    const VisitPart attach = [&](const AggregateTypeSpec &member, int index, Wire &part) {
        mUnroller->clearAttachedPorts();
        mUnroller->attachPort(*port, member, index, part, mManager);
        mUnroller->notifyUnrollAttachedPorts(mBlock, key);
    };
    if (!info.spec->isAggregate()) {
        attach(*info.driver, 0, driver);
        return;
    }
    if (info.kind == AggregateUnrollKind::Flat) {
        int nextIndex = 0;
        createUnpackTree(key, driver, *info.spec, "aunpack", &nextIndex, attach);
        return;
    }
    Block &unpack = create(A_AUNPACK_BLOCK, key, "aunpack");
    unpack.setParam(A_AUNPACK_PORT_IN, driver);
    for (std::size_t i = 0; i < info.spec->size(); ++i) {
        const int number = static_cast<int>(i);
        Wire &part = *Wire::create(unpack, NumberValue::get(number, mBlock.getContext()));
        attach(mManager.specOf(info.spec->at(i)), number, part);
    }
}

void BlockUnrollerImpl::attachWire(const WireInfo &info, const AggregateTypeSpec &member, int index,
                                   const std::vector<MaybePort> &readers) {
    const PureValueRef key = info.wire->getName();
    if (const Wire *taken = mUnroller->attachWire(*info.wire, member, index, readers, mManager)) {
        mUnroller->notifyUnrollWire(mBlock, key, taken->getBlock(), taken->getName());
    }
}

Block *BlockUnrollerImpl::packFor(const WireInfo &info, const std::vector<MaybePort> &readers,
                                  const std::string &word) const {
    if (readers.empty()) {
        return nullptr;
    }
    Block &pack = create(A_APACK_BLOCK, info.wire->getName(), word);
    Wire &whole = *Wire::create(pack, A_APACK_WIRE_OUT);
    for (const MaybePort &reader : readers) {
        reader.setWire(whole);
    }
    return &pack;
}

std::vector<MaybePort> BlockUnrollerImpl::memberOf(Block *pack, std::size_t number) const {
    std::vector<MaybePort> member;
    if (pack != nullptr) {
        member.emplace_back(*pack, NumberValue::get(static_cast<int>(number), mBlock.getContext()));
    }
    return member;
}

void BlockUnrollerImpl::flatUnrollOutput(const WireInfo &info, const std::vector<MaybePort> &readers,
                                         const AggregateTypeSpec &spec, const std::string &path, int *nextIndex) {
    Block *pack = packFor(info, readers, "apack_" + path);
    for (std::size_t i = 0; i < spec.size(); ++i) {
        const AggregateTypeSpec &member = mManager.specOf(spec.at(i));
        if (member.isAggregate()) {
            flatUnrollOutput(info, memberOf(pack, i), member, path + "_" + std::to_string(i), nextIndex);
        } else {
            attachWire(info, member, (*nextIndex)++, memberOf(pack, i));
        }
    }
}

void BlockUnrollerImpl::unrollWire(const WireInfo &info) {
    const std::vector<MaybePort> readers = maybePortsOf(*info.wire);
    if (!info.spec->isAggregate()) {
        attachWire(info, *info.spec, 0, readers);
        return;
    }
    if (info.kind == AggregateUnrollKind::Flat) {
        int nextIndex = 0;
        flatUnrollOutput(info, readers, *info.spec, "apack", &nextIndex);
        return;
    }
    Block *pack = packFor(info, readers, "apack");
    for (std::size_t i = 0; i < info.spec->size(); ++i) {
        attachWire(info, mManager.specOf(info.spec->at(i)), static_cast<int>(i), memberOf(pack, i));
    }
}

} // namespace orvo::internal_aggregate
