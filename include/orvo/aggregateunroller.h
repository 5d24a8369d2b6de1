// How blocks of records become blocks of their members: what each block type says to it, and what most of them say.
#pragma once

#include <orvo/compoundportcorrespondence.h>
#include <orvo/compoundtypeinfo.h>
#include <orvo/handlers.h>
#include <orvo/types.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvo {

/// What is known of the records that one run takes apart. A flat member is a member that is no record itself, of the
/// record or of a record in it; they are counted depth first, from 0.
class ORVO_API AggregateTypeManager {
  public:
    /// Valid as long as this is.
    const AggregateTypeSpec &specOf(const PureValueRef &type) const;
    /// Whether the type is a record whose every part has members, within the bounds on levels (`limits::kTupleDepth`)
    /// and on members (`limits::kLanes`). No other record can come apart.
    bool comesApart(const AggregateTypeSpec &spec) const;
    /// 0 for a type that does not come apart.
    std::size_t getFlatSize(const AggregateTypeSpec &spec) const { return getFlatContainerTypes(spec).size(); }
    /// The types of the flat members, in order; valid as long as this is. Empty for a type that does not come apart.
    const std::vector<PureValueRef> &getFlatContainerTypes(const AggregateTypeSpec &spec) const;
    /// The path to a flat member. A number that the record does not have is an assertion.
    CompoundDecorIndex pathTo(const AggregateTypeSpec &spec, int flatIndex) const;
    /// Tells that a flat member of a port has become another port.
    void addUnrolledMapping(UnrollMappings *mappings, const PureValueRef &oldName, const PureValueRef &newName,
                            const AggregateTypeSpec &spec, int flatIndex) const;

  private:
    struct Flat {
        std::vector<PureValueRef> types;
        CompoundTypeInfo shape;
    };
    const Flat &flatOf(const AggregateTypeSpec &spec) const;

    mutable AggregateTypeSpec::Cache mCache;
    mutable std::map<std::vector<PureValueRef>, Flat> mFlat;
    /// Of the records that `specOf` gave, which stay where they are: to compare all members for each of them would
    /// take the square of their number. Null before the members were asked for.
    mutable std::unordered_map<const AggregateTypeSpec *, const Flat *> mFlatOfKnown;
};

/// What becomes of one signal of a block.
enum class AggregateUnrollKind {
    /// Nothing; the unroller sees to it itself.
    Leave = 0,
    /// A record falls apart into its own members, records in it stay whole. Any other signal is attached once.
    Members = 1,
    /// A record falls apart into its flat members. Any other signal is attached once.
    Flat = 2,
};

/// Takes one block of records apart. The steps come in the order in which they stand here.
class ORVO_API AggregateUnroller : public Unroller {
  public:
    static const std::string mNameSuffix;
    const std::string &getSuffix() const override { return mNameSuffix; }

    /// Whether the unroller writes types on what it makes, so that all instances must have the same ones. Otherwise
    /// records of the same members by number, vectors and complex parts will do.
    virtual bool writesTypes() const;
    /// Called for every signal of the block before anything changes. The specs are the manager's, and last as long; one
    /// is invalid where the block stays as it is because of the signal's type.
    virtual AggregateUnrollKind originalWire(Wire &wire, const AggregateTypeSpec &spec,
                                             const AggregateTypeManager &manager) = 0;
    virtual AggregateUnrollKind originalPort(Port &port, const AggregateTypeSpec &spec,
                                             const AggregateTypeManager &manager) = 0;
    /// Why the signals do not fit together; empty if they do.
    const std::string &failure() const { return mFailure; }
    /// Whether other signals have to be taken apart first.
    virtual bool waits() const;
    /// What stands in the block's place.
    virtual void preAttach(const AggregateTypeManager &manager) = 0;
    /// Has a wire drive one member of a port, whose type is `member`; what now reads it is told by `addAttachedPort`.
    /// A plain signal comes once, with number 0 and the type of the wire.
    virtual void attachPort(Port &port, const AggregateTypeSpec &member, int flatIndex, Wire &driver,
                            const AggregateTypeManager &manager) = 0;
    /// Has the readers read one member of a wire. Gives what took the wire's place, null for nothing.
    virtual Wire *attachWire(Wire &wire, const AggregateTypeSpec &member, int flatIndex,
                             const std::vector<MaybePort> &readers, const AggregateTypeManager &manager) = 0;
    virtual void postAttach() = 0;

  protected:
    /// The first reason stands.
    void fail(const std::string &text);

