// The ordered map under every node: names and parameter keys are interned, so a look-up is a comparison of pointers,
// and only an insertion asks for the order by content. Most nodes carry a handful of entries, some a million.
#pragma once

#include <orvo/value.h>
#include <util/pool.h>

#include <iterator>
#include <map>
#include <memory>
#include <vector>

namespace orvo::internal {

/// Maps `PureValueRef` to `T`, iterated in `DeepValueCmp` order. Up to `kFlatMax` entries stand in one sorted array;
/// beyond, in a tree beside a hash index by pointer, and it stays so. In both forms an iterator lasts until its own
/// entry goes. Null keys are not allowed.
template <class T> class KeyedMap {
    static constexpr std::uint32_t kFlatMax = 24;
    static constexpr std::uint32_t kTreeForm = 0xffffffffU;
    struct Slot {
        PureValueRef key;
        T value;
    };
    using Tree = std::map<PureValueRef, T, DeepValueCmp, util::PoolAllocator<std::pair<const PureValueRef, T>>>;
    using TreeIt = typename Tree::iterator;

    /// Key to tree position by the key's address: open addressing, at most two thirds full.
    class Index {
      public:
        TreeIt *find(const Value *key) {
            if (mSlots.empty()) {
                return nullptr;
            }
            for (std::size_t i = home(key);; i = next(i)) {
                if (mSlots[i].key == key) {
                    return &mSlots[i].at;
                }
                if (mSlots[i].key == nullptr) {
                    return nullptr;
                }
            }
        }
        const void *placeOf(const Value *key) const { return mSlots.data() + home(key); }
        void insert(const Value *key, TreeIt at) {
            if ((mCount + 1) * 3 > mSlots.size() * 2) {
                rehash(mSlots.empty() ? 64 : mSlots.size() * 2);
            }
            put(key, at);
            ++mCount;
        }
        void erase(const Value *key) {
            std::size_t hole = home(key);
            while (mSlots[hole].key != key) {
                hole = next(hole);
            }
            for (std::size_t i = next(hole); mSlots[i].key != nullptr; i = next(i)) {
                std::size_t want = home(mSlots[i].key);
                if (((i - want) & (mSlots.size() - 1)) >= ((i - hole) & (mSlots.size() - 1))) {
                    mSlots[hole] = mSlots[i];
                    hole = i;
                }
            }
            mSlots[hole] = {};
            --mCount;
        }

      private:
        struct IndexSlot {
            const Value *key = nullptr;
            TreeIt at{};
        };
        using Slots = std::vector<IndexSlot, util::PoolAllocator<IndexSlot>>;
        std::size_t home(const Value *key) const {
            auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(key));
            return static_cast<std::size_t>(((bits >> 4) * 0x9e3779b97f4a7c15ULL) >> 20) & (mSlots.size() - 1);
        }
        std::size_t next(std::size_t i) const { return (i + 1) & (mSlots.size() - 1); }
        void put(const Value *key, TreeIt at) {
            std::size_t i = home(key);
            while (mSlots[i].key != nullptr) {
                i = next(i);
            }
            mSlots[i] = {key, at};
        }
        void rehash(std::size_t size) {
            Slots old(size);
            old.swap(mSlots);
            for (const IndexSlot &slot : old) {
                if (slot.key != nullptr) {
                    put(slot.key, slot.at);
                }
            }
        }

        Slots mSlots;
        std::size_t mCount = 0;
    };
    struct Big {
        Tree tree;
        Index index;
        /// What was inserted last, the end if that is gone.
        TreeIt last = tree.end();
    };

  public:
    /// Where an entry stands in the tree form: valid until the entry goes.
    using Position = TreeIt;

    /// What an iterator gives: the key and the value, as members of a pair would.
    struct Entry {
        const PureValueRef &first;
        T &second;
        Entry *operator->() { return this; }
    };

    /// Stands on an entry by its key: entries before and behind it may come and go, and the map may take its tree form.
    /// Ends with the removal of its own entry.
    class iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using pointer = Entry;
        using reference = Entry;

