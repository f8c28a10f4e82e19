#include "tools/interrupt.h"

#include <csignal>
#include <unistd.h>

#include "tools/failure.h"

namespace
{

// A shell and a terminal may both send the first one.
constexpr int signals_for_exit = 3;
volatile std::sig_atomic_t signals_seen = 0;

void count_signal(int)
{
    signals_seen = signals_seen + 1;
    if (signals_seen >= signals_for_exit)
        _exit(static_cast<int>(ExitCode::interrupted));
}

} // namespace

void watch_for_interrupt()
{
    struct sigaction action = {};
    action.sa_handler = count_signal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    struct sigaction given = {};
    if (sigaction(SIGHUP, nullptr, &given) == 0 && given.sa_handler != SIG_IGN) // nohup wants to go on
        sigaction(SIGHUP, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

bool interrupted()
{
    return signals_seen != 0;
}
