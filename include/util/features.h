// Features: the process-wide switches. A feature is set by name; whoever reads it says what holds when it is not set.
#pragma once

#include <orvo/api.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A feature that has an object: its name, kind and default.
struct KelmarFeature {
    enum class Kind { Boolean, Integer, Number, String };
    std::string_view name;
    Kind kind;
    /// For people, "by ...", where the default is worked out by whoever reads the feature, who reads it by its name.
    std::string_view defaultText;
    std::string_view description;
};

namespace Features {
#define ORVO_FEATURE(NAME, KIND, DEFAULT, DESCRIPTION)                                                                 \
    inline constexpr KelmarFeature NAME{#NAME, KelmarFeature::Kind::KIND, DEFAULT, DESCRIPTION};
#include <util/features.def>
#undef ORVO_FEATURE
} // namespace Features

namespace util {

/// The text that a feature was set to; nothing if it was not set. Safe from any thread.
ORVO_API std::optional<std::string> GetFeature(std::string_view name);
/// The same, with the feature's own default.
ORVO_API std::string GetFeature(const KelmarFeature &feature);
ORVO_API bool GetFeatureBoolean(const KelmarFeature &feature);
ORVO_API int GetFeatureInteger(const KelmarFeature &feature);
ORVO_API double GetFeatureNumber(const KelmarFeature &feature);
/// The value, or the default when the feature is not set or its text is not of the kind.
ORVO_API bool GetFeatureBooleanWithDefault(std::string_view name, bool defaultValue);
ORVO_API int GetFeatureIntegerWithDefault(std::string_view name, int defaultValue);
ORVO_API std::string GetFeatureStringWithDefault(std::string_view name, const std::string &defaultValue);

/// "true", "on", "yes" and "1", "false", "off", "no" and "0", in any case.
ORVO_API std::optional<bool> parseBoolean(std::string_view text);
/// A decimal integer with nothing behind it.
ORVO_API std::optional<int> parseInteger(std::string_view text);
/// A decimal number, finite, with nothing behind it.
ORVO_API std::optional<double> parseNumber(std::string_view text);

ORVO_API void SetFeatureString(std::string_view name, const std::string &value);
ORVO_API void SetFeatureBoolean(std::string_view name, bool value);
ORVO_API void SetFeatureInteger(std::string_view name, int value);
inline void SetFeatureInteger(const KelmarFeature &feature, int value) { SetFeatureInteger(feature.name, value); }
/// Sets from a user's text. False, with nothing set, when the feature has an object of another kind.
ORVO_API bool SetFeatureText(std::string_view name, const std::string &text);
ORVO_API void ClearFeature(std::string_view name);
ORVO_API void ClearFeatures();

/// What is set, by name.
ORVO_API std::vector<std::pair<std::string, std::string>> SetFeatures();
/// The features that have an object, by name.
ORVO_API const std::vector<KelmarFeature> &KnownFeatures();

} // namespace util
