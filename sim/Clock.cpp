#include "sim/Clock.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>
#include <utility>

namespace sim {

namespace {

/** When a simulated device is switched on: some day in 2023. */
constexpr time_t kStart = 1700000000;

std::function<void(unsigned)> g_let_pass;
std::function<void()> g_hook;
std::atomic<time_t> g_now = kStart;
unsigned g_tick = 0;
unsigned g_pace = 0;
/** The real time that virtual time has gone on since; 0 if it does not. */
time_t g_followed_since = 0;

time_t realTime() {
    timespec real;
    clock_gettime(CLOCK_REALTIME, &real);
    return real.tv_sec;
}

time_t virtualTime() {
    g_now += g_tick;
    return g_now + (g_followed_since == 0 ? 0 : realTime() - g_followed_since);
}

}  // namespace

void startClock(std::function<void(unsigned)> let_pass) {
    g_let_pass = std::move(let_pass);
}

void onSleep(std::function<void()> hook) {
    g_hook = std::move(hook);
}

void setTick(unsigned seconds) {
    g_tick = seconds;
}

void setPace(unsigned pace) {
    g_pace = pace;
}

void followRealTime() {
    g_followed_since = realTime();
}

}  // namespace sim

extern "C" unsigned sleep(unsigned seconds) {
    if (!sim::g_let_pass) {
        timespec left = {static_cast<time_t>(seconds), 0};
        return nanosleep(&left, &left) == 0 ? 0 : static_cast<unsigned>(left.tv_sec);
    }
    if (sim::g_hook) sim::g_hook();
    sim::g_let_pass(seconds);
    sim::g_now += seconds;
    if (sim::g_pace > 0) {
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds) / sim::g_pace);
    }
    return 0;
}

extern "C" time_t time(time_t* out) noexcept {
    const time_t now = sim::g_let_pass ? sim::virtualTime() : sim::realTime();
    if (out != nullptr) *out = now;
    return now;
}
