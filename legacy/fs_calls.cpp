#include <cstring>
#include <string>

#include "device/card_scan.h"
#include "ifs_legacy.h"

int fs_probe(char* device, int* count)
{
    std::string found;
    if (Ifsscs_scan_sd_card(found) != 0) {
        return -1;
    }
    strcpy(device, found.c_str());
    *count = 1;
    return 0;
}

int fs_getgrp(void)
{
    return 3;
}

int fs_earliest(void)
{
    return 0;
}
