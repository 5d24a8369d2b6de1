// Early analysis of feedback loops: which loops a design has, through wires and through latency constraints, and how
// many cycles of delay they hold, long before a scheduler would find out. A policy says which loops are looked for.
#pragma once

#include <orvo/model.h>

#include <memory>
#include <vector>

namespace orvo::internal {
class LatencyRecords;
}

namespace orvo {

/// What an analysis wants to know of blocks. A "Janus" block is one that the policy wants to see on a loop: the search
/// starts at it, and there the graph is cut, so that its inputs and its outputs face away from each other.
class ORVO_API EarlyCycleAnalysis {
  public:
    virtual ~EarlyCycleAnalysis();
    /// Asked again before each search, so that a policy may lose interest in a block.
    virtual bool isJanusBlock(const Block *block) const = 0;
    /// Whether `worstSlackPath` is to be called for the loops that count; by default not.
    virtual bool furtherAnalysis() const;
    /// Whether a loop with this block counts; by default, whether it is a Janus block.
    virtual bool isBlockSalient(const Block *block) const;
    /// Whether no loop is followed through this block, but for one that starts at it; by default a delay or register of
    /// at least one cycle.
    virtual bool preventsFurtherAnalysis(const Block *block) const;
    /// Cycles that the block gives to a loop through it; by default those of a delay or register. Asked before the
    /// search, and not of blocks that prevent further analysis and are no Janus blocks.
    virtual int getSlackDelay(const Block *block) const;
    /// Told, for each Janus block on a loop that counts, the loop with the least slack through it and a salient block:
    /// its blocks in the order of the data, the Janus block first, and its cycles. A block that carries signals by
    /// their names is one for each of them. Where a loop can pass a cycle of less than no cycles any number of times,
    /// a loop is told with no more slack than that cycle has. Parameters of blocks may be changed.
    virtual void worstSlackPath(const std::vector<const Block *> &path, int slack);
};

/// The machinery behind the policies.
class ORVO_API EarlyCycleAnalysisImpl {
  public:
    /// To look at several models of one design, which must outlive this: its latency constraints are read only once,
    /// and must stay as they are meanwhile.
    explicit EarlyCycleAnalysisImpl(const Design &design);
    ~EarlyCycleAnalysisImpl();
    EarlyCycleAnalysisImpl(const EarlyCycleAnalysisImpl &) = delete;
    EarlyCycleAnalysisImpl &operator=(const EarlyCycleAnalysisImpl &) = delete;

    /// Whether the model, with all that is instantiated below it, has a loop that counts for the policy. Each instance
    /// of a model is looked at by itself. Loops through blocks that run unscheduled and through signals that stall a
    /// region do not exist here. A constraint whose ends stand for every instance joins them where one of the instances
    /// is the other or lies in it; if there is none such, each start to each end.
    ///
    /// Takes time linear in the instances and in the ends of constraints, but for policies whose Janus blocks prevent
    /// further analysis or that ask for paths: these add a search around each Janus block that is on a loop, which
    /// takes longer where constraints or delays of less than no cycles are about.
    bool analyze(const Model &model, EarlyCycleAnalysis &analysis);
    /// The same for one model. If blocks below it carry constraints, all models of the design are asked for their
    /// records.
    static bool analyzeUnschedulableLoops(const Model &model, EarlyCycleAnalysis *analysis);

  private:
    std::unique_ptr<internal::LatencyRecords> mRecords;
};

/// Looks for memory accesses on loops without delay.
class ORVO_API EarlyCycleLSUAnalysis final : public EarlyCycleAnalysis {
  public:
    bool isJanusBlock(const Block *block) const override;
    static bool doesUnschedulableLoopContainLSU(const Model &model);
};

/// Keeps adders whole that a scaled feedback of less than two cycles goes through, since a pipelined adder would not
/// fit into it: all blocks on such a loop get the split width -1.
class ORVO_API EarlyCycleAdderAnalysis final : public EarlyCycleAnalysis {
  public:
    bool isJanusBlock(const Block *block) const override;
    bool furtherAnalysis() const override;
    bool isBlockSalient(const Block *block) const override;
    bool preventsFurtherAnalysis(const Block *block) const override;
    int getSlackDelay(const Block *block) const override;
    void worstSlackPath(const std::vector<const Block *> &path, int slack) override;
    /// Runs the analysis on each scheduled model that no scheduled model instantiates.
    static void suppressPipeliningOfAdderFeedbackLoops(Design &design);
};

} // namespace orvo
