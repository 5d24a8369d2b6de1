// Contexts, their intern tables, and the table of static values that each new context starts with.
#include <orvo/context.h>

#include <orvo/logging.h>

#include "orvo/contextimpl.h"
#include "orvo/initimpl.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iostream>
#include <mutex>
#include <shared_mutex>

namespace orvo {

namespace internal {

namespace {

std::atomic<bool> g_first_context_created{false};
thread_local Context *tl_thread_context = nullptr;

std::uint64_t readWord(const char *text) {
    std::uint64_t word;
    std::memcpy(&word, text, 8);
    return word;
}

// Up to eight bytes in one word, by two reads that may overlap: a copy of variable length is a call.
std::uint64_t readTail(const char *text, std::size_t count) {
    if (count >= 4) {
        std::uint32_t low;
        std::uint32_t high;
        std::memcpy(&low, text, 4);
        std::memcpy(&high, text + count - 4, 4);
        return (std::uint64_t{high} << 32) | low;
    }
    if (count == 0) {
        return 0;
    }
    const auto at = [text](std::size_t i) { return std::uint64_t{static_cast<unsigned char>(text[i])}; };
    return at(0) | at(count / 2) << 8 | at(count - 1) << 16;
}

} // namespace

std::uint32_t hashText(std::string_view text) {
    std::uint64_t hash = text.size();
    const char *at = text.data();
    std::size_t left = text.size();
    for (; left > 8; at += 8, left -= 8) {
        hash = mixHash(hash, readWord(at));
    }
    return finishHash(mixHash(hash, readTail(at, left)));
}

bool sameContent(const Value *a, const Value *b) { return a->kind() == b->kind() && !a->before(b) && !b->before(a); }

namespace {
constexpr std::size_t kFirstCapacity = 4096;
} // namespace

InternTable::InternTable() : mSlots(kFirstCapacity), mHashes(kFirstCapacity), mMask(kFirstCapacity - 1) {}

InternTable::~InternTable() = default;

void InternTable::reserve(std::size_t count) {
    std::size_t capacity = mMask + 1;
    while (capacity - capacity / 4 < count) {
        capacity *= 2;
    }
    if (capacity != mMask + 1) {
        resize(capacity);
    }
}

void InternTable::place(Value *value, std::uint32_t hash) {
    std::size_t i = hash & mMask;
    while (mHashes[i] != 0) {
        i = (i + 1) & mMask;
    }
    mSlots[i] = value;
    mHashes[i] = hash;
}

void InternTable::resize(std::size_t capacity) {
    const std::size_t oldCapacity = mMask + 1;
    Table<Value *> oldSlots(capacity);
    Table<std::uint32_t> oldHashes(capacity);
    oldSlots.swap(mSlots);
    oldHashes.swap(mHashes);
    mMask = capacity - 1;
    for (std::size_t i = 0; i < oldCapacity; ++i) {
        if (oldHashes[i] != 0) {
            place(oldSlots[i], oldHashes[i]);
        }
    }
}

void InternTable::insert(Value *value) {
    reserve(mSize + 1);
    place(value, value->hash());
    ++mSize;
}

bool InternTable::erase(const Value *value) {
    std::size_t hole = value->hash() & mMask;
    while (mHashes[hole] != 0 && (mHashes[hole] != value->hash() || mSlots[hole] != value)) {
        hole = (hole + 1) & mMask;
    }
    if (mHashes[hole] == 0) {
        return false;
    }
    for (std::size_t i = (hole + 1) & mMask; mHashes[i] != 0; i = (i + 1) & mMask) {
        // An entry may move back to the hole if its home does not lie behind the hole.
        const std::size_t fromHome = (i - mHashes[i]) & mMask;
        if (fromHome >= ((i - hole) & mMask)) {
            mSlots[hole] = mSlots[i];
            mHashes[hole] = mHashes[i];
            hole = i;
        }
    }
    mHashes[hole] = 0;
    --mSize;
    return true;
}

// Values of StaticStrings. The lock has work to do only while libraries load; it retries and throws as the
// reader-writer lock under it reports.
struct ContextImpl::StaticValues {
    StaticValues() = default;
    StaticValues(const StaticValues &) = delete;
    StaticValues &operator=(const StaticValues &) = delete;
    ~StaticValues() {
        for (Value *value : values) {
            delete value;
        }
    }

