// Any bytes are a design or an error; a design that was read writes to bytes that read back to the same bytes.
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/xmlservices.h>

#include <cstdlib>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static orvo::ContextMgr mgr;
    static orvo::XMLServices xml;
    std::istringstream in(std::string(reinterpret_cast<const char *>(data), size));
    orvo::Design design(mgr.context());
    if (!xml.fromXML(in, design, orvo::XMLServices::silentErrorFunc)) {
        return 0;
    }
    std::ostringstream first;
    xml.toXML(first, design);
    if (!first) {
        std::abort();
    }
    orvo::Design again(mgr.context());
    std::istringstream back(first.str());
    std::ostringstream second;
    if (!xml.fromXML(back, again, orvo::XMLServices::silentErrorFunc)) {
        std::abort();
    }
    xml.toXML(second, again);
    if (first.str() != second.str()) {
        std::abort();
    }
    return 0;
}
