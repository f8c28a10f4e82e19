#include "hostcard/script.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <optional>
#include <unistd.h>

#include "hostcard/next_call.h"

namespace
{

struct Fault {
    unsigned uses_left; // the failing one included
    int error;
    bool once;
};

struct Script {
    std::mutex mutex;
    unsigned counts[HOSTCARD_CALLS] = {};
    std::optional<Fault> faults[HOSTCARD_CALLS];
    long long free_bytes = -1;
    bool listed = false;
    char listing[256] = "";
};

// Never destroyed: threads of the library may outlive the static objects.
union Undying {
    constexpr Undying() : script() {}
    ~Undying() {}
    Script script;
} undying;

Script& script()
{
    return undying.script;
}

std::atomic<float> sleep_share{1}; // not double, which a 32-bit machine cannot load in one piece
hostcard::NextCall<unsigned(unsigned)> next_sleep{"sleep"};
hostcard::NextCall<int(useconds_t)> next_usleep{"usleep"};

bool is_call(hostcard_call call)
{
    return static_cast<unsigned>(call) < HOSTCARD_CALLS;
}

std::optional<int> use(hostcard_call call)
{
    std::lock_guard<std::mutex> lock(script().mutex);
    script().counts[call]++;
    std::optional<Fault>& fault = script().faults[call];
    if (!fault)
        return std::nullopt;
    if (fault->uses_left > 1) {
        fault->uses_left--;
        return std::nullopt;
    }
    const int error = fault->error;
    if (fault->once)
        fault.reset();
    return error;
}

/** @return seconds of the full time that an interrupted sleep has left, else 0 */
double sleep_scaled(double seconds)
{
    const double share = sleep_share.load(std::memory_order_relaxed);
    const double scaled = seconds * share;
    struct timespec time = {};
    time.tv_sec = static_cast<time_t>(scaled);
    time.tv_nsec = static_cast<long>((scaled - std::floor(scaled)) * 1e9);
    struct timespec left = {};
    if (nanosleep(&time, &left) == 0)
        return 0;
    return (static_cast<double>(left.tv_sec) + static_cast<double>(left.tv_nsec) / 1e9) / share;
}

} // namespace

namespace hostcard
{

bool fails(hostcard_call call)
{
    const std::optional<int> error = use(call);
    if (!error || *error == 0)
        return false;
    errno = *error;
    return true;
}

bool fails(hostcard_call call, std::size_t& count)
{
    const std::optional<int> error = use(call);
    if (!error)
        return false;
    if (*error == 0) {
        count /= 2;
        return false;
    }
    errno = *error;
    return true;
}

long long scripted_free_bytes()
{
    std::lock_guard<std::mutex> lock(script().mutex);
    return script().free_bytes;
}

std::string scripted_listing(const std::string& actual)
{
    std::lock_guard<std::mutex> lock(script().mutex);
    return script().listed ? script().listing : actual;
}

void reset_counts()
{
    std::lock_guard<std::mutex> lock(script().mutex);
    for (unsigned& count : script().counts)
        count = 0;
}

void forget_script()
{
    hostcard_fail_none();
    hostcard_set_free(-1);
    hostcard_set_listing(nullptr);
    hostcard_scale_sleep(1);
}

} // namespace hostcard

void hostcard_fail(enum hostcard_call call, unsigned nth, int error, int once)
{
    if (!is_call(call))
        return;
    std::lock_guard<std::mutex> lock(script().mutex);
    script().faults[call] = Fault{nth, error, once != 0};
}

void hostcard_fail_none(void)
{
    std::lock_guard<std::mutex> lock(script().mutex);
    for (std::optional<Fault>& fault : script().faults)
        fault.reset();
}

unsigned hostcard_count(enum hostcard_call call)
{
    if (!is_call(call))
        return 0;
    std::lock_guard<std::mutex> lock(script().mutex);
    return script().counts[call];
}

void hostcard_set_free(long long bytes)
{
    std::lock_guard<std::mutex> lock(script().mutex);
    script().free_bytes = bytes;
}

void hostcard_set_listing(const char* names)
{
    std::lock_guard<std::mutex> lock(script().mutex);
    script().listed = names != nullptr;
    snprintf(script().listing, sizeof script().listing, "%s", names ? names : "");
}

void hostcard_scale_sleep(double share)
{
    sleep_share = share > 0 ? static_cast<float>(share) : 0;
}

extern "C" unsigned sleep(unsigned seconds)
{
    if (sleep_share == 1)
        return next_sleep(seconds);
    return static_cast<unsigned>(std::ceil(sleep_scaled(seconds)));
}

extern "C" int usleep(useconds_t microseconds)
{
    if (sleep_share == 1)
        return next_usleep(microseconds);
    return sleep_scaled(microseconds / 1e6) > 0 ? -1 : 0;
}
