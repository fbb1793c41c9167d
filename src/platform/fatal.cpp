#include "platform/fatal.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace tasket::platform {
namespace {
std::mutex g_mutex;
FatalHandler& handlerSlot() {
    static FatalHandler handler = defaultFatalHandler;
    return handler;
}
} // namespace

void defaultFatalHandler(const std::string& message) {
    std::fprintf(stderr, "%s\n", message.c_str());
    std::fflush(stderr);
    std::_Exit(70);
}

void warn(std::string_view message) {
    fmt::print(stderr, "{}: {}\n", program_invocation_short_name, message);
}

FatalHandler setFatalHandler(FatalHandler handler) {
    std::lock_guard lock(g_mutex);
    auto previous = std::move(handlerSlot());
    handlerSlot() = handler ? std::move(handler) : FatalHandler(defaultFatalHandler);
    return previous;
}

void fatal(std::string_view message) {
    FatalHandler handler;
    {
        std::lock_guard lock(g_mutex);
        handler = handlerSlot();
    }
    handler(std::string(message));
    std::abort();
}

} // namespace tasket::platform
