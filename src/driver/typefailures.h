// What types a design lacks, and why, for the verb "check".
#pragma once

#include "driver/jsontext.h"

#include <memory>
#include <string>
#include <vector>

namespace orvo {
class Design;
class GlobalTypePass;
} // namespace orvo

namespace orvo::driver {

/// Looks below the models that are to be written out or, where none says so, below those that nothing instantiates. The
/// design must not change meanwhile, and the pass must be bound to it.
class TypeFailures {
  public:
    TypeFailures(GlobalTypePass &types, const Design &design);
    ~TypeFailures();
    TypeFailures(const TypeFailures &) = delete;
    TypeFailures &operator=(const TypeFailures &) = delete;

    bool any() const;
    std::size_t blocks() const;
    std::size_t models() const;
    /// Adds the trace of a block with missing types, told as top/a/block, or by its name if only one such block has it.
    /// Empty if that went well, else the reason why not.
    std::string addTrace(const std::string &block);
    /// The causes, the traces, and what is missing; empty if nothing is.
    std::string text() const;
    Json json() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

} // namespace orvo::driver
