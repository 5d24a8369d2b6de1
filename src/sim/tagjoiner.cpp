// From and Goto blocks as wires. A tag is found first in the From's own model, then at the nearest scope root above it,
// then in the whole design, then on the bus: instance by instance, so that each instance of a model reads its own tags.
#include "sim/compilerimpl.h"

#include <orvo/wire.h>

#include <algorithm>
#include <map>
#include <optional>
#include <tuple>

namespace orvo::sim {

class TagJoiner {
  public:
    explicit TagJoiner(Compiler &compiler) : mCompiler(compiler) {}

    void join() {
        for (std::uint32_t at = 0; at < mCompiler.mInstances.size(); ++at) {
            for (const Block &block : *mCompiler.mInstances[at].model) {
                if (block.type() == A_GOTO_BLOCK.get_ptr()) {
                    enter({&block, at});
                } else if (block.type() == A_FROM_BLOCK.get_ptr()) {
                    mFroms.push_back({&block, at});
                }
            }
        }
        for (const Place &from : mFroms) {
            if (from.block->getWire(A_FROM_WIRE_OUT) != nullptr) {
                resolve(from);
            }
        }
    }

  private:
    struct Place {
        const Block *block;
        std::uint32_t instance;
    };
    enum class Reach { Local, Scoped, Global, Bus };
    /// A tag, and the instance in which it holds where that matters.
    using Key = std::tuple<Reach, const Value *, std::uint32_t>;
    static constexpr std::uint32_t kAnywhere = 0;

    std::string placeOf(const Place &place) const { return mCompiler.placeOf(*place.block, place.instance); }
    [[noreturn]] void fail(const Place &place, const std::string &reason) const {
        throw CompileError{reason, {placeOf(place)}};
    }

    PureValueRef tagOf(const Place &place) const {
        const PureValueRef tag = PureValueRef(place.block->getParam(A_GOTO_TAG));
        if (!tag) {
            fail(place, "the block has no tag");
        }
        return tag;
    }

    /// From an instance up to the first that `holds`.
    template <class Holds> std::optional<std::uint32_t> upward(std::uint32_t instance, Holds holds) const {
        for (;; instance = mCompiler.mInstances[instance].parent) {
            if (holds(instance)) {
                return instance;
            }
            if (mCompiler.mInstances[instance].chain.empty()) {
                return std::nullopt;
            }
        }
    }

    void enter(const Place &sender) {
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

    /// The Goto whose signal a From reads. In one model the last of equal tags holds.
    const Place &senderFor(const Place &from) const {
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
            const std::vector<Place> &senders = at->second;
            if (std::any_of(senders.begin(), senders.end(),
                            [&](const Place &other) { return other.instance != senders[0].instance; })) {
                std::vector<std::string> places{placeOf(from)};
                for (const Place &sender : senders) {
                    places.push_back(placeOf(sender));
                }
                throw CompileError{"Goto blocks in several models give the tag '" + tag->toString() + "'", places};
            }
            return senders.back();
        }
        fail(from, "no Goto with the tag '" + tag->toString() + "' is in reach");
    }

    /// Makes the From's wire the signal at its Goto, and those of other Froms on the way to it as well.
    void resolve(const Place &first) {
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

    Compiler &mCompiler;
    std::vector<Place> mFroms;
    std::map<Key, std::vector<Place>> mSenders;
};

void Compiler::joinTags() { TagJoiner(*this).join(); }

} // namespace orvo::sim
