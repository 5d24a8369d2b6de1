// Blocks whose types are told from outside: interfaces of the design, what stands on the bus, and what a pass makes
// with all its types. No trial finds how to make them, so each is written down once, with its pins.
#pragma once

#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>

#include <string>
#include <utility>
#include <vector>

namespace orvo::gen {

struct ToldPin {
    /// Text of the key.
    std::string key;
    /// Text of the type.
    std::string type;
};

struct ToldBlock {
    const StaticString *type = nullptr;
    std::vector<ToldPin> ports;
    std::vector<ToldPin> wires;
    /// Texts of keys and values.
    std::vector<std::pair<std::string, std::string>> params;
    /// The parameter that names the block's interface, which no other block has; null if it has none.
    const StaticString *name = nullptr;
    /// It stands on the design's bus, at addresses of its own.
    bool isOnBus = false;
    /// One is enough.
    bool isSingle = false;
    /// Blocks of the type are made no other way: what they take has a meaning only with these types.
    bool isOnly = false;
};

/// Widths of the design's bus, in bits, and the addresses that each block on it gets.
inline constexpr int kBusAddressWidth = 16;
inline constexpr int kBusDataWidth = 32;
inline constexpr int kBusAddresses = 16;

/// The clock of all models, in the unit of sample rates: twice as many samples come two at a time.
inline constexpr int kClock = 10;

const std::vector<ToldBlock> &toldBlocks();

} // namespace orvo::gen
