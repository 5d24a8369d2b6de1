// For work on a design whose messages are not news to anybody.
#pragma once

#include <orvo/context.h>
#include <orvo/logging.h>

#include <set>
#include <string>

namespace orvo::internal {

/// Nobody hears the context's messages while this lives. Tags are kept, for what they say of the outcome.
class Silence final : public ContextListener {
  public:
    explicit Silence(Context *context) : mContext(context), mListener(context->getListener()) {
        context->setListener(this);
    }
    ~Silence() override { mContext->setListener(mListener); }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;
    void onMessage(int severity, const char *tag, const log::LogParams &) override {
        mLast = tag;
        if (severity == static_cast<int>(Severity::Error)) {
            mErrors.insert(tag);
        }
    }
    const std::set<std::string> &errors() const { return mErrors; }
    /// Of whatever severity; empty if there was no message.
    const std::string &last() const { return mLast; }

  private:
    Context *mContext;
    ContextListener *mListener;
    std::set<std::string> mErrors;
    std::string mLast;
};

} // namespace orvo::internal