        iterator() = default;
        Entry operator*() const {
            settle();
            if (mInTree) {
                return {mTreeIt->first, mTreeIt->second};
            }
            Slot &slot = mMap->slots()[mAt];
            return {slot.key, slot.value};
        }
        Entry operator->() const { return **this; }
        iterator &operator++() {
            settle();
            if (mInTree) {
                ++mTreeIt;
                mKey = mTreeIt == mMap->big().tree.end() ? nullptr : mTreeIt->first.get_ptr();
            } else {
                ++mAt;
                mKey = mAt == mMap->mSize ? nullptr : mMap->slots()[mAt].key.get_ptr();
            }
            return *this;
        }
        iterator operator++(int) {
            iterator old = *this;
            ++*this;
            return old;
        }
        bool operator==(const iterator &other) const { return mKey == other.mKey; }
        bool operator!=(const iterator &other) const { return mKey != other.mKey; }

      private:
        friend class KeyedMap;
        iterator(const KeyedMap *map, std::uint32_t at)
            : mMap(map), mKey(at == map->mSize ? nullptr : map->slots()[at].key.get_ptr()), mAt(at) {}
        iterator(const KeyedMap *map, TreeIt it)
            : mMap(map), mKey(it == map->big().tree.end() ? nullptr : it->first.get_ptr()), mTreeIt(it), mInTree(true) {
        }
        /// Finds the entry again if the map was edited.
        void settle() const {
            if (mInTree) {
                return;
            }
            if (mMap->isBig()) {
                mTreeIt = *mMap->big().index.find(mKey);
                mInTree = true;
                return;
            }
            if (mAt >= mMap->mSize || mMap->slots()[mAt].key.get_ptr() != mKey) {
                mAt = mMap->placeInFlat(mKey);
            }
        }

