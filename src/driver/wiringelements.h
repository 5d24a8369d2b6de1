// Which elements of compound signals wiring takes from where: what stands behind a split, a selector, a pack, an unpack
// or a concatenation.
#pragma once

#include <orvo/compoundtypeinfo.h>
#include <orvo/value.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace orvo {
class Block;
class Design;
class Model;
class Port;
} // namespace orvo

namespace orvo::driver {

/// What is taken of one level of a compound signal: elements of a vector, members of a record, parts of a complex
/// number.
struct ElementsOfLevel {
    CompoundKind kind;
    /// Ascending; nothing for all.
    std::optional<std::vector<std::size_t>> chosen;

    bool operator==(const ElementsOfLevel &other) const { return kind == other.kind && chosen == other.chosen; }
    bool operator<(const ElementsOfLevel &other) const {
        return std::tie(kind, chosen) < std::tie(other.kind, other.chosen);
    }
};

/// What is taken of a signal, outermost level first, and all of the levels that are not told; empty for the whole
/// signal.
using Elements = std::vector<ElementsOfLevel>;

/// "element 3", "members 1, 4" or, of several levels, "imaginary part of elements 0 to 7 of member 2".
std::string elementsText(const Elements &elements);

/// The number that a name is.
std::optional<std::size_t> numberOf(const PureValueRef &name);

/// The first element of the vector split that an output takes, and how many; of a vector of that length, which only
/// matters without a layout.
std::pair<std::size_t, std::size_t> partOfSplit(const Block &split, std::size_t part, std::size_t length);

/// The wiring of one design. Types are inferred, for each model when it is asked about.
class WiringElements {
  public:
    /// A port that wiring reads, and what it takes from there.
    struct Source {
        const Port *port;
        Elements elements;
    };

    explicit WiringElements(const Design &design) : mDesign(design) {}
    /// Where the elements of an output of the block come from. More than that where types cannot be told.
    std::vector<Source> sourcesOf(const Block &block, const PureValueRef &output, const Elements &elements);
    /// The levels of a wire or port, which are none if it is plain. Nothing if it has no type.
    std::optional<CompoundTypeInfo> shapeOf(const Block &block, const PureValueRef &name, bool isPort);

  private:
    std::vector<Source> joinedBy(const Block &concat, const Elements &elements);
    std::vector<Source> packedBy(const Block &pack, const Elements &elements);
    Elements partOf(const Block &unpack, bool isImaginary, const Elements &elements);
    Elements splitOff(const Block &split, std::size_t part, const Elements &elements);

    const Design &mDesign;
    /// By block, name and whether it is a port.
    using Key = std::tuple<std::string, std::string, bool>;
    std::map<const Model *, std::map<Key, PureValueRef>> mTypes;
};

} // namespace orvo::driver