    std::shared_mutex mutex;
    StaticValueContainer values;
};

ContextImpl::StaticValues &ContextImpl::getStaticValues() {
    static StaticValues g_static_values;
    return g_static_values;
}

ContextImpl::ContextImpl(Context *owner) : mThread(pthread_self()), mOwner(owner) {
    StaticValues &statics = getStaticValues();
    const std::shared_lock<std::shared_mutex> lock(statics.mutex);
    mTable.reserve(2 * statics.values.size());
    for (Value *value : statics.values) {
        mTable.insert(value);
    }
}

void ContextImpl::failWrongThread() {
    orvoAssertHandler("isContextThread()", __FILE__, static_cast<unsigned int>(__LINE__), "internValue",
                      "a value was interned on a thread that does not own the context");
}

ValueRef ContextImpl::intern(Value *probe) {
    return FromPtr<Value>(internBy(
        probe->hash(), [probe](const Value *value) { return sameContent(value, probe); },
        [probe] { return probe->createOnHeap(); }));
}

StringValue *ContextImpl::internText(std::string_view text) {
    const std::uint32_t hash = hashText(text);
    Value *value = internBy(
        hash,
        [text](const Value *other) {
            return other->kind() == CoreType::String && static_cast<const StringValue *>(other)->str() == text;
        },
        [&] { return new StringValue(std::string(text), mOwner, hash, true); });
    return static_cast<StringValue *>(value);
}

void ContextImpl::releaseValue(const Value *value) {
    ORVO_ASSERT(value->mRefCount == 0, "a value was released while it was referred to");
    const bool found = mTable.erase(value);
    ORVO_ASSERT(found, "a released value was not in the table of its context");
    // A tuple lets go of its elements when it ends. They wait for that: the stack would grow with the depth of tuples.
    if (mIsDeleting) {
        mDying.push_back(value);
        return;
    }
    mIsDeleting = true;
    delete value;
    while (!mDying.empty()) {
        const Value *next = mDying.back();
        mDying.pop_back();
        delete next;
    }
    mIsDeleting = false;
}

BlockClass *ContextImpl::getBlockClass(const ValueRef &type) {
    ClassEntry &entry = mBlockClasses[type.get_ptr()];
    if (entry.blockClass == nullptr) {
        entry.type = type;
        entry.blockClass = std::make_unique<BlockClass>();
    }
    return entry.blockClass.get();
}

void ContextImpl::close() {
    for (auto &entry : mBlockClasses) {
        entry.second.blockClass.reset();
    }
    mBlockClasses.clear();
    std::vector<const Value *> left;
    mTable.forEach([&left](const Value *value) {
        if (value->isRefCounted()) {
            left.push_back(value);
        }
    });
    if (left.empty()) {
        return;
    }
    std::sort(left.begin(), left.end(), [](const Value *a, const Value *b) { return DeepValueCmp()(a, b); });
    std::cerr << "Values live beyond Context lifetime!\n";
    for (const Value *value : left) {
        std::cerr << "-> " << value->toString() << "\n";
    }
    std::cerr.flush();
}

ValueRef ContextImpl::internStaticValue(Value *probe) {
    ORVO_ASSERT(!g_first_context_created, "a static value was made after the first context");
    ORVO_ASSERT(!probe->isRefCounted(), "a static value must not be reference counted");
    StaticValues &statics = getStaticValues();
    {
        const std::shared_lock<std::shared_mutex> lock(statics.mutex);
        const auto found = statics.values.find(probe);
        if (found != statics.values.end()) {
            return FromPtr<Value>(*found);
        }
    }
    std::unique_ptr<Value> made(probe->createOnHeap());
    ORVO_ASSERT(!made->isRefCounted(), "a static value must not be reference counted");
    const std::unique_lock<std::shared_mutex> lock(statics.mutex);
    const auto [place, inserted] = statics.values.insert(made.get());
    if (inserted) {
        static_cast<void>(made.release());
    }
    return FromPtr<Value>(*place);
}

} // namespace internal

Context::Context() {
    internal::g_first_context_created = true;
    mImpl = std::make_unique<internal::ContextImpl>(this);
    internal::initialiseORVO(this);
}

Context::~Context() { mImpl->close(); }

Context *Context::create() { return new Context(); }
std::unique_ptr<Context> Context::createUnique() { return std::make_unique<Context>(); }

ValueRef Context::internValue(Value *probe) { return mImpl->intern(probe); }
ValueRef Context::internStaticValue(Value *probe) { return internal::ContextImpl::internStaticValue(probe); }
BlockClass *Context::getBlockClass(const ValueRef &type) { return mImpl->getBlockClass(type); }
void Context::setListener(ContextListener *listener) { mImpl->setListener(listener); }
ContextListener *Context::getListener() const { return mImpl->getListener(); }
std::size_t Context::valueCount() const { return mImpl->valueCount(); }

ContextMgr::ContextMgr() : ContextMgr(Context::create(), true) {}
ContextMgr::ContextMgr(Context *context) : ContextMgr(context, false) {}

ContextMgr::ContextMgr(Context *context, bool owned) : mContext(context), mPrevious(getThreadContext()), mOwned(owned) {
    setThreadContext(context);
}

ContextMgr::~ContextMgr() {
    ORVO_ASSERT(getThreadContext() == mContext, "context guards must nest like scopes");
    setThreadContext(mPrevious);
    if (mOwned) {
        delete mContext;
    }
}

Context *ContextMgr::get() {
    Context *context = getThreadContext();
    ORVO_ASSERT(context != nullptr, "this thread has no current context");
    return context;
}

Context *ContextMgr::getThreadContext() { return internal::tl_thread_context; }
void ContextMgr::setThreadContext(Context *context) { internal::tl_thread_context = context; }

} // namespace orvo
