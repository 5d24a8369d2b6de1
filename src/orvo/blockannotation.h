// BlockAnnotation: one section of recorded changes of a netlist as a graph of nodes and edges, and the transfer of
// metadata in it. A fork is a node that stood before and stands now, and at which something new was hung beside what
// was there; a merge is one that reads something new in the place of what it read before. Between them lies what was
// rewritten.
#pragma once

#include <orvo/annotation.h>

#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

namespace orvo {

class ORVO_API BlockAnnotation {
  public:
    enum class NodeType : std::uint8_t { Block, Wire, Dummy };

    class Node {
      public:
        virtual ~Node();
        virtual void takeMetadata(MetadataEntries &entries) const = 0;
        virtual void giveMetadata(const MetadataEntries &entries) const = 0;
        NodeType getType() const { return mType; }
        bool alive() const { return mAlive; }

        bool mAlive = true;

      protected:
        explicit Node(NodeType type) : mType(type) {}

      private:
        NodeType mType;
    };

    /// Stands for a fork that is no longer there: the wire that a reader was moved to and has left again, or that has
    /// died.
    class DummyNode final : public Node {
      public:
        explicit DummyNode(const Node *merge) : Node(NodeType::Dummy), mMerge(merge) {}
        void takeMetadata(MetadataEntries &) const override {}
        void giveMetadata(const MetadataEntries &) const override {}
        /// The reader; the edge to it is new.
        const Node *mMerge;
    };

    /// A set of nodes that take or give as one, as a range in the list of nodes of all groups.
    struct NodeRange {
        std::size_t first = 0;
        std::size_t last = 0;
        bool empty() const { return first == last; }
    };
    struct NodeGroup {
        /// The dead.
        NodeRange sources;
        /// Those that took their place.
        NodeRange targets;
        /// The two ends of a path from a fork to a merge on which nothing took their place.
        NodeRange forkSide;
        NodeRange mergeSide;
    };
    struct TransferList {
        std::vector<NodeGroup> groups;
        std::vector<const Node *> nodes;
        std::deque<DummyNode> dummies;
    };
    using NodeSet = util::set_vector<const Node *>;
    using Memo = std::unordered_map<const Node *, bool>;

    /// How far the search for a live path goes.
    static constexpr unsigned int kLivePathDepth = 6;

    /// Opens a section of the log, which outlives it.
    explicit BlockAnnotation(internal::ChangeLog &log);

    /// Every direct target of the section gets this entry, too.
    void addMetadata(const PureValueRef &entry) { mMetadata.insert(entry); }
    /// Transfers the metadata of what died in the section.
    void apply();

    std::uint32_t number() const { return mNumber; }
    /// 0 dead, 1 stood before and stands now, 2 born in this section.
    GraphState stateOf(const Node &node) const;
    bool isFork(const Node &node) const;
    bool isMerge(const Node &node) const;
    bool hasLivePath(const Node &node, unsigned int depth, Memo &memo) const;
    /// Takes each dead merge out of the graph.
    void refineGraph();
    /// Those of the groups' nodes of state 1 that are forks and merges.
    void getForkAndMergeNodes(const TransferList &list, NodeSet &forks, NodeSet &merges) const;
    /// Who gives to whom.
    TransferList getTransferList();
    void transferMetadata(const TransferList &list, const NodeSet &forks, const NodeSet &merges) const;
    bool shouldBypass(const Node &node, const NodeSet &forks, const NodeSet &merges) const;

  private:
    friend class MetadataRoutes;
    /// Whether a connection belongs to this section.
    bool since(std::uint32_t disconnection) const { return disconnection > mFirstDisconnection; }
    template <class Visit> bool anyOutput(const Node &node, const Visit &visit) const;
    template <class Visit> bool anyInput(const Node &node, const Visit &visit) const;
    bool isNewConnection(const TransferMetadataListener::NodeWire &wire,
                         const TransferMetadataListener::NodeBlock &reader) const;
    void redirectThrough(const Node &node) const;

    internal::ChangeLog &mLog;
    MetadataEntries mMetadata;
    std::uint32_t mNumber;
    /// How much the log held when the section was opened.
    std::uint32_t mFirstDisconnection;
    std::uint32_t mFirstBlock;
    std::uint32_t mFirstWire;
    std::size_t mFirstDeath;
    std::uint32_t mFirstSettledDeath;
};

} // namespace orvo
