// The block catalogue: what a block of each type may carry, and the table from readable names to the texts of the
// well-known constants. Read once from the file that is installed beside the library.
#pragma once

#include <orvo/api.h>

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

namespace orvo {

/// One line of a block's entry: an input, an output or a parameter.
struct ORVO_API BlockConnection {
    /// "Param", "Port" or "Wire".
    std::string kind;
    /// The name in the catalogue. `0...` stands for every number from 0 on, `NAME...` for every tuple that begins with
    /// NAME, `ANY` for whatever name.
    std::string name;
    /// The allowed values; "..." in the list leaves it open.
    std::vector<std::string> values;
    std::string description;
    bool optional = false;
    /// "NONE" if there is none.
    std::string defaultValue = "NONE";

    bool isOpen() const;
};

struct ORVO_API BlockInfo {
    std::string description;
    std::vector<BlockConnection> connections;
};

class ORVO_API BlocksInfo {
  public:
    /// The reserved block that holds the connections which every block may carry.
    static const char *const kGenericBlock;

    BlocksInfo();

    /// Reads the installed catalogue. A missing file is a warning and leaves the catalogue empty.
    void genBlocksInfo();
    /// Reads a catalogue from a stream. What is malformed is reported and skipped.
    void genBlocksInfo(std::istream &in, const std::string &fileName);
    /// Adds or replaces an entry.
    void insert(const std::string &name, const BlockInfo &info);
    void insertMapping(const std::string &name, const std::string &text, bool isBlock);
    bool blockExists(const std::string &name) const;
    /// An unknown name is an assertion.
    const BlockInfo &getBlockInfo(const std::string &name) const;
    /// The default of the block's first connection whose name contains `paramName` and that has one, else
    /// "NOT FOUND!".
    std::string getDefaultParamValue(const std::string &blockType, const std::string &paramName) const;
    /// From a catalogue name to the text of the constant. An unknown one gives "EMPTY" and a line on standard error.
    std::string get_mapping(const std::string &key) const;
    /// From the text of a constant to its catalogue name; a text that several share gives the block type's name, or
    /// else the first.
    std::string get_reversed_mapping(const std::string &text) const;
    /// The same without a message: null for an unknown key.
    const std::string *findMapping(const std::string &key) const;
    const std::string *findReversedMapping(const std::string &text) const;
    /// The number of block entries, the generic one included.
    std::size_t size() const { return mBlocks.size(); }
    /// Writes each block with its connections to standard output.
    void dump() const;
    void dump(std::ostream &out) const;

    const std::map<std::string, BlockInfo> &blocks() const { return mBlocks; }
    const std::map<std::string, std::string> &mappings() const { return mMapping; }

  private:
    struct Reversed {
        std::string name;
        bool isBlock;
    };
    std::map<std::string, BlockInfo> mBlocks;
    std::map<std::string, std::string> mMapping;
    std::map<std::string, Reversed> mReversed;
};

/// The catalogue of this process, read at the end of the first context's start-up.
ORVO_API const BlocksInfo &getBlocksInfo();

} // namespace orvo
