#ifndef IFS_LEGACY_PLACEHOLDER_H
#define IFS_LEGACY_PLACEHOLDER_H

/** Print the notice of a placeholder, if notices are switched on, and end the process with exit(1). */
[[noreturn]] void End_process(const char* func, int line);

/** Body of one placeholder, for the lists in ifs_legacy.h. */
#define DEFINE_PLACEHOLDER(name)                                                                             \
    void name(void)                                                                                          \
    {                                                                                                        \
        End_process(__func__, __LINE__);                                                                     \
    }

#endif
