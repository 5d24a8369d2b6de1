// The bounds-checked copy of the C standard's annex K, for C libraries that lack it.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifndef __STDC_LIB_EXT1__

/// Copies `count` bytes and gives 0. A null pointer, a count beyond `room` or ranges that overlap copy nothing, clear
/// the destination, if it is one, and give an error number.
inline int memcpy_s(void *destination, std::size_t room, const void *source, std::size_t count) {
    if (destination == nullptr) {
        return EINVAL;
    }
    const auto to = reinterpret_cast<std::uintptr_t>(destination);
    const auto from = reinterpret_cast<std::uintptr_t>(source);
    const bool overlap = to < from + count && from < to + count;
    if (source == nullptr || count > room || overlap) {
        std::memset(destination, 0, room);
        return count > room ? ERANGE : EINVAL;
    }
    std::memcpy(destination, source, count);
    return 0;
}

#endif
