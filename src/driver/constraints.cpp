// The library tells what it finds as messages; here they become findings.
#include "driver/constraints.h"

#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/orvoutils.h>

namespace orvo::driver {

namespace {

class Collector final : public ContextListener {
  public:
    explicit Collector(Context &context) : mContext(context), mBefore(context.getListener()) {
        context.setListener(this);
    }
    ~Collector() override { mContext.setListener(mBefore); }
    Collector(const Collector &) = delete;
    Collector &operator=(const Collector &) = delete;

    void onMessage(int, const char *tag, const log::LogParams &params) override { findings.push_back({tag, params}); }

    std::vector<Finding> findings;

  private:
    Context &mContext;
    ContextListener *mBefore;
};

} // namespace

std::vector<Finding> checkConstraints(Design &design) {
    Collector collector(*design.getContext());
    OrvoUtils::requireStrictScheduleConstraints();
    OrvoUtils::gatherUpScheduleConstraints(design);
    return std::move(collector.findings);
}

} // namespace orvo::driver
