// Early analysis of feedback loops: which loops a design has, through wires and through latency constraints, and how
// many cycles of delay they hold, long before a scheduler would find out. A policy says which loops are looked for.
#pragma once

#include <orvo/model.h>

#include <vector>

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
    /// Cycles that the block gives to a loop through it; by default those of a delay or register.
    virtual int getSlackDelay(const Block *block) const;
    /// Told, for each Janus block on a loop that counts, the loop with the least slack through it and a salient block:
    /// its blocks in the order of the data, the Janus block first, and its cycles. Parameters of blocks may be changed.
    virtual void worstSlackPath(const std::vector<const Block *> &path, int slack);
};

/// The machinery behind the policies.
class ORVO_API EarlyCycleAnalysisImpl {
  public:
    EarlyCycleAnalysisImpl() = delete;
    /// Whether the model, with all that is instantiated below it, has a loop that counts for the policy. Each instance
    /// of a model is looked at by itself. Loops through blocks that run unscheduled and through signals that stall a
    /// region do not exist here. Takes time linear in the instances, but for policies whose Janus blocks prevent
    /// further analysis or that ask for paths: these add a search around each Janus block that is on a loop.
    static bool analyzeUnschedulableLoops(const Model &model, EarlyCycleAnalysis *analysis);
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
