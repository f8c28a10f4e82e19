#ifndef IFS_STORE_LIMITS_H
#define IFS_STORE_LIMITS_H

#include "ifs.h"

/* Bytes free on the card; hosts know them in MiB. */
constexpr unsigned long long IFS_FULL_FREE_LIMIT = IFS_CREATE_FREE_MIB * 1048576ULL; ///< a create needs more
constexpr unsigned long long IFS_WRITE_FREE_LIMIT = IFS_WRITE_FREE_MIB * 1048576ULL; ///< writing needs more
constexpr unsigned long long IFS_OVERLAP_FREE_LIMIT =
    IFS_OVERLAP_FREE_MIB * 1048576ULL; ///< deletion begins below

constexpr int IFS_WRITE_CHECK_BYTES = 32 * 1048576; ///< frame bytes between two looks at the free space
constexpr unsigned IFS_OVERLAP_HYSTERESIS = 20;     ///< once begun, deletion ends below the limit less these
constexpr int IFS_OVERLAP_REWRITE_COUNT = 100; ///< deletions of a stream between two rewrites of its index
constexpr int IFS_INDEX_ITEMS_MOST = 32768;    ///< of an index file; twice what a folder of FAT32 holds
constexpr int IFS_FILE_HANDLES = 32;
constexpr int IFS_SEARCH_HANDLES = 8;
constexpr int IFS_PATH_BYTES = 128; ///< of a caller's buffer for a full path

#endif
