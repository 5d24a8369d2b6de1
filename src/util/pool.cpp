// Pools, one a thread. A pool takes regions of 2 MiB from the system and cuts them into slabs of 64 KiB, each for cells
// of one size. A slab knows its free cells and how many are in use, so that an empty slab serves another size and an
// empty region goes back to the system. Cells released on a thread that does not own their pool wait in a list from
// which the owner takes them when it runs short.
#include <util/pool.h>

#include <util/features.h>

#include <pthread.h>
#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>
#include <vector>

// The sanitizers see what happens to single objects only if each is an allocation of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UTIL_POOL_OFF 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define UTIL_POOL_OFF 1
#endif
#endif
#ifndef UTIL_POOL_OFF
#define UTIL_POOL_OFF 0
#endif

namespace util {

namespace {

constexpr std::size_t kRegionBytes = std::size_t{2} << 20U;
constexpr std::size_t kSlabBytes = std::size_t{64} << 10U;
constexpr std::size_t kSlabs = kRegionBytes / kSlabBytes;
constexpr std::size_t kGrain = 16;
constexpr std::size_t kMaxCell = 512;
constexpr std::size_t kSizes = kMaxCell / kGrain;
/// Regions up to this number stay in small pages: a process with a small design should not pay for large ones.
constexpr std::size_t kSmallPageRegions = 4;

/// From here on an allocation is a table that is read at random, for which large pages save much of the waiting.
constexpr std::size_t kMinTable = 2 * kRegionBytes;

struct Cell {
    Cell *next;
};

struct Slab {
    Cell *free = nullptr;
    /// The part that was never given out.
    char *fresh = nullptr;
    char *end = nullptr;
    std::uint32_t used = 0;
    std::uint32_t cellBytes = 0;
    /// In the pool's list of slabs of this size that have room. A full slab is in no list.
    bool listed = false;
    Slab *previous = nullptr;
    Slab *next = nullptr;
};

class Pool;

/// Stands at the start of its memory; its first slab begins behind it.
struct Region {
    Pool *pool = nullptr;
    std::uint32_t slabsUsed = 0;
    std::array<Slab, kSlabs> slabs;
    Region *previous = nullptr;
    Region *next = nullptr;
};

Region *regionOf(void *cell) {
    const auto bits = reinterpret_cast<std::uintptr_t>(cell);
    return reinterpret_cast<Region *>(bits & ~(std::uintptr_t{kRegionBytes} - 1));
}

Slab &slabOf(Region *region, void *cell) {
    const auto offset = static_cast<std::size_t>(static_cast<char *>(cell) - reinterpret_cast<char *>(region));
    return region->slabs[offset / kSlabBytes];
}

std::size_t sizeIndex(std::size_t bytes) { return (bytes - 1) / kGrain; }

std::atomic<std::size_t> gHeldBytes{0};

/// Zeroed memory of whole regions, aligned to one.
void *mapRegions(std::size_t bytes, bool largePages) {
    // One region more, so that an aligned part is in it; the rest goes back.
    void *raw = ::mmap(nullptr, bytes + kRegionBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) {
        throw std::bad_alloc();
    }
    const std::size_t before = (kRegionBytes - reinterpret_cast<std::uintptr_t>(raw) % kRegionBytes) % kRegionBytes;
    char *begin = static_cast<char *>(raw) + before;
    if (before != 0) {
        ::munmap(raw, before);
    }
    if (before != kRegionBytes) {
        ::munmap(begin + bytes, kRegionBytes - before);
    }
    if (largePages) {
        // Without it all works, only slower.
        static_cast<void>(::madvise(begin, bytes, MADV_HUGEPAGE));
    }
    gHeldBytes += bytes;
    return begin;
}

void unmapRegions(void *begin, std::size_t bytes) {
    ::munmap(begin, bytes);
    gHeldBytes -= bytes;
}

std::size_t wholeRegions(std::size_t bytes) { return (bytes + kRegionBytes - 1) / kRegionBytes * kRegionBytes; }

class Pool {
  public:
    void *allocate(std::size_t bytes) {
        const std::size_t index = sizeIndex(bytes);
        Slab *slab = mRoomy[index];
        if (slab == nullptr) {
            slab = &slabWithRoom(index);
        }
        void *cell = slab->free;
        if (cell != nullptr) {
            slab->free = slab->free->next;
        } else {
            cell = slab->fresh;
            slab->fresh += slab->cellBytes;
        }
        ++slab->used;
        if (slab->free == nullptr && slab->fresh == slab->end) {
            unlist(*slab, index);
        }
        return cell;
    }

