#include "platform/clock.h"

namespace tasket::platform {
namespace {
SystemClock g_systemClock;
std::atomic<const Clock*> g_shared{nullptr};
} // namespace

Date SystemClock::now() const {
    return Date::fromSystem(std::chrono::system_clock::now());
}

const Clock& Clock::shared() {
    const Clock* c = g_shared.load();
    return c ? *c : g_systemClock;
}

void Clock::setShared(const Clock* clock) {
    g_shared = clock;
}

} // namespace tasket::platform
