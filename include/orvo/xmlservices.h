// The file form of a design: an XML document that is a plain image of the tree of nodes.
#pragma once

#include <orvo/api.h>

#include <functional>
#include <iosfwd>
#include <memory>

namespace orvo {

class Design;

/// Reads and writes design XML. Use one on the thread of the design's context.
class ORVO_API XMLServices {
  public:
    enum ErrorType {
        ERR_MALFORMED_XML = 0,
        ERR_BAD_TOPLEVEL_NAMESPACE,
        ERR_BAD_TOPLEVEL_ELEMENT,
        ERR_BAD_PARAM_NAME,
        ERR_BAD_PARAM_VALUE,
        ERR_DUPLICATE_PARAM_NAME,
        ERR_UNEXPECTED_WIRE_ELEMENT,
        ERR_BAD_WIRE_NAME,
        ERR_UNEXPECTED_BLOCK_ELEMENT,
        ERR_BAD_BLOCK_NAME,
        ERR_UNEXPECTED_MODEL_ELEMENT,
        ERR_BAD_MODEL_NAME,
        ERR_UNEXPECTED_DESIGN_ELEMENT,
        ERR_NO_DESIGN_ELEMENT,
        ERR_NO_COMPATIBLE_DESIGN_ELEMENT,
        ERR_VALUE_RESOLUTION_FAILED
    };
    /// Hears of an error; true counts it as a failure, false lets it pass. Row and column count from 1; -1 when
    /// unknown.
    using ErrorFunc = std::function<bool(ErrorType type, int row, int column)>;

    XMLServices();
    ~XMLServices();
    XMLServices(const XMLServices &) = delete;
    XMLServices &operator=(const XMLServices &) = delete;

    /// Writes the whole design. A failing stream is left failed.
    void toXML(std::ostream &out, const Design &design);
    /// Reads into `design`, which must be empty. On failure the stream's fail bit is set, and the design may be partly
    /// built: the caller deletes it.
    std::istream &fromXML(std::istream &in, Design &design, const ErrorFunc &errorFunc);

    static const char *ErrorTypeToString(ErrorType type);
    /// Writes a line to standard error and gives true.
    static bool defaultErrorFunc(ErrorType type, int row, int column);
    static bool silentErrorFunc(ErrorType type, int row, int column);

  private:
    std::unique_ptr<class XMLServicesImpl> mImpl;
};

} // namespace orvo