    void release(Region *region, void *memory) {
        Slab &slab = slabOf(region, memory);
        auto *cell = static_cast<Cell *>(memory);
        cell->next = slab.free;
        slab.free = cell;
        --slab.used;
        if (!slab.listed) {
            list(slab, sizeIndex(slab.cellBytes));
        }
        if (slab.used == 0) {
            retire(region, slab);
        }
    }

    /// From another thread than the owner's.
    void releaseLater(void *memory) {
        auto *cell = static_cast<Cell *>(memory);
        cell->next = mForeign.load(std::memory_order_relaxed);
        while (
            !mForeign.compare_exchange_weak(cell->next, cell, std::memory_order_release, std::memory_order_relaxed)) {
        }
    }

    void takeForeign() {
        Cell *cell = mForeign.exchange(nullptr, std::memory_order_acquire);
        while (cell != nullptr) {
            Cell *next = cell->next;
            release(regionOf(cell), cell);
            cell = next;
        }
    }

  private:
    Slab &slabWithRoom(std::size_t index) {
        if (mForeign.load(std::memory_order_relaxed) != nullptr) {
            takeForeign();
            if (mRoomy[index] != nullptr) {
                return *mRoomy[index];
            }
        }
        Region *region = mRegionsWithRoom;
        if (region == nullptr) {
            region = new (mapRegions(kRegionBytes, mRegions >= kSmallPageRegions)) Region;
            region->pool = this;
            ++mRegions;
            listRegion(*region);
        }
        std::size_t at = 0;
        while (region->slabs[at].cellBytes != 0) {
            ++at;
        }
        if (++region->slabsUsed == kSlabs) {
            unlistRegion(*region);
        }
        Slab &slab = region->slabs[at];
        char *begin = reinterpret_cast<char *>(region) + at * kSlabBytes;
        const std::size_t head = at == 0 ? (sizeof(Region) + kGrain - 1) / kGrain * kGrain : 0;
        slab.cellBytes = static_cast<std::uint32_t>((index + 1) * kGrain);
        slab.fresh = begin + head;
        slab.end = slab.fresh + (kSlabBytes - head) / slab.cellBytes * slab.cellBytes;
        slab.free = nullptr;
        list(slab, index);
        if (const int seed = GetFeatureInteger(Features::SHUFFLE_ADDRESSES); seed != 0) {
            shuffle(slab, static_cast<std::uint64_t>(seed));
        }
        return slab;
    }

    /// Puts all cells of a new slab into the free list, in an order that the seed decides.
    void shuffle(Slab &slab, std::uint64_t seed) {
        std::vector<Cell *> cells;
        for (; slab.fresh != slab.end; slab.fresh += slab.cellBytes) {
            cells.push_back(reinterpret_cast<Cell *>(slab.fresh));
        }
        std::uint64_t state = seed * 0x9e3779b97f4a7c15ULL + ++mShuffles;
        for (std::size_t i = cells.size(); i > 1; --i) {
            state = state * 6364136223846793005ULL + 1442695040888963407ULL;
            std::swap(cells[i - 1], cells[(state >> 33U) % i]);
        }
        for (Cell *cell : cells) {
            cell->next = slab.free;
            slab.free = cell;
        }
    }

    /// An empty slab may serve another size, but the only one of its size is kept, lest it come and go.
    void retire(Region *region, Slab &slab) {
        const std::size_t index = sizeIndex(slab.cellBytes);
        if (mRoomy[index] == &slab && slab.next == nullptr) {
            return;
        }
        unlist(slab, index);
        slab.cellBytes = 0;
        if (region->slabsUsed-- == kSlabs) {
            listRegion(*region);
        }
        if (region->slabsUsed == 0 && (region->previous != nullptr || region->next != nullptr)) {
            unlistRegion(*region);
            region->~Region();
            unmapRegions(region, kRegionBytes);
            --mRegions;
        }
    }

