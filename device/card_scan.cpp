#include "device/card_scan.h"

#include <cstring>

#include "device/owned.h"
#include "util/log.h"

namespace
{

constexpr char k_card_dir[] = "/dev/hd/";

bool Is_whole_disk(const char* name)
{
    return strlen(name) == 3 && strncmp(name, "sd", 2) == 0 && name[2] >= 'a' && name[2] <= 'z';
}

} // namespace

int Ifsscs_scan_sd_card(std::string& dev)
{
    dev.clear();
    const Owned_dir dir(opendir(k_card_dir));
    if (!dir) {
        IFS_ERROR("opendir (%s) Failed\n", k_card_dir);
        return -1;
    }
    while (const dirent* entry = readdir(dir.get())) {
        if (Is_whole_disk(entry->d_name)) {
            dev = std::string(k_card_dir) + entry->d_name;
            return 0;
        }
    }
    return -1;
}
