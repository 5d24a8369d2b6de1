// Tests of the pools: cells stay apart and whole whatever their sizes, order and threads, and memory goes back.
#include <util/pool.h>

#include <util/features.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace {

struct Held {
    unsigned char *cell;
    std::size_t size;
    unsigned char pattern;
};

Held take(std::size_t size, unsigned char pattern) {
    auto *cell = static_cast<unsigned char *>(util::poolAllocate(size));
    std::memset(cell, pattern, size);
    return {cell, size, pattern};
}

bool whole(const Held &held) {
    for (std::size_t i = 0; i < held.size; ++i) {
        if (held.cell[i] != held.pattern) {
            return false;
        }
    }
    return true;
}

void give(const Held &held) { util::poolRelease(held.cell, held.size); }

} // namespace

TEST(Pool, alignsEachCellForAnyType) {
    for (std::size_t size = 1; size < 700; ++size) {
        void *cell = util::poolAllocate(size);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(cell) % alignof(std::max_align_t), 0U) << size;
        util::poolRelease(cell, size);
    }
}

TEST(Pool, servesNothingAndNull) {
    void *cell = util::poolAllocate(0);
    EXPECT_NE(cell, nullptr);
    util::poolRelease(cell, 0);
    util::poolRelease(nullptr, 16);
}

RC_GTEST_PROP(Pool, keepsCellsApartInAnyOrderOfSizes, ()) {
    const auto steps = *rc::gen::container<std::vector<std::pair<unsigned, unsigned>>>(
        rc::gen::pair(rc::gen::inRange(1U, 600U), rc::gen::inRange(0U, 4U)));
    std::vector<Held> all;
    for (const auto &[size, kind] : steps) {
        if (kind == 0 && !all.empty()) {
            const std::size_t at = size % all.size();
            RC_ASSERT(whole(all[at]));
            give(all[at]);
            all[at] = all.back();
            all.pop_back();
        } else {
            all.push_back(take(size, static_cast<unsigned char>(all.size())));
        }
    }
    for (const Held &held : all) {
        RC_ASSERT(whole(held));
        give(held);
    }
}

TEST(Pool, givesEmptyRegionsBackToTheSystem) {
    const std::size_t before = util::poolHeldBytes();
    std::vector<Held> all;
    for (int i = 0; i < 200000; ++i) {
        all.push_back(take(static_cast<std::size_t>(i % 32 + 1) * 16, static_cast<unsigned char>(i)));
    }
    const std::size_t most = util::poolHeldBytes();
    for (const Held &held : all) {
        ASSERT_TRUE(whole(held));
        give(held);
    }
    const std::size_t after = util::poolHeldBytes();
    if (!util::poolIsOn()) {
        EXPECT_EQ(most, before);
        EXPECT_EQ(after, before);
    } else {
        EXPECT_GE(most - before, std::size_t{200000} * 200);
        // One slab a size may stay, each in a region of its own at worst.
        EXPECT_LE(after, before + (std::size_t{64} << 20U));
    }
}

TEST(Pool, servesLargeTablesAndTakesThemBack) {
    const std::size_t before = util::poolHeldBytes();
    const std::size_t size = (std::size_t{9} << 20U) + 5;
    const Held table = take(size, 7);
    EXPECT_TRUE(whole(table));
    give(table);
    EXPECT_EQ(util::poolHeldBytes(), before);
}

TEST(Pool, takesCellsBackOnOtherThreads) {
    std::vector<Held> all;
    std::thread maker([&all] {
        for (int i = 0; i < 50000; ++i) {
            all.push_back(take(64, static_cast<unsigned char>(i)));
        }
    });
    maker.join();
    // The maker has ended; its cells outlive it, and another thread releases them.
    std::thread([&all] {
        for (const Held &held : all) {
            EXPECT_TRUE(whole(held));
            give(held);
        }
    }).join();
    // A new thread takes over what the maker left.
    std::thread([] {
        std::vector<Held> mine;
        for (int i = 0; i < 50000; ++i) {
            mine.push_back(take(64, static_cast<unsigned char>(i)));
        }
        for (const Held &held : mine) {
            EXPECT_TRUE(whole(held));
            give(held);
        }
    }).join();
}

TEST(Pool, letsThreadsWorkSideBySide) {
    std::vector<std::thread> threads;
    for (unsigned id = 0; id < 8; ++id) {
        threads.emplace_back([id] {
            std::vector<Held> mine;
            for (unsigned i = 0; i < 20000; ++i) {
                mine.push_back(take((i * 7 + id) % 500 + 1, static_cast<unsigned char>(i + id)));
                if (i % 3 == 0) {
                    EXPECT_TRUE(whole(mine[i / 3 % mine.size()]));
                    give(mine.back());
                    mine.pop_back();
                }
            }
            for (const Held &held : mine) {
                EXPECT_TRUE(whole(held));
                give(held);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST(Pool, placesCellsInAnOrderThatASeedDecides) {
    const auto isAscending = [] {
        std::vector<void *> cells;
        bool ascending = true;
        for (int i = 0; i < 4000; ++i) {
            cells.push_back(util::poolAllocate(496));
            ascending = ascending && (i == 0 || cells[cells.size() - 2] < cells.back());
        }
        for (void *cell : cells) {
            util::poolRelease(cell, 496);
        }
        return ascending;
    };
    util::SetFeatureInteger(Features::SHUFFLE_ADDRESSES, 17);
    EXPECT_FALSE(util::poolIsOn() && isAscending());
    util::ClearFeature("SHUFFLE_ADDRESSES");
}
