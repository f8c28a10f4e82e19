#include "legacy/placeholder.h"

#include <cstdio>
#include <cstdlib>

#include "ifs.h"

void End_process(const char* func, int line)
{
    if ((__atomic_load_n(&gIfs_debug_level, __ATOMIC_RELAXED) & IFS_DEBUG_LEGACY) != 0) {
        printf("[func:%s][line:%d]You must give implement\n", func, line);
    }
    exit(1);
}
