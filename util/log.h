#ifndef IFS_UTIL_LOG_H
#define IFS_UTIL_LOG_H

#include <ctime>

#include "ifs.h"
#include "util/shared_word.h"
#include "util/wrap.h"

/**
 * Diagnostics on standard output: the gate, the prefix "[func:%s][line:%d]", the message.
 *
 * Prefix and message come out in one piece, whatever other threads print. The mask is read at the moment of
 * the message. A call site stands in the function whose name the prefix shall carry.
 */

enum class Log_prefix {
    plain,
    timed, /**< with "[%08ld.%08ld]", seconds and microseconds of the wall clock, behind */
};

/** Print prefix and message; func is the plain name of the reporting function. */
void Ifs_log(Log_prefix prefix, const char* func, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/** Print a message without a prefix, whatever the mask holds. */
void Ifs_print(const char* format, ...) __attribute__((format(printf, 1, 2)));

inline bool Ifs_log_on(unsigned bit)
{
    return (Load_shared(gIfs_debug_level) & bit) != 0;
}

/** Print whatever the mask holds. */
#define IFS_ALWAYS(...) Ifs_log(Log_prefix::plain, __func__, __LINE__, __VA_ARGS__)

/* One family for all gated messages; the arguments are evaluated only when the message is printed. */
#define IFS_LOG(prefix, bit, ...)                                                                            \
    do {                                                                                                     \
        if (Ifs_log_on(bit)) {                                                                               \
            Ifs_log(prefix, __func__, __LINE__, __VA_ARGS__);                                                \
        }                                                                                                    \
    } while (0)
#define IFS_ERROR(...) IFS_LOG(Log_prefix::plain, IFS_DEBUG_ERROR, __VA_ARGS__)
#define IFS_TRACE(...) IFS_LOG(Log_prefix::plain, IFS_DEBUG_TRACE, __VA_ARGS__)
#define IFS_DETAIL(...) IFS_LOG(Log_prefix::plain, IFS_DEBUG_DETAIL, __VA_ARGS__)
#define IFS_TRACE_TIMED(...) IFS_LOG(Log_prefix::timed, IFS_DEBUG_TRACE, __VA_ARGS__)

/** How every message shows a time, and the six arguments for it. */
#define IFS_TM_FORMAT "%04d-%02d-%02d %02d:%02d:%02d"
#define IFS_TM_ARGS(t)                                                                                       \
    Wrap_add((t).tm_year, 1900), Wrap_add((t).tm_mon, 1), (t).tm_mday, (t).tm_hour, (t).tm_min, (t).tm_sec

/** How every message names a stream. */
inline const char* Ifs_stream_word(_ifs_stream_type_ stream)
{
    return stream != IFS_STREAM_MAIN ? "sub" : "main";
}

#endif
