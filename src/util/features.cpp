// The store of features: a small ordered map under a reader-writer lock.
#include <util/features.h>

#include <util/strings.h>

#include <charconv>
#include <cmath>
#include <map>
#include <mutex>
#include <shared_mutex>

namespace util {

namespace {

struct Store {
    std::shared_mutex mutex;
    std::map<std::string, std::string, std::less<>> values;
};

Store &store() {
    static Store theStore;
    return theStore;
}

bool fits(KelmarFeature::Kind kind, std::string_view text) {
    switch (kind) {
    case KelmarFeature::Kind::Boolean:
        return parseBoolean(text).has_value();
    case KelmarFeature::Kind::Integer:
        return parseInteger(text).has_value();
    case KelmarFeature::Kind::Number:
        return parseNumber(text).has_value();
    case KelmarFeature::Kind::String:
        return true;
    }
    return false;
}

} // namespace

std::optional<bool> parseBoolean(std::string_view text) {
    for (const char *yes : {"true", "on", "yes", "1"}) {
        if (caseInsensitiveEquals(text, yes)) {
            return true;
        }
    }
    for (const char *no : {"false", "off", "no", "0"}) {
        if (caseInsensitiveEquals(text, no)) {
            return false;
        }
    }
    return std::nullopt;
}

std::optional<int> parseInteger(std::string_view text) {
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::optional<double> parseNumber(std::string_view text) {
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> GetFeature(std::string_view name) {
    std::shared_lock<std::shared_mutex> lock(store().mutex);
    auto hit = store().values.find(name);
    return hit == store().values.end() ? std::nullopt : std::optional<std::string>(hit->second);
}

std::string GetFeature(const KelmarFeature &feature) {
    return GetFeature(feature.name).value_or(std::string(feature.defaultText));
}

bool GetFeatureBoolean(const KelmarFeature &feature) { return parseBoolean(GetFeature(feature)).value_or(false); }

int GetFeatureInteger(const KelmarFeature &feature) { return parseInteger(GetFeature(feature)).value_or(0); }

double GetFeatureNumber(const KelmarFeature &feature) { return parseNumber(GetFeature(feature)).value_or(0); }

bool GetFeatureBooleanWithDefault(std::string_view name, bool defaultValue) {
    std::optional<std::string> text = GetFeature(name);
    return text ? parseBoolean(*text).value_or(defaultValue) : defaultValue;
}

int GetFeatureIntegerWithDefault(std::string_view name, int defaultValue) {
    std::optional<std::string> text = GetFeature(name);
    return text ? parseInteger(*text).value_or(defaultValue) : defaultValue;
}

std::string GetFeatureStringWithDefault(std::string_view name, const std::string &defaultValue) {
    return GetFeature(name).value_or(defaultValue);
}

void SetFeatureString(std::string_view name, const std::string &value) {
    std::unique_lock<std::shared_mutex> lock(store().mutex);
    store().values.insert_or_assign(std::string(name), value);
}

void SetFeatureBoolean(std::string_view name, bool value) { SetFeatureString(name, value ? "true" : "false"); }

void SetFeatureInteger(std::string_view name, int value) { SetFeatureString(name, std::to_string(value)); }

bool SetFeatureText(std::string_view name, const std::string &text) {
    for (const KelmarFeature &feature : KnownFeatures()) {
        if (feature.name == name && !fits(feature.kind, text)) {
            return false;
        }
    }
    SetFeatureString(name, text);
    return true;
}

void ClearFeature(std::string_view name) {
    std::unique_lock<std::shared_mutex> lock(store().mutex);
    if (auto hit = store().values.find(name); hit != store().values.end()) {
        store().values.erase(hit);
    }
}

void ClearFeatures() {
    std::unique_lock<std::shared_mutex> lock(store().mutex);
    store().values.clear();
}

std::vector<std::pair<std::string, std::string>> SetFeatures() {
    std::shared_lock<std::shared_mutex> lock(store().mutex);
    return {store().values.begin(), store().values.end()};
}

const std::vector<KelmarFeature> &KnownFeatures() {
    static const std::vector<KelmarFeature> known = {
#define ORVO_FEATURE(NAME, KIND, DEFAULT, DESCRIPTION) Features::NAME,
#include <util/features.def>
#undef ORVO_FEATURE
    };
    return known;
}

} // namespace util
