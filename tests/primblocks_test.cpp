// The type rules of arithmetic, logic and bit-level blocks, row by row.
#include "support/typetable.h"

#include <gtest/gtest.h>

namespace orvo::testing {
namespace {

const char *const kOut = "primWireOut";
const char *const kAux = "primWireAux";

TEST(PrimTypes, addInATreeNarrowOnesFirst) {
    checkTypes({
        {"two", "addBlock", {{"0", "s8.4"}, {"1", "s6.6"}}, {}, {{kOut, "s9.6"}}},
        {"narrow ones meet first", "addBlock", {{"0", "u4.0"}, {"1", "u8.0"}, {"2", "u4.0"}}, {}, {{kOut, "u9.0"}}},
        {"four", "addBlock", {{"0", "u4.0"}, {"1", "u4.0"}, {"2", "u4.0"}, {"3", "u4.0"}}, {}, {{kOut, "u6.0"}}},
        {"one", "addBlock", {{"0", "s8.4"}}, {}, {{kOut, "s8.4"}}},
        {"mixed signs", "addBlock", {{"0", "u8.0"}, {"1", "s8.0"}}, {}, {{kOut, "s10.0"}}},
        {"negative fraction", "addBlock", {{"0", "s8.-2"}, {"1", "s4.-3"}}, {}, {{kOut, "s9.-2"}}},
        {"no growth", "addBlock", {{"0", "s8.4"}, {"1", "s6.6"}}, {{"addNoGrowth", "true"}}, {{kOut, "s8.6"}}},
        {"floats", "addBlock", {{"0", "float(23,8)"}, {"1", "float(10,5)"}}, {}, {{kOut, "float(23,8)"}}},
        {"a float and a fixed", "addBlock", {{"0", "float(23,8)"}, {"1", "s8.0"}}, {}, {{kOut, ""}}},
        {"a scalar and a vector", "addBlock", {{"0", "s8.0"}, {"1", "[4] s8.0"}}, {}, {{kOut, "[4] s9.0"}}},
        {"vectors that disagree", "addBlock", {{"0", "[3] s8.0"}, {"1", "[4] s8.0"}}, {}, {{kOut, ""}}},
        {"a real and a complex", "addBlock", {{"0", "s8.0"}, {"1", "c s8.0"}}, {}, {{kOut, "c s9.0"}}},
        {"a missing input", "addBlock", {{"0", "s8.0"}, {"1", ""}}, {}, {{kOut, ""}}},
        {"given type on the data's decorations",
         "addBlock",
         {{"0", "[4] s8.0"}, {"1", "c s8.0"}},
         {{"addType", "(typeSFixed 12 2)"}},
         {{kOut, "[4] c s12.2"}}},
        {"many", "monsterAddBlock", {{"0", "u1.0"}, {"1", "u1.0"}, {"2", "u1.0"}}, {}, {{kOut, "u3.0"}}},
    });
}

TEST(PrimTypes, subtractSigned) {
    checkTypes({
        {"unsigned", "subBlock", {{"0", "u8.0"}, {"1", "u8.0"}}, {}, {{kOut, "s9.0"}}},
        {"signed", "subBlock", {{"0", "s8.2"}, {"1", "s8.4"}}, {}, {{kOut, "s9.4"}}},
        {"no growth", "subBlock", {{"0", "u8.0"}, {"1", "u6.1"}}, {{"addNoGrowth", "true"}}, {{kOut, "u8.1"}}},
        {"floats", "subBlock", {{"0", "fplib(23,8)"}, {"1", "fplib(10,5)"}}, {}, {{kOut, "fplib(23,8)"}}},
        {"given type", "subBlock", {{"0", "u8.0"}, {"1", "u8.0"}}, {{"addType", "(typeSFixed 4 0)"}}, {{kOut, "s4.0"}}},
        {"a missing input", "subBlock", {{"0", ""}, {"1", "u8.0"}}, {}, {{kOut, ""}}},
    });
}

TEST(PrimTypes, multiplyInFull) {
    checkTypes({
        {"mixed", "multBlock", {{"0", "s8.4"}, {"1", "u3.2"}}, {}, {{kOut, "s11.6"}}},
        {"three", "multBlock", {{"0", "u2.0"}, {"1", "u3.0"}, {"2", "u4.1"}}, {}, {{kOut, "u9.1"}}},
        {"given type",
         "multBlock",
         {{"0", "c s8.4"}, {"1", "s3.2"}},
         {{"multType", "(typeSFixed 5 5)"}},
         {{kOut, "c s5.5"}}},
        {"a float and a fixed", "multBlock", {{"0", "float(10,5)"}, {"1", "s8.0"}}, {}, {{kOut, ""}}},
        {"float", "multBlock", {{"0", "float(10,5)"}, {"1", "float(23,8)"}}, {}, {{kOut, "float(23,8)"}}},
        {"monster", "monsterMultBlock", {{"0", "u8.4"}, {"1", "s3.2"}}, {}, {{kOut, "s11.6"}}},
        {"monster of three", "monsterMultBlock", {{"0", "u8.4"}, {"1", "s3.2"}, {"2", "u1.0"}}, {}, {{kOut, "s12.6"}}},
        {"monster without an input", "monsterMultBlock", {{"0", "u8.4"}, {"1", ""}}, {}, {{kOut, ""}}},
        {"monster of floats", "monsterMultBlock", {{"0", "float(10,5)"}, {"1", "float(10,5)"}}, {}, {{kOut, ""}}},
    });
}

TEST(PrimTypes, sumOverADimension) {
    checkTypes({
        {"four lanes", "addReduceBlock", {{"0", "[4] s8.0"}}, {}, {{kOut, "s11.0"}}},
        {"three lanes", "addReduceBlock", {{"0", "[3] s8.0"}}, {}, {{kOut, "s10.0"}}},
        {"the outermost of two", "addReduceBlock", {{"0", "[4][3] s8.0"}}, {}, {{kOut, "[3] s11.0"}}},
        {"a scalar", "addReduceBlock", {{"0", "s8.0"}}, {}, {{kOut, "s8.0"}}},
        {"no growth", "addReduceBlock", {{"0", "[4] s8.0"}}, {{"addNoGrowth", "true"}}, {{kOut, "s8.0"}}},
        {"several ports", "addReduceBlock", {{"0", "s8.0"}, {"1", "u3.2"}, {"2", "s4.0"}}, {}, {{kOut, "s10.2"}}},
        {"floats", "addReduceBlock", {{"0", "[4] float(23,8)"}}, {}, {{kOut, "float(23,8)"}}},
    });
}

TEST(PrimTypes, sumProductsOfPairs) {
    checkTypes({
        {"one pair", "scalarProductBlock", {{"0", "s8.0"}, {"1", "s8.0"}}, {}, {{kOut, "s16.0"}}},
        {"two pairs",
         "scalarProductBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"2", "s4.0"}, {"3", "s4.0"}},
         {},
         {{kOut, "s17.0"}}},
        {"vectors", "scalarProductBlock", {{"0", "[4] s8.0"}, {"1", "[4] s8.0"}}, {}, {{kOut, "s18.0"}}},
        {"given type",
         "scalarProductBlock",
         {{"0", "[4] s8.0"}, {"1", "[4] s8.0"}},
         {{"multType", "(typeSFixed 12 3)"}},
         {{kOut, "s12.3"}}},
        {"two dimensions",
         "scalarProductBlock",
         {{"0", "[4][3] s8.0"}, {"1", "[4][3] s8.0"}},
         {},
         {{kOut, "[3] s18.0"}}},
        {"odd ports", "scalarProductBlock", {{"0", "s8.0"}}, {}, {{kOut, ""}}},
        {"chain",
         "scalarProductBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"scalarProductPortChainin", "s20.0"}},
         {},
         {{kOut, "s21.0"}}},
        {"a chain of lanes",
         "scalarProductBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"scalarProductPortChainin", "[2] s20.0"}},
         {},
         {{kOut, ""}}},
    });
}

TEST(PrimTypes, holdEveryInput) {
    for (const char *block : {"minBlock", "maxBlock", "saturateBlock", "dimBlock", "magminBlock", "magmaxBlock"}) {
        checkTypes({{block, block, {{"0", "s8.0"}, {"1", "u8.2"}}, {}, {{kOut, "s9.2"}}},
                    {block, block, {{"0", "s8.0"}, {"1", "float(23,8)"}}, {}, {{kOut, ""}}}});
    }
}

TEST(PrimTypes, takeTheBitsOfBoth) {
    for (const char *block : {"andBlock", "nandBlock", "orBlock", "norBlock", "xorBlock", "xnorBlock"}) {
        checkTypes({{block, block, {{"0", "s4.2"}, {"1", "u3.5"}}, {}, {{kOut, "u4.5"}}},
                    {block, block, {{"0", "s4.2"}, {"1", "s3.5"}}, {}, {{kOut, "s4.5"}}}});
    }
    for (const char *block : {"andReduceBlock", "nandReduceBlock", "orReduceBlock", "norReduceBlock", "xorReduceBlock",
                              "xnorReduceBlock"}) {
        checkTypes({{block, block, {{"0", "[3] s4.2"}}, {}, {{kOut, "[3] s1.0"}}},
                    {block, block, {{"0", "float(23,8)"}}, {}, {{kOut, ""}}}});
    }
}

TEST(PrimTypes, joinBits) {
    checkTypes({
        {"integers", "bitJoinBlock", {{"0", "u4.0"}, {"1", "s3.0"}}, {}, {{kOut, "s7.0"}}},
        {"a negative fraction", "bitJoinBlock", {{"0", "u4.0"}, {"1", "u4.-2"}}, {}, {{kOut, "u8.-2"}}},
        {"by number and not by text",
         "bitJoinBlock",
         {{"0", "u1.0"},
          {"1", "u1.0"},
          {"2", "u1.0"},
          {"3", "u1.0"},
          {"4", "u1.0"},
          {"5", "u1.0"},
          {"6", "u1.0"},
          {"7", "u1.0"},
          {"8", "u1.0"},
          {"9", "u1.0"},
          {"10", "u1.0"},
          {"11", "u2.3"}},
         {},
         {{kOut, "u2.14"}}},
        {"a scalar float", "bitJoinReduceBlock", {{"0", "float(23,8)"}}, {}, {{kOut, "float(23,8)"}}},
        {"lanes of floats", "bitJoinReduceBlock", {{"0", "[2] float(23,8)"}}, {}, {{kOut, ""}}},
        {"a low fraction", "bitJoinBlock", {{"0", "u4.4"}, {"1", "u3.0"}}, {}, {{kOut, "u7.4"}}},
        {"a high fraction", "bitJoinBlock", {{"0", "u4.4"}, {"1", "s3.2"}}, {}, {{kOut, "s3.10"}}},
        {"more bits than a type has", "bitJoinBlock", {{"0", "u16777216.0"}, {"1", "u1.0"}}, {}, {{kOut, ""}}},
        {"a float", "bitJoinBlock", {{"0", "u4.4"}, {"1", "float(23,8)"}}, {}, {{kOut, ""}}},
        {"lanes", "bitJoinReduceBlock", {{"0", "[4] s3.1"}}, {}, {{kOut, "s16.0"}}},
        {"lanes of lanes", "bitJoinReduceBlock", {{"0", "[4][2] u3.0"}}, {}, {{kOut, "u24.0"}}},
        {"a scalar", "bitJoinReduceBlock", {{"0", "s3.1"}}, {}, {{kOut, "s3.1"}}},
    });
}

TEST(PrimTypes, keepTheInputsType) {
    for (const char *block : {"notBlock", "reverseBlock", "delayBlock", "reciprocalBlock", "recipSqrtBlock",
                              "sqrtBlock", "registerBlock"}) {
        checkTypes({{block, block, {{"0", "[2] c s4.2"}}, {}, {{kOut, "[2] c s4.2"}}},
                    {block, block, {{"0", ""}}, {}, {}, {{kOut, "[2] s4.2"}}, {{"0", "[2] s4.2"}}},
                    {block, block, {{"0", ""}}, {}, {{kOut, ""}}}});
    }
    for (const char *block : {"delayBlock", "registerBlock"}) {
        checkTypes({{block, block, {{"0", "{s4.2,u1.0}"}}, {}, {{kOut, "{s4.2,u1.0}"}}},
                    {block, block, {{"0", ""}}, {}, {}, {{kOut, "{s4.2}"}}, {{"0", "{s4.2}"}}}});
    }
    checkTypes({{"an enabled register",
                 "registerBlock",
                 {{"0", "s8.0"}, {"registerPortEnable", "u3.0"}},
                 {},
                 {{kOut, "s8.0"}},
                 {},
                 {{"registerPortEnable", "u3.0"}}}});
}

TEST(PrimTypes, computeOnNoRecords) {
    for (const char *block : {"notBlock", "reverseBlock", "reciprocalBlock", "recipSqrtBlock", "sqrtBlock"}) {
        for (const char *record : {"{s4.2,u1.0}", "[2] {s4.2}", "{{s4.2}}"}) {
            checkTypes({{block, block, {{"0", record}}, {}, {{kOut, ""}}},
                        {block, block, {{"0", ""}}, {}, {}, {{kOut, record}}, {{"0", ""}}}});
        }
    }
}

TEST(PrimTypes, negateWithABitMore) {
    for (const char *block : {"negBlock", "complexConjugateBlock"}) {
        checkTypes({{block, block, {{"0", "s8.2"}}, {}, {{kOut, "s9.2"}}},
                    {block, block, {{"0", "u8.2"}}, {}, {{kOut, "u9.2"}}},
                    {block, block, {{"0", "c s8.2"}}, {}, {{kOut, "c s9.2"}}},
                    {block, block, {{"0", "float(23,8)"}}, {}, {{kOut, "float(23,8)"}}}});
    }
    for (const char *block : {"negBlock", "complexConjugateBlock"}) {
        checkTypes({{"a float backward", block, {{"0", ""}}, {}, {}, {{kOut, "float(23,8)"}}, {{"0", "float(23,8)"}}},
                    {"no fixed backward", block, {{"0", ""}}, {}, {}, {{kOut, "s9.0"}}, {{"0", ""}}}});
    }
    checkTypes({{"unsigned magnitude", "absBlock", {{"0", "u8.2"}}, {}, {{kOut, "u9.2"}}},
                {"magnitude", "absBlock", {{"0", "s8.2"}}, {}, {{kOut, "s9.2"}}},
                {"magnitude of a float", "absBlock", {{"0", "float(23,8)"}}, {}, {{kOut, "float(23,8)"}}}});
}

TEST(PrimTypes, compareToABoolean) {
    for (const char *block : {"cmpEqBlock", "cmpNeBlock"}) {
        checkTypes({{block, block, {{"0", "[4] c s8.2"}, {"1", "u3.0"}}, {}, {{kOut, "[4] u1.0"}}},
                    {block, block, {{"0", "float(23,8)"}, {"1", "s8.2"}}, {}, {{kOut, "u1.0"}}},
                    {block, block, {{"0", "s8.2"}, {"1", ""}}, {}, {{kOut, ""}}},
                    {block, block, {{"0", "[4] s8.2"}, {"1", "[3] s8.2"}}, {}, {{kOut, ""}}}});
    }
    for (const char *block : {"cmpGeBlock", "cmpLtBlock"}) {
        checkTypes({{block, block, {{"0", "[4] s8.2"}, {"1", "u3.0"}}, {}, {{kOut, "[4] u1.0"}}},
                    {block, block, {{"0", "c s8.2"}, {"1", "u3.0"}}, {}, {{kOut, ""}}}});
    }
}

TEST(PrimTypes, roundFractionsAway) {
    const TypeCase::Texts three{{"roundBits", "3"}};
    checkTypes({
        {"truncate", "truncateBlock", {{"0", "s8.8"}}, three, {{kOut, "s8.5"}}},
        {"to zero", "truncateToZeroBlock", {{"0", "s8.8"}}, three, {{kOut, "s9.5"}}},
        {"biased", "biasedRoundBlock", {{"0", "s8.8"}}, three, {{kOut, "s9.5"}}},
        {"unbiased", "unbiasedRoundBlock", {{"0", "[2] u8.8"}}, three, {{kOut, "[2] u9.5"}}},
        {"beyond the fraction", "truncateBlock", {{"0", "s8.2"}}, {{"roundBits", "5"}}, {{kOut, "s8.-3"}}},
        {"more bits than any type has", "biasedRoundBlock", {{"0", "s8.4"}}, {{"roundBits", "0x1p+40"}}, {{kOut, ""}}},
        {"an endless number of bits", "truncateBlock", {{"0", "s8.4"}}, {{"roundBits", "-inf"}}, {{kOut, ""}}},
        {"no number of bits", "truncateBlock", {{"0", "s8.4"}}, {{"roundBits", "+nan"}}, {{kOut, ""}}},
        {"more bits", "truncateBlock", {{"0", "s8.2"}}, {{"roundBits", "-2"}}, {{kOut, "s8.4"}}},
        {"bits not told", "biasedRoundBlock", {{"0", "s8.2"}}, {}, {{kOut, "s8.2"}}},
        {"no bits", "biasedRoundBlock", {{"0", "s8.8"}}, {{"roundBits", "0"}}, {{kOut, "s8.8"}}},
        {"a float", "truncateBlock", {{"0", "float(23,8)"}}, three, {{kOut, ""}}},
    });
}

TEST(PrimTypes, findConstants) {
    checkTypes({
        {"a type", "constBlock", {}, {{"constValue", "3"}, {"constType", "(typeSFixed 8 4)"}}, {{kOut, "s8.4"}}},
        {"a scalar type on a vector",
         "constBlock",
         {},
         {{"constValue", "(vectorRollTag 1 2)"}, {"constType", "(typeSFixed 8 4)"}},
         {{kOut, "[2] s8.4"}}},
        {"a type before its value", "constBlock", {}, {{"constType", "(typeSFixed 8 4)"}}, {{kOut, "s8.4"}}},
        {"a type for no number",
         "constBlock",
         {},
         {{"constValue", "a"}, {"constType", "(typeSFixed 8 4)"}},
         {{kOut, ""}}},
        {"a float vector with an infinity",
         "constBlock",
         {},
         {{"constValue", "(vectorRollTag +inf 1)"}, {"constType", "(typeSFloatIEEE 23 8)"}},
         {{kOut, "[2] float(23,8)"}}},
        {"an eighth", "constBlock", {}, {{"constValue", "0x2p-4"}}, {{kOut, "u0.3"}}},
        {"minus one", "constBlock", {}, {{"constValue", "-1"}}, {{kOut, "s2.0"}}},
        {"zero", "constBlock", {}, {{"constValue", "0"}}, {{kOut, "u1.0"}}},
        {"nothing", "constBlock", {}, {}, {{kOut, ""}}},
    });
}

TEST(PrimTypes, divide) {
    checkTypes({
        {"unsigned", "divideBlock", {{"0", "u8.2"}, {"1", "u4.1"}}, {}, {{kOut, "u9.6"}}},
        {"signed", "divideBlock", {{"0", "s8.2"}, {"1", "u4.1"}}, {}, {{kOut, "s10.6"}}},
        {"integers", "divideBlock", {{"0", "s8.0"}, {"1", "s8.0"}}, {{"intDivider", "true"}}, {{kOut, "s8.0"}}},
        {"complex integers",
         "divideBlock",
         {{"0", "c s8.0"}, {"1", "[2] s8.0"}},
         {{"intDivider", "true"}},
         {{kOut, "[2] c s8.0"}}},
        {"integers with fractions",
         "divideBlock",
         {{"0", "s8.1"}, {"1", "s8.1"}},
         {{"intDivider", "true"}},
         {{kOut, ""}}},
        {"a float by a fixed", "divideBlock", {{"0", "float(23,8)"}, {"1", "s8.0"}}, {}, {{kOut, ""}}},
        {"a given float",
         "divideBlock",
         {{"0", "u8.2"}, {"1", "u4.1"}},
         {{"divideType", "(typeSFloatIEEE 23 8)"}},
         {{kOut, "u9.6"}}},
        {"negative fractions", "divideBlock", {{"0", "u8.-2"}, {"1", "u4.-1"}}, {}, {{kOut, "u7.2"}}},
        {"by nothing", "divideBlock", {{"0", "u8.2"}, {"1", ""}}, {}, {{kOut, ""}}},
        {"integers that differ", "divideBlock", {{"0", "s8.0"}, {"1", "s7.0"}}, {{"intDivider", "true"}}, {{kOut, ""}}},
        {"given",
         "divideBlock",
         {{"0", "[2] s8.0"}, {"1", "s7.0"}},
         {{"divideType", "(typeSFixed 4 4)"}},
         {{kOut, "[2] s4.4"}}},
        {"floats", "divideBlock", {{"0", "float(23,8)"}, {"1", "float(10,5)"}}, {}, {{kOut, "float(23,8)"}}},
    });
}

TEST(PrimTypes, multiplyByConstants) {
    checkTypes({
        {"full", "constmultBlock", {{"0", "s8.0"}}, {{"constValue", "3"}}, {{kOut, "s10.0"}}},
        {"float", "constmultBlock", {{"0", "float(23,8)"}}, {{"constValue", "3"}}, {{kOut, "float(23,8)"}}},
        {"type",
         "constmultBlock",
         {{"0", "[2] s8.0"}},
         {{"constValue", "3"}, {"outputPrecision", "(typeSpecified (typeSFixed 5 1))"}},
         {{kOut, "[2] s5.1"}}},
        {"scalar of a complex type",
         "constmultBlock",
         {{"0", "s3.1"}},
         {{"constValue", "3"}, {"outputPrecision", "(typeSpecified (typeVector 2 (typeComplex (typeSFixed 3 9))))"}},
         {{kOut, "s3.9"}}},
        {"type of complex lanes",
         "constmultBlock",
         {{"0", "[2] s3.1"}},
         {{"constValue", "(complexRollTag 3 1)"}, {"outputPrecision", "(typeSpecified (typeSFixed 5 1))"}},
         {{kOut, "[2] c s5.1"}}},
        {"no type",
         "constmultBlock",
         {{"0", "s8.0"}},
         {{"constValue", "3"}, {"outputPrecision", "(typeSpecified word)"}},
         {{kOut, "s10.0"}}},
        {"fraction",
         "constmultBlock",
         {{"0", "s8.2"}},
         {{"constValue", "3"}, {"outputPrecision", "(fractionSpecified (typeSFixed 5 1))"}},
         {{kOut, "s11.1"}}},
        {"quotient", "constdivBlock", {{"0", "u8.0"}}, {{"constValue", "3"}}, {{kOut, "u8.0"}}},
        {"quotient of a float",
         "constdivBlock",
         {{"0", "[2] float(23,8)"}},
         {{"constValue", "3"}},
         {{kOut, "[2] float(23,8)"}}},
        {"quotient by nothing", "constdivBlock", {{"0", "float(23,8)"}}, {}, {{kOut, ""}}},
        {"quotient by a negative", "constdivBlock", {{"0", "u8.0"}}, {{"constValue", "-3"}}, {{kOut, "s8.0"}}},
        {"signed quotient", "constdivBlock", {{"0", "s8.0"}}, {{"constValue", "3"}}, {{kOut, "s8.0"}}},
        {"quotient by a fraction", "constdivBlock", {{"0", "u8.0"}}, {{"constValue", "0x1p-1"}}, {{kOut, ""}}},
        {"quotients by lanes",
         "constdivBlock",
         {{"0", "u8.0"}},
         {{"constValue", "(vectorRollTag 3 5)"}},
         {{kOut, "[2] u8.0"}}},
        {"product with nothing", "constmultBlock", {{"0", "s8.0"}}, {}, {{kOut, ""}}},
        {"product with lanes",
         "constmultBlock",
         {{"0", "s8.0"}},
         {{"constValue", "(vectorRollTag 3 -5)"}},
         {{kOut, "[2] s12.0"}}},
        {"a precision of one element",
         "constmultBlock",
         {{"0", "s8.0"}},
         {{"constValue", "3"}, {"outputPrecision", "(typeSpecified)"}},
         {{kOut, "s10.0"}}},
        {"fraction of a complex",
         "constmultBlock",
         {{"0", "c s8.2"}},
         {{"constValue", "3"}, {"outputPrecision", "(fractionSpecified (typeSFixed 5 1))"}},
         {{kOut, "c s11.1"}}},
        {"modulus of a power of two",
         "modMultBlock",
         {{"0", "u8.0"}, {"1", "[2] u4.0"}},
         {{"modMultModulusValue", "16"}},
         {{kOut, "[2] u5.0"}}},
        {"modulus one",
         "modMultBlock",
         {{"0", "u8.0"}, {"1", "u4.0"}},
         {{"modMultModulusValue", "1"}},
         {{kOut, "u1.0"}}},
        {"modulus of fractions",
         "modMultBlock",
         {{"0", "u8.1"}, {"1", "u4.0"}},
         {{"modMultModulusValue", "16"}},
         {{kOut, ""}}},
        {"modulus of a float",
         "modMultBlock",
         {{"0", "float(23,8)"}, {"1", "u4.0"}},
         {{"modMultModulusValue", "16"}},
         {{kOut, ""}}},
        {"no modulus", "modMultBlock", {{"0", "u8.0"}, {"1", "u4.0"}}, {}, {{kOut, ""}}},
        {"a fraction", "constdivBlock", {{"0", "u8.1"}}, {{"constValue", "3"}}, {{kOut, ""}}},
        {"modulus", "modMultBlock", {{"0", "u8.0"}, {"1", "u4.0"}}, {{"modMultModulusValue", "17"}}, {{kOut, "u5.0"}}},
        {"signed modulus",
         "modMultBlock",
         {{"0", "s8.0"}, {"1", "u4.0"}},
         {{"modMultModulusValue", "17"}},
         {{kOut, ""}}},
    });
}

TEST(PrimTypes, shiftAndSelectBits) {
    checkTypes({
        {"point", "rawShiftBlock", {{"0", "s8.4"}}, {{"rawShiftValue", "3"}}, {{kOut, "s11.1"}}},
        {"point beyond the top", "rawShiftBlock", {{"0", "s8.4"}}, {{"rawShiftValue", "-9"}}, {{kOut, "s0.12"}}},
        {"special right",
         "rawShiftBlock",
         {{"0", "s8.4"}},
         {{"rawShiftValue", "3"}, {"rawShiftMode", "rawShiftModeSpecialRight"}},
         {{kOut, "s8.7"}}},
        {"barrel",
         "barrelLeftBlock",
         {{"0", "[2] s8.4"}, {"barrelPortShift", "u3.0"}},
         {{"barrelOutputType", "(typeSFixed 9 1)"}},
         {{kOut, "[2] s9.1"}}},
        {"a signed shift",
         "barrelRightBlock",
         {{"0", "s8.4"}, {"barrelPortShift", "s3.0"}},
         {{"barrelOutputType", "(typeSFixed 9 1)"}},
         {{kOut, ""}}},
        {"leading zeros", "barrelRightLzcBlock", {{"0", "[2] u8.4"}}, {}, {{kOut, "[2] u8.4"}, {kAux, "[2] u4.0"}}},
        {"bits from an offset", "bitSelectBlock", {{"0", "s8.4"}}, {{"bitSelectBitOffset", "2"}}, {{kOut, "s8.2"}}},
        {"bits from the top", "bitSelectBlock", {{"0", "s8.4"}}, {{"bitSelectBitOffset", "-1"}}, {{kOut, "s1.0"}}},
        {"given bits",
         "bitSelectBlock",
         {{"0", "[3] s8.4"}},
         {{"bitSelectBitOffset", "2"}, {"bitSelectOutputType", "(typeVector 3 (typeUFixed 2 0))"}},
         {{kOut, "[3] u2.0"}}},
        {"given bits without the lanes",
         "bitSelectBlock",
         {{"0", "[3] s8.4"}},
         {{"bitSelectOutputType", "(typeUFixed 2 0)"}},
         {{kOut, "u2.0"}},
         {},
         {},
         true},
        {"given bits of the unknown",
         "bitSelectBlock",
         {{"0", ""}},
         {{"bitSelectOutputType", "(typeUFixed 2 0)"}},
         {{kOut, "u2.0"}}},
        {"bits beyond the top", "bitSelectBlock", {{"0", "s8.4"}}, {{"bitSelectBitOffset", "20"}}, {{kOut, "s1.0"}}},
        {"bits far beyond the top",
         "bitSelectBlock",
         {{"0", "s8.4"}},
         {{"bitSelectBitOffset", "0x1p+40"}},
         {{kOut, "s1.0"}}},
        {"bits without the fraction",
         "bitSelectBlock",
         {{"0", "s8.4"}},
         {{"bitSelectBitOffset", "4"}},
         {{kOut, "s8.0"}}},
        {"bits of a float", "bitSelectBlock", {{"0", "float(23,8)"}}, {{"bitSelectBitOffset", "4"}}, {{kOut, ""}}},
        {"bits chosen without a type", "chooseBitsBlock", {{"0", "s8.4"}}, {}, {{kOut, ""}}},
        {"point to the top", "rawShiftBlock", {{"0", "s8.4"}}, {{"rawShiftValue", "-8"}}, {{kOut, "s0.12"}}},
        {"point nowhere", "rawShiftBlock", {{"0", "s8.4"}}, {}, {{kOut, ""}}},
        {"point of a float", "rawShiftBlock", {{"0", "float(23,8)"}}, {{"rawShiftValue", "1"}}, {{kOut, ""}}},
        {"point on lanes", "rawShiftBlock", {{"0", "[2] c s8.4"}}, {{"rawShiftValue", "1"}}, {{kOut, "[2] c s9.3"}}},
        {"barrel of the input's type",
         "barrelLeftBlock",
         {{"0", "s8.4"}, {"barrelPortShift", "[3] u3.0"}},
         {},
         {{kOut, "[3] s8.4"}}},
        {"a fractional shift", "barrelLeftBlock", {{"0", "s8.4"}, {"barrelPortShift", "u3.1"}}, {}, {{kOut, ""}}},
        {"a float shift", "barrelLeftBlock", {{"0", "s8.4"}, {"barrelPortShift", "float(23,8)"}}, {}, {{kOut, ""}}},
        {"complex barrel",
         "barrelLeftBlock",
         {{"0", "c s8.4"}, {"barrelPortShift", "u3.0"}},
         {{"barrelOutputType", "(typeSFixed 9 1)"}},
         {{kOut, "c s9.1"}}},
        {"leading zeros of a float", "barrelRightLzcBlock", {{"0", "float(23,8)"}}, {}, {{kOut, ""}, {kAux, ""}}},
        {"chosen bits",
         "chooseBitsBlock",
         {{"0", "[3] s8.4"}},
         {{"chooseBitsOutputType", "(typeUFixed 2 0)"}},
         {{kOut, "[3] u2.0"}}},
        {"count", "bitCountBlock", {{"0", "[3] s8.4"}}, {}, {{kOut, "[3] u4.0"}}},
        {"population", "ctpopBlock", {{"0", "u7.0"}}, {}, {{kOut, "u3.0"}}},
        {"complex population", "ctpopBlock", {{"0", "c u7.0"}}, {}, {{kOut, "c u3.0"}}},
        {"population of a float", "ctpopBlock", {{"0", "float(23,8)"}}, {}, {{kOut, ""}}},
        {"complex count", "bitCountBlock", {{"0", "c s8.4"}}, {}, {{kOut, ""}}},
    });
}

TEST(PrimTypes, cast) {
    const TypeCase::Texts given{{"castOutputType", "(typeSFixed 4 1)"}};
    checkTypes({
        {"to a type", "castBlock", {{"0", "s8.4"}}, given, {{kOut, "s4.1"}, {"castWireClip", "u1.0"}}},
        {"to a scalar from lanes", "castBlock", {{"0", "[2] s8.4"}}, given, {{kOut, "s4.1"}}, {}, {}, true},
        {"to a full type",
         "castBlock",
         {{"0", "[2] c s8.4"}},
         {{"castOutputType", "(typeVector 2 (typeComplex (typeSFixed 4 1)))"}},
         {{kOut, "[2] c s4.1"}, {"castWireClip", "[2] c u1.0"}}},
        {"of a record to nothing", "castBlock", {{"0", "{s8.0}"}}, {}, {{kOut, "{s8.0}"}, {"castWireClip", ""}}},
        {"from the unknown", "castBlock", {{"0", ""}}, given, {{kOut, "s4.1"}, {"castWireClip", "u1.0"}}},
        {"to nothing", "castBlock", {{"0", "[2] s8.4"}}, {}, {{kOut, "[2] s8.4"}, {"castWireClip", "[2] u1.0"}}},
    });
}

TEST(PrimTypes, chooseAmongInputs) {
    checkTypes({
        {"mux", "muxBlock", {{"muxPortSelect", "u1.0"}, {"0", "s8.0"}, {"1", "u8.2"}}, {}, {{kOut, "s9.2"}}},
        {"mux by lanes",
         "muxBlock",
         {{"muxPortSelect", "[4] u1.0"}, {"0", "s8.0"}, {"1", "s8.0"}},
         {},
         {{kOut, "[4] s8.0"}}},
        {"mux of records",
         "muxBlock",
         {{"muxPortSelect", "u1.0"}, {"0", "{s8.0,u1.0}"}, {"1", "{s8.0,u1.0}"}},
         {},
         {{kOut, "{s8.0,u1.0}"}}},
        {"mux of two records",
         "muxBlock",
         {{"muxPortSelect", "u1.0"}, {"0", "{s8.0,u1.0}"}, {"1", "{s8.0,u2.0}"}},
         {},
         {{kOut, ""}}},
        {"a float select",
         "muxBlock",
         {{"muxPortSelect", "float(23,8)"}, {"0", "s8.0"}, {"1", "s8.0"}},
         {},
         {{kOut, ""}}},
        {"select",
         "selectBlock",
         {{"(selectPortkeyCtrl 0)", "u1.0"}, {"(selectPortkeyData 0)", "s8.0"}, {"selectPortDefaultData", "u4.2"}},
         {},
         {{kOut, "s8.2"}, {"selectWireValid", "u1.0"}}},
        {"select records",
         "selectBlock",
         {{"(selectPortkeyCtrl 0)", "u1.0"}, {"(selectPortkeyData 0)", "{s8.0}"}, {"selectPortDefaultData", "{s8.0}"}},
         {},
         {{kOut, "{s8.0}"}, {"selectWireValid", "u1.0"}}},
        {"select of two records",
         "selectBlock",
         {{"(selectPortkeyCtrl 0)", "u1.0"}, {"(selectPortkeyData 0)", "{s8.0}"}, {"selectPortDefaultData", "{s7.0}"}},
         {},
         {{kOut, ""}, {"selectWireValid", ""}}},
        {"select complex data",
         "selectBlock",
         {{"(selectPortkeyCtrl 0)", "u1.0"}, {"(selectPortkeyData 0)", "c s8.0"}},
         {},
         {{kOut, "c s8.0"}, {"selectWireValid", "c u1.0"}}},
        {"mux of records with one unknown",
         "muxBlock",
         {{"muxPortSelect", "u1.0"}, {"0", "{s8.0}"}, {"1", ""}},
         {},
         {{kOut, ""}}},
        {"mux of signs by lanes",
         "muxBlock",
         {{"muxPortSelect", "[2] u1.0"}, {"0", "s8.0"}, {"1", "u8.0"}},
         {},
         {{kOut, "[2] s9.0"}}},
        {"a wide control",
         "selectBlock",
         {{"(selectPortkeyCtrl 0)", "u2.0"}, {"(selectPortkeyData 0)", "s8.0"}},
         {},
         {{kOut, ""}, {"selectWireValid", ""}}},
        {"a wide control that may be",
         "selectBlock",
         {{"(selectPortkeyCtrl 0)", "[3] u2.0"}, {"(selectPortkeyData 0)", "s8.0"}},
         {{"primRelaxBools", "true"}},
         {{kOut, "[3] s8.0"}, {"selectWireValid", "[3] u1.0"}}},
    });
}

TEST(PrimTypes, steerSums) {
    checkTypes({
        {"addsub",
         "addsubBlock",
         {{"0", "u8.0"}, {"1", "u8.0"}, {"addsubPortSelect", "[2] u1.0"}},
         {},
         {{kOut, "[2] s10.0"}}},
        {"fused", "addsubfusedBlock", {{"0", "u8.0"}, {"1", "u8.0"}}, {}, {{kOut, "s9.0"}, {kAux, "s9.0"}}},
        {"addsub of mixed signs",
         "addsubBlock",
         {{"0", "s8.0"}, {"1", "u8.0"}, {"addsubPortSelect", "u1.0"}},
         {},
         {{kOut, "s10.0"}}},
        {"addsub of floats",
         "addsubBlock",
         {{"0", "float(23,8)"}, {"1", "float(23,8)"}, {"addsubPortSelect", "u1.0"}},
         {},
         {{kOut, "float(23,8)"}}},
        {"addsub by a float",
         "addsubBlock",
         {{"0", "s8.0"}, {"1", "u8.0"}, {"addsubPortSelect", "float(23,8)"}},
         {},
         {{kOut, ""}}},
        {"addsub by a complex",
         "addsubBlock",
         {{"0", "s8.0"}, {"1", "u8.0"}, {"addsubPortSelect", "c u1.0"}},
         {},
         {{kOut, ""}}},
        {"addsub by the unknown",
         "addsubBlock",
         {{"0", "s8.0"}, {"1", "u8.0"}, {"addsubPortSelect", ""}},
         {},
         {{kOut, ""}}},
        {"fused of a float and a fixed",
         "addsubfusedBlock",
         {{"0", "float(23,8)"}, {"1", "u8.0"}},
         {},
         {{kOut, ""}, {kAux, ""}}},
        {"fused with an unknown", "addsubfusedBlock", {{"0", "u8.0"}, {"1", ""}}, {}, {{kOut, ""}, {kAux, ""}}},
        {"load on lanes",
         "addSloadBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"addSloadPortLoadCtrl", "[2] u1.0"}, {"addSloadPortLoadValue", "s4.0"}},
         {},
         {{kOut, "[2] s9.0"}}},
        {"load by a float",
         "addSloadBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"addSloadPortLoadCtrl", "float(23,8)"}, {"addSloadPortLoadValue", "s4.0"}},
         {},
         {{kOut, ""}}},
        {"load the unknown",
         "addSloadBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"addSloadPortLoadCtrl", "u1.0"}, {"addSloadPortLoadValue", ""}},
         {},
         {{kOut, ""}}},
        {"minmax by a complex",
         "minmaxBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"minmaxPortSelect", "c u1.0"}},
         {},
         {{kOut, ""}}},
        {"comparison by a float",
         "comparectrlBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"comparePortSelect", "float(23,8)"}},
         {},
         {{kOut, ""}}},
        {"comparison of a complex",
         "comparectrlBlock",
         {{"0", "c s8.0"}, {"1", "s8.0"}, {"comparePortSelect", "u2.0"}},
         {},
         {{kOut, ""}}},
        {"fused floats",
         "addsubfusedBlock",
         {{"0", "float(23,8)"}, {"1", "float(23,8)"}},
         {},
         {{kOut, "float(23,8)"}, {kAux, "float(23,8)"}}},
        {"load",
         "addSloadBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"addSloadPortLoadCtrl", "u1.0"}, {"addSloadPortLoadValue", "s12.2"}},
         {},
         {{kOut, "s12.2"}}},
        {"minmax", "minmaxBlock", {{"0", "s8.0"}, {"1", "s8.0"}, {"minmaxPortSelect", "u1.0"}}, {}, {{kOut, "s9.0"}}},
        {"comparison by choice",
         "comparectrlBlock",
         {{"0", "s8.0"}, {"1", "s8.0"}, {"comparePortSelect", "[2] u2.0"}},
         {},
         {{kOut, "[2] u1.0"}}},
    });
}

} // namespace
} // namespace orvo::testing
