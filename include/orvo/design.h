// Design, the root of a netlist: it owns the models.
#pragma once

#include <orvo/event.h>
#include <orvo/node.h>

namespace orvo {

class TransferMetadataListener;

/// A whole netlist. Belongs to one context, which outlives it.
class ORVO_API Design final : public Node {
  public:
    static constexpr NodeKind kKind = NodeKind::Design;
    using iterator = ChildIterator<Model>;

    explicit Design(Context *context);
    ~Design() override;

    Context *getContext() const override { return mContext; }
    /// A design is always named "root"; nothing happens.
    void setName(const PureValueRef &name) override;
    void sendChangedEvent() override;
    void sendDyingEvent() override;

    /// Null if there is no model of that name.
    Model *getModel(const PureValueRef &name) const;
    iterator begin() const { return iterator(Node::begin()); }
    iterator end() const { return iterator(Node::end()); }
    void registerModel(Model *model);
    void unregisterModel(Model *model);
    TransferMetadataListener *getMetadataTransferListener() const { return mListener.get(); }
    EventManager &events() const { return mEvents; }
    /// Whether any block has ever carried metadata: until then there is nothing that a rewrite could lose.
    bool hasCarriedMetadata() const { return mHasCarriedMetadata; }
    /// Grows with every change of the netlist, so that a caller can tell whether anything was edited meanwhile.
    std::uint64_t editCount() const { return mEditCount; }

  private:
    friend class Block;
    friend class Node;
    friend class TransferMetadataListener;
    Context *mContext;
    mutable EventManager mEvents;
    /// Hangs on the events, and so is made after them.
    std::unique_ptr<TransferMetadataListener> mListener;
    std::uint64_t mEditCount = 0;
    bool mHasCarriedMetadata = false;
    /// While a connection goes and leaves its port open: the port's key.
    const PureValueRef *mOpenedPort = nullptr;
    /// While a connection is made, and not only looked at.
    bool mConnecting = false;
};

} // namespace orvo
