// Every source has its test under its name, or stands here with the test that covers it.
#include <orvo/context.h>
#include <orvo/pass.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>

namespace orvo {
namespace {

namespace fs = std::filesystem;

const std::map<std::string, std::string> &coveredBy() {
    static const std::map<std::string, std::string> table = {
        {"aggregateunroll", "unrollaggregatepass"},
        {"aggregateunroller", "unrollaggregatepass"},
        {"arithmeticrows", "simulator"},
        {"blockshape", "designgenerator"},
        {"boundarycomplexunroller", "unrollcomplexpass"},
        {"boundaryaggregateunroller", "unrollaggregatepass"},
        {"boundaryvectorunroller", "unrollvectorpass"},
        {"changelog", "blockannotation"},
        {"cloneconstraints", "scheduleconstraints"},
        {"combiningvectorunrollers", "vectorunrollers"},
        {"compiler", "simulator"},
        {"complexunroll", "unrollcomplexpass"},
        {"complexunroller", "complexunrollers"},
        {"cycletraverse", "early_cycle_analysis"},
        {"deadblockhandlers", "deadblockpass"},
        {"deadmodelpass", "deadblockpass"},
        {"decomposehandlers", "primblocks_decompose"},
        {"design", "model"},
        {"diagnostics", "utilsmall"},
        {"domainanalysis", "domaininfer"},
        {"domainedges", "elideddomainedges"},
        {"domainedgetree", "elideddomainedges"},
        {"domainsignposts", "domaininfer"},
        {"emit", "simulator"},
        {"expansion", "fftrows"},
        {"fftelements", "fftrows"},
        {"fftstages", "fftrows"},
        {"flatteneverythingpass", "flattener"},
        {"flattenexplicitpass", "flattener"},
        {"flattenzrtexplicitpass", "flattener"},
        {"fixednumbers", "constcastpass"},
        {"floatemit", "floatrows"},
        {"flattensignposts", "keptdomains"},
        {"functionkernels", "functionrows"},
        {"ifacerecords", "subcyclelatency"},
        {"initimpl", "passtable"},
        {"keptpoints", "constcastpass"},
        {"keyedvectorunrollers", "vectorunrollers"},
        {"lanevectorunrollers", "vectorunrollers"},
        {"mathblocks_decompose", "primblocks_decompose"},
        {"memoryblocks_decompose", "primblocks_decompose"},
        {"memorykernels", "simulator"},
        {"memoryvalidators", "validatemodelpass"},
        {"multiplycomplexunroller", "complexunrollers"},
        {"netlistverificationpass", "netlistverification"},
        {"passcontext", "pass"},
        {"passregistry", "pass"},
        {"passscheduler", "pass"},
        {"pairsin", "miscblocks"},
        {"pipeinput", "miscblocks"},
        {"port", "block"},
        {"portvalidators", "validatemodelpass"},
        {"profilingwriter", "profiling"},
        {"propagatehandlers", "propagateconstantspass"},
        {"replacedpoints", "compoundportcorrespondence"},
        {"readertypes", "deadblockpass"},
        {"rewrittenpoints", "decomposecompositepass"},
        {"root", "utilsmall"},
        {"scalarproductcomplexunroller", "complexunrollers"},
        {"schedulevalidators", "validatemodelpass"},
        {"signalshape", "designgenerator"},
        {"statekernels", "simulator"},
        {"steeringrows", "simulator"},
        {"strings", "utilsmall"},
        {"typeinferstate", "typeinferpass"},
        {"typequeryminimalset", "typeinferpass"},
        {"unknowncone", "unknownbits"},
        {"stallnumbers", "vectorunrollers"},
        {"unrelaxboolshandlers", "unrelaxboolspass"},
        {"unrollpasses", "unrollvectorpass"},
        {"validationfacts", "validatemodelpass"},
        {"vectorsplit", "commonblocks"},
        {"vectorunroll", "unrollvectorpass"},
        {"vectorunroller", "unrollvectorpass"},
        {"vectorunrollparts", "vectorunrollers"},
        {"wholesignals", "filterrows"},
        {"wiringvectorunrollers", "vectorunrollers"},
        {"wire", "block"},
        {"wiringrows", "simulator"},
        {"xmlplatform", "xmlservices"},
        {"xmlreader", "xmlservices"},
        {"xmlwriter", "xmlservices"},
    };
    return table;
}

TEST(Names, giveEverySourceATest) {
    const fs::path root = ORVO_TEST_SOURCE_DIR;
    for (const char *folder : {"src/device", "src/gen", "src/generator", "src/orvo", "src/sim", "src/util"}) {
        for (const auto &entry : fs::directory_iterator(root / folder)) {
            if (entry.path().extension() != ".cpp") {
                continue;
            }
            const std::string name = entry.path().stem().string();
            auto covered = coveredBy().find(name);
            const std::string test = covered == coveredBy().end() ? name : covered->second;
            EXPECT_TRUE(fs::exists(root / "tests" / (test + "_test.cpp")))
                << name << ".cpp has no test: write tests/" << name << "_test.cpp";
        }
    }
}

TEST(Names, giveEveryPassASourceOfItsName) {
    ContextMgr mgr;
    const fs::path sources = fs::path(ORVO_TEST_SOURCE_DIR) / "src/orvo";
    for (std::string name : internal::registeredPasses()) {
        if (name.find("TestPass") == 0) {
            continue;
        }
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        // The dead-block passes are one family, as are those for each kind of compound signals.
        const bool family = name.find("deadblock") != std::string::npos;
        const std::string source = family                                    ? "deadblockpass"
                                   : name == "globaltypepass"                ? "typeinferpass"
                                   : name == "unrollaggregatecrossmodelpass" ? "unrollaggregatepass"
                                   : name == "unrollcomplexcrossmodelpass"   ? "unrollcomplexpass"
                                   : name == "unrollvectorcrossmodelpass"    ? "unrollvectorpass"
                                                                             : name;
        EXPECT_TRUE(fs::exists(sources / (source + ".cpp"))) << name;
    }
}

} // namespace
} // namespace orvo
