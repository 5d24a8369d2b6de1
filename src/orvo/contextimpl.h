// The inside of a Context: the intern table, the block classes, the listener. Beside it, the table of the values of
// StaticStrings, which every new context copies, and the hash under both.
#pragma once

#include <orvo/blockclass.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>

#include <pthread.h>

#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

namespace orvo::internal {

/// Folds two words into one; the multiply-and-fold step of the wyhash family.
inline std::uint64_t mixHash(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a ^ 0x9e3779b97f4a7c15U) * (b ^ 0xd1b54a32d192ed03U);
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

/// A hash as the values carry it: 32 bits, never 0, which marks a free place in the table.
inline std::uint32_t finishHash(std::uint64_t hash) {
    const auto folded = static_cast<std::uint32_t>(hash ^ (hash >> 32));
    return folded != 0 ? folded : 1;
}

std::uint32_t hashText(std::string_view text);

/// Strict order of values inside a process: kinds first, then the shallow order of the kind.
struct ValueCmpLt {
    bool operator()(const Value *a, const Value *b) const {
        return a->kind() != b->kind() ? a->kind() < b->kind() : a->before(b);
    }
};

/// The equality that `ValueCmpLt` tells: neither is before the other.
bool sameContent(const Value *a, const Value *b);

/// A hash table of values, none counted by it: open addressing with linear probing, the hashes beside the slots, so
/// that a miss reads no value. A deletion shifts the rest of its run back, so that there are no tombstones.
class InternTable {
  public:
    InternTable();
    ~InternTable();
    InternTable(const InternTable &) = delete;
    InternTable &operator=(const InternTable &) = delete;

    std::size_t size() const { return mSize; }
    void reserve(std::size_t count);

    /// The value with this hash for which `isSame` holds, or null.
    template <class IsSame> Value *find(std::uint32_t hash, IsSame isSame) const {
        for (std::size_t i = hash & mMask; mHashes[i] != 0; i = (i + 1) & mMask) {
            if (mHashes[i] == hash && isSame(mSlots[i])) {
                return mSlots[i];
            }
        }
        return nullptr;
    }
    /// `value` must not be there yet.
    void insert(Value *value);
    /// False if this very object was not there.
    bool erase(const Value *value);
    void prefetch(std::uint32_t hash) const {
        __builtin_prefetch(&mHashes[hash & mMask]);
        __builtin_prefetch(&mSlots[hash & mMask]);
    }
    template <class Visit> void forEach(Visit visit) const {
        for (std::size_t i = 0; i <= mMask; ++i) {
            if (mHashes[i] != 0) {
                visit(mSlots[i]);
            }
        }
    }

  private:
    void resize(std::size_t capacity);
    void place(Value *value, std::uint32_t hash);

    template <class T> using Table = std::vector<T, util::PoolAllocator<T>>;

    Table<Value *> mSlots;
    Table<std::uint32_t> mHashes;
    std::size_t mMask;
    std::size_t mSize = 0;
};

class ContextImpl {
  public:
    explicit ContextImpl(Context *owner);
    ContextImpl(const ContextImpl &) = delete;
    ContextImpl &operator=(const ContextImpl &) = delete;

    bool isContextThread() const { return pthread_equal(pthread_self(), mThread) != 0; }

    ValueRef intern(Value *probe);
    StringValue *internText(std::string_view text);
    /// The value found by `isSame`, or the one that `make` gives, entered.
    template <class IsSame, class Make> Value *internBy(std::uint32_t hash, IsSame isSame, Make make) {
        if (!isContextThread()) {
            failWrongThread();
        }
        if (Value *found = mTable.find(hash, isSame)) {
            return found;
        }
        Value *made = make();
        mTable.insert(made);
        return made;
    }
    /// Says that the value will be released soon.
    void prefetch(const Value &value) const { mTable.prefetch(value.hash()); }
    /// Takes a value that nobody refers to out of the table and deletes it.
    void releaseValue(const Value *value);

    BlockClass *getBlockClass(const ValueRef &type);
    void setListener(ContextListener *listener) { mListener = listener; }
    ContextListener *getListener() const { return mListener; }
    std::size_t valueCount() const { return mTable.size(); }
    /// The end of the context: block classes go, then the statics, and what is left is reported.
    void close();

    static ValueRef internStaticValue(Value *probe);

  private:
    struct ClassEntry {
        ValueRef type;
        std::unique_ptr<BlockClass> blockClass;
    };
    /// Values that are out of the table and wait for their end.
    std::vector<const Value *> mDying;
    bool mIsDeleting = false;
    using StaticValueContainer = std::set<Value *, ValueCmpLt>;
    struct StaticValues;

    [[noreturn]] static void failWrongThread();
    static StaticValues &getStaticValues();

    pthread_t mThread;
    Context *mOwner;
    InternTable mTable;
    ContextListener *mListener = nullptr;
    std::unordered_map<const Value *, ClassEntry> mBlockClasses;
};

inline ContextImpl &implOf(Context &context) { return *context.mImpl; }

} // namespace orvo::internal
