#ifndef IFS_STORE_PROCESS_LOCKS_H
#define IFS_STORE_PROCESS_LOCKS_H

#include "util/thread_annotations.h"

/**
 * The three process-wide locks of ifs.h, as names for the compiler's analysis: there is nothing behind them.
 * The exported calls take the real locks, which the store does not know, and these with them.
 */
class CAPABILITY("lock") Process_lock
{
};
extern Process_lock gIfs_interface_lock;
extern Process_lock gIfs_write_lock;
extern Process_lock gIfs_read_lock;

#endif
