// For work on a design whose messages are not news to anybody.
#pragma once

#include <orvo/context.h>
#include <orvo/logging.h>

namespace orvo::internal {

/// Nobody hears the context's messages while this lives.
class Silence final : public ContextListener {
  public:
    explicit Silence(Context *context) : mContext(context), mListener(context->getListener()) {
        context->setListener(this);
    }
    ~Silence() override { mContext->setListener(mListener); }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;
    void onMessage(int, const char *, const log::LogParams &) override {}

  private:
    Context *mContext;
    ContextListener *mListener;
};

} // namespace orvo::internal
