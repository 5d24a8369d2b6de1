// What the rows of the export see: a module under way, and a block in it with its signals.
#pragma once

#include "support/verilog.h"

#include <orvo/block.h>
#include <orvo/corevalues.h>
#include <orvo/staticstrings.h>

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace orvo::test {

/// A number in the module: a net, or an operand made of one that needs no parentheses.
struct Net {
    std::string text;
    int width = 0;
    int fraction = 0;
    bool isSigned = false;
};

/// The scalars of a signal: lanes with the innermost dimension fastest, real before imaginary parts.
struct NetSignal {
    std::vector<Net> nets;
    int element = 1;
    /// Outermost first.
    std::vector<int> dims;
    bool known() const { return !nets.empty(); }
    int lanes() const { return static_cast<int>(nets.size()) / element; }
    /// Fewer lanes repeat; a real number has no imaginary part.
    const Net *at(int lane, int part = 0) const {
        return part < element ? &nets[static_cast<std::size_t>(lane % lanes() * element + part)] : nullptr;
    }
};

/// The text of a module under way. Every helper that gives a `Net` gives an exact value.
class VerilogText {
  public:
    void add(const std::string &line) { mText += "    " + line + "\n"; }
    std::string freshName(const char *stem) { return stem + std::to_string(mNames++); }
    /// A wire of the shape of the net that holds the expression.
    Net define(const Net &shape, const std::string &expression);
    /// The value as an operand that is signed.
    static Net exact(const Net &net);
    /// The value in the fraction bits asked for, which lose nothing.
    Net aligned(const Net &net, int fraction);
    std::vector<Net> aligned(const std::vector<Net> &nets, int fraction);
    /// Drives a net with a value: low bits dropped, high bits cut.
    void drive(const Net &out, const Net &value);
    /// Drives a net with an expression of its bits.
    void assign(const Net &out, const std::string &expression) { add("assign " + out.text + " = " + expression + ";"); }

    const std::string &text() const { return mText; }

  private:
    std::string mText;
    int mNames = 0;
};

std::string range(const Net &net);
int commonFraction(const std::vector<Net> &nets);
/// A decimal literal as wide as told, signed.
Net literal(std::int64_t value, int width, int fraction = 0);
/// The number in a type: rounded, halves away from zero, and brought into its range.
Net literal(const NumberValueRef &number, const Net &type);
/// Whether a control is not zero.
std::string truth(const Net &control);
std::string unknownBits(int width);

/// A block with its signals.
class VerilogBlock {
  public:
    VerilogBlock(const Block &block, const std::map<const Wire *, NetSignal> &signals, VerilogText &into)
        : text(into), mBlock(block), mSignals(signals) {}

    const Block &block() const { return mBlock; }
    ValueRef param(const StaticString &key) const { return mBlock.getParam(key); }
    bool isTrue(const StaticString &key) const { return mBlock.findParam(key) == A_TRUE.get_ptr(); }
    std::int64_t integer(const StaticString &key, std::int64_t fallback) const;
    /// What a parameter gives for a scalar: by lane and part where it is rolled, else the same for all.
    NumberValueRef number(const StaticString &key, int scalar) const;
    std::int64_t integerAt(const StaticString &key, int scalar, std::int64_t fallback) const;

    NetSignal in(const PureValueRef &key) const;
    NetSignal in(int number) const;
    /// The same, where the block means nothing without it.
    NetSignal need(const PureValueRef &key) const;
    NetSignal need(int number) const;
    std::vector<NetSignal> numbered() const;
    NetSignal out(const PureValueRef &key) const;
    NetSignal out(int number) const;
    NetSignal out() const { return out(A_PRIM_WIRE_OUT); }

    [[noreturn]] void fail(const std::string &reason) const;

    VerilogText &text; // NOLINT(cppcoreguidelines-avoid-const-or-ref-data-members): lives for one block

  private:
    const Block &mBlock;
    const std::map<const Wire *, NetSignal> &mSignals;
};

/// Calls `visit(lane, part, net)` for each scalar of a signal, for none of an unknown one.
template <class Visit> void forEachNet(const NetSignal &signal, Visit visit) {
    for (int i = 0; i < static_cast<int>(signal.nets.size()); ++i) {
        visit(i / signal.element, i % signal.element, signal.nets[static_cast<std::size_t>(i)]);
    }
}

/// How one block type is written.
struct VerilogRow {
    const StaticString *type;
    void (*write)(VerilogBlock &block);
};

std::span<const VerilogRow> arithmeticVerilog();
std::span<const VerilogRow> bitVerilog();
std::span<const VerilogRow> stateVerilog();
std::span<const VerilogRow> wiringVerilog();

} // namespace orvo::test
