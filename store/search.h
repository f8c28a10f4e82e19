#ifndef IFS_STORE_SEARCH_H
#define IFS_STORE_SEARCH_H

#include "recfile/rec_file.h"
#include "store/searcher_info.h"

/**
 * Whether an entry overlaps the range of a search, bounds included. The stream is not looked at.
 *
 * @param go_on  receives false when the entry, and so each that starts later, lies after the range
 */
bool Ifs_is_suitable_rec(_ifs_rec_file_* rec, _searcher_info_* search, bool* go_on);
/** The same for the element at it, which is copied into *out when it matches. */
bool Ifs_is_suitable_rec(Rec_file_list::iterator& it, _ifs_rec_file_* out, _searcher_info_* search,
                         bool* go_on);
/** Whether a recording being written is of the search's stream and range; *out is then its full entry. */
bool Ifs_is_suitable_rec(CIpcRecFile* file, _ifs_rec_file_* out, _searcher_info_* search);

/** Mark in the 31 days the local days on which rec starts or ends within the range. */
void Ifs_calendar_calculate(_ifs_rec_file_* rec, unsigned char* days, tm* start, tm* end);

/** Where a time lies against a span. */
enum {
    IFRF_AT_START = 1,
    IFRF_BEFORE_START = 2,
    IFRF_AT_END = 3,
    IFRF_BETWEEN = 4,
    IFRF_AFTER_END = 5,
};
/** @return one of these; a time at both ends is at the start */
int Ifrf_tm_compare(const tm* t, const tm* start, const tm* end);

#endif
