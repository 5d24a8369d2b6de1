// What keeps a block without readers alive.
#pragma once

#include <orvo/blockclass.h>

namespace orvo {

class ImmortalModelQuery;

/// Says which blocks a dead-block pass may not delete though nothing reads them. A block without a handler is mortal.
class ORVO_API DeadBlockHandler : public BlockHandler {
  public:
    /// In an early pass.
    virtual bool isImmortal(const Block &block) const;
    /// `late` when the pass is a late one.
    virtual bool isImmortal(const Block &block, bool late) const;
    /// May ask whether a whole sub-model must live.
    virtual bool isImmortalQuery(const Block &block, bool late, ImmortalModelQuery &query) const;
};

} // namespace orvo
