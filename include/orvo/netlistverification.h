// Compares the blocks of a design with the block catalogue.
#pragma once

#include <orvo/blocksinfo.h>
#include <orvo/value.h>

#include <memory>
#include <string>
#include <vector>

namespace orvo {

class Block;
class Context;

/// One thing in which a block differs from its entry in the catalogue.
struct CatalogueFinding {
    enum class Kind {
        UnknownBlockType,
        UnknownConnectionKind,
        MissingParam,
        MissingPort,
        MissingWire,
        BadValue,
        Extra
    };
    Kind kind;
    const Block *block;
    /// The parameter, port or wire as it stands on the block; for an unknown type, the type.
    std::string subject;
    /// One sentence for the user.
    std::string text;
};

/// Checks blocks, remembering per type what the catalogue says. Belongs to one context.
class ORVO_API CatalogueVerifier {
  public:
    CatalogueVerifier(const BlocksInfo &catalogue, Context *context);
    ~CatalogueVerifier();
    CatalogueVerifier(const CatalogueVerifier &) = delete;
    CatalogueVerifier &operator=(const CatalogueVerifier &) = delete;
    /// In the order of the catalogue's connections, then the extra parameters in the order of the block's.
    std::vector<CatalogueFinding> verify(const Block &block);
    /// Names of connections that the catalogue does not map, met so far; they are not checked.
    const std::vector<std::string> &unmappedConnections() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

} // namespace orvo
