// Messages on standard error, where tests of the end of a process look.
#pragma once

#include <orvo/context.h>
#include <orvo/logging.h>

#include <iostream>
#include <string>

namespace orvo::test {

/// Prints the messages of a context as "SEVERITY TAG name=value ...", a line each, while it lives.
class PrintedMessages final : public ContextListener {
  public:
    explicit PrintedMessages(Context *context) : mContext(context) { context->setListener(this); }
    ~PrintedMessages() override { mContext->setListener(nullptr); }
    PrintedMessages(const PrintedMessages &) = delete;
    PrintedMessages &operator=(const PrintedMessages &) = delete;

    void onMessage(int severity, const char *tag, const log::LogParams &params) override {
        std::string line = std::to_string(severity) + " " + tag;
        for (const auto &[name, text] : params) {
            line += " " + name + "=" + text;
        }
        std::cerr << line << '\n';
    }

  private:
    Context *mContext;
};

} // namespace orvo::test
