// The table of devices: its content, and the reader of its text form, which docs/device-table.md describes.
#pragma once

#include <orvo/api.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace device {

/// One way to use a multiplier block: as so many multipliers of these widths, in bits.
struct MultiplierMode {
    int widthA = 0;
    int widthB = 0;
    int perBlock = 0;
};

/// One kind of memory block.
struct MemoryKind {
    int bits = 0;
    /// Of a word, in bits.
    int maxWidth = 0;
};

/// The delay of routing for signals of up to so many bits, as a factor.
struct RoutingStep {
    int maxWidth = 0;
    float coefficient = 1.0F;
};

struct SpeedGrade {
    std::string name;
    /// All delays as a factor, 1.0 for the slowest part of the first family.
    double delay = 1.0;
};

struct Part {
    std::string name;
    /// The grade that it is sold in: one of its family's.
    std::string speedGrade;
    int luts = 0;
    int dspBlocks = 0;
    /// Of the family's largest kind.
    int memoryBlocks = 0;
};

/// What all parts of a family share. Each list has at least one element.
struct Family {
    std::string name;
    /// 1: multiplies fixed-point numbers of up to 18 bits; 2: of up to 27 bits; 3: single-precision floats, too;
    /// 4: floats whose sums along a chain of blocks are rounded at each block, so that chains do not pay; 5: floats
    /// with chains that pay.
    int dspType = 1;
    bool halfFloat = false;
    bool singleFloat = false;
    bool fabricRegisters = false;
    int lutInputs = 4;
    int mult18InLut4 = 1;
    /// From narrow to wide.
    std::vector<MultiplierMode> multipliers;
    /// From small to large.
    std::vector<MemoryKind> memories;
    /// From narrow to wide.
    std::vector<RoutingStep> routing;
    std::vector<SpeedGrade> grades;
    std::vector<Part> parts;
};

/// One row each of a table.
struct DeviceChoice {
    const Family *family = nullptr;
    const Part *part = nullptr;
    const SpeedGrade *grade = nullptr;
};

/// At least one family; the first one's first part is the default device.
class ORVO_API DeviceTable {
  public:
    explicit DeviceTable(std::vector<Family> families) : mFamilies(std::move(families)) {}
    const std::vector<Family> &families() const { return mFamilies; }
    /// What the names stand for; letters of both cases are the same. An empty family is that of the part, and the first
    /// one if that is empty, too; an empty part is the family's first; an empty grade is that of the part. Nothing,
    /// with the reason in `error`, for a name that the table does not have.
    std::optional<DeviceChoice> find(std::string_view family, std::string_view part, std::string_view speedGrade,
                                     std::string *error = nullptr) const;

  private:
    std::vector<Family> mFamilies;
};

/// What is wrong with the text of a table, and on which line, from 1.
struct TableError {
    int line = 0;
    std::string reason;
};

/// Nothing, with `error` filled in, for a text that is no table.
ORVO_API std::optional<DeviceTable> readDeviceTable(std::string_view text, TableError &error);

/// The text of the table that is compiled in.
ORVO_API std::string_view embeddedDeviceTable();
/// Where the table stands that came with the library, found as the block catalogue is.
ORVO_API std::string installedDeviceTable();

} // namespace device
