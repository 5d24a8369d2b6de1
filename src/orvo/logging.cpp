// Messages and assertions. A message goes to the listener of the thread's context; the plain form on standard error is
// for runs without a front end.
#include <orvo/logging.h>

#include <orvo/context.h>
#include <orvo/node.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <mutex>

namespace orvo {

namespace {

#define ORVO_SEVERITY_error Severity::Error
#define ORVO_SEVERITY_warning Severity::Warning
#define ORVO_MESSAGE(severity, name, parameters) {ORVO_SEVERITY_##severity, #name, parameters},
constexpr MessageInfo kMessages[] = {
#include <orvo/messages.def>
};
#undef ORVO_MESSAGE
#undef ORVO_SEVERITY_error
#undef ORVO_SEVERITY_warning

constexpr const char *kSeverityWords[] = {"Error", "Warning", "Info", "Debug"};

void writeToStandardError(Severity severity, const char *tag, const log::LogParams &params) {
    // One write, so that the lines of several threads do not mix.
    std::string line = "ORVO ";
    line += kSeverityWords[static_cast<int>(severity)];
    line += ": ";
    line += tag;
    line += ": ";
    const char *separator = "";
    for (const auto &[name, value] : params) {
        line += separator;
        line += name;
        line += "='";
        line += value;
        line += "'";
        separator = ", ";
    }
    line += ".\n";
    std::cerr.write(line.data(), static_cast<std::streamsize>(line.size()));
    std::cerr.flush();
}

void send(Severity severity, const char *tag, const log::LogParams &params) {
    const Context *context = ContextMgr::getThreadContext();
    ContextListener *listener = context != nullptr ? context->getListener() : nullptr;
    if (listener != nullptr) {
        listener->onMessage(static_cast<int>(severity), tag, params);
        return;
    }
    writeToStandardError(severity, tag, params);
}

log::LogParams valueParam(const char *name, const Value *value) {
    return {name, value != nullptr ? value->toString() : "*INVALID*"};
}

const char *orEmpty(const char *text) { return text != nullptr ? text : ""; }

[[noreturn]] void reportAndExit(const char *expression, const char *file, unsigned int line, const char *function,
                                const char *message) {
    std::string text = "ORVO restriction: '";
    text += orEmpty(expression);
    text += "'. ";
    text += orEmpty(message);
    text += " in ";
    text += orEmpty(function);
    text += " at ";
    text += orEmpty(file);
    text += ":" + std::to_string(line) + ".";
    std::cerr.write(text.data(), static_cast<std::streamsize>(text.size()));
    std::cerr.flush();
    std::exit(1);
}

} // namespace

std::span<const MessageInfo> allMessages() { return kMessages; }

const MessageInfo *findMessage(std::string_view tag) {
    const auto *row = std::find_if(std::begin(kMessages), std::end(kMessages),
                                   [&](const MessageInfo &info) { return tag == info.tag; });
    return row != std::end(kMessages) ? row : nullptr;
}

namespace log {

LogParams operator%(LogParams left, const LogParams &right) {
    left.insert(right.begin(), right.end());
    return left;
}

LogParams p(const char *name, int value) { return {name, std::to_string(value)}; }
LogParams p(const char *name, unsigned int value) { return {name, std::to_string(value)}; }
LogParams p(const char *name, long value) { return {name, std::to_string(value)}; }
LogParams p(const char *name, unsigned long value) { return {name, std::to_string(value)}; }
LogParams p(const char *name, const char *value) { return {name, orEmpty(value)}; }
LogParams p(const char *name, const std::string &value) { return {name, value}; }
LogParams p(const char *name, const PureValueRef &value) { return valueParam(name, value.get_ptr()); }
LogParams p(const char *name, const StaticString &value) { return valueParam(name, value.get_ptr()); }
LogParams p(const char *name, const ValueRef &value) { return valueParam(name, value.get_ptr()); }
LogParams p(const char *name, const StringValueRef &value) { return valueParam(name, value.get_ptr()); }
LogParams p(const char *name, const NumberValueRef &value) { return valueParam(name, value.get_ptr()); }
LogParams p(const char *name, const TupleValueRef &value) { return valueParam(name, value.get_ptr()); }
LogParams p(const char *name, const PureTupleValueRef &value) { return valueParam(name, value.get_ptr()); }
LogParams p(const char *name, const NodeParamRef &value) { return valueParam(name, value.get_ptr()); }
LogParams p(const char *name, const ConstNodeParamRef &value) { return valueParam(name, value.get_ptr()); }
LogParams p(const char *name, const NodeValueRef &value) { return p(name, ConstNodeValueRef(value)); }

LogParams p(const char *name, const ConstNodeValueRef &value) { return {name, value ? value->getPath() : "*INVALID*"}; }

void msg(orvo::msg::Error tag, const LogParams &params) { send(Severity::Error, tag.text, params); }
void msg(orvo::msg::Warning tag, const LogParams &params) { send(Severity::Warning, tag.text, params); }
void msg(orvo::msg::Info tag, const LogParams &params) { send(Severity::Info, tag.text, params); }
void msg(orvo::msg::Debug tag, const LogParams &params) { send(Severity::Debug, tag.text, params); }

} // namespace log

ContextListener::~ContextListener() = default;
UnreachableHandler::~UnreachableHandler() = default;

namespace {

/// Writes a line to standard error and exits.
class DefaultHandler final : public UnreachableHandler {
  public:
    void operator()(const char *expression, const char *file, unsigned int line, const char *function,
                    const char *message) override {
        reportAndExit(expression, file, line, function, message);
    }
};

/// Never destroyed: what runs while the process ends may assert.
union HandlerStorage {
    constexpr HandlerStorage() : handler() {}
    ~HandlerStorage() {}
    HandlerStorage(const HandlerStorage &) = delete;
    HandlerStorage &operator=(const HandlerStorage &) = delete;
    DefaultHandler handler;
};
constinit HandlerStorage gDefault;

} // namespace

constinit std::atomic<UnreachableHandler *> unreachableMessage{&gDefault.handler};

void UnreachableHandler::setUnreachableHandler(UnreachableHandler *handler) {
    unreachableMessage = handler != nullptr ? handler : &gDefault.handler;
}

void orvoAssertHandler(const char *expression, const char *file, unsigned int line, const char *function,
                       const char *message) {
    // What runs while the process ends may fail an assertion in turn, and `exit` must be entered once only: a second
    // failure on this thread ends the process at once, one on another thread waits for the end. A handler of a test may
    // leave by an exception.
    thread_local bool inside = false;
    thread_local bool byDefault = false;
    if (inside) {
        std::_Exit(byDefault ? 1 : 100);
    }
    struct Scope {
        explicit Scope(bool &flag) : mFlag(flag) { mFlag = true; }
        ~Scope() { mFlag = false; }
        bool &mFlag;
    } scope(inside);
    static std::mutex oneAtATime;
    const std::lock_guard<std::mutex> lock(oneAtATime);
    UnreachableHandler *handler = unreachableMessage;
    byDefault = handler == &gDefault.handler;
    (*handler)(orEmpty(expression), orEmpty(file), line, orEmpty(function), orEmpty(message));
    std::exit(100);
}

} // namespace orvo
