#ifndef IFS_STORE_REC_FILE_LIST_H
#define IFS_STORE_REC_FILE_LIST_H

#include <list>
#include <map>

#include "ifs.h"

using Rec_file_list = std::list<_ifs_rec_file_>;
/** Per stream, recordings in the order of their start. A stream may be absent or have an empty list. */
using Rec_file_list_table = std::map<_ifs_stream_type_, Rec_file_list>;

/** Order of a stream's list: true when a starts no later than b. */
bool Ifs_rec_file_sort(_ifs_rec_file_& a, _ifs_rec_file_& b);

/**
 * Sort a list by start time; those that start in the same second come out in reverse.
 *
 * @return whether each entry starts in a later second than the one before it
 */
bool Ifs_sort_rec_file_list(Rec_file_list& list);

/** Set an entry to its defaults: what is unknown is 255 in a byte, -1 in a size, else 0. */
void Ifs_rec_file_info_init(_ifs_rec_file_* rec);

/** Copy the element at it into *rec (to_rec), or *rec into the element. */
void Ifs_rec_file_info_copy(Rec_file_list::iterator& it, _ifs_rec_file_* rec, bool to_rec);

/** Dump an entry under IFS_DEBUG_DETAIL; tag may be null. */
void Ifs_print_rec_file_info(const char* tag, int number, _ifs_rec_file_* rec);
void Ifs_print_rec_file_info(const char* tag, int number, Rec_file_list::iterator& it);

#endif
