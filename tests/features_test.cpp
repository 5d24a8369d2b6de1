// The store of process-wide switches.
#include <util/features.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace util {
namespace {

class FeaturesTest : public ::testing::Test {
  protected:
    FeaturesTest() { ClearFeatures(); }
    ~FeaturesTest() override { ClearFeatures(); }
};

TEST_F(FeaturesTest, givesTheDefaultUntilAFeatureIsSet) {
    EXPECT_FALSE(GetFeature("x").has_value());
    EXPECT_TRUE(GetFeatureBooleanWithDefault("x", true));
    EXPECT_EQ(GetFeatureIntegerWithDefault("x", -3), -3);
    EXPECT_EQ(GetFeatureStringWithDefault("x", "d"), "d");
    SetFeatureBoolean("x", false);
    EXPECT_FALSE(GetFeatureBooleanWithDefault("x", true));
    SetFeatureInteger("x", 12);
    EXPECT_EQ(GetFeatureIntegerWithDefault("x", -3), 12);
    SetFeatureString("x", "text");
    EXPECT_EQ(GetFeatureStringWithDefault("x", "d"), "text");
    ClearFeature("x");
    ClearFeature("x");
    EXPECT_FALSE(GetFeature("x").has_value());
}

TEST_F(FeaturesTest, givesTheDefaultForATextThatIsNotOfTheKind) {
    SetFeatureString("x", "maybe");
    EXPECT_TRUE(GetFeatureBooleanWithDefault("x", true));
    SetFeatureString("x", "12x");
    EXPECT_EQ(GetFeatureIntegerWithDefault("x", 7), 7);
}

TEST_F(FeaturesTest, readsBooleansAndIntegersInTheirForms) {
    for (const char *yes : {"true", "ON", "Yes", "1"}) {
        EXPECT_EQ(parseBoolean(yes), true) << yes;
    }
    for (const char *no : {"false", "Off", "no", "0"}) {
        EXPECT_EQ(parseBoolean(no), false) << no;
    }
    EXPECT_FALSE(parseBoolean("2").has_value());
    EXPECT_EQ(parseInteger("-12"), -12);
    EXPECT_FALSE(parseInteger("").has_value());
    EXPECT_FALSE(parseInteger("99999999999").has_value());
}

TEST_F(FeaturesTest, knowsItsObjectsByNameKindAndDefault) {
    EXPECT_EQ(GetFeatureInteger(Features::TYPEINFERPASS_WARNING_LEVEL), 0);
    SetFeatureInteger(Features::TYPEINFERPASS_WARNING_LEVEL, 2);
    EXPECT_EQ(GetFeatureInteger(Features::TYPEINFERPASS_WARNING_LEVEL), 2);
    EXPECT_FALSE(GetFeatureBoolean(Features::USE_NETLIST_VERIFICATION_PASS));
    EXPECT_EQ(GetFeature(Features::DISABLED_OPTIMISATIONS), "");
    EXPECT_TRUE(std::is_sorted(KnownFeatures().begin(), KnownFeatures().end(),
                               [](const auto &a, const auto &b) { return a.name < b.name; }));
    EXPECT_EQ(KnownFeatures().size(), 43U);
}

TEST_F(FeaturesTest, haveADefaultOfTheirKindOrSayWhatItGoesBy) {
    for (const KelmarFeature &feature : KnownFeatures()) {
        const bool byOthers = feature.defaultText.substr(0, 3) == "by ";
        EXPECT_TRUE(byOthers || SetFeatureText(feature.name, std::string(feature.defaultText))) << feature.name;
        EXPECT_FALSE(byOthers && SetFeatureText(feature.name, std::string(feature.defaultText))) << feature.name;
    }
}

TEST_F(FeaturesTest, readsWeightsAsNumbers) {
    for (const KelmarFeature *weight :
         {&Features::LUT4S_WEIGHT, &Features::MULT18S_WEIGHT, &Features::RAMBLOCKS_WEIGHT, &Features::RAMBITS_WEIGHT}) {
        EXPECT_EQ(GetFeatureNumber(*weight), -1.0) << weight->name;
        EXPECT_TRUE(SetFeatureText(weight->name, "0.25"));
        EXPECT_EQ(GetFeatureNumber(*weight), 0.25) << weight->name;
        for (const char *none : {"", "x", "1.5x", "nan", "inf", "1e999"}) {
            EXPECT_FALSE(SetFeatureText(weight->name, none)) << none;
        }
    }
}

TEST_F(FeaturesTest, knowsTheKindOfThoseOfAPlainNameToo) {
    for (const KelmarFeature *feature : {&Features::multipleFileWriteWarning, &Features::refineMetadataGraph}) {
        EXPECT_FALSE(GetFeatureBoolean(*feature)) << feature->name;
        EXPECT_FALSE(SetFeatureText(feature->name, "perhaps")) << feature->name;
        EXPECT_TRUE(SetFeatureText(feature->name, "yes")) << feature->name;
        EXPECT_TRUE(GetFeatureBoolean(*feature)) << feature->name;
    }
}

TEST_F(FeaturesTest, refusesAUsersTextOfTheWrongKind) {
    EXPECT_FALSE(SetFeatureText("TYPEINFERPASS_WARNING_LEVEL", "high"));
    EXPECT_FALSE(SetFeatureText("USE_NETLIST_VERIFICATION_PASS", "5"));
    EXPECT_TRUE(SetFeatures().empty());
    EXPECT_TRUE(SetFeatureText("USE_NETLIST_VERIFICATION_PASS", "on"));
    EXPECT_TRUE(SetFeatureText("a new one", "anything"));
    EXPECT_EQ(SetFeatures().size(), 2U);
    EXPECT_EQ(SetFeatures().front().first, "USE_NETLIST_VERIFICATION_PASS");
}

} // namespace
} // namespace util
