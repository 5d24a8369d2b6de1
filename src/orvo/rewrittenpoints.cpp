// What stands where a replaced block stood is seen by what its drivers feed and what feeds its readers.
#include "orvo/rewrittenpoints.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>

namespace orvo::internal {

using BlockCallback = util::Function<void(Block &)>;

const std::string &RewrittenPoints::Notifier::getSuffix() const {
    static const std::string none;
    return none;
}

RewrittenPoints::RewrittenPoints(const PassContext &context, Model &model, const std::vector<RefChain> &instances)
    : mModel(model), mUpdater(context, model, instances.front()) {
    mUpdater.setInstances(instances);
    mUpdater.setupUnrollerNotifier(&mNotifier);
}

RewrittenPoints::~RewrittenPoints() { end(); }

void RewrittenPoints::hook(bool on) {
    EventManager &events = mModel.getDesign().events();
    const auto born = BlockCallback::bind<&RewrittenPoints::onBlockBorn>(this);
    const auto dying = BlockCallback::bind<&RewrittenPoints::onBlockDying>(this);
    if (on) {
        events.blockBorn.add(born);
        events.blockDying.add(dying);
    } else {
        events.blockBorn.remove(born);
        events.blockDying.remove(dying);
    }
}

void RewrittenPoints::begin(Block &block) {
    end();
    mBlock = &block;
    for (const Port &port : block.ports()) {
        mInputs.emplace_back(port.getName(), port.peekWire());
    }
    const PureValueRef input = NumberValue::get(0, block.getContext());
    for (Wire &wire : block) {
        const std::size_t before = mReaders.size();
        for (const Port &port : wire.ports()) {
            if (&port.getBlock() != &block) {
                mReaders.push_back({port.getBlock().getName(), port.getName()});
            }
        }
        if (mReaders.size() != before) {
            mOutputs.push_back({wire.getName(), mReaders[before]});
            continue;
        }
        Block &probe = *Block::create(mModel, "probe", A_TERMINAL_BLOCK);
        probe.setParam(input, wire);
        mProbes.push_back(&probe);
        mOutputs.push_back({wire.getName(), {probe.getName(), input}});
    }
    hook(true);
}

void RewrittenPoints::end() {
    if (mBlock != nullptr || !mOutputs.empty() || !mInputs.empty()) {
        hook(false);
    }
    for (Block *probe : mProbes) {
        delete probe;
    }
    mBlock = nullptr;
    mInputs.clear();
    mOutputs.clear();
    mReaders.clear();
    mBorn.clear();
    mProbes.clear();
}

void RewrittenPoints::onBlockDying(Block &block) {
    if (&block == mBlock) {
        tell();
    }
    std::erase(mBorn, &block);
}

/// The block still has the constraints, and all readers have moved.
void RewrittenPoints::tell() const {
    for (const auto &[name, driver] : mInputs) {
        tellPort(name, driver);
    }
    for (const Output &output : mOutputs) {
        const Block *reader = mModel.getBlock(output.reader.block);
        const Port *port = reader == nullptr ? nullptr : reader->getPort(output.reader.port);
        if (port != nullptr && &port->peekWire()->getBlock() != mBlock) {
            const Wire &wire = *port->peekWire();
            mNotifier.notifyUnrollWire(*mBlock, output.name, wire.getBlock(), wire.getName());
        }
    }
}

void RewrittenPoints::tellPort(const PureValueRef &name, const Wire *driver) const {
    bool isRead = false;
    for (const Block *born : mBorn) {
        for (const Port &port : born->ports()) {
            if (port.peekWire() == driver) {
                mNotifier.notifyUnrollPort(*mBlock, name, *born, port.getName());
                isRead = true;
            }
        }
    }
    if (isRead) {
        return;
    }
    for (const Reader &reader : mReaders) {
        if (const Block *block = mModel.getBlock(reader.block)) {
            mNotifier.notifyUnrollPort(*mBlock, name, *block, reader.port);
        }
    }
}

} // namespace orvo::internal
