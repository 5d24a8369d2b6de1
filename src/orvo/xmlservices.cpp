// The public face of reading and writing design XML.
#include <orvo/xmlservices.h>

#include "orvo/xmlplatform.h"
#include "orvo/xmlreader.h"
#include "orvo/xmlwriter.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/logging.h>

#include <iostream>
#include <iterator>

namespace orvo {

class XMLServicesImpl {
  private:
    internal::XMLPlatform mPlatform;
};

namespace {

constexpr const char *kErrorNames[] = {
    "ERR_MALFORMED_XML",
    "ERR_BAD_TOPLEVEL_NAMESPACE",
    "ERR_BAD_TOPLEVEL_ELEMENT",
    "ERR_BAD_PARAM_NAME",
    "ERR_BAD_PARAM_VALUE",
    "ERR_DUPLICATE_PARAM_NAME",
    "ERR_UNEXPECTED_WIRE_ELEMENT",
    "ERR_BAD_WIRE_NAME",
    "ERR_UNEXPECTED_BLOCK_ELEMENT",
    "ERR_BAD_BLOCK_NAME",
    "ERR_UNEXPECTED_MODEL_ELEMENT",
    "ERR_BAD_MODEL_NAME",
    "ERR_UNEXPECTED_DESIGN_ELEMENT",
    "ERR_NO_DESIGN_ELEMENT",
    "ERR_NO_COMPATIBLE_DESIGN_ELEMENT",
    "ERR_VALUE_RESOLUTION_FAILED",
};
static_assert(std::size(kErrorNames) == XMLServices::ERR_VALUE_RESOLUTION_FAILED + 1, "every error has a name");

} // namespace

XMLServices::XMLServices() : mImpl(std::make_unique<XMLServicesImpl>()) {}

XMLServices::~XMLServices() = default;

void XMLServices::toXML(std::ostream &out, const Design &design) { internal::writeDesign(out, design); }

std::istream &XMLServices::fromXML(std::istream &in, Design &design, const ErrorFunc &errorFunc) {
    ORVO_ASSERT(design.size() == 0 && design.param_size() == 0, "a design is read into one that is not empty");
    ContextMgr guard(design.getContext());
    if (!internal::readDesign(in, design, errorFunc)) {
        in.setstate(std::ios::failbit);
    }
    return in;
}

const char *XMLServices::ErrorTypeToString(ErrorType type) {
    const auto index = static_cast<std::size_t>(type);
    ORVO_ASSERT(index < std::size(kErrorNames), "an XML error has no such number");
    return kErrorNames[index];
}

bool XMLServices::defaultErrorFunc(ErrorType type, int row, int column) {
    std::cerr << "XMLServices: Parse Error:"
              << " type=" << ErrorTypeToString(type) << " row=" << row << " col=" << column << '\n';
    return true;
}

bool XMLServices::silentErrorFunc(ErrorType, int, int) { return true; }

} // namespace orvo
