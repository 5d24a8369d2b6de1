// The reader of the block catalogue, a line-oriented text in two sections: mappings, then blocks. Whatever is malformed
// is reported with its line and skipped.
#include <orvo/blocksinfo.h>

#include <orvo/limits.h>
#include <orvo/logging.h>
#include <util/diagnostics.h>
#include <util/root.h>
#include <util/strings.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>

namespace orvo {

const char *const BlocksInfo::kGenericBlock = "DUMMY_GENERIC_BLOCK";

namespace {

constexpr const char *kOpenList = "...";
constexpr const char *kSeparator = "<---------->";

/// The entries of the mapping section, by what their names are.
constexpr const char *kMappingKeywords[] = {
    "Block:(A_BLOCK_TYPE)",
    "Genericparameter:",
    "Wire:",
    "Port:",
    "Blockparameter:",
    "Modelparameter:",
    "Designparameter:",
    "Blockparametervalue:",
    "Modelparametervalue:",
    "Designparametervalue:",
    "Tag:",
};

std::string remove_blanks(const std::string &text) {
    std::string packed;
    std::copy_if(text.begin(), text.end(), std::back_inserter(packed),
                 [](char c) { return c != ' ' && c != '\t' && c != '\r'; });
    return packed;
}

bool beginsWith(const std::string &packedLine, const std::string &keyword) {
    return packedLine.size() >= keyword.size() &&
           util::caseInsensitiveEquals(packedLine.substr(0, keyword.size()), keyword);
}

std::string trim(const std::string &text) {
    std::size_t first = text.find_first_not_of(" \t\r");
    return first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

/// Takes a mark out of a field, if it is there.
bool takeMark(std::string &field, const std::string &mark) {
    std::size_t at = field.find(mark);
    if (at == std::string::npos) {
        return false;
    }
    field.erase(at, mark.size());
    return true;
}

void addValue(BlockConnection &connection, const std::string &field) {
    std::string value = remove_blanks(field);
    bool isDefault = takeMark(value, "(default)");
    connection.optional = takeMark(value, "(optional)") || connection.optional;
    if (isDefault) {
        connection.defaultValue = value;
    }
    if (!value.empty()) {
        connection.values.push_back(value);
    }
}

class CatalogueReader {
  public:
    CatalogueReader(std::istream &in, const std::string &fileName, BlocksInfo &info)
        : mIn(in), mFile(fileName), mInfo(info) {}

    void read() {
        bool first = nextline() && beginsWith(mPacked, "MAPPINGSSECTION");
        ORVO_ASSERT(first, "the block catalogue does not begin with its section of mappings");
        while (readLine()) {
            if (beginsWith(mPacked, "BLOCKSSECTION")) {
                mInBlocks = true;
            } else if (!mPacked.empty() && mPacked != kSeparator) {
                readEntry();
            }
        }
    }

  private:
    /// One line, false at the end of the file.
    bool readLine() {
        if (!std::getline(mIn, mLine)) {
            return false;
        }
        ++mNumber;
        if (mLine.size() > limits::kCatalogueLineBytes) {
            brenn_error_printf("Line %d in file %s is longer than %zu bytes and is cut\n", mNumber, mFile.c_str(),
                               limits::kCatalogueLineBytes);
            mLine.resize(limits::kCatalogueLineBytes);
        }
        mPacked = remove_blanks(mLine);
        return true;
    }

    /// A line inside an entry.
    bool nextline() {
        if (readLine()) {
            return true;
        }
        brenn_error_printf("Unexpected EOF at line at %d in file %s\n", mNumber, mFile.c_str());
        mEnded = true;
        return false;
    }

    /// The next line of an entry; false when the separator, or the end of the file, ends it.
    bool nextOfEntry() { return nextline() && mPacked != kSeparator; }

    void skipEntry() {
        while (!mEnded && mPacked != kSeparator && nextline()) {
            if (!mInBlocks && beginsWith(mPacked, "BLOCKSSECTION")) {
                mInBlocks = true;
                return;
            }
        }
    }

    void failEntry() {
        util::reportDiagnostic(false, "could not parse " + mLine + " at line " + std::to_string(mNumber) + " in file " +
                                          mFile);
        skipEntry();
    }

    void readEntry() {
        if (mInBlocks && beginsWith(mPacked, "Genericparameter:")) {
            readGeneric();
            return;
        }
        for (const char *keyword : kMappingKeywords) {
            if (beginsWith(mPacked, keyword)) {
                readMapping(keyword);
                return;
            }
        }
        std::string first;
        std::istringstream(mLine) >> first;
        const bool isName = mInBlocks && first.find_first_of(":|") == std::string::npos;
        if (isName) {
            readBlock();
        } else {
            failEntry();
        }
    }

    void readMapping(const std::string &keyword) {
        // The keyword's own blanks, if it was written with some, are no part of what follows.
        std::istringstream words(mLine.substr(mLine.find(keyword.back()) + 1));
        std::string name;
        std::string text;
        if (words >> name >> text) {
            mInfo.insertMapping(name, text, keyword == kMappingKeywords[0]);
            skipEntry();
        } else {
            failEntry();
        }
    }

    /// The text behind "Description:" up to the next keyword; leaves the reader at the line that ends it.
    std::string readDescription() {
        std::string text = trim(mLine.substr(mLine.find(':') + 1));
        while (nextOfEntry() && !beginsWith(mPacked, "Connections:")) {
            std::string more = trim(mLine);
            text += (text.empty() || more.empty() ? "" : " ") + more;
        }
        return text;
    }

    void readGeneric() {
        BlockConnection connection;
        connection.kind = "Param";
        connection.optional = true;
        std::istringstream words(mLine.substr(mLine.find(':') + 1));
        words >> connection.name;
        int line = mNumber;
        if (connection.name.empty()) {
            failEntry();
            return;
        }
        if (nextOfEntry() && beginsWith(mPacked, "Description:")) {
            connection.description = readDescription();
        } else {
            brenn_warning_printf("No generic parameter description was given at line %d in file %s\n", line,
                                 mFile.c_str());
        }
        connection.values.push_back(kOpenList);
        skipEntry();
        BlockInfo generic = mInfo.getBlockInfo(BlocksInfo::kGenericBlock);
        generic.connections.push_back(std::move(connection));
        mInfo.insert(BlocksInfo::kGenericBlock, generic);
    }

    void readBlock() {
        std::istringstream words(mLine);
        std::string name;
        words >> name;
        BlockInfo info;
        bool more = nextOfEntry();
        if (more && beginsWith(mPacked, "Description:")) {
            info.description = readDescription();
            more = mPacked != kSeparator && !mEnded;
        } else {
            brenn_warning_printf("No block description was given at line %d in file %s\n", mNumber, mFile.c_str());
        }
        if (more && beginsWith(mPacked, "Connections:")) {
            while (nextOfEntry()) {
                readConnectionLine(name, info);
            }
        } else {
            brenn_warning_printf("No connections given for block %s at line %d in file %s.\n", name.c_str(), mNumber,
                                 mFile.c_str());
            skipEntry();
        }
        mInfo.insert(name, info);
    }

    void readConnectionLine(const std::string &block, BlockInfo &info) {
        if (mPacked.empty()) {
            return;
        }
        auto bars = std::count(mLine.begin(), mLine.end(), '|');
        if (bars == 0 && mValueLinesAllowed && !info.connections.empty()) {
            addValue(info.connections.back(), mLine);
            return;
        }
        // The values of a connection that was skipped are skipped with it.
        mValueLinesAllowed = bars == 3;
        if (bars != 3) {
            brenn_error_printf(
                "The following connection is not well formed for the %s block at line %d in file %s:\n %s\n",
                block.c_str(), mNumber, mFile.c_str(), mLine.c_str());
            return;
        }
        std::istringstream fields(mLine);
        std::string kind;
        std::string name;
        std::string values;
        BlockConnection connection;
        std::getline(fields, kind, '|');
        std::getline(fields, name, '|');
        std::getline(fields, values, '|');
        std::getline(fields, connection.description, '|');
        connection.description = trim(connection.description);
        connection.kind = remove_blanks(kind);
        connection.name = remove_blanks(name);
        addValue(connection, values);
        info.connections.push_back(std::move(connection));
    }

    std::istream &mIn;
    const std::string &mFile;
    BlocksInfo &mInfo;
    std::string mLine;
    std::string mPacked;
    int mNumber = 0;
    bool mInBlocks = false;
    bool mEnded = false;
    bool mValueLinesAllowed = false;
};

} // namespace

bool BlockConnection::isOpen() const { return std::find(values.begin(), values.end(), kOpenList) != values.end(); }

BlocksInfo::BlocksInfo() {
    mBlocks[kGenericBlock].description =
        "Dummy block for storing the generic parameters that can be applied to any block";
}

void BlocksInfo::genBlocksInfo() {
    std::string path = GetLumoBackendRootDir() + "/include/orvo/orvo_static_strings.csv";
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        brenn_warning_printf("The block catalogue %s could not be opened\n", path.c_str());
        return;
    }
    genBlocksInfo(in, path);
}

void BlocksInfo::genBlocksInfo(std::istream &in, const std::string &fileName) {
    CatalogueReader(in, fileName, *this).read();
}

void BlocksInfo::insert(const std::string &name, const BlockInfo &info) { mBlocks[name] = info; }

void BlocksInfo::insertMapping(const std::string &name, const std::string &text, bool isBlock) {
    mMapping.emplace(name, text);
    auto [hit, isNew] = mReversed.try_emplace(text, Reversed{name, isBlock});
    if (!isNew && isBlock && !hit->second.isBlock) {
        hit->second = Reversed{name, true};
    }
}

bool BlocksInfo::blockExists(const std::string &name) const { return mBlocks.count(name) != 0; }

const BlockInfo &BlocksInfo::getBlockInfo(const std::string &name) const {
    auto hit = mBlocks.find(name);
    ORVO_ASSERT(hit != mBlocks.end(), "the block catalogue has no such block");
    return hit->second;
}

std::string BlocksInfo::getDefaultParamValue(const std::string &blockType, const std::string &paramName) const {
    for (const BlockConnection &connection : getBlockInfo(blockType).connections) {
        if (connection.name.find(paramName) != std::string::npos && connection.defaultValue != "NONE") {
            return connection.defaultValue;
        }
    }
    return "NOT FOUND!";
}

const std::string *BlocksInfo::findMapping(const std::string &key) const {
    auto hit = mMapping.find(key);
    return hit == mMapping.end() ? nullptr : &hit->second;
}

const std::string *BlocksInfo::findReversedMapping(const std::string &text) const {
    auto hit = mReversed.find(text);
    return hit == mReversed.end() ? nullptr : &hit->second.name;
}

namespace {

std::string foundOrEmpty(const std::string *found, const std::string &key) {
    if (found == nullptr) {
        util::reportDiagnostic(false, "Key " + key + " not found in BlocksInfo map!");
        return "EMPTY";
    }
    return *found;
}

} // namespace

std::string BlocksInfo::get_mapping(const std::string &key) const { return foundOrEmpty(findMapping(key), key); }

std::string BlocksInfo::get_reversed_mapping(const std::string &text) const {
    return foundOrEmpty(findReversedMapping(text), text);
}

void BlocksInfo::dump() const { dump(std::cout); }

void BlocksInfo::dump(std::ostream &out) const {
    for (const auto &[name, info] : mBlocks) {
        out << name << '\n';
        for (const BlockConnection &connection : info.connections) {
            out << connection.name << ": " << connection.kind << " - " << connection.description
                << " - Default: " << connection.defaultValue << '\n';
        }
    }
}

} // namespace orvo
