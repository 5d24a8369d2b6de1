// The graph of dependencies behind the early analysis of loops: the points of a model's netlist, its instances, and the
// latency constraints between them.
#pragma once

#include "orvo/strongcomponents.h"

#include <orvo/api.h>
#include <orvo/value.h>

#include <functional>
#include <unordered_map>
#include <vector>

namespace orvo {
class Block;
class Design;
class Model;
class Port;
class Wire;
} // namespace orvo

namespace orvo::internal {

/// The integer part of a number that is not special, or the bound of `int` that it lies beyond.
ORVO_API int saturatedInteger(const NumberValue &number);

/// A block, or one of its ports or wires. With both, what a block is for the one signal that it carries from that port
/// to that wire.
struct NetPoint {
    const Block *block;
    const Port *port = nullptr;
    const Wire *wire = nullptr;
    bool isBlock() const { return (port == nullptr) == (wire == nullptr); }
};

/// Numbers the points of one model.
class NetPointDict {
  public:
    static constexpr std::uint32_t kNone = ~std::uint32_t{0};

    void addBlock(const Block &block);
    /// A port, a wire or, for a null key, the block; `kNone` if the block has none of that name.
    std::uint32_t getPoint(const Block *block, bool isPort, const PureValueRef &key) const;
    std::uint32_t getPoint(const Port &port) const;
    /// `kNone` for a wire of another model, which a port may read by mistake.
    std::uint32_t getPoint(const Wire &wire) const;
    /// What gives the signal of a wire: its block, or the passage to it through that block; `kNone` if the block
    /// carries signals by their names and has none for this wire.
    std::uint32_t getSource(const Wire &wire) const;
    const std::vector<NetPoint> &points() const { return mPoints; }

  private:
    std::vector<NetPoint> mPoints;
    std::unordered_map<const void *, std::uint32_t> mNumbers;
};

/// What a point waits for: `driver` by way of a wire, a block or a latency constraint, and the cycles in between.
struct Dependency {
    std::uint32_t driver;
    int slackDelay;
};

/// The points of one model.
class SimpleTraverse {
  public:
    explicit SimpleTraverse(const Model &model);
    const Model &model() const { return *mModel; }
    const NetPointDict &points() const { return mPoints; }

    /// Wires of blocks that run unscheduled, and those by which a region stalls the one behind it: loops through these
    /// are no concern of a schedule.
    static bool isNONSWire(const Wire *wire);
    static bool isStallWire(const Wire *wire);

  private:
    const Model *mModel;
    NetPointDict mPoints;
};

/// All instances below a model, each with its points, numbered one behind the other.
class ModelTreeTraverse {
  public:
    struct Instance {
        const SimpleTraverse *traverse;
        std::uint32_t parent;
        /// In the parent instance.
        const Block *step;
        std::uint32_t firstPoint;
    };
    static constexpr std::uint32_t kNone = NetPointDict::kNone;

    explicit ModelTreeTraverse(const Model &model) { populateMaps(model); }

    std::size_t countModels() const { return mInstances.size(); }
    const Model &getModel(std::uint32_t instance) const { return mInstances[instance].traverse->model(); }
    const Instance &getInstance(std::uint32_t instance) const { return mInstances[instance]; }
    std::uint32_t countPoints() const { return mPointCount; }
    std::uint32_t below(std::uint32_t instance, const Block &step) const;
    /// The wire that drives a port, if it belongs to the graph.
    std::uint32_t getDriverWire(std::uint32_t instance, const Port &port) const;
    /// Where the signal of a wire comes from: the block, its passage or, at the edges of models, the port on the other
    /// side.
    std::uint32_t getSource(std::uint32_t instance, const Wire &wire) const;

  private:
    struct StepHash {
        std::size_t operator()(const std::pair<std::uint32_t, const Block *> &step) const {
            return std::hash<const void *>()(step.second) * 31 + step.first;
        }
    };
    void populateMaps(const Model &model);
    std::uint32_t addInstance(const Model &model, std::uint32_t parent, const Block *step);
    bool isInside(const Model &model, std::uint32_t instance) const;
    /// From a wire of the model block to the port of the output block inside.
    std::uint32_t remapPointToChildModel(std::uint32_t child, const PureValueRef &name) const;
    std::uint32_t getPoint(std::uint32_t instance, const Block *block, bool isPort, const PureValueRef &key) const;
    std::uint32_t numberOf(std::uint32_t instance, std::uint32_t point) const;

    std::unordered_map<const Model *, SimpleTraverse> mModels;
    std::vector<Instance> mInstances;
    std::unordered_map<std::pair<std::uint32_t, const Block *>, std::uint32_t, StepHash> mBelow;
    std::uint32_t mPointCount = 0;
};

/// The latencies of the constraints of a design, whose ids are unique there. They are read when the first one is asked
/// for, and must not change from then on.
class LatencyRecords {
  public:
    explicit LatencyRecords(const Design &design) : mDesign(&design) {}
    /// Null for an id without a well-formed record.
    const int *find(const Value *id);

  private:
    void read(const Model &model);

    const Design *mDesign;
    bool mIsRead = false;
    std::unordered_map<const Value *, int> mLatencies;
};

/// Adds the latency constraints: the point at which one ends depends on the point at which it starts.
class LatencyTraverse {
  public:
    LatencyTraverse(const ModelTreeTraverse &tree, LatencyRecords &records);

    /// Points that stand for constraints alone are numbered behind those of the tree.
    std::uint32_t countPoints() const { return mTree->countPoints() + static_cast<std::uint32_t>(mHubs.size()); }
    /// Appends what the point waits for by constraints.
    void getDriverDepends(std::uint32_t point, std::vector<Dependency> &depends) const;

  private:
    /// Numbers of points.
    using Points = std::vector<std::uint32_t>;
    /// Ends in one model of entries for every instance of it, as its own points.
    struct EveryInstance {
        const Model *model;
        Points points;
    };
    struct Ends {
        std::vector<EveryInstance> every;
        /// Of entries that name the instance.
        Points named;
    };
    struct Constraint {
        int latency;
        Ends starts;
        Ends stops;
    };

    void populateMaps();
    void parseConstraintPoints(const Block &block, const PureValueRef &key, bool isPort);
    Constraint *constraintOf(const Value *id);
    void populateLatencyDependencies();
    void joinEveryInstance(const EveryInstance &starts, const EveryInstance &stops, int latency);
    void addHub(const Points &starts, const Points &stops, int latency);
    void appendInstance(const EveryInstance &ends, std::uint32_t instance, Points &points) const;
    Points allOf(const EveryInstance &ends) const;
    Points allOf(const Ends &ends) const;
    std::uint32_t instanceAbove(std::uint32_t instance, const Model &model) const;
    std::uint32_t namedInstance(const ValueRef &chain, const Model &model) const;

    const ModelTreeTraverse *mTree;
    LatencyRecords *mRecords;
    std::unordered_map<const Model *, std::vector<std::uint32_t>> mInstancesOf;
    std::unordered_map<const Value *, Constraint> mConstraints;
    /// In the order in which their ends were met, so that every run is the same.
    std::vector<const Value *> mIds;
    /// A constraint with many starts and many stops joins them through a point of its own, so that the graph stays
    /// as small as the constraints are.
    std::vector<Points> mHubs;
    std::unordered_map<std::uint32_t, std::vector<Dependency>> mLatencyDepends;
};

} // namespace orvo::internal
