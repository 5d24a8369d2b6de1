// Measures narrowing multipliers by what is known of their operands, in flat designs of ever more of them.
#include "measure.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/staticstrings.h>
#include <orvo/typeinferpass.h>
#include <orvo/types.h>
#include <orvo/wire.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

class Multipliers {
  public:
    explicit Multipliers(Design &design) : mModel(*Model::create(design, "top")), mContext(design.getContext()) {}

    /// One in four has an operand of which nothing is known; of the others, joins of one to three levels tell zeros at
    /// both ends.
    Wire &draw(std::size_t count) {
        Block &in = *Block::create(mModel, "in", A_INPUT_BLOCK);
        Block &out = *Block::create(mModel, "out", A_OUTPUT_BLOCK);
        Wire &x = pin(*Wire::create(in, "x"), NumTypeSpec::sfixed(8, 0));
        Wire *last = &x;
        for (std::size_t i = 0; i < count; ++i) {
            Wire *operand = &x;
            for (std::size_t level = 0; level < i % 4; ++level) {
                operand = &join({&zero(NumTypeSpec::ufixed(2, 0)), operand, &zero(NumTypeSpec::sfixed(1, 0))});
            }
            Block &mult = make(A_MULT_BLOCK);
            mult.setParam(number(0), *operand);
            mult.setParam(number(1), x);
            last = Wire::create(mult, A_PRIM_WIRE_OUT);
            out.setParam(NumberValue::get(static_cast<long>(i), mContext), *last);
        }
        return *last;
    }

  private:
    Block &make(const StaticString &type) { return *Block::create(mModel, "b" + std::to_string(mMade++), type); }
    PureValueRef number(int value) { return NumberValue::get(value, mContext); }
    Wire &pin(Wire &wire, const NumTypeSpec &type) {
        Block &made = make(A_TYPE_PIN_BLOCK);
        made.setParam(A_TYPE_PIN_TYPE, ValueRef(type.toValue(mContext)));
        made.setParam(number(0), wire);
        return *Wire::create(made, number(0));
    }
    Wire &zero(const NumTypeSpec &type) {
        Block &made = make(A_CONST_BLOCK);
        made.setParam(A_CONST_VALUE, ValueRef(number(0)));
        made.setParam(A_CONST_TYPE, ValueRef(type.toValue(mContext)));
        return *Wire::create(made, A_PRIM_WIRE_OUT);
    }
    Wire &join(const std::vector<Wire *> &parts) {
        Block &made = make(A_BIT_JOIN_BLOCK);
        for (std::size_t i = 0; i < parts.size(); ++i) {
            made.setParam(number(static_cast<int>(i)), *parts[i]);
        }
        return *Wire::create(made, A_PRIM_WIRE_OUT);
    }

    Model &mModel;
    Context *mContext;
    std::size_t mMade = 0;
};

/// With the inference that the pass asks for, or that alone.
Figures figuresOf(std::size_t count, bool narrows) {
    ContextMgr context;
    Design design(context.context());
    Wire &last = Multipliers(design).draw(count);
    const std::size_t blocks = design.begin()->size();
    ::malloc_trim(0);
    const Figures figures = measure([&] {
        if (narrows) {
            PassScheduler scheduler;
            scheduler.addPass("PropagateConstantsPass");
            scheduler.apply(design);
        } else {
            GlobalTypePass types;
            types.bindEvents(design);
            types.getType(last, {});
            types.unbindEvents();
        }
    });
    if (narrows == (design.begin()->size() == blocks)) {
        std::fprintf(stderr, "the wrong multipliers were narrowed\n");
        std::exit(1);
    }
    return figures;
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 100000;
    double first = 0;
    double last = 0;
    std::printf("%12s %14s %14s\n", "multipliers", "us each", "types alone");
    for (std::size_t count = most / 100; count <= most; count *= 10) {
        const auto n = static_cast<double>(count);
        const Figures types = inChild([&] { return figuresOf(count, false); });
        last = inChild([&] { return figuresOf(count, true); }).cpuSeconds;
        first = count == most / 100 ? last : first;
        std::printf("%12zu %14.3f %14.3f\n", count, last * 1e6 / n, types.cpuSeconds * 1e6 / n);
    }
    std::printf("growth exponent from %zu to %zu multipliers: %.3f\n", most / 100, most, exponent(first, last, 100));
    return 0;
}
