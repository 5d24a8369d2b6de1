// The catalogue's entries as sets of keys, and the comparison of a block with its type's set.
#include <orvo/netlistverification.h>

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/corevalues.h>
#include <orvo/elementname.h>
#include <orvo/modelkinds.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <algorithm>
#include <unordered_map>

namespace orvo {

namespace {

using Kind = CatalogueFinding::Kind;

/// What names a connection stands for.
enum class Pattern { Exact, NumbersFrom, TuplesOf, Any };

/// A connection with its names as interned values.
struct Entry {
    const BlockConnection *connection;
    Pattern pattern;
    PureValueRef key;
    std::vector<ValueRef> allowed;
};

bool endsWithDots(const std::string &text) { return text.size() > 3 && text.compare(text.size() - 3, 3, "...") == 0; }

bool matches(const Entry &entry, const PureValueRef &name) {
    switch (entry.pattern) {
    case Pattern::Exact:
        return entry.key == name;
    case Pattern::NumbersFrom: {
        NumberValueRef number = numberVR(name);
        return number && number->isInt() && number->toInt() >= numberVR(entry.key)->toInt();
    }
    case Pattern::TuplesOf: {
        PureTupleValueRef tuple = pureTupleVR(name);
        return tuple && tuple->size() > 0 && tuple->at(0) == entry.key;
    }
    case Pattern::Any:
        return true;
    }
    return false;
}

/// What a port is an element of: some blocks go on under such names when signals come apart. Null for others.
PureValueRef wholeOf(const Block &block, const PureValueRef &name) {
    const PureValueRef whole = isIPBlock(block) ? ElementName(name).whole : name;
    return whole == name ? PureValueRef() : whole;
}

bool hasPortOrElement(const Block &block, const PureValueRef &name) {
    const auto ports = block.ports();
    return block.getPort(name) != nullptr || std::any_of(ports.begin(), ports.end(), [&](const Port &port) {
               return wholeOf(block, port.getName()) == name;
           });
}

bool hasWireOrElement(const Block &block, const PureValueRef &name) {
    return block.getWire(name) != nullptr || std::any_of(block.begin(), block.end(), [&](const Wire &wire) {
               return wholeOf(block, wire.getName()) == name;
           });
}

/// A loop takes the limits of all levels as one vector, too, under the key alone.
bool isWholeFamily(const Block &block, const Entry &entry, const PureValueRef &name) {
    return entry.pattern == Pattern::TuplesOf && block.type() == A_LOOP_BLOCK.get_ptr() && entry.key == name;
}

std::string describe(const Block &block) { return block.value()->getPath(); }

} // namespace

struct CatalogueVerifier::Impl {
    Impl(const BlocksInfo &info, Context *owner) : catalogue(info), context(owner) {}

    const BlocksInfo &catalogue;
    Context *context;
    std::unordered_map<const Value *, std::vector<Entry>> types;
    std::vector<std::string> unmapped;

