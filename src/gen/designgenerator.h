// Designs by chance, well typed and fit to be simulated: hierarchy, vectors, complex numbers, records and floats,
// feedback through delays, every block type that the catalogue and the simulator know, with chosen parameters.
#pragma once

#include "gen/blockshape.h"
#include "gen/recipe.h"
#include "gen/toldblocks.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvo {
class Design;
} // namespace orvo

namespace orvo::gen {

/// What kind of signal a block works on.
enum class DataClass { Scalar, Vector, Complex, ComplexVector, Float, FloatCompound, Record };
inline constexpr std::size_t kDataClasses = 7;
const char *nameOf(DataClass dataClass);
DataClass classOf(const SignalShape &shape);

/// How often blocks of a type came out, by the class of their first data input or, without one, of their output; and
/// why others did not.
struct Tally {
    std::map<DataClass, std::size_t> made;
    std::map<std::string, std::size_t> refused;
};

/// Which blocks are drawn: all that compute something, or those alone of which the gate in front of the scheduler,
/// `ValidateModelPass`, has nothing to tell. Passes meet the others, too.
enum class Draws { Computable, Schedulable };

class DesignGenerator {
  public:
    explicit DesignGenerator(Context *context, Draws draws = Draws::Computable);
    ~DesignGenerator();

    /// The same recipes give the same design. Its top model is named "top".
    std::unique_ptr<Design> make(const std::vector<Recipe> &recipes);

    const std::vector<BlockShape> &shapes() const { return mShapes; }
    /// Of all designs so far, by the catalogue's name of the type.
    const std::map<std::string, Tally> &tallies() const { return mTallies; }

  private:
    friend class DesignBuilder;

    Context *mContext;
    Draws mDraws;
    std::vector<BlockShape> mShapes;
    /// Shapes that blocks are made by, and for each the classes that it takes, once they were asked for.
    std::vector<const BlockShape *> mOrdinary;
    std::vector<std::unique_ptr<std::vector<DataClass>>> mClasses;
    /// The blocks of told pins, with the catalogue's names of their types.
    std::vector<std::pair<const ToldBlock *, std::string>> mTold;
    std::map<std::string, Tally> mTallies;
    struct Trial {
        std::vector<PureValueRef> types;
        std::string refusal;
    };
    /// What came of trying a block, by all that it depends on.
    std::unordered_map<std::string, Trial> mTrials;
};

/// So many recipes of a seed.
std::vector<Recipe> recipesOf(std::uint64_t seed, std::size_t size);

} // namespace orvo::gen
