#ifndef IFS_STORE_INDEX_SEARCH_H
#define IFS_STORE_INDEX_SEARCH_H

#include <vector>

#include "store/rec_file_list.h"
#include "util/calendar_time.h"

/** Finds the entries of files in a stream's index list, whatever order the files come in, each entry once. */
class Index_search
{
public:
    /** Begin with a list, which is sorted and does not change before Take_found(). */
    void Begin(Rec_file_list& list);
    /** Find the first entry with this start that was not found before. @return whether there is one */
    bool Find(const tm& start);
    /** Move the entries that were found out of the list, and end the search. @return them, sorted */
    Rec_file_list Take_found(Rec_file_list& list);

private:
    size_t First_not_before(const Tm_key& start) const;

    /* An element an entry, in the order of the list. */
    std::vector<Tm_key> m_starts;
    std::vector<char> m_found;
    size_t m_next = 0; ///< behind the entry that was found last
};

#endif
