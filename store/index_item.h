#ifndef IFS_STORE_INDEX_ITEM_H
#define IFS_STORE_INDEX_ITEM_H

#include "ifs.h"

constexpr char IFS_INDEX_MAGIC[] = "system_index_v1";
constexpr int IFS_INDEX_MAGIC_BYTES = 15;
constexpr char IFS_ITEM_MAGIC[] = "ITEM";
constexpr int IFS_ITEM_MAGIC_BYTES = 4;
constexpr int IFS_ITEM_BYTES = 124; ///< of the entry image behind the item magic

/** Write the image of an entry, as an index file holds it. */
void Ifs_put_index_item(const _ifs_rec_file_& rec, unsigned char* image);

/** Read the image of an entry; any bytes give an entry. */
_ifs_rec_file_ Ifs_get_index_item(const unsigned char* image);

#endif
