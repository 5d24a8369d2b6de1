// What the library tells about a design, as findings.
#pragma once

#include "driver/catalogue.h"

#include <orvo/context.h>

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvo::driver {

/// Hears the messages of a context in the place of its listener while it lives. What is said again, as by two analyses
/// that look at one design, is one finding.
class FindingCollector final : public ContextListener {
  public:
    explicit FindingCollector(Context &context) : mContext(context), mBefore(context.getListener()) {
        context.setListener(this);
    }
    ~FindingCollector() override { mContext.setListener(mBefore); }
    FindingCollector(const FindingCollector &) = delete;
    FindingCollector &operator=(const FindingCollector &) = delete;

    void onMessage(int severity, const char *tag, const log::LogParams &params) override {
        // The process ends right behind this one.
        if (std::string_view(tag) == msg::error::BAD_TYPEID_WITH_PASS_INFO.text && mBefore != nullptr) {
            mBefore->onMessage(severity, tag, params);
        } else if (mHeard.emplace(tag, params).second) {
            mFindings.push_back({tag, params, nullptr, static_cast<Severity>(severity)});
        }
    }
    const std::vector<Finding> &findings() const { return mFindings; }

  private:
    Context &mContext;
    ContextListener *mBefore;
    std::set<std::pair<std::string, Console::Params>> mHeard;
    std::vector<Finding> mFindings;
};

} // namespace orvo::driver
