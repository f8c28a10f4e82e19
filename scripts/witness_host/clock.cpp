#include "scripts/witness_host/clock.h"

#include <condition_variable>
#include <ctime>
#include <mutex>
#include <unistd.h>

namespace
{

struct Sleepers {
    std::mutex mutex;
    std::condition_variable changed;
    unsigned workers = 0;
    unsigned begun = 0; // sleeps of workers so far
    unsigned ended = 0; // of these, the oldest first, may end
};

// Never destroyed: the workers live as long as the process.
Sleepers& sleepers()
{
    static Sleepers* const only = new Sleepers;
    return *only;
}

void wait_until_all_sleep(std::unique_lock<std::mutex>& lock)
{
    Sleepers& all = sleepers();
    all.changed.wait(lock, [&] { return all.begun == all.workers + all.ended; });
}

} // namespace

void worker_started()
{
    std::unique_lock<std::mutex> lock(sleepers().mutex);
    sleepers().workers++;
    wait_until_all_sleep(lock);
}

void tick()
{
    std::unique_lock<std::mutex> lock(sleepers().mutex);
    if (sleepers().workers == 0)
        return;
    sleepers().ended++;
    sleepers().changed.notify_all();
    wait_until_all_sleep(lock);
}

extern "C" time_t time(time_t* seconds) noexcept
{
    if (seconds)
        *seconds = now_s;
    return now_s;
}

/** What the virtual card makes of sleep() and usleep(). The main thread's take no time. */
extern "C" int nanosleep(const timespec*, timespec*)
{
    if (gettid() == getpid())
        return 0;
    Sleepers& all = sleepers();
    std::unique_lock<std::mutex> lock(all.mutex);
    const unsigned mine = all.begun++;
    all.changed.notify_all();
    all.changed.wait(lock, [&] { return mine < all.ended; });
    return 0;
}
