// Any text behind the first line of a catalogue is read or reported, and never ends the reader.
#include <orvo/blocksinfo.h>

#include <util/diagnostics.h>

#include <iostream>
#include <sstream>
#include <string>

namespace {

struct Silence final : util::DiagnosticSink {
    void onDiagnostic(bool, const std::string &) override {}
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static Silence silence;
    util::setDiagnosticSink(&silence);
    std::cerr.setstate(std::ios::failbit);
    std::istringstream in("MAPPINGSSECTION\n" + std::string(reinterpret_cast<const char *>(data), size));
    orvo::BlocksInfo info;
    info.genBlocksInfo(in, "fuzz");
    std::ostringstream out;
    info.dump(out);
    return 0;
}