    const std::vector<Entry> *entriesOf(const Value *type);
    void addEntries(const BlockInfo &info, std::vector<Entry> &entries);
    void checkEntry(const Block &block, const Entry &entry, std::vector<CatalogueFinding> &findings) const;
    void checkValue(const Block &block, const Entry &entry, const Value *value,
                    std::vector<CatalogueFinding> &findings) const;
};

CatalogueVerifier::CatalogueVerifier(const BlocksInfo &catalogue, Context *context)
    : mImpl(std::make_unique<Impl>(catalogue, context)) {}

CatalogueVerifier::~CatalogueVerifier() = default;

const std::vector<std::string> &CatalogueVerifier::unmappedConnections() const { return mImpl->unmapped; }

void CatalogueVerifier::Impl::addEntries(const BlockInfo &info, std::vector<Entry> &entries) {
    for (const BlockConnection &connection : info.connections) {
        const std::string *text = catalogue.findMapping(connection.name);
        if (text == nullptr) {
            if (std::find(unmapped.begin(), unmapped.end(), connection.name) == unmapped.end()) {
                unmapped.push_back(connection.name);
            }
            continue;
        }
        Entry entry{&connection, Pattern::Exact, {}, {}};
        if (*text == "*") {
            entry.pattern = Pattern::Any;
        } else {
            bool open = endsWithDots(*text);
            entry.key = pureVR(Value::parse(open ? text->substr(0, text->size() - 3) : *text, context));
            if (open) {
                entry.pattern = numberVR(entry.key) ? Pattern::NumbersFrom : Pattern::TuplesOf;
            }
        }
        for (const std::string &value : connection.values) {
            const std::string *mapped = catalogue.findMapping(value);
            entry.allowed.push_back(Value::parse(mapped == nullptr ? value : *mapped, context));
        }
        entries.push_back(std::move(entry));
    }
}

const std::vector<Entry> *CatalogueVerifier::Impl::entriesOf(const Value *type) {
    if (auto known = types.find(type); known != types.end()) {
        return &known->second;
    }
    const std::string *name = catalogue.findReversedMapping(type->toString());
    if (name == nullptr || !catalogue.blockExists(*name)) {
        return nullptr;
    }
    std::vector<Entry> entries;
    addEntries(catalogue.getBlockInfo(*name), entries);
    if (catalogue.blockExists(BlocksInfo::kGenericBlock)) {
        addEntries(catalogue.getBlockInfo(BlocksInfo::kGenericBlock), entries);
    }
    return &types.emplace(type, std::move(entries)).first->second;
}

void CatalogueVerifier::Impl::checkValue(const Block &block, const Entry &entry, const Value *value,
                                         std::vector<CatalogueFinding> &findings) const {
    if (entry.connection->isOpen() || entry.allowed.empty()) {
        return;
    }
    bool allowed = std::any_of(entry.allowed.begin(), entry.allowed.end(),
                               [value](const ValueRef &one) { return one.get_ptr() == value; });
    if (!allowed) {
        findings.push_back({Kind::BadValue, &block, entry.key->toString(),
                            "Parameter " + entry.connection->name + " has the value " + value->toString() +
                                ", which is not in its list, on block: " + describe(block)});
    }
}

void CatalogueVerifier::Impl::checkEntry(const Block &block, const Entry &entry,
                                         std::vector<CatalogueFinding> &findings) const {
    const BlockConnection &connection = *entry.connection;
    Kind missing = Kind::MissingParam;
    bool present = true;
    // A pattern asks for its first member: the number that it begins with, or nothing of a family of tuples.
    const Value *key =
        entry.pattern == Pattern::Exact || entry.pattern == Pattern::NumbersFrom ? entry.key.get_ptr() : nullptr;
    if (connection.kind == "Param") {
        const Value *value = key == nullptr ? nullptr : block.findParam(key);
        if (value != nullptr) {
            checkValue(block, entry, value, findings);
        }
        present = value != nullptr;
    } else if (connection.kind == "Port") {
        missing = Kind::MissingPort;
        present = key != nullptr && hasPortOrElement(block, entry.key);
    } else if (connection.kind == "Wire") {
        missing = Kind::MissingWire;
        present = key != nullptr && hasWireOrElement(block, entry.key);
    } else {
        findings.push_back({Kind::UnknownConnectionKind, &block, connection.kind,
                            "Unrecognized block connection type: " + connection.kind});
        return;
    }
    if (!present && !connection.optional && key != nullptr) {
        const char *word = missing == Kind::MissingParam  ? "Parameter "
                           : missing == Kind::MissingPort ? "Port "
                                                          : "Wire ";
        findings.push_back({missing, &block, entry.key->toString(),
                            word + connection.name + " is not set on block: " + describe(block)});
    }
}

std::vector<CatalogueFinding> CatalogueVerifier::verify(const Block &block) {
    std::vector<CatalogueFinding> findings;
    const Value *type = block.type();
    const std::vector<Entry> *entries = type == nullptr ? nullptr : mImpl->entriesOf(type);
    if (entries == nullptr) {
        std::string text = type == nullptr ? std::string("(none)") : type->toString();
        findings.push_back({Kind::UnknownBlockType, &block, text, "Unrecognized block: " + text});
        return findings;
    }
    for (const Entry &entry : *entries) {
        mImpl->checkEntry(block, entry, findings);
    }
    for (auto param : Params(block)) {
        // A connection is accounted for as a port, all else as a parameter.
        const bool isPort = block.getPort(param.first) != nullptr;
        const char *kind = isPort ? "Port" : "Param";
        const PureValueRef whole = isPort ? wholeOf(block, param.first) : PureValueRef();
        bool accounted =
            param.first == A_BLOCK_TYPE || std::any_of(entries->begin(), entries->end(), [&](const Entry &entry) {
                return entry.connection->kind == kind &&
                       (matches(entry, param.first) || (whole && matches(entry, whole)) ||
                        isWholeFamily(block, entry, param.first));
            });
        if (!accounted) {
            findings.push_back({Kind::Extra, &block, param.first->toString(),
                                "Extra parameter to " + describe(block) + ": " + param.first->toString()});
        }
    }
    return findings;
}

} // namespace orvo
