// Wire, an output of the block that is its parent, and the list of the ports that read it.
#pragma once

#include <orvo/generic.h>
#include <orvo/node.h>
#include <orvo/port.h>

namespace orvo {

/// A view of the readers of a wire, in connection order.
class WirePorts {
  public:
    explicit WirePorts(Port *first) : mFirst(first) {}
    PortIterator begin() const { return PortIterator(mFirst); }
    PortIterator end() const { return PortIterator(); }

  private:
    Port *mFirst;
};

class ORVO_API Wire final : public Node, public GenericConnection {
  public:
    static constexpr NodeKind kKind = NodeKind::Wire;

    /// Makes a wire that the block owns; `delete` ends it and leaves its readers unconnected.
    static Wire *create(Block &block, const PureValueRef &name);
    static Wire *create(Block &block, const std::string &name);
    ~Wire() override;

    Context *getContext() const override { return getParent()->getContext(); }
    void setName(const PureValueRef &name) override;
    /// Empty: changes of a wire are heard at its block.
    void sendChangedEvent() override {}
    void sendDyingEvent() override;

    Block &getBlock() const;
    PortIterator port_begin() const { return PortIterator(mFirst); }
    PortIterator port_end() const { return PortIterator(); }
    std::size_t port_size() const { return mPortCount; }
    WirePorts ports() const { return WirePorts(mFirst); }
    /// The reader that was connected last, null if there is none.
    Port *lastPort() const { return mLast; }
    /// Moves all readers to `other`. A wire replaced by itself changes nothing.
    void replace(Wire &other);
    void registerPort(Port *port);
    void unregisterPort(Port *port);

  private:
    friend class internal::ChangeLog;
    Wire(Block &block, const PureValueRef &name);
    Design *mDesign;
    Port *mFirst = nullptr;
    Port *mLast = nullptr;
    std::uint32_t mPortCount = 0;
    /// Where the log of changes keeps what it knows of this wire.
    mutable std::uint32_t mLogged = 0;
};

} // namespace orvo
