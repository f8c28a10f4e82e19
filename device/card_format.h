#ifndef IFS_DEVICE_CARD_FORMAT_H
#define IFS_DEVICE_CARD_FORMAT_H

/** Erase the card: partition it, then format the partition. The card must not be mounted. @return 0 or -1 */
int Ifsod_format();

#endif
