// BlockBuilder makes the small graphs that take the place of a block: blocks named after it, in its model, each set up
// in one expression.
#pragma once

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>
#include <orvo/types.h>

#include <initializer_list>

namespace orvo::internal {

/// A block that was made, while it is set up. Converts to its main output.
class ORVO_API MadeBlock {
  public:
    explicit MadeBlock(Block &block) : mBlock(&block) {}

    const MadeBlock &set(const PureValueRef &key, const ValueRef &value) const;
    const MadeBlock &set(const PureValueRef &key, int value) const;
    const MadeBlock &type(const PureValueRef &key, const NumTypeSpec &type) const;
    /// The values that another block has under these keys, where it has any.
    const MadeBlock &copy(const Block &from, std::initializer_list<const StaticString *> keys) const;
    const MadeBlock &in(const PureValueRef &key, Wire &wire) const;
    const MadeBlock &in(int number, Wire &wire) const;
    /// The wire of that name, made when it is first asked for.
    Wire &out(const PureValueRef &key) const;
    operator Wire &() const { return out(A_PRIM_WIRE_OUT); }
    Block &block() const { return *mBlock; }

  private:
    Block *mBlock;
};

/// How a signal is brought to another type: by value, low bits cut and high ones wrapped, or bit by bit.
enum class Keep { Value, Bits };

/// Replaces one block.
class ORVO_API BlockBuilder {
  public:
    explicit BlockBuilder(Block &block) : mBlock(block) {}

    const Block &block() const { return mBlock; }
    /// The wire that a port of the block reads; a port that is not connected is an assertion.
    Wire &input(const PureValueRef &key) const;
    Wire &input(int number) const;

    /// A block named (name, word), with numbers behind the word where one word serves several blocks.
    MadeBlock make(const StaticString &type, const char *word, std::initializer_list<int> numbers = {}) const;
    /// A block named by the text of the name with "_word" behind it.
    MadeBlock makeSuffixed(const StaticString &type, const char *word) const;
    /// A constant, of the type if that can hold it.
    MadeBlock constant(const char *word, const NumTypeSpec &type, int value) const;
    /// The wire brought to a type, by a block named (name, word, numbers); itself if it has the type already.
    Wire &converted(const char *word, Wire &wire, const NumTypeSpec &has, const NumTypeSpec &wanted,
                    Keep keep = Keep::Value, std::initializer_list<int> numbers = {}) const;

    /// The wire behind a pin that says its type, named (name, word, numbers): what a loop leads back to knows its type
    /// only so.
    Wire &pinned(const char *word, Wire &wire, const PureValueRef &type, std::initializer_list<int> numbers = {}) const;

    /// Moves the readers of one of the block's wires, if it is there, to another wire, which has the type `has`. They
    /// go on to read the type `wanted`, the one that they read before.
    void replaceOutput(const PureValueRef &key, Wire &wire, const NumTypeSpec &has, const NumTypeSpec &wanted,
                       Keep keep = Keep::Value) const;
    /// The same for a wire of the same type.
    void replaceOutput(const PureValueRef &key, Wire &wire) const;
    /// Has the readers of one of the block's wires read it in that type, through a cast named (name, word),
    /// while the wire is going to have another. Nothing happens for a wire that nobody reads.
    void convertOutput(const PureValueRef &key, const char *word, const NumTypeSpec &wanted,
                       Keep keep = Keep::Value) const;
    /// Deletes the block, which ends the builder's work.
    void done() const { delete &mBlock; }

  private:
    MadeBlock create(const StaticString &type, const PureValueRef &name) const;
    MadeBlock cast(const PureValueRef &name, const NumTypeSpec &wanted, Keep keep) const;
    MadeBlock cast(const PureValueRef &name, Wire &wire, const NumTypeSpec &wanted, Keep keep) const;

    Block &mBlock;
};

/// A type without its vectors and its being complex: what type parameters tell of, to which the inputs add these.
ORVO_API NumTypeSpec scalarOf(NumTypeSpec type);
/// A type's scalar on the vectors and parts of another.
ORVO_API NumTypeSpec likeScalar(const NumTypeSpec &shape, const NumTypeSpec &scalar);

} // namespace orvo::internal
