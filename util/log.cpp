#include "util/log.h"

#include <sys/time.h>

#include <cstdarg>
#include <cstdio>

namespace
{

void Print_prefix(Log_prefix prefix, const char* func, int line)
{
    if (prefix == Log_prefix::plain) {
        printf("[func:%s][line:%d]", func, line);
        return;
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    const long seconds = Wrap_to_int32(static_cast<uint64_t>(now.tv_sec)); // a camera's clock has 32 bits
    printf("[func:%s][line:%d][%08ld.%08ld]", func, line, seconds, static_cast<long>(now.tv_usec));
}

} // namespace

void Ifs_log(Log_prefix prefix, const char* func, int line, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    flockfile(stdout);
    Print_prefix(prefix, func, line);
    vprintf(format, args);
    funlockfile(stdout);
    va_end(args);
}

void Ifs_print(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
}
