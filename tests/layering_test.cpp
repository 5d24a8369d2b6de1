// The floors of the library: a file includes only from its own floor or a lower one.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>

namespace orvo {
namespace {

namespace fs = std::filesystem;

const std::map<std::string, int> &floors() {
    static const std::map<std::string, int> table = {
        {"api", 0},
        {"value", 1},
        {"corevalues", 1},
        {"elementname", 1},
        {"numbervalue", 1},
        {"valuetext", 1},
        {"context", 1},
        {"contextimpl", 1},
        {"mpfrthread", 1},
        {"staticstrings", 1},
        {"messages", 1},
        {"logging", 1},
        {"silence", 1},
        {"filesystem", 1},
        {"limits", 1},
        {"keyedmap", 1},
        // Interfaces through which a lower floor is served by a higher one, and the classes that it only holds.
        {"blockclass", 1},
        {"initimpl.h", 1},
        {"node.h", 1},
        {"nodevalue", 2},
        {"node", 2},
        {"design", 2},
        {"model", 2},
        {"block", 2},
        {"port", 2},
        {"wire", 2},
        {"event", 2},
        {"generic", 2},
        {"blocksinfo", 2},
        {"handlers", 2},
        {"nonsblocks", 2},
        {"portordering", 2},
        {"annotation", 2},
        {"blockannotation", 2},
        {"changelog", 2},
        {"channelpairs", 2},
        {"metadataroutes", 2},
        {"metadatasection", 2},
        {"pendingrewrite", 2},
        {"orvoutils", 2},
        {"cloneconstraints", 2},
        {"gototags", 2},
        {"domainboundary", 2},
        {"domainedges", 2},
        {"latencyconstraints", 2},
        {"modelkinds", 2},
        {"nameorigin", 2},
        {"querypoint", 2},
        {"scheduleconstraints", 2},
        {"subcyclelatency", 2},
        {"xmlservices", 2},
        {"xmlreader", 2},
        {"xmlwriter", 2},
        {"xmlplatform", 2},
        {"xmlform", 2},
        {"deadblock", 2},
        {"unrelaxbools", 2},
        {"basedevice", 2},
        {"controlflowconf", 2},
        {"resourceusage", 2},
        {"synthesis_options", 2},
        {"synthesisoptions", 2},
        {"systembuilder", 4},
        {"decomposecomposite", 2},
        {"propagateconstants", 2},
        {"types", 3},
        {"wordsize", 3},
        {"fixednumbers", 3},
        {"constmulttype", 3},
        {"fixedconstant", 3},
        {"pass", 3},
        {"passcontext", 3},
        {"passregistry", 3},
        {"passscheduler", 3},
        {"workqueue", 3},
        {"typeinfer", 4},
        {"typeinferpass", 4},
        {"typeinferstate", 4},
        {"typecache", 4},
        {"connectiontrace", 4},
        {"domaininfer", 4},
        {"domainanalysis", 4},
        {"domainsignposts", 4},
        {"domaintable", 4},
        {"domainhandlers", 5},
        {"compoundtypeinfo", 4},
        {"unrollmappings", 4},
        {"compoundportcorrespondence", 4},
        {"replacedpoints", 4},
        {"scheduledmodelhandle", 4},
        {"typequeryminimalset", 4},
        {"typeinferdebug", 4},
        {"strongcomponents", 4},
        {"cycletraverse", 4},
        {"early_cycle_analysis", 4},
        {"analysedesignpass", 5},
        {"dumptypespass", 5},
        {"constmultpass", 5},
        {"typerules", 6},
        {"primblocks", 6},
        {"mathblocks", 6},
        {"memoryblocks", 6},
        {"commonblocks", 6},
        {"fftplan", 6},
        {"miscblocks", 6},
        {"ipblocks", 6},
        {"modeltreepass", 3},
        {"netlistverification", 3},
        {"netlistverificationpass", 3},
        {"dumpxmlpass", 3},
        {"deadblockpass", 5},
        {"deadblockhandlers", 5},
        {"deadmodelpass", 5},
        {"elideddomainedges", 5},
        {"domainedgetree", 5},
        {"blockbuilder", 5},
        {"decomposecompositepass", 5},
        {"readertypes", 5},
        {"rewrittenpoints", 5},
        {"keptpoints", 5},
        {"helddomains", 5},
        {"checkconstantspass", 5},
        {"constcastpass", 5},
        {"elideconstshiftspass", 5},
        {"removenogrowthcastspass", 5},
        {"narrowmultpass", 5},
        {"propagateconstantspass", 5},
        {"decomposehandlers", 6},
        {"propagatehandlers", 6},
        {"castdecompose", 6},
        {"primblocks_decompose", 6},
        {"mathblocks_decompose", 6},
        {"memoryblocks_decompose", 6},
        {"elidefromgotopass", 5},
        {"elideterminalpass", 5},
        {"checkscalarsignalspass", 5},
        {"elideunpackpass", 5},
        {"insertcastspass", 5},
        {"precisionadjustmentpass", 5},
        {"preparetierpass", 5},
        {"unrelaxboolshandlers", 5},
        {"unrelaxboolspass", 5},
        {"flattenconstraints", 5},
        {"flattener", 5},
        {"flatteneverythingpass", 5},
        {"flattenexplicitpass", 5},
        {"flattensimulinkpass", 5},
        {"flattentags", 5},
        {"flattensignposts", 5},
        {"flattenzrtexplicitpass", 5},
        {"signalpacker", 5},
        {"boundarycomplexunroller", 5},
        {"complexunroll", 5},
        {"complexunroller", 5},
        {"multiplycomplexunroller", 5},
        {"scalarproductcomplexunroller", 5},
        {"unrollcomplexpass", 5},
        {"complexunrollers", 6},
        {"aggregateunroll", 5},
        {"aggregateunroller", 5},
        {"aggregateunrollers", 6},
        {"boundaryaggregateunroller", 5},
        {"unrollaggregatepass", 5},
        {"unrollscheduledmodelpass", 5},
        {"pairsin", 2},
        {"pipeinput", 2},
        {"vectorsplit", 2},
        {"vectorunroller", 5},
        {"vectorunroll", 5},
        {"boundaryvectorunroller", 5},
        {"ifacerecords", 5},
        {"replacedsignals", 5},
        {"stallnumbers", 5},
        {"vectorunrollparts", 5},
        {"combiningvectorunrollers", 5},
        {"keyedvectorunrollers", 5},
        {"lanevectorunrollers", 5},
        {"wiringvectorunrollers", 5},
        {"unrollpasses", 5},
        {"typedifference", 5},
        {"unrollvectorpass", 5},
        {"memoryvalidators", 5},
        {"modelvalidators", 5},
        {"portvalidators", 5},
        {"schedulevalidators", 5},
        {"validatemodelpass", 5},
        {"validationfacts", 5},
        {"unrolling", 6},
        {"unrolltable", 6},
        {"vectorunrollers", 6},
        {"initimpl", 7},
        {"passtable", 7},
        {"orvo", 7},
        {"simulator", 8},
        {"simcompare", 8},
    };
    return table;
}

int floorOf(const fs::path &file) {
    const std::string folder = file.parent_path().filename().string();
    if (folder == "util" || folder == "device") {
        return 0;
    }
    if (folder == "generator") {
        return 6;
    }
    if (folder == "driver" || folder == "sim" || folder == "gen") {
        return 8;
    }
    auto exact = floors().find(file.filename().string());
    if (exact != floors().end()) {
        return exact->second;
    }
    auto hit = floors().find(file.stem().string());
    return hit == floors().end() ? -1 : hit->second;
}

TEST(Layering, includesOnlyFromTheOwnFloorOrALowerOne) {
    const fs::path root = ORVO_TEST_SOURCE_DIR;
    const std::regex include("^#include [<\"]((orvo|util|device|generator|sim|gen|driver)/[a-z_]+\\.(h|def))[>\"]");
    int files = 0;
    for (const char *folder : {"include/orvo", "include/util", "include/device", "src/orvo", "src/util", "src/device",
                               "src/generator", "src/sim", "src/gen", "src/driver"}) {
        for (const auto &entry : fs::directory_iterator(root / folder)) {
            const std::string ending = entry.path().extension().string();
            if (ending != ".h" && ending != ".cpp") {
                continue;
            }
            ++files;
            const int own = floorOf(entry.path());
            EXPECT_GE(own, 0) << entry.path().filename() << " has no floor: add it to the table of this test";
            std::ifstream in(entry.path());
            for (std::string line; std::getline(in, line);) {
                std::smatch match;
                if (std::regex_search(line, match, include)) {
                    const int other = floorOf(fs::path(match[1].str()));
                    EXPECT_LE(other, own) << entry.path().filename() << " includes " << match[1];
                }
            }
        }
    }
    EXPECT_GT(files, 80);
}

} // namespace
} // namespace orvo
