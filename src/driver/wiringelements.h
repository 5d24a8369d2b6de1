// Which elements of vectors wiring takes from where: what stands behind a split, a selector, a pack or a concatenation.
#pragma once

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

/// Elements of the outermost dimension of a vector, ascending; nothing for the whole signal.
using Elements = std::optional<std::vector<std::size_t>>;

/// "element 3", "elements 1, 4" or "elements 0 to 7".
std::string elementsText(const std::vector<std::size_t> &elements);

/// The number that a name is.
std::optional<std::size_t> numberOf(const PureValueRef &name);

/// The first element of the vector split that an output takes, and how many; of a vector of that length, which only
/// matters without a layout.
std::pair<std::size_t, std::size_t> partOfSplit(const Block &split, std::size_t part, std::size_t length);

/// The wiring of one design. Lengths of vectors are inferred, for each model when it is asked about.
class WiringElements {
  public:
    /// A port that wiring reads, and what it takes from there.
    struct Source {
        const Port *port;
        Elements elements;
    };

    explicit WiringElements(const Design &design) : mDesign(design) {}
    /// Where the elements of an output of the block come from. More than that where lengths cannot be told.
    std::vector<Source> sourcesOf(const Block &block, const PureValueRef &output, const Elements &elements);
    /// The length of a wire or port: of the outermost dimension, and 1 for what is no vector. Nothing if it has no
    /// type.
    std::optional<std::size_t> lengthOf(const Block &block, const PureValueRef &name, bool isPort);

  private:
    Elements chosenBy(const Block &block, const PureValueRef &output, const Elements &elements);
    std::vector<Source> joinedBy(const Block &concat, const Elements &elements);

    const Design &mDesign;
    /// By block, name and whether it is a port.
    using Key = std::tuple<std::string, std::string, bool>;
    std::map<const Model *, std::map<Key, PureValueRef>> mTypes;
};

} // namespace orvo::driver
