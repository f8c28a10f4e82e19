#include "store/ifsdirectoryscaner.h"

#include <cerrno>
#include <cstring>

#include "device/owned.h"
#include "util/log.h"

int Ifsdc_scan_directory(const char* dir, const Scan_dir_callback& callback, void* user)
{
    if (dir == nullptr) {
        return 1;
    }
    const Owned_dir open_dir(opendir(dir));
    if (!open_dir) {
        IFS_ERROR("opendir(%s) Failed(%s)\n", dir, strerror(errno));
        return 1;
    }
    while (const dirent* entry = readdir(open_dir.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        const _scan_dir_operation_ operation = callback(dir, entry->d_name, user);
        if (operation != SCAN_DIR_CONTINUE) {
            return operation == SCAN_DIR_ERROR ? 1 : 0;
        }
    }
    return 0;
}
