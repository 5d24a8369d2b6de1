// The handlers of faults. A signal handler may only copy prepared text between file descriptors, so all texts are made
// when the context is set, in two slots of which one is always whole.
#include "driver/faults.h"

#include "driver/files.h"
#include "driver/reproducer.h"

#include <orvo/design.h>
#include <orvo/xmlservices.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ostream>

namespace orvo::driver {

namespace {

/// Stands in a prepared message where the reason goes; no text of ours has it.
constexpr char kReasonMark[] = "\x02";
constexpr std::size_t kSignalStackBytes = std::size_t{128} * 1024;

struct SignalText {
    int number;
    const char *text;
};
constexpr SignalText kSignals[] = {
    {SIGSEGV, "signal SIGSEGV, an access to memory that is not there"},
    {SIGABRT, "signal SIGABRT, the process gave up"},
    {SIGFPE, "signal SIGFPE, an impossible computation"},
    {SIGBUS, "signal SIGBUS, an access to memory that cannot be served"},
    {SIGILL, "signal SIGILL, an impossible instruction"},
};

/// All that a handler needs, ready to be written.
struct Slot {
    FaultContext context;
    /// The message with and without a reproducer, with the mark for the reason.
    std::string withReproducer;
    std::string withoutReproducer;
};

Console *gConsole = nullptr;
Slot gSlots[2];
std::atomic<int> gCurrent{0};
std::atomic<bool> gInFault{false};

bool copyFile(int from, int to) {
    // Static, since the handler's stack is small and there is one fault at a time.
    static char block[std::size_t{64} * 1024];
    off_t at = 0;
    for (;;) {
        const ssize_t count = ::pread(from, block, sizeof(block), at);
        if (count <= 0) {
            return count == 0;
        }
        if (!writeAll(to, std::string_view(block, static_cast<std::size_t>(count)))) {
            return false;
        }
        at += count;
    }
}

/// Only what a signal handler may call.
bool writeReproducer(const FaultContext &context, std::string_view start, std::string_view reason,
                     std::string_view end) {
    if (context.reproducerPath.empty() || context.descriptor < 0) {
        return false;
    }
    const char *path = context.reproducerPath.c_str();
    const int file = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (file < 0) {
        return false;
    }
    const bool good = writeAll(file, start) && writeAll(file, reason) && writeAll(file, end) &&
                      writeAll(file, context.header) && copyFile(context.descriptor, file);
    ::close(file);
    if (!good) {
        ::unlink(path);
    }
    return good;
}

void onSignal(int number) {
    if (gInFault.exchange(true)) {
        ::_exit(kInternalFault);
    }
    const char *reason = "a signal";
    for (const SignalText &signal : kSignals) {
        reason = signal.number == number ? signal.text : reason;
    }
    const Slot &slot = gSlots[gCurrent.load()];
    const bool written = writeReproducer(slot.context, "orvo-reproducer 1\nreason: ", reason, "\n");
    std::string_view message = written ? slot.withReproducer : slot.withoutReproducer;
    for (std::size_t mark = message.find(kReasonMark[0]); mark != std::string_view::npos;
         mark = message.find(kReasonMark[0])) {
        writeAll(STDERR_FILENO, message.substr(0, mark));
        writeAll(STDERR_FILENO, reason);
        message.remove_prefix(mark + 1);
    }
    writeAll(STDERR_FILENO, message);
    ::_exit(kInternalFault);
}

Console::Params messageParams(const FaultContext &context, const std::string &reason, bool reproducer) {
    Console::Params params{{"reason", reason}};
    if (context.number != 0) {
        params["number"] = std::to_string(context.number);
        params["pass"] = context.pass;
    }
    if (reproducer) {
        params["reproducer"] = context.reproducerPath;
    } else if (!context.reproducerPath.empty()) {
        params["unwritten"] = context.reproducerPath;
    }
    return params;
}

std::string preparedMessage(const FaultContext &context, bool reproducer) {
    std::string line = gConsole->messageLine(Severity::Error, "DRIVER_INTERNAL_FAULT",
                                             messageParams(context, kReasonMark, reproducer));
    // JSON and text escape the mark, each in its way; a handler looks for the bare one.
    for (const std::string escapedMark : {"\\u0002", "\\x02"}) {
        for (std::size_t at = line.find(escapedMark); at != std::string::npos; at = line.find(escapedMark)) {
            line.replace(at, escapedMark.size(), kReasonMark);
        }
    }
    return line;
}

/// Ends the process at an assertion. The state of the library cannot be trusted then, so nothing is cleaned up. Where a
/// pass that cannot go on without a type has told which one is missing, the fault is the design's, and only the run
/// ends.
class AssertionHandler final : public UnreachableHandler {
  public:
    void operator()(const char *expression, const char *file, unsigned int line, const char *function,
                    const char *message) override {
        if (gSlots[gCurrent.load()].context.number != 0 && gConsole->hasTold("UNABLE_TO_INFER_TYPE")) {
            throw DesignAtFault();
        }
        if (gInFault.exchange(true)) {
            ::_exit(kInternalFault);
        }
        std::string detail = message;
        detail.erase(detail.find_last_not_of('\n') + 1);
        reportFault("assertion '" + std::string(expression) + "' failed in " + function + " at " + file + ":" +
                    std::to_string(line) + (detail.empty() ? "" : ": " + detail));
        ::_exit(kInternalFault);
    }
};

/// A file without a name for what only this process reads.
int openNamelessFile() {
    const char *folder = std::getenv("TMPDIR");
    int file = -1;
#ifdef O_TMPFILE
    file = ::open(folder != nullptr && *folder != '\0' ? folder : "/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
#endif
    return file >= 0 ? file : ::memfd_create("orvo-snapshot", MFD_CLOEXEC);
}

} // namespace

void installFaultHandlers(Console &console) {
    gConsole = &console;
    disarmFaults();
    static AssertionHandler assertionHandler;
    UnreachableHandler::setUnreachableHandler(&assertionHandler);
    static char stackMemory[kSignalStackBytes];
    stack_t stack{};
    stack.ss_sp = stackMemory;
    stack.ss_size = sizeof(stackMemory);
    ::sigaltstack(&stack, nullptr);
    struct sigaction action {};
    action.sa_handler = &onSignal;
    action.sa_flags = SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    for (const SignalText &signal : kSignals) {
        ::sigaction(signal.number, &action, nullptr);
    }
}

void armFaults(const FaultContext &context) {
    const int next = 1 - gCurrent.load();
    gSlots[next] = {context, preparedMessage(context, true), preparedMessage(context, false)};
    gCurrent.store(next);
}

void disarmFaults() { armFaults(FaultContext()); }

void reportFault(const std::string &reason) {
    const FaultContext &context = gSlots[gCurrent.load()].context;
    const bool written = writeReproducer(context, printReproducerStart(reason), "", "");
    gConsole->report(Severity::Error, "DRIVER_INTERNAL_FAULT", messageParams(context, reason, written));
}

DesignSnapshots::DesignSnapshots() : mDescriptors{openNamelessFile(), openNamelessFile()} {}

DesignSnapshots::~DesignSnapshots() {
    for (const int descriptor : mDescriptors) {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
    }
}

int DesignSnapshots::take(const Design &design) {
    const int descriptor = mDescriptors[mNext];
    mNext = 1 - mNext;
    if (descriptor < 0 || ::ftruncate(descriptor, 0) != 0 || ::lseek(descriptor, 0, SEEK_SET) != 0) {
        return -1;
    }
    DescriptorBuffer buffer(descriptor);
    std::ostream out(&buffer);
    XMLServices().toXML(out, design);
    out.flush();
    return buffer.error() == 0 && out.good() ? descriptor : -1;
}

} // namespace orvo::driver
