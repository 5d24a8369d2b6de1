// The two channels that leave the library: messages to the user, which are a tag with named parameters and go to the
// listener of the current context, and assertions about the library itself, which end the process. Kept light, since
// every file asserts.
#pragma once

#include <orvo/api.h>

#include <atomic>
#include <map>
#include <span>
#include <string>
#include <string_view>

namespace orvo {

class ConstNodeParamRef;
class NodeParamRef;
class NodeValue;
class NumberValue;
class PureTupleValue;
class PureValueRef;
class StaticString;
class StringValue;
class TupleValue;
class Value;
template <class T> class ValueRefBase;

/// The tags of messages, one type per severity. The text is a literal and lives as long as the process.
namespace msg {

struct Error {
    const char *text;
};
struct Warning {
    const char *text;
};
struct Info {
    const char *text;
};
struct Debug {
    const char *text;
};

#define ORVO_MESSAGE_TYPE_error Error
#define ORVO_MESSAGE_TYPE_warning Warning
#define ORVO_MESSAGE(severity, name, parameters)                                                                       \
    namespace severity {                                                                                               \
    inline constexpr ORVO_MESSAGE_TYPE_##severity name{#name};                                                         \
    }
#include <orvo/messages.def>
#undef ORVO_MESSAGE
#undef ORVO_MESSAGE_TYPE_error
#undef ORVO_MESSAGE_TYPE_warning

} // namespace msg

/// The severities as a listener gets them.
enum class Severity : int { Error = 0, Warning = 1, Info = 2, Debug = 3 };

/// One row of the list of messages.
struct MessageInfo {
    Severity severity;
    const char *tag;
    /// The names of the parameters that the message may carry, separated by commas; empty for none.
    const char *parameters;
};

/// All messages of the library, errors first, in ASCII order of the tags.
ORVO_API std::span<const MessageInfo> allMessages();
/// Null for an unknown tag.
ORVO_API const MessageInfo *findMessage(std::string_view tag);

namespace log {

/// The parameters of one message: name to printed value.
class ORVO_API LogParams : public std::map<std::string, std::string> {
  public:
    LogParams() = default;
    explicit LogParams(std::map<std::string, std::string> params)
        : std::map<std::string, std::string>(std::move(params)) {}
    LogParams(std::string name, std::string value) { emplace(std::move(name), std::move(value)); }
};

/// The union of both; the left side wins on a name that both have.
ORVO_API LogParams operator%(LogParams left, const LogParams &right);

/// One parameter. A value is shown in its text form, a null reference as "*INVALID*".
ORVO_API LogParams p(const char *name, int value);
ORVO_API LogParams p(const char *name, unsigned int value);
ORVO_API LogParams p(const char *name, long value);
ORVO_API LogParams p(const char *name, unsigned long value);
ORVO_API LogParams p(const char *name, const char *value);
ORVO_API LogParams p(const char *name, const std::string &value);
ORVO_API LogParams p(const char *name, const PureValueRef &value);
ORVO_API LogParams p(const char *name, const StaticString &value);
ORVO_API LogParams p(const char *name, const ValueRefBase<Value> &value);
ORVO_API LogParams p(const char *name, const ValueRefBase<StringValue> &value);
ORVO_API LogParams p(const char *name, const ValueRefBase<NumberValue> &value);
ORVO_API LogParams p(const char *name, const ValueRefBase<TupleValue> &value);
ORVO_API LogParams p(const char *name, const ValueRefBase<PureTupleValue> &value);
/// Shown as the node's path.
ORVO_API LogParams p(const char *name, const ValueRefBase<NodeValue> &value);
ORVO_API LogParams p(const char *name, const ValueRefBase<const NodeValue> &value);
ORVO_API LogParams p(const char *name, const NodeParamRef &value);
ORVO_API LogParams p(const char *name, const ConstNodeParamRef &value);

/// Tells the listener of the current context, or standard error where there is none. Returns normally, for errors, too.
/// What the listener throws passes through.
ORVO_API void msg(orvo::msg::Error tag, const LogParams &params = LogParams());
ORVO_API void msg(orvo::msg::Warning tag, const LogParams &params = LogParams());
ORVO_API void msg(orvo::msg::Info tag, const LogParams &params = LogParams());
ORVO_API void msg(orvo::msg::Debug tag, const LogParams &params = LogParams());

} // namespace log

/// A front end's ear: set on a `Context`, not owned by it.
class ORVO_API ContextListener {
  public:
    /// `severity` is one of the numbers of `Severity`.
    virtual void onMessage(int severity, const char *tag, const log::LogParams &params) = 0;
    virtual ~ContextListener();
};

/// What happens at a failed assertion, before the process ends.
class ORVO_API UnreachableHandler {
  public:
    virtual void operator()(const char *expression, const char *file, unsigned int line, const char *function,
                            const char *message) = 0;
    virtual ~UnreachableHandler();

    /// The handler for all threads, not owned; null for the default one, which writes a line to standard error and
    /// exits with status 1.
    static void setUnreachableHandler(UnreachableHandler *handler);
};

/// The active handler, the default one included.
extern ORVO_API std::atomic<UnreachableHandler *> unreachableMessage;

/// Calls the active handler and, should that return, exits with status 100. Null strings count as empty.
[[noreturn]] ORVO_API void orvoAssertHandler(const char *expression, const char *file, unsigned int line,
                                             const char *function, const char *message) __attribute__((cold));

} // namespace orvo

/// For faults of the library itself, in every build type. `detail` says in words what should have held.
#define ORVO_ASSERT(condition, detail)                                                                                 \
    (__builtin_expect(static_cast<bool>(condition), 1)                                                                 \
         ? static_cast<void>(0)                                                                                        \
         : ::orvo::orvoAssertHandler(#condition, __FILE__, static_cast<unsigned int>(__LINE__),                        \
                                     static_cast<const char *>(__func__), detail))
