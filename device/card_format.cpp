#include "device/card_format.h"

#include <string>

#include "device/card_scan.h"
#include "device/fat32_format.h"
#include "device/partition.h"
#include "util/log.h"

int Ifsod_format()
{
    std::string dev;
    if (Ifsscs_scan_sd_card(dev) != 0) {
        IFS_ERROR("Ifsscs_scan_sd_card Failed1\n");
        return -1;
    }
    if (Ifsf_fdisk(dev.c_str()) != 0) {
        IFS_ERROR("Ifsf_fdisk Failed(%s)\n", dev.c_str());
        return -1;
    }
    // The kernel has read a new partition table and may have given the disk another name.
    if (Ifsscs_scan_sd_card(dev) != 0) {
        IFS_ERROR("Ifsscs_scan_sd_card Failed2\n");
        return -1;
    }
    if (Ifsf_format((dev + "1").c_str()) != 0) {
        IFS_ERROR("Ifsf_format Failed\n");
        return -1;
    }
    return 0;
}
