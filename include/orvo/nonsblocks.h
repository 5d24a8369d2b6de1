// Block types for regions that run with no scheduling: each plain type that may stand in such a region has a variant
// with the same meaning and the same handlers.
#pragma once

#include <orvo/value.h>

#include <list>
#include <map>
#include <memory>
#include <typeinfo>

namespace orvo {

class Block;
class Context;

/// Is handed each pair of a variant and its plain type.
class ORVO_API Linker {
  public:
    virtual ~Linker();
    virtual void operator()(const ValueRef &variant, const ValueRef &plain) = 0;
};

/// Walks the fixed list of pairs.
ORVO_API void mapNONSBlocks(Linker &linker);

/// Gives the class of each variant the listed handlers of its plain type, without ownership.
class ORVO_API HandlerLinker final : public Linker {
  public:
    HandlerLinker(Context *context, std::list<const std::type_info *> interfaces);
    void operator()(const ValueRef &variant, const ValueRef &plain) override;

  private:
    Context *mContext;
    std::list<const std::type_info *> mInterfaces;
};

/// The relation between plain types and their variants, in both directions.
class ORVO_API NONSBlockMap {
  public:
    NONSBlockMap();
    ~NONSBlockMap();
    NONSBlockMap(const NONSBlockMap &) = delete;
    NONSBlockMap &operator=(const NONSBlockMap &) = delete;

    /// Fills the map; to be called once before the queries.
    void populate();
    /// The variant of a plain type, or the plain type of a variant; null for any other type.
    ValueRefBase<const Value> lookup(const ValueRefBase<const Value> &type) const;
    /// Whether a block may stand in a region without scheduling. With `workOnly`, blocks that only mark the edges of a
    /// region do not count.
    bool blockSupportsNONS(const Block &block, bool workOnly = false) const;
    /// Cycles from input to output of a block in such a region.
    int latencyOfNONSBlock(const Block &block) const;

  private:
    using Relation = std::map<ValueRefBase<const Value>, ValueRefBase<const Value>>;
    std::unique_ptr<Relation> mPartners;
};

} // namespace orvo
