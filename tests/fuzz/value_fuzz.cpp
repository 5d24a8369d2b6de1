// Any text is a value or is none; a value prints to a text that reads back to the same object.
#include <orvo/context.h>
#include <orvo/corevalues.h>

#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static orvo::ContextMgr mgr;
    const std::string text(reinterpret_cast<const char *>(data), size);
    const orvo::ValueRef value = orvo::Value::parse(text, mgr.context());
    if (value && !(orvo::Value::parse(value->toString(), mgr.context()) == value)) {
        std::abort();
    }
    return 0;
}
