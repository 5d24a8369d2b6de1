// What goes with the data of a channel has one name at the ports of a channel block and another at its wires; all else
// has the same.
#pragma once

#include <orvo/staticstrings.h>

#include <utility>

namespace orvo::internal {

inline constexpr std::pair<const StaticString *, const StaticString *> kChannelPairs[] = {
    {&A_PORT_PACKET_BEGIN, &A_WIRE_PACKET_BEGIN},
    {&A_PORT_VALID, &A_WIRE_VALID},
    {&A_PORT_CHANNEL, &A_WIRE_CHANNEL},
};

/// The wire that shows what comes in at a port.
inline PureValueRef channelWireOf(const PureValueRef &portName) {
    for (const auto &[port, wire] : kChannelPairs) {
        if (portName == *port) {
            return *wire;
        }
    }
    return portName;
}

/// The port that a wire shows.
inline PureValueRef channelPortOf(const PureValueRef &wireName) {
    for (const auto &[port, wire] : kChannelPairs) {
        if (wireName == *wire) {
            return *port;
        }
    }
    return wireName;
}

} // namespace orvo::internal
