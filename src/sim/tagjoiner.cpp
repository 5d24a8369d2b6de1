// Finding and joining tags.
#include "sim/tagjoiner.h"

#include <orvo/wire.h>

#include <algorithm>

namespace orvo::sim {

namespace {

/// In place of an instance where the tag holds in all.
constexpr std::uint32_t kAnywhere = 0;

} // namespace

TagJoiner::TagJoiner(Compiler &compiler) : mCompiler(compiler) {
    for (std::uint32_t at = 0; at < mCompiler.mInstances.size(); ++at) {
        for (const Block &block : *mCompiler.mInstances[at].model) {
            if (block.type() == A_GOTO_BLOCK.get_ptr()) {
                enter({&block, at});
            } else if (block.type() == A_FROM_BLOCK.get_ptr() && block.getWire(A_FROM_WIRE_OUT) != nullptr) {
                mFroms.push_back({&block, at});
            }
        }
    }
}

void TagJoiner::inferTypes() {
    GlobalTypePass &types = mCompiler.mTypesOfSignals;
    struct Link {
        const Wire *wire;
        const RefChain *chain;
        const Wire *source;
        const RefChain *sourceChain;
    };
    std::vector<Link> waiting;
    for (const Place &from : mFroms) {
        const Place &sender = senderFor(from);
        waiting.push_back({from.block->getWire(A_FROM_WIRE_OUT), &mCompiler.mInstances[from.instance].chain,
                           sender.block->getPort(A_GOTO_PORT_IN)->peekWire(),
                           &mCompiler.mInstances[sender.instance].chain});
    }
    // Each round makes a type known or is the last.
    for (std::size_t before = waiting.size() + 1; waiting.size() < before;) {
        before = waiting.size();
        waiting.erase(std::remove_if(waiting.begin(), waiting.end(),
                                     [&types](const Link &link) {
                                         const PureValueRef type = types.getType(link.wire, *link.chain);
                                         const PureValueRef source = types.getType(link.source, *link.sourceChain);
                                         types.suppose(*link.wire, *link.chain, source);
                                         types.suppose(*link.source, *link.sourceChain, type);
                                         return type || source;
                                     }),
                      waiting.end());
    }
}

void TagJoiner::join() {
    for (const Place &from : mFroms) {
        resolve(from);
    }
}

void TagJoiner::fail(const Place &place, const std::string &reason) const {
    throw CompileError{reason, {placeOf(place)}};
}

PureValueRef TagJoiner::tagOf(const Place &place) const {
    const PureValueRef tag = PureValueRef(place.block->getParam(A_GOTO_TAG));
    if (!tag) {
        fail(place, "the block has no tag");
    }
    return tag;
}

/// From an instance up to the first that `holds`.
template <class Holds> std::optional<std::uint32_t> TagJoiner::upward(std::uint32_t instance, Holds holds) const {
    for (;; instance = mCompiler.mInstances[instance].parent) {
        if (holds(instance)) {
            return instance;
        }
        if (mCompiler.mInstances[instance].chain.empty()) {
            return std::nullopt;
        }
    }
}

void TagJoiner::enter(const Place &sender) {
    const Port *port = sender.block->getPort(A_GOTO_PORT_IN);
    if (port == nullptr || port->peekWire() == nullptr) {
        fail(sender, "the Goto has no input");
    }
    const PureValueRef tag = tagOf(sender);
    const ValueRef reach = sender.block->getParam(A_GOTO_TAG_TYPE);
    Key key{Reach::Local, tag.get_ptr(), sender.instance};
    if (reach == A_GOTO_TAG_TYPE_GLOBAL || reach == A_GOTO_TAG_TYPE_BUS) {
        key = {reach == A_GOTO_TAG_TYPE_BUS ? Reach::Bus : Reach::Global, tag.get_ptr(), kAnywhere};
    } else if (reach == A_GOTO_TAG_TYPE_SCOPED) {
        const PureValueRef marker = PureTupleValue::get(A_GOTO_TAG_TYPE_SCOPED, tag, sender.block->getContext());
        const auto root = upward(sender.instance, [&](std::uint32_t instance) {
            return mCompiler.mInstances[instance].model->getParam(marker) == A_TRUE;
        });
        if (!root) {
            // Nobody can see it.
            return;
        }
        key = {Reach::Scoped, tag.get_ptr(), *root};
    }
    mSenders[key].push_back(sender);
}

/// The instance and those around it, up to the top.
std::vector<std::uint32_t> TagJoiner::wayUp(std::uint32_t instance) const {
    std::vector<std::uint32_t> way;
    upward(instance, [&way](std::uint32_t at) {
        way.push_back(at);
        return false;
    });
    return way;
}

/// Of the Gotos of one reach the last in the first instance that has one, on the way to the last of all.
const TagJoiner::Place &TagJoiner::nearest(const Place &from, const std::vector<Place> &senders) const {
    const auto isFirst = [&](const Place &sender) { return sender.instance == senders[0].instance; };
    if (std::all_of(senders.begin(), senders.end(), isFirst)) {
        return senders.back();
    }
    const auto modelOf = [](const Place &sender) { return &sender.block->getModel(); };
    const Place &last = *std::max_element(senders.begin(), senders.end(), [&](const Place &a, const Place &b) {
        return DeepValueCmp()(modelOf(a)->getName(), modelOf(b)->getName());
    });
    std::vector<std::uint32_t> way = wayUp(from.instance);
    std::vector<std::uint32_t> back = wayUp(last.instance);
    std::uint32_t turn = way.back();
    while (!way.empty() && !back.empty() && way.back() == back.back()) {
        turn = way.back();
        way.pop_back();
        back.pop_back();
    }
    way.push_back(turn);
    way.insert(way.end(), back.rbegin(), back.rend());
    const bool isAmbiguous = std::any_of(senders.begin(), senders.end(), [&](const Place &other) {
        return modelOf(other) == modelOf(last) && other.instance != last.instance;
    });
    for (const std::uint32_t instance : way) {
        const auto at = std::find_if(senders.rbegin(), senders.rend(),
                                     [&](const Place &sender) { return sender.instance == instance; });
        if (at != senders.rend() && (instance == from.instance || !isAmbiguous)) {
            return *at;
        }
    }
    std::vector<std::string> places{placeOf(from)};
    for (const Place &sender : senders) {
        places.push_back(placeOf(sender));
    }
    const PureValueRef tag = tagOf(from);
    throw CompileError{"Goto blocks in several instances of a model give the tag '" + tag->toString() + "'", places};
}

/// The Goto whose signal a From reads. In one model the last of equal tags holds.
const TagJoiner::Place &TagJoiner::senderFor(const Place &from) const {
    const PureValueRef tag = tagOf(from);
    const auto root = upward(from.instance, [&](std::uint32_t instance) {
        return mSenders.count({Reach::Scoped, tag.get_ptr(), instance}) != 0;
    });
    const Key keys[] = {{Reach::Local, tag.get_ptr(), from.instance},
                        {Reach::Scoped, tag.get_ptr(), root.value_or(kAnywhere)},
                        {Reach::Global, tag.get_ptr(), kAnywhere},
                        {Reach::Bus, tag.get_ptr(), kAnywhere}};
    for (const Key &key : keys) {
        const auto at = mSenders.find(key);
        if (at == mSenders.end()) {
            continue;
        }
        return nearest(from, at->second);
    }
    fail(from, "no Goto with the tag '" + tag->toString() + "' is in reach");
}

/// Makes the From's wire the signal at its Goto, and those of other Froms on the way to it as well.
void TagJoiner::resolve(const Place &first) {
    std::vector<Place> way{first};
    Signal source;
    while (!source.known()) {
        const Place &sender = senderFor(way.back());
        const Wire *wire = sender.block->getPort(A_GOTO_PORT_IN)->peekWire();
        source = mCompiler.signalOf(wire, sender.instance);
        if (!source.known()) {
            if (wire->getBlock().type() != A_FROM_BLOCK.get_ptr() || !(wire->getName() == A_FROM_WIRE_OUT)) {
                fail(sender, "the Goto's signal has no type");
            }
            way.push_back({&wire->getBlock(), sender.instance});
            if (way.size() > mFroms.size()) {
                fail(first, "From and Goto blocks form a loop without a driver");
            }
        }
    }
    for (const Place &from : way) {
        const Wire *wire = from.block->getWire(A_FROM_WIRE_OUT);
        const auto [at, isNew] = mCompiler.mWires[from.instance].try_emplace(wire, source);
        const Signal &own = at->second;
        if (!isNew && own.first == source.first) {
            fail(from, "From and Goto blocks form a loop without a driver");
        }
        if (own.type != source.type) {
            throw CompileError{"a From and its Goto have two types", {placeOf(from), placeOf(senderFor(from))}};
        }
        for (std::uint32_t i = 0; !isNew && i < own.type->leaves; ++i) {
            mCompiler.mAliases[own.first + i] = source.first + i;
        }
    }
}

} // namespace orvo::sim
