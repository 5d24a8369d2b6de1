// From and Goto blocks as wires. A tag is found first in the From's own model, then at the nearest scope root above it,
// then in the whole design, then on the bus: instance by instance, so that each instance of a model reads its own tags.
// Of several Gotos in one reach the last of the design holds; on the way from it, each model with a Goto of its own
// passes on what that gives.
#pragma once

#include "sim/compilerimpl.h"

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace orvo::sim {

/// Throws `CompileError` for tags that lead nowhere or to several instances of one Goto.
class TagJoiner {
  public:
    /// Reads the tags in all instances.
    explicit TagJoiner(Compiler &compiler);
    /// Lets types go from each Goto's signal to its Froms and back, as over a wire.
    void inferTypes();
    /// Makes each From's wire the signal at its Goto.
    void join();

  private:
    struct Place {
        const Block *block;
        std::uint32_t instance;
    };
    enum class Reach { Local, Scoped, Global, Bus };
    /// A tag, and the instance in which it holds where that matters.
    using Key = std::tuple<Reach, const Value *, std::uint32_t>;

    std::string placeOf(const Place &place) const { return mCompiler.placeOf(*place.block, place.instance); }
    [[noreturn]] void fail(const Place &place, const std::string &reason) const;
    PureValueRef tagOf(const Place &place) const;
    template <class Holds> std::optional<std::uint32_t> upward(std::uint32_t instance, Holds holds) const;
    void enter(const Place &sender);
    std::vector<std::uint32_t> wayUp(std::uint32_t instance) const;
    const Place &nearest(const Place &from, const std::vector<Place> &senders) const;
    const Place &senderFor(const Place &from) const;
    void resolve(const Place &first);

    Compiler &mCompiler;
    std::vector<Place> mFroms;
    std::map<Key, std::vector<Place>> mSenders;
};

} // namespace orvo::sim
