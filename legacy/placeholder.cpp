#include <cstdio>
#include <cstdlib>

#include "ifs_legacy.h"

namespace
{

/** Print the notice of a placeholder, if notices are switched on, and end the process with exit(1). */
[[noreturn]] void End_process(const char* func, int line)
{
    if ((__atomic_load_n(&gIfs_debug_level, __ATOMIC_RELAXED) & IFS_DEBUG_LEGACY) != 0) {
        printf("[func:%s][line:%d]You must give implement\n", func, line);
    }
    exit(1);
}

} // namespace

#define DEFINE_PLACEHOLDER(name)                                                                             \
    void name(void)                                                                                          \
    {                                                                                                        \
        End_process(__func__, __LINE__);                                                                     \
    }

IFS_LEGACY_REC_PLACEHOLDERS(DEFINE_PLACEHOLDER)
IFS_LEGACY_FS_PLACEHOLDERS(DEFINE_PLACEHOLDER)