  private:
    std::string mFailure;
};

/// One block a flat member, each with the parameters of the original; of a record's type a member gets its own. All
/// records of the block must be of one type. A plain signal serves all members, of a vector the first lane.
class ORVO_API SimplePrimAggregateUnroller : public AggregateUnroller {
  public:
    explicit SimplePrimAggregateUnroller(Block &block) : mBlock(block) {}
    AggregateUnrollKind originalWire(Wire &wire, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override;
    AggregateUnrollKind originalPort(Port &port, const AggregateTypeSpec &spec,
                                     const AggregateTypeManager &manager) override;
    /// A record inside a vector has to come out of it first.
    bool waits() const override { return mWaits; }
    void preAttach(const AggregateTypeManager &manager) override;
    void attachPort(Port &port, const AggregateTypeSpec &member, int flatIndex, Wire &driver,
                    const AggregateTypeManager &manager) override;
    Wire *attachWire(Wire &wire, const AggregateTypeSpec &member, int flatIndex, const std::vector<MaybePort> &readers,
                     const AggregateTypeManager &manager) override;
    void postAttach() override;

  protected:
    virtual void validateAggregateTypeSpecForWire(const Wire &wire, const AggregateTypeSpec &spec,
                                                  const AggregateTypeManager &manager);
    virtual void validateAggregateTypeSpecForPort(const Port &port, const AggregateTypeSpec &spec,
                                                  const AggregateTypeManager &manager);
    PureValueRef makeUnrollBlockName(int flatIndex) const;
    std::size_t getFlatSize() const { return mFlatSize; }
    /// Of the records of the block the first one; invalid before there was one.
    const AggregateTypeSpec &spec() const;
    Block &block() const { return mBlock; }

    /// What a member gets of a parameter's value.
    virtual ValueRef memberValue(const PureValueRef &key, const ValueRef &value, int flatIndex,
                                 const AggregateTypeManager &manager) const;
    /// Whether blocks of this type take a flat member of this type only scalar by scalar.
    virtual bool needsScalars(const PureValueRef &memberType) const;
    /// Whether a plain vector serves the members whole.
    virtual bool sharesVectors() const { return false; }
    std::vector<Block *> memberBlocks() const;
    /// Connects a port of one block.
    void attach(Block &to, const PureValueRef &key, Wire &driver);

  private:
    /// One block, or one for each scalar.
    struct Member {
        CompoundTypeInfo scalars;
        std::vector<Block *> blocks;
    };
    Block &createMember(const PureValueRef &name, int flatIndex, const AggregateTypeManager &manager) const;
    void note(const AggregateTypeSpec &spec, const AggregateTypeManager &manager);
    bool standsInTheWay(const PureValueRef &memberType) const;

    Block &mBlock;
    /// Null before there was a record; the manager's own, by which it finds the members at once.
    const AggregateTypeSpec *mSpec = nullptr;
    std::size_t mFlatSize = 0;
    bool mWaits = false;
    std::set<PureValueRef> mPlainPorts;
    std::set<PureValueRef> mPlainWires;
    std::vector<Member> mMembers;
};

/// The same for blocks whose records may be of different types, as long as they have as many flat members.
class ORVO_API PrimAggregateUnroller : public SimplePrimAggregateUnroller {
  public:
    using SimplePrimAggregateUnroller::SimplePrimAggregateUnroller;

  protected:
    void validateAggregateTypeSpecForWire(const Wire &wire, const AggregateTypeSpec &spec,
                                          const AggregateTypeManager &manager) override;
    void validateAggregateTypeSpecForPort(const Port &port, const AggregateTypeSpec &spec,
                                          const AggregateTypeManager &manager) override;
};

/// Makes the unroller that it is told.
template <class U> class AggregateUnrollHandlerT final : public AggregateUnrollHandler {
  public:
    std::shared_ptr<AggregateUnroller> createUnroller(Block &block) const override {
        return std::make_shared<U>(block);
    }
};

namespace internal {

/// Whether a record stands in the vectors of a type.
ORVO_API bool isVectorOfRecords(const PureValueRef &type);

/// Whether two types fall apart alike: the same members, lengths and complex parts, of whatever scalars.
ORVO_API bool fallApartAlike(const PureValueRef &a, const PureValueRef &b);

/// The member of a value that has a tuple a record, by the path to it; a number serves all members.
ORVO_API ValueRef valueOfMember(ValueRef value, const CompoundDecorIndex &path);

} // namespace internal

} // namespace orvo
