// Port, the reading end of a connection. Ports follow from the parameters of their block and are not nodes.
#pragma once

#include <orvo/value.h>

#include <cstddef>
#include <iterator>

namespace orvo {

class Block;
class Port;
class Wire;

/// Walks the ports on a wire in the order in which they were connected. Taking a port off the wire ends an iterator
/// that stands on it, no other.
class PortIterator {
  public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Port;
    using difference_type = std::ptrdiff_t;
    using pointer = Port *;
    using reference = Port &;
    PortIterator() = default;
    explicit PortIterator(Port *port) : mPort(port) {}
    Port &operator*() const { return *mPort; }
    Port *operator->() const { return mPort; }
    PortIterator &operator++();
    PortIterator operator++(int) {
        PortIterator old = *this;
        ++*this;
        return old;
    }
    bool operator==(const PortIterator &other) const { return mPort == other.mPort; }
    bool operator!=(const PortIterator &other) const { return mPort != other.mPort; }

  private:
    Port *mPort = nullptr;
};

/// A block's input. Owned by its block; made and ended by the parameter that names a wire.
class ORVO_API Port : public util::Pooled {
  public:
    Port(Block *block, PureValueRef name, Wire *wire) : mBlock(block), mName(std::move(name)), mWire(wire) {}
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    Block &getBlock() const { return *mBlock; }
    /// The key of the parameter that holds the connection.
    const PureValueRef &getName() const { return mName; }
    /// The wire read, after telling the listeners of driven events.
    Wire *getWire() const;
    /// The wire read, without an event: for walks that look only.
    Wire *peekWire() const { return mWire; }
    /// The reader of the same wire that was connected before this one, null for the first.
    Port *getPreviousReader() const { return mPrevious; }
    /// Where this port stands in its wire's list of readers.
    PortIterator getBackReference() const { return mBackReference; }
    void setBackReference(PortIterator position) { mBackReference = position; }

  private:
    friend class Block;
    friend class PortIterator;
    friend class Wire;
    Block *mBlock;
    PureValueRef mName;
    Wire *mWire;
    Port *mPrevious = nullptr;
    Port *mNext = nullptr;
    PortIterator mBackReference;
};

inline PortIterator &PortIterator::operator++() {
    mPort = mPort->mNext;
    return *this;
}

} // namespace orvo
