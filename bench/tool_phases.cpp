// Measures each phase of the core on synthetic designs of growing size and prints the figures, their ratios to the same
// work without a netlist, and how they grow. One phase runs in one process, so that peaks of memory are its own.
#include "measure.h"
#include "synthetic.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/pass.h>
#include <orvo/xmlservices.h>

#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace orvo;
using namespace orvo::bench;

Figures startUp() {
    return measure([] {
        ContextMgr context;
        Design design(context.context());
    });
}

Figures load(const std::string &file) {
    ContextMgr context;
    XMLServices xml;
    auto design = std::make_unique<Design>(context.context());
    Figures figures = measure(
        [&] {
            std::ifstream in(file, std::ios::binary);
            if (!xml.fromXML(in, *design, XMLServices::defaultErrorFunc)) {
                std::exit(1);
            }
        },
        [] { ::malloc_trim(0); });
    return figures;
}

Figures parseOnly(const std::string &file) {
    xercesc::XMLPlatformUtils::Initialize();
    return measure([&] {
        std::unique_ptr<xercesc::SAX2XMLReader> parser(xercesc::XMLReaderFactory::createXMLReader());
        parser->setFeature(xercesc::XMLUni::fgSAX2CoreValidation, false);
        parser->setFeature(xercesc::XMLUni::fgXercesLoadExternalDTD, false);
        xercesc::DefaultHandler nothing;
        parser->setContentHandler(&nothing);
        XMLCh *name = xercesc::XMLString::transcode(file.c_str());
        parser->parse(xercesc::LocalFileInputSource(name));
    });
}

Figures write(std::size_t blocks, const std::string &file) {
    ContextMgr context;
    XMLServices xml;
    Design design(context.context());
    SyntheticOptions options;
    options.blocks = blocks;
    makeSynthetic(design, options);
    return measure([&] {
        std::ofstream out(file, std::ios::binary);
        xml.toXML(out, design);
    });
}

Figures writeBytes(const std::string &from, const std::string &to) {
    std::ifstream in(from, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return measure([&] {
        // Line by line, as a program would that has each at hand.
        std::ofstream out(to, std::ios::binary);
        for (std::size_t begin = 0; begin < bytes.size();) {
            const std::size_t end = std::min(bytes.find('\n', begin), bytes.size() - 1) + 1;
            out.write(bytes.data() + begin, static_cast<std::streamsize>(end - begin));
            begin = end;
        }
    });
}

Figures deadBlocks(std::size_t blocks) {
    ContextMgr context;
    Design design(context.context());
    SyntheticOptions options;
    options.blocks = blocks;
    options.halfDead = true;
    makeSynthetic(design, options);
    PassScheduler scheduler;
    scheduler.addPass("DeadBlockPass");
    return measure([&] { scheduler.apply(design); });
}

} // namespace

int main(int argc, char **argv) {
    const std::size_t most = argc > 1 ? static_cast<std::size_t>(std::atol(argv[1])) : 1000000;
    const std::string folder = argc > 2 ? argv[2] : "/tmp";
    const std::string file = folder + "/orvo-bench-" + std::to_string(::getpid()) + ".xml";
    const std::string scratch = file + ".copy";
    struct Sized {
        std::size_t blocks;
        Figures load, parse, write, bytes, dead;
        double fileBytes;
    };
    std::vector<Sized> all;
    for (std::size_t blocks = most / 100; blocks <= most; blocks *= 10) {
        Sized at{};
        at.blocks = blocks;
        at.write = inChild([&] { return write(blocks, file); });
        struct stat info {};
        ::stat(file.c_str(), &info);
        at.fileBytes = static_cast<double>(info.st_size);
        at.bytes = inChild([&] { return writeBytes(file, scratch); });
        at.parse = inChild([&] { return parseOnly(file); });
        at.load = inChild([&] { return load(file); });
        at.dead = inChild([&] { return deadBlocks(blocks); });
        all.push_back(at);
    }
    std::remove(file.c_str());
    std::remove(scratch.c_str());
    const Figures start = inChild(startUp);

    std::printf("start-up and shut-down with an empty design: %.1f ms CPU, %.1f MiB peak\n", start.cpuSeconds * 1e3,
                (start.peakBytes + start.heldBytes) / 1048576);
    std::printf("%10s %10s %12s %12s %12s %12s %12s %12s %12s\n", "blocks", "bytes/blk", "load us/blk", "load/parse",
                "KiB/blk", "peak+ MiB", "write us/blk", "write/bytes", "dead us/blk");
    for (const Sized &at : all) {
        const auto n = static_cast<double>(at.blocks);
        std::printf("%10zu %10.0f %12.3f %12.2f %12.3f %12.1f %12.3f %12.2f %12.3f\n", at.blocks, at.fileBytes / n,
                    at.load.cpuSeconds * 1e6 / n, at.load.cpuSeconds / at.parse.cpuSeconds,
                    at.load.heldBytes / n / 1024, at.load.peakBytes / 1048576, at.write.cpuSeconds * 1e6 / n,
                    at.write.cpuSeconds / at.bytes.cpuSeconds, at.dead.cpuSeconds * 1e6 / n);
    }
    const Sized &small = all.front();
    const Sized &large = all.back();
    const double factor = static_cast<double>(large.blocks) / static_cast<double>(small.blocks);
    std::printf("growth exponents from %zu to %zu blocks: load %.3f, memory %.3f, write %.3f, dead blocks %.3f\n",
                small.blocks, large.blocks, exponent(small.load.cpuSeconds, large.load.cpuSeconds, factor),
                exponent(small.load.heldBytes, large.load.heldBytes, factor),
                exponent(small.write.cpuSeconds, large.write.cpuSeconds, factor),
                exponent(small.dead.cpuSeconds, large.dead.cpuSeconds, factor));
    return 0;
}
