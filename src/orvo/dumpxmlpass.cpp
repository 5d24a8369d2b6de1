// The choice of a file name, and the dump.
#include "orvo/dumpxmlpass.h"

#include <orvo/corevalues.h>
#include <orvo/design.h>
#include <orvo/logging.h>
#include <orvo/staticstrings.h>
#include <orvo/xmlservices.h>

#include <util/atomicfile.h>
#include <util/io.h>

#include <fmt/format.h>
#include <fmt/printf.h>

#include <atomic>
#include <ctime>

namespace orvo {

ORVO_DEFINE_PASS(DumpXMLPass,
                 "Writes the design to a file as design XML, as it stands at that point of the run. Changes nothing.",
                 {{"P_CLOBBER", A_FALSE, "A_TRUE overwrites a file of the same name; otherwise a number is added."},
                  {"P_FILENAME", nullptr,
                   "The file's name. Without it, the name is made of the date, the time and a running number."}})

namespace {

std::atomic<unsigned int> gDumpNumber{0};

std::string nameByTime() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d-%H%M%S", &local);
    return fmt::format("dump-{}-{}.xml", text, gDumpNumber++);
}

/// The name, or the first with a number behind the stem that is free.
std::string freeName(const std::string &name) {
    // A dot in a folder's name does not begin the ending.
    const std::size_t slash = name.rfind('/');
    const std::size_t dot = name.find('.', slash == std::string::npos ? 0 : slash + 1);
    const std::string stem = name.substr(0, dot);
    const std::string rest = dot == std::string::npos ? std::string() : name.substr(dot);
    std::string candidate = name;
    for (int counter = 1; util::io::FileExists(candidate);) {
        candidate = fmt::sprintf("%s-%d%s", stem, ++counter, rest);
    }
    return candidate;
}

} // namespace

void DumpXMLPass::apply(PassContext &context) {
    const StringValueRef given = stringVR(context.getParam(this, "P_FILENAME"));
    std::string name = given ? given->str() : nameByTime();
    if (!(context.getParam(this, "P_CLOBBER") == A_TRUE)) {
        name = freeName(name);
    }
    util::io::AtomicFile file(name);
    if (!file.error().empty()) {
        log::msg(msg::error::IO_ERR_COULD_NOT_OPEN_FILE_FOR_WRITING, log::p("file", name));
        return;
    }
    XMLServices xml;
    xml.toXML(file.stream(), context.getDesign());
    if (!file.stream() || !file.commit()) {
        log::msg(msg::error::IO_ERR_COULD_NOT_CREATE_FILE, log::p("file", name));
    }
}

} // namespace orvo
