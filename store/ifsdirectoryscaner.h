#ifndef IFS_STORE_IFSDIRECTORYSCANER_H
#define IFS_STORE_IFSDIRECTORYSCANER_H

#include <boost/function.hpp>

/** What the callback of a directory walk answers; any other value stops the walk as SCAN_DIR_BREAK does. */
enum _scan_dir_operation_ : int {
    SCAN_DIR_CONTINUE = 0, ///< go on with the next entry
    SCAN_DIR_BREAK = 1,    ///< stop; the walk's result is 0
    SCAN_DIR_ERROR = 2,    ///< stop; the walk's result is 1
};

/** Called with the directory, the entry's name and the walk's user pointer. */
using Scan_dir_callback = boost::function<_scan_dir_operation_(const char*, const char*, void*)>;

/**
 * Walk the entries of a directory in listing order, "." and ".." left out, subdirectories not entered.
 *
 * @param callback  must be set
 * @return 0, or 1: dir is null or cannot be opened (reported), or the callback answered SCAN_DIR_ERROR
 */
int Ifsdc_scan_directory(const char* dir, const Scan_dir_callback& callback, void* user);

#endif
