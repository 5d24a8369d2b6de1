// Inputs of blocks that nothing drives though something stands at their ports: the edge of a model whose instance has
// that input open, or an instance whose model has that output open. Dissolving the model shows what was open all along.
#pragma once

#include <orvo/design.h>
#include <orvo/nameorigin.h>
#include <orvo/value.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace orvo {
class Block;
} // namespace orvo

namespace orvo::driver {

/// Those of a design as it is when this is made. What is asked about later is told by the names of its blocks. Keeps a
/// copy of the design if there are any.
class OpenInputs {
  public:
    explicit OpenInputs(const Design &design);
    /// Whether the block comes from one that had this input open, in one of its instances at least.
    bool wasOpen(const Block &block, const std::string &port) const;
    bool empty() const { return mEnds.empty(); }

  private:
    /// The ports of each block.
    using Ends = std::unordered_map<const Block *, std::vector<PureValueRef>>;
    static Ends endsIn(const Design &design);

    Design mSource;
    Ends mEnds;
    NameOrigins mOrigins;
};

} // namespace orvo::driver
