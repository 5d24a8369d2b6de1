// Memory for the small objects of which a netlist has millions. Cells of one size stand side by side, so that making
// and releasing one touches neither its neighbours nor a shared list.
#pragma once

#include <orvo/api.h>

#include <cstddef>

namespace util {

/// Memory for an object of `size` bytes, aligned for any type. Throws `std::bad_alloc` if there is none.
ORVO_API void *poolAllocate(std::size_t size);

/// Gives back what `poolAllocate(size)` gave, on any thread. Null does nothing.
ORVO_API void poolRelease(void *cell, std::size_t size) noexcept;

/// Whether cells come from pools; under a sanitizer each is an allocation of its own.
ORVO_API bool poolIsOn();

/// What the pools of all threads hold from the system, in bytes: grows with what is allocated and shrinks as whole
/// regions become empty.
ORVO_API std::size_t poolHeldBytes();

/// Base of classes whose objects come from the pool when they are made by `new`.
struct Pooled {
    static void *operator new(std::size_t size) { return poolAllocate(size); }
    static void operator delete(void *cell, std::size_t size) noexcept { poolRelease(cell, size); }
};

/// Allocator of node-based containers.
template <class T> struct PoolAllocator {
    using value_type = T;
    PoolAllocator() = default;
    template <class U> PoolAllocator(const PoolAllocator<U> &) {}
    T *allocate(std::size_t count) { return static_cast<T *>(poolAllocate(count * sizeof(T))); }
    void deallocate(T *cells, std::size_t count) noexcept { poolRelease(cells, count * sizeof(T)); }
    template <class U> bool operator==(const PoolAllocator<U> &) const { return true; }
    template <class U> bool operator!=(const PoolAllocator<U> &) const { return false; }
};

} // namespace util
