// A listener that remembers, for tests that look at messages.
#pragma once

#include <orvo/context.h>
#include <orvo/logging.h>

#include <string>
#include <utility>
#include <vector>

namespace orvo::test {

/// Hears the messages of a context while it lives. A line is the tag and each parameter as name=value, in the order of
/// the names.
class HeardMessages final : public ContextListener {
  public:
    explicit HeardMessages(Context *context) : mContext(context) { context->setListener(this); }
    ~HeardMessages() override { mContext->setListener(nullptr); }
    HeardMessages(const HeardMessages &) = delete;
    HeardMessages &operator=(const HeardMessages &) = delete;

    void onMessage(int, const char *tag, const log::LogParams &params) override {
        std::string line = tag;
        for (const auto &[name, value] : params) {
            line += " " + name + "=" + value;
        }
        mLines.push_back(std::move(line));
    }
    /// What was heard since the last time.
    std::vector<std::string> take() { return std::exchange(mLines, {}); }

  private:
    Context *mContext;
    std::vector<std::string> mLines;
};

} // namespace orvo::test
