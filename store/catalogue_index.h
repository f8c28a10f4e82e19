#ifndef IFS_STORE_CATALOGUE_INDEX_H
#define IFS_STORE_CATALOGUE_INDEX_H

#include <vector>

#include "store/catalogue.h"
#include "util/calendar_time.h"

/**
 * What is known of a stream's sorted list beside its entries, so that neither a search nor a close has to
 * walk all of it. Who changes the list says so here.
 */
class Catalogue_index
{
public:
    /** Sort the list. */
    void Sort(Rec_file_list& list);
    /** The list's last entry was added, and starts in a later second than the others. */
    void Extend(Rec_file_list& list);
    /** The list is about to lose an entry. */
    void Forget(Rec_file_list& list, Rec_file_list::iterator position);

    /** Whether each entry is known to start in a later second than the one before it. */
    bool Ascends() const { return m_ascends; }

    /** Where a walk may begin that looks for entries that end at t or later: none in front of it does. */
    Rec_file_list::iterator Walk_from(Rec_file_list& list, const tm& t) const;

private:
    /** Every so many entries one is marked. */
    struct Mark {
        Rec_file_list::iterator position;
        Tm_key latest_end; ///< of all entries in front of it, those included that have been deleted since
    };
    void Append(Rec_file_list::iterator position);

    std::vector<Mark> m_marks;
    unsigned m_since_mark = 0; ///< entries from the last mark on
    Tm_key m_latest_end{};     ///< of all entries that there were
    bool m_ascends = false;
};

#endif
