// BlockClass, what a block type can do: for each handler interface of a pass, the object that does it for this type.
#pragma once

#include <orvo/value.h>

#include <list>
#include <map>
#include <set>
#include <typeinfo>

namespace orvo {

class Block;
class Port;
class Wire;

/// Empty base of all handler interfaces.
class ORVO_API BlockHandler {
  public:
    BlockHandler() = default;
    BlockHandler(const BlockHandler &) = delete;
    BlockHandler &operator=(const BlockHandler &) = delete;
    virtual ~BlockHandler();
};

/// Order of types by their names.
struct ORVO_API TypeInfoCmpLt {
    bool operator()(const std::type_info *a, const std::type_info *b) const;
};

/// Per context and block type. Handlers are stateless and serve all blocks of their types.
class ORVO_API BlockClass {
  public:
    BlockClass() = default;
    ~BlockClass();
    BlockClass(const BlockClass &) = delete;
    BlockClass &operator=(const BlockClass &) = delete;

    /// Null if the type has nothing to say for this interface.
    const BlockHandler *lookupHandler(const std::type_info &interface) const;
    /// Sets or replaces. With `owned`, this class deletes the handler that is set when the class goes; the handler that
    /// a replacement drives out is not deleted.
    void registerHandler(const std::type_info &interface, const BlockHandler *handler, bool owned);
    template <class T> void registerHandler(const T *handler, bool owned = true) {
        registerHandler(typeid(T), handler, owned);
    }
    /// Copies those of the listed interfaces that `source` has, without owning them.
    void copyHandlersFrom(const std::list<const std::type_info *> &interfaces, const BlockClass &source);
    /// The handler as a `T`, null if there is none.
    template <class T> const T *get() const { return static_cast<const T *>(lookupHandler(typeid(T))); }

  private:
    std::map<const std::type_info *, const BlockHandler *, TypeInfoCmpLt> mHandlers;
    std::set<const std::type_info *, TypeInfoCmpLt> mOwned;
};

/// Ports and wires by number, for consumers that think in numbers. A port that the type's rule names and the block has
/// not, or a number beyond the end, is an assertion.
class ORVO_API PortOrderingHandler : public BlockHandler {
  public:
    virtual Port *getInputPortByNumber(Block &block, int number) const = 0;
    virtual Wire *getOutputWireByNumber(Block &block, int number) const = 0;
    virtual const Port *getInputPortByNumber(const Block &block, int number) const;
    virtual const Wire *getOutputWireByNumber(const Block &block, int number) const;
};

/// The handler of the block's type or, for a type without one, that which numbers ports and wires in the order of their
/// names.
ORVO_API const PortOrderingHandler &portOrderingOf(const Block &block);

} // namespace orvo
