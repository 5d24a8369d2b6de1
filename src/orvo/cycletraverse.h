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
class Model;
class Port;
class Wire;
} // namespace orvo

namespace orvo::internal {

/// A block, or one of its ports or wires.
struct NetPoint {
    const Block *block;
    const Port *port = nullptr;
    const Wire *wire = nullptr;
    bool isBlock() const { return port == nullptr && wire == nullptr; }
};

/// Numbers the points of one model.
class NetPointDict {
  public:
    static constexpr std::uint32_t kNone = ~std::uint32_t{0};

    void addBlock(const Block &block);
    /// A port, a wire or, for a null key, the block; `kNone` if the block has none of that name.
    std::uint32_t getPoint(const Block *block, bool isPort, const PureValueRef &key) const;
    std::uint32_t getPoint(const Wire &wire) const;
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
    std::uint32_t instanceOf(std::uint32_t point) const;
    std::uint32_t below(std::uint32_t instance, const Block &step) const;
    /// The wire that drives a port, if it belongs to the graph.
    std::uint32_t getDriverWire(std::uint32_t instance, const Port &port) const;
    /// Where the signal of a wire comes from: the block or, at the edges of models, the port on the other side.
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

/// Adds the latency constraints: the point at which one ends depends on the point at which it starts.
class LatencyTraverse {
  public:
    explicit LatencyTraverse(const ModelTreeTraverse &tree);

    /// Points that stand for constraints alone are numbered behind those of the tree.
    std::uint32_t countPoints() const { return mTree->countPoints() + static_cast<std::uint32_t>(mHubs.size()); }
    /// Appends what the point waits for by constraints.
    void getDriverDepends(std::uint32_t point, std::vector<Dependency> &depends) const;

  private:
    struct Ends {
        /// Of entries for every instance of their model, with that instance.
        std::vector<std::pair<std::uint32_t, std::uint32_t>> every;
        /// Of entries that name the instance.
        std::vector<std::uint32_t> named;
    };
    struct Constraint {
        int latency;
        Ends starts;
        Ends stops;
    };

    void populateMaps();
    void readRecords(const Model &model);
    void parseConstraintPoints(const Block &block, const PureValueRef &key, bool isPort);
    void appendConstraintIds(const ValueRef &ids, const std::vector<std::uint32_t> &points, bool isStart, bool isNamed);
    void populateLatencyDependencies();
    void addHub(const std::vector<std::uint32_t> &starts, const std::vector<std::uint32_t> &stops, int latency);
    std::uint32_t namedInstance(const ValueRef &chain, const Model &model) const;

    const ModelTreeTraverse *mTree;
    std::unordered_map<const Model *, std::vector<std::uint32_t>> mInstancesOf;
    std::unordered_map<const Value *, Constraint> mConstraints;
    /// In the order of the records, so that every run is the same.
    std::vector<const Value *> mIds;
    /// A constraint with many starts and many stops joins them through a point of its own, so that the graph stays
    /// as small as the constraints are.
    std::vector<std::vector<std::uint32_t>> mHubs;
    std::unordered_map<std::uint32_t, std::vector<Dependency>> mLatencyDepends;
};

} // namespace orvo::internal
