// TypeInferDebug, which tells why types are missing: where the failure began, in which block, loop or input, and how it
// reached the block in question.
#pragma once

#include <orvo/model.h>

#include <iosfwd>
#include <limits>
#include <memory>
#include <vector>

namespace orvo {

class GlobalTypePass;
class Port;
class Wire;

/// A model where it stands in the hierarchy.
struct ModelInstance {
    const Model *model;
    /// From the root to here.
    RefChain chain;
    /// The root's name, then those of the model blocks on the way, as in top/a/b.
    StringValueRef path;
};

/// A block with missing types, in one instance of its model.
struct BlockLocationSpec {
    static constexpr int kNotReached = std::numeric_limits<int>::max();

    const Block *block;
    const ModelInstance *instance;
    /// In blocks from the nearest input of the model, which is 0; `kNotReached` if none leads here.
    int distance;
    /// Ports whose wire has no type, and wires that have none, each in the order of their names.
    std::vector<const Port *> ports;
    std::vector<const Wire *> wires;
};

/// Where missing types of one model have their likely origin.
struct CauseSpec {
    enum class Kind : std::uint8_t { ExternalInput, Block, Loop };

    Kind kind;
    const ModelInstance *instance;
    /// The input block, the block, or those on the loop by ascending distance from the inputs. Never empty.
    std::vector<const Block *> blocks;
    /// Of an external input; else null.
    PureValueRef input;
};

/// Explains what is missing below the roots of a design. What was found is kept from the first question on, so the
/// design must not change meanwhile. The pass and the design must outlive it. Costs time linear in the design.
class ORVO_API TypeInferDebug {
  public:
    /// The roots are the models that say how they are to be written out.
    TypeInferDebug(GlobalTypePass &types, const Design &design);
    /// Below these roots.
    TypeInferDebug(GlobalTypePass &types, std::vector<const Model *> roots);
    ~TypeInferDebug();
    TypeInferDebug(const TypeInferDebug &) = delete;
    TypeInferDebug &operator=(const TypeInferDebug &) = delete;

    bool invalidTypesPresent();
    /// Writes the causes, model by model from the top down; nothing if no type is missing.
    void getLikelyFailureCause(std::ostream &out);
    /// Writes the way from the block back to the causes of its failure, a step a line, each one tab deeper than the
    /// one before it on its way, up to 256 tabs.
    void getLikelyFailureTrace(std::ostream &out, const Block &block, const RefChain &refChain);

    /// What the reports are made of, in their order. They live as long as this object.
    const std::vector<const BlockLocationSpec *> &locations();
    const std::vector<const CauseSpec *> &causes();

  private:
    struct TypeInferDebugImpl;
    std::unique_ptr<TypeInferDebugImpl> mImpl;
};

} // namespace orvo