        const KeyedMap *mMap = nullptr;
        const Value *mKey = nullptr;
        mutable std::uint32_t mAt = 0;
        mutable TreeIt mTreeIt{};
        mutable bool mInTree = false;
    };

    KeyedMap() = default;
    KeyedMap(const KeyedMap &) = delete;
    KeyedMap &operator=(const KeyedMap &) = delete;
    ~KeyedMap() { clear(); }

    /// Whether the map has its tree form, in which iterators and positions last.
    bool isTree() const { return isBig(); }
    /// In the tree form only.
    Position positionOf(const Value *key) const { return *big().index.find(key); }
    iterator behind(Position position) const { return iterator(this, std::next(position)); }

    std::size_t size() const { return isBig() ? big().tree.size() : mSize; }
    bool empty() const { return size() == 0; }
    iterator begin() const { return isBig() ? iterator(this, big().tree.begin()) : iterator(this, 0U); }
    iterator end() const { return iterator(); }

    /// The value at a key, null if there is none.
    T *find(const Value *key) const {
        if (isBig()) {
            TreeIt *hit = big().index.find(key);
            return hit == nullptr ? nullptr : &(*hit)->second;
        }
        Slot *all = slots();
        for (std::uint32_t i = 0; i < mSize; ++i) {
            if (all[i].key.get_ptr() == key) {
                return &all[i].value;
            }
        }
        return nullptr;
    }

    /// Where a look-up of the key will begin to read: worth fetching ahead, for in a large map that is a wait.
    const void *placeOf(const Value *key) const { return isBig() ? big().index.placeOf(key) : mData; }

    /// The entry at a key, `end()` if there is none.
    iterator iteratorAt(const Value *key) const {
        if (isBig()) {
            TreeIt *hit = big().index.find(key);
            return hit == nullptr ? end() : iterator(this, *hit);
        }
        return iterator(this, placeInFlat(key));
    }

    /// The first entry behind a key, which need not be there.
    iterator upperBound(const PureValueRef &key) const {
        if (isBig()) {
            return iterator(this, big().tree.upper_bound(key));
        }
        std::uint32_t at = 0;
        while (at < mSize && !DeepValueCmp()(key, slots()[at].key)) {
            ++at;
        }
        return iterator(this, at);
    }
    /// Whether the entry at a place of the tree form is the first one behind a key.
    bool isUpperBound(Position position, const PureValueRef &key) const {
        return DeepValueCmp()(key, position->first) &&
               (position == big().tree.begin() || !DeepValueCmp()(key, std::prev(position)->first));
    }

    /// The key must not be there.
    void insert(const PureValueRef &key, T value) {
        if (!isBig() && mSize == kFlatMax) {
            grow();
        }
        if (isBig()) {
            insertIntoTree(key, std::move(value));
            return;
        }
        reserveOneMore();
        Slot *all = slots();
        std::uint32_t at = mSize;
        while (at > 0 && DeepValueCmp()(key, all[at - 1].key)) {
            --at;
        }
        if (at == mSize) {
            new (all + mSize) Slot{key, std::move(value)};
        } else {
            new (all + mSize) Slot(std::move(all[mSize - 1]));
            for (std::uint32_t i = mSize - 1; i > at; --i) {
                all[i] = std::move(all[i - 1]);
            }
            all[at] = Slot{key, std::move(value)};
        }
        ++mSize;
    }

    /// Whether the key was there.
    bool erase(const Value *key) {
        if (isBig()) {
            TreeIt *hit = big().index.find(key);
            if (hit == nullptr) {
                return false;
            }
            TreeIt at = *hit;
            big().index.erase(key);
            if (big().last == at) {
                big().last = big().tree.end();
            }
            big().tree.erase(at);
            return true;
        }
        Slot *all = slots();
        for (std::uint32_t i = 0; i < mSize; ++i) {
            if (all[i].key.get_ptr() == key) {
                Slot gone = std::move(all[i]);
                for (std::uint32_t j = i + 1; j < mSize; ++j) {
                    all[j - 1] = std::move(all[j]);
                }
                all[mSize - 1].~Slot();
                --mSize;
                return true;
            }
        }
        return false;
    }

    void clear() {
        if (isBig()) {
            delete static_cast<Big *>(mData);
        } else {
            Slot *all = slots();
            for (std::uint32_t i = 0; i < mSize; ++i) {
                all[i].~Slot();
            }
            util::poolRelease(mData, mCapacity * sizeof(Slot));
        }
        mData = nullptr;
        mSize = 0;
        mCapacity = 0;
    }

  private:
    bool isBig() const { return mSize == kTreeForm; }
    /// The number of the key's slot; of all slots if it is not there.
    std::uint32_t placeInFlat(const Value *key) const {
        std::uint32_t at = 0;
        while (at < mSize && slots()[at].key.get_ptr() != key) {
            ++at;
        }
        return at;
    }
    Slot *slots() const { return static_cast<Slot *>(mData); }
    Big &big() const { return *static_cast<Big *>(mData); }

    void insertIntoTree(const PureValueRef &key, T value) {
        // Nodes come in order, from design XML, or in runs, as a pass makes those of one instance or of all lanes: the
        // place behind the last one is looked at first.
        Big &all = big();
        const TreeIt hint = all.last == all.tree.end() ? all.last : std::next(all.last);
        all.last = all.tree.emplace_hint(hint, key, std::move(value));
        all.index.insert(key.get_ptr(), all.last);
    }

    void grow() {
        auto fresh = std::make_unique<Big>();
        Slot *all = slots();
        std::uint32_t count = mSize;
        for (std::uint32_t i = 0; i < count; ++i) {
            TreeIt at = fresh->tree.emplace_hint(fresh->tree.end(), all[i].key, std::move(all[i].value));
            fresh->index.insert(at->first.get_ptr(), at);
        }
        clear();
        mData = fresh.release();
        mSize = kTreeForm;
    }

    void reserveOneMore() {
        if (mSize < mCapacity) {
            return;
        }
        std::uint32_t capacity = mCapacity == 0 ? 1 : mCapacity < 4 ? mCapacity + 1 : mCapacity + mCapacity / 2;
        auto *fresh = static_cast<Slot *>(util::poolAllocate(capacity * sizeof(Slot)));
        Slot *all = slots();
        for (std::uint32_t i = 0; i < mSize; ++i) {
            new (fresh + i) Slot(std::move(all[i]));
            all[i].~Slot();
        }
        util::poolRelease(mData, mCapacity * sizeof(Slot));
        mData = fresh;
        mCapacity = capacity;
    }

    void *mData = nullptr;
    std::uint32_t mSize = 0;
    std::uint32_t mCapacity = 0;
};

} // namespace orvo::internal
