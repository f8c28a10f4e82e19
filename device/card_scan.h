#ifndef IFS_DEVICE_CARD_SCAN_H
#define IFS_DEVICE_CARD_SCAN_H

#include <string>

/**
 * Find the card's whole-disk device: the first entry of /dev/hd/, in listing order, named sda to sdz.
 *
 * @param dev  receives the device's path; empty when there is none
 * @return 0, or -1: no such entry, or the directory cannot be opened (reported)
 */
int Ifsscs_scan_sd_card(std::string& dev);

#endif
