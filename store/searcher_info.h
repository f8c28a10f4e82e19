#ifndef IFS_STORE_SEARCHER_INFO_H
#define IFS_STORE_SEARCHER_INFO_H

#include "store/rec_file_list.h"

/** One open search: the range, and copies of the entries that matched when it was opened. */
struct _searcher_info_ {
    tm start_tm;
    tm end_tm;
    _ifs_stream_type_ stream_type;
    Rec_file_list rec_file_list;     ///< the catalogue's matches, then those being written, by handle
    Rec_file_list::iterator cur_pos; ///< next entry to hand out
};

#endif
