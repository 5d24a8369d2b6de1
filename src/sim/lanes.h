// Lanes and parts of signals that meet in one block: a scalar serves all lanes, as do fewer dimensions more of them,
// and a real number has no imaginary part.
#pragma once

#include "sim/compiler.h"

#include <optional>

namespace orvo::sim {

/// The scalar of a number at a lane of an output. Lanes count with the innermost dimension fastest, in which all
/// signals of a block agree, so that fewer dimensions repeat. None for the imaginary part of a real number.
inline std::optional<Leaf> leafAt(const Signal &signal, std::uint32_t lane, std::uint32_t part = 0) {
    if (part >= signal.type->element) {
        return std::nullopt;
    }
    return signal.first + lane % signal.type->lanes() * signal.type->element + part;
}

/// Calls `visit(lane, part, leaf)` for each scalar of an output.
template <class Visit> void forEachScalar(const Signal &out, Visit visit) {
    Leaf leaf = out.first;
    for (std::uint32_t lane = 0; lane < out.type->lanes(); ++lane) {
        for (std::uint32_t part = 0; part < out.type->element; ++part) {
            visit(lane, part, leaf++);
        }
    }
}

/// Layers of vectors in which a value is rolled. So many innermost dimensions it has an element for each of; it is the
/// same in those further out.
std::size_t rolledLayers(ValueRef value);
/// The element of a rolled value for the lane of that number in the dimension of its outermost layer; beyond the end
/// the last one.
ValueRef rolledElement(const ValueRef &value, std::uint32_t lane);

/// The indices of a lane in the innermost dimensions, outermost of these first, as far as a value is rolled.
class LaneWalk {
  public:
    LaneWalk(const SignalType &type, std::uint32_t lane, std::size_t layers)
        : mType(type), mDim(type.dims.size() - std::min(layers, type.dims.size())) {
        for (std::size_t dim = mDim; dim < type.dims.size(); ++dim) {
            mLanes *= type.dims[dim];
        }
        mLane = lane % mLanes;
    }
    /// The element of a rolled value that stands for the lane.
    ValueRef descend(ValueRef value) {
        for (; rolledLayers(value) != 0 && mDim < mType.dims.size(); value = rolledElement(value, mLane / mLanes)) {
            mLane %= mLanes;
            mLanes /= mType.dims[mDim++];
        }
        mLane %= mLanes;
        return value;
    }

  private:
    const SignalType &mType;
    std::size_t mDim;
    std::uint32_t mLane = 0;
    std::uint32_t mLanes = 1;
};

/// What a parameter gives for a lane of a type: of a rolled value its element, of another tuple its elements over and
/// over, of any other value that itself.
ValueRef settingOfLane(const ValueRef &value, const SignalType &type, std::uint32_t lane);

/// The least scale at which each of these scalars is an integer.
template <class Leaves> std::int32_t commonFraction(const BlockWriter &writer, const Leaves &leaves) {
    std::int32_t fraction = writer.scalar(*leaves.begin()).fraction;
    for (const Leaf leaf : leaves) {
        fraction = std::max(fraction, writer.scalar(leaf).fraction);
    }
    return fraction;
}

/// One signal for another, scalar by scalar, converted where their types differ.
void convertSignal(BlockWriter &writer, const Signal &out, const Signal &in);

/// Each port to the wire of its name.
void writeByName(BlockWriter &writer);

/// The outputs of the block are unknown unless the signal is connected: nothing is written from here on.
void require(const BlockWriter &writer, const Signal &signal);
/// The same, and compilation ends unless its scalars are fixed-point numbers. `what` is the port's name for people.
void requireFixed(const BlockWriter &writer, const Signal &signal, const char *what);

} // namespace orvo::sim
