// One block with typed inputs and outputs at the edge of a model, run in the simulator; and what tests of transforms
// compare with.
#pragma once

#include "support/typetable.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/simulator.h>

#include <gtest/gtest.h>

#include <complex>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace orvo::sim::testing {

using Complex = std::complex<double>;
/// Keys of ports or wires with their types in the short form.
using Ends = std::vector<std::pair<const char *, std::string>>;
/// Keys of parameters with their values as text.
using Params = std::vector<std::pair<const char *, std::string>>;

class BlockRig {
  public:
    /// Throws `SimulationError`.
    BlockRig(Context *context, const char *block, const Params &params, const Ends &inputs, const Ends &outputs);
    /// One cycle: the integers of the scalars of all inputs, in order; gives those of the outputs.
    std::vector<std::int64_t> step(const std::vector<std::int64_t> &in);

  private:
    Design mDesign;
    std::unique_ptr<Simulator> mSimulator;
};

/// What comes out of a rig with a valid output.
struct Delivery {
    std::vector<std::vector<std::int64_t>> samples;
    std::vector<std::size_t> cycles;
};

/// Keeps what follows output 0, in the cycles in which that is true.
Delivery collect(BlockRig &rig, const std::vector<std::vector<std::int64_t>> &cycles);

std::uint64_t turnedBits(std::uint64_t value, int bits);
/// The discrete Fourier transform by its definition; the inverse without its factor.
std::vector<Complex> fourier(const std::vector<Complex> &samples, bool isInverse);

class RigTest : public ::testing::Test {
  protected:
    static std::string type(const std::string &shortForm) { return orvo::testing::typeText(shortForm); }
    BlockRig rig(const char *block, const Params &params, const Ends &inputs, const Ends &outputs) {
        return {mgr.context(), block, params, inputs, outputs};
    }
    /// Why a block cannot be simulated; empty if it can.
    std::string refusal(const char *block, const Params &params, const Ends &inputs, const Ends &outputs);
    std::int64_t chance(std::int64_t low, std::int64_t high);

    ContextMgr mgr;
    std::mt19937_64 random{20240607};
};

} // namespace orvo::sim::testing
