// Contexts: the owner of the intern table and of the block classes, and the guard that says which context a thread
// works in.
#pragma once

#include <orvo/value.h>

#include <memory>

namespace orvo {

class BlockClass;
class ContextListener;

namespace internal {
class ContextImpl;
inline ContextImpl &implOf(Context &context);
} // namespace internal

/// Owns every value and every block class of its designs, which must be gone before it. Belongs to the thread that made
/// it: nothing here is locked, and a value interned from another thread is an assertion.
class ORVO_API Context {
  public:
    Context();
    ~Context();
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;

    /// A new context that the caller deletes.
    static Context *create();
    static std::unique_ptr<Context> createUnique();

    /// The interned value that equals `probe`, which is only read and may stand on the caller's stack.
    ValueRef internValue(Value *probe);
    /// For `StaticString`; an assertion once a context has been made.
    static ValueRef internStaticValue(Value *probe);
    /// The class of a block type, made empty on first use. Null is a type like any other.
    BlockClass *getBlockClass(const ValueRef &type);
    /// Not owned; null sends messages to standard error.
    void setListener(ContextListener *listener);
    ContextListener *getListener() const;
    /// How many values live in the intern table, well-known texts included.
    std::size_t valueCount() const;

  private:
    friend internal::ContextImpl &internal::implOf(Context &context);
    std::unique_ptr<internal::ContextImpl> mImpl;
};

/// Makes a context the current one of this thread for a scope. Guards nest strictly.
class ORVO_API ContextMgr {
  public:
    /// Makes and owns a new context.
    ContextMgr();
    explicit ContextMgr(Context *context);
    ContextMgr(Context *context, bool owned);
    ~ContextMgr();
    ContextMgr(const ContextMgr &) = delete;
    ContextMgr &operator=(const ContextMgr &) = delete;

    Context *context() const { return mContext; }

    /// The current context of this thread, which must be set.
    static Context *get();
    /// The same, or null.
    static Context *getThreadContext();
    static void setThreadContext(Context *context);

  private:
    Context *mContext;
    Context *mPrevious;
    bool mOwned;
};

} // namespace orvo
