// The type rules of the elementary functions, row by row.
#include "support/typetable.h"

#include <gtest/gtest.h>

namespace orvo::testing {
namespace {

const char *const kOut = "primWireOut";
const char *const kAux = "primWireAux";

TEST(MathTypes, keepTheFloatOfTheInput) {
    for (const char *block :
         {"tanBlock",      "cotBlock",      "tanpixBlock", "cotpixBlock", "arccospiBlock", "arcsinpiBlock",
          "arctanpiBlock", "cuberootBlock", "rintBlock",   "roundBlock",  "floorBlock",    "ceilBlock",
          "truncBlock",    "exp2Block",     "exp10Block",  "log2Block",   "log10Block",    "expm1Block",
          "log1pBlock",    "fracBlock",     "asinBlock",   "acosBlock",   "atanBlock",     "polynomialBlock"}) {
        checkTypes(
            {{block, block, {{"0", "[2] float(23,8)"}}, {}, {{kOut, "[2] float(23,8)"}, {kAux, "[2] float(23,8)"}}},
             {block, block, {{"0", "s8.4"}}, {}, {{kOut, ""}}}});
    }
    checkTypes(
        {{"selected", "polynomialBlock", {{"0", "float(23,8)"}, {"1", "[3] u2.0"}}, {}, {{kOut, "[3] float(23,8)"}}},
         {"selected by a float", "polynomialBlock", {{"0", "float(23,8)"}, {"1", "float(23,8)"}}, {}, {{kOut, ""}}}});
}

TEST(MathTypes, holdEveryFloatInput) {
    for (const char *block : {"hypotBlock", "hypot3dBlock", "arctan2Block", "modBlock", "powBlock", "powrBlock"}) {
        checkTypes({{block,
                     block,
                     {{"0", "float(10,5)"}, {"1", "float(23,8)"}},
                     {},
                     {{kOut, "float(23,8)"}, {kAux, "float(23,8)"}}},
                    {block, block, {{"0", "float(10,5)"}, {"1", "s8.0"}}, {}, {{kOut, ""}}},
                    {block, block, {{"0", "float(10,5)"}, {"1", "float(10,5)"}, {"2", ""}}, {}, {{kOut, ""}}},
                    {block, block, {{"0", "s8.0"}}, {}, {{kOut, ""}}}});
    }
}

TEST(MathTypes, scaleAndTakeExponents) {
    for (const char *block : {"pownBlock", "multPow2Block"}) {
        checkTypes({{block, block, {{"0", "float(23,8)"}, {"1", "[2] s8.0"}}, {}, {{kOut, "float(23,8)"}}},
                    {block, block, {{"0", "[3] float(23,8)"}, {"1", "s8.0"}}, {}, {{kOut, "[3] float(23,8)"}}},
                    {block, block, {{"0", "s8.4"}, {"1", "s8.0"}}, {}, {{kOut, "s8.4"}}},
                    {block, block, {{"0", "float(23,8)"}, {"1", ""}}, {}, {{kOut, ""}}},
                    {block, block, {{"0", "float(23,8)"}, {"1", "float(23,8)"}}, {}, {{kOut, ""}}},
                    {block, block, {{"0", "c float(23,8)"}, {"1", "s8.0"}}, {}, {{kOut, "c float(23,8)"}}},
                    {block, block, {{"0", "c float(23,8)"}, {"1", "c s8.0"}}, {}, {{kOut, ""}}}});
    }
    checkTypes({{"exponent", "ilogbBlock", {{"0", "[2] float(23,8)"}}, {}, {{kOut, "[2] s32.0"}}},
                {"exponent of a fixed", "ilogbBlock", {{"0", "s8.0"}}, {}, {{kOut, ""}}},
                {"log", "logBlock", {{"0", "s8.4"}}, {}, {{kOut, "s8.4"}}},
                {"exp", "expBlock", {{"0", "float(23,8)"}}, {}, {{kOut, "float(23,8)"}}}});
}

TEST(MathTypes, boundSinesAndCosines) {
    for (const char *block : {"sinBlock", "cosBlock", "sincosfusedBlock"}) {
        checkTypes({{block, block, {{"0", "s8.12"}}, {}, {{kOut, "s2.12"}, {kAux, "s2.12"}}},
                    {block, block, {{"0", "[2] u3.12"}}, {}, {{kOut, "[2] u1.12"}}},
                    {block, block, {{"0", "float(23,8)"}}, {}, {{kOut, "float(23,8)"}}}});
    }
    for (const char *block : {"sinpixBlock", "cospixBlock", "sincospixfusedBlock"}) {
        checkTypes({{block, block, {{"0", "u3.12"}}, {}, {{kOut, "s2.12"}, {kAux, "s2.12"}}},
                    {block, block, {{"0", "float(23,8)"}}, {}, {{kOut, "float(23,8)"}}}});
    }
}

TEST(MathTypes, rotateVectors) {
    checkTypes(
        {{"cordic",
          "cordicBlock",
          {{"cordicPortX", "s4.8"}, {"cordicPortY", "s6.2"}, {"cordicPortAngle", "u3.9"}, {"cordicPortMode", "u1.0"}},
          {},
          {{"cordicWireX", "s8.8"}, {"cordicWireY", "s8.8"}, {"cordicWireAngle", "s4.9"}}},
         {"cordic by a float",
          "cordicBlock",
          {{"cordicPortX", "s4.8"},
           {"cordicPortY", "s6.2"},
           {"cordicPortAngle", "u3.9"},
           {"cordicPortMode", "float(23,8)"}},
          {},
          {{"cordicWireX", ""}, {"cordicWireAngle", ""}}},
         {"cordic by a complex mode",
          "cordicBlock",
          {{"cordicPortX", "s4.8"}, {"cordicPortY", "s6.2"}, {"cordicPortAngle", "u3.9"}, {"cordicPortMode", "c u1.0"}},
          {},
          {{"cordicWireX", ""}, {"cordicWireAngle", ""}}},
         {"cordic of a float",
          "cordicBlock",
          {{"cordicPortX", "float(23,8)"},
           {"cordicPortY", "s6.2"},
           {"cordicPortAngle", "u3.9"},
           {"cordicPortMode", "u1.0"}},
          {},
          {{"cordicWireX", ""}, {"cordicWireAngle", ""}}}});
}

TEST(MathTypes, areFixedWhereTheHardwareIs) {
    checkTypes({{"multiply and add", "floatMultaddBlock", {{"0", ""}}, {}, {{kOut, "float(23,8)"}}},
                {"multiply and subtract", "floatMultsubBlock", {}, {}, {{kOut, "float(23,8)"}}},
                {"classes",
                 "floatClassBlock",
                 {{"0", "[2] float(10,5)"}},
                 {},
                 {{"fpclassWireZero", "[2] u1.0"},
                  {"fpclassWireSign", "[2] u1.0"},
                  {"fpclassWireInf", "[2] u1.0"},
                  {"fpclassWireNan", "[2] u1.0"}}},
                {"classes of the library's floats",
                 "floatClassBlock",
                 {{"0", "fplib(23,8)"}},
                 {},
                 {{"fpclassWireZero", "u1.0"}}},
                {"classes of a fixed", "floatClassBlock", {{"0", "s8.0"}}, {}, {{"fpclassWireZero", ""}}}});
}

} // namespace
} // namespace orvo::testing
