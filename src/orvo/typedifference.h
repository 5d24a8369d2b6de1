// How to say that a block would need a parameter for each instance of its model.
#pragma once

#include <orvo/block.h>
#include <orvo/port.h>
#include <orvo/typeinferpass.h>
#include <orvo/wire.h>

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <type_traits>
#include <vector>

namespace orvo::internal {

/// Names a signal that is not of one type in all instances, with two of them; empty for others.
template <class Signal>
std::string typeDifference(const Signal &signal, const std::vector<RefChain> &instances, GlobalTypePass &types) {
    const PureValueRef type = types.getType(signal, instances.front());
    const auto other = std::find_if(instances.begin() + 1, instances.end(),
                                    [&](const RefChain &instance) { return types.getType(signal, instance) != type; });
    if (other == instances.end()) {
        return {};
    }
    const auto textOf = [](const PureValueRef &of) { return of ? of->toString() : std::string("of no type"); };
    return fmt::format("its signals differ in type between the instances of the model: {} '{}' is {} in one and {} in "
                       "another",
                       std::is_same_v<Signal, Port> ? "port" : "wire", signal.getName()->toString(), textOf(type),
                       textOf(types.getType(signal, *other)));
}

} // namespace orvo::internal