    void list(Slab &slab, std::size_t index) {
        slab.listed = true;
        slab.previous = nullptr;
        slab.next = mRoomy[index];
        if (slab.next != nullptr) {
            slab.next->previous = &slab;
        }
        mRoomy[index] = &slab;
    }

    void unlist(Slab &slab, std::size_t index) {
        (slab.previous == nullptr ? mRoomy[index] : slab.previous->next) = slab.next;
        if (slab.next != nullptr) {
            slab.next->previous = slab.previous;
        }
        slab.listed = false;
    }

    void listRegion(Region &region) {
        region.previous = nullptr;
        region.next = mRegionsWithRoom;
        if (region.next != nullptr) {
            region.next->previous = &region;
        }
        mRegionsWithRoom = &region;
    }

    void unlistRegion(Region &region) {
        (region.previous == nullptr ? mRegionsWithRoom : region.previous->next) = region.next;
        if (region.next != nullptr) {
            region.next->previous = region.previous;
        }
        region.previous = nullptr;
        region.next = nullptr;
    }

    std::array<Slab *, kSizes> mRoomy{};
    Region *mRegionsWithRoom = nullptr;
    std::size_t mRegions = 0;
    std::uint64_t mShuffles = 0;
    std::atomic<Cell *> mForeign{nullptr};
};

// Read at each allocation, so it must not cost a call.
__attribute__((tls_model("initial-exec"))) thread_local Pool *tPool = nullptr;

/// The pools of threads that ended, for threads to come: what was made on a thread may outlive it.
struct IdlePools {
    std::mutex mutex;
    std::vector<Pool *> pools;
};

IdlePools &idlePools() {
    // Never destroyed: the last threads may end after the statics.
    static auto *idle = new IdlePools;
    return *idle;
}

void giveUpPool(void *pool) {
    tPool = nullptr;
    static_cast<Pool *>(pool)->takeForeign();
    const std::lock_guard<std::mutex> lock(idlePools().mutex);
    idlePools().pools.push_back(static_cast<Pool *>(pool));
}

// A key of the thread library, not a thread_local with a destructor: its destructors run last, and again for a pool
// that another destructor made necessary.
pthread_key_t poolKey() {
    static const pthread_key_t key = [] {
        pthread_key_t made{};
        if (::pthread_key_create(&made, giveUpPool) != 0) {
            throw std::bad_alloc();
        }
        return made;
    }();
    return key;
}

Pool &acquirePool() {
    Pool *pool = nullptr;
    {
        const std::lock_guard<std::mutex> lock(idlePools().mutex);
        if (!idlePools().pools.empty()) {
            pool = idlePools().pools.back();
            idlePools().pools.pop_back();
        }
    }
    if (pool == nullptr) {
        pool = new Pool;
    }
    tPool = pool;
    ::pthread_setspecific(poolKey(), pool);
    return *pool;
}

} // namespace

bool poolIsOn() { return UTIL_POOL_OFF == 0; }

void *poolAllocate(std::size_t size) {
    if (UTIL_POOL_OFF != 0 || size > kMaxCell || size == 0) {
        return UTIL_POOL_OFF != 0 || size < kMinTable ? ::operator new(size) : mapRegions(wholeRegions(size), true);
    }
    Pool *pool = tPool;
    return (pool != nullptr ? *pool : acquirePool()).allocate(size);
}

void poolRelease(void *cell, std::size_t size) noexcept {
    if (UTIL_POOL_OFF != 0 || size > kMaxCell || size == 0 || cell == nullptr) {
        if (UTIL_POOL_OFF != 0 || size < kMinTable) {
            ::operator delete(cell);
        } else {
            unmapRegions(cell, wholeRegions(size));
        }
        return;
    }
    Region *region = regionOf(cell);
    if (region->pool == tPool) {
        region->pool->release(region, cell);
    } else {
        region->pool->releaseLater(cell);
    }
}

std::size_t poolHeldBytes() { return gHeldBytes; }

} // namespace util
