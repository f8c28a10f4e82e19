#ifndef IFS_STORE_CATALOGUE_INDEX_H
#define IFS_STORE_CATALOGUE_INDEX_H

#include <vector>

#include "store/rec_file_list.h"
#include "util/calendar_time.h"

/**
 * What is known of a stream's sorted list beside its entries, so that neither a search nor a close walks all
 * of it: the latest end in each block of entries. Who changes the list does it here.
 *
 * Without the memory for blocks there are none, until an addition finds it again; meanwhile a walk visits
 * all of the list.
 */
class Catalogue_index
{
public:
    /** Sort a list. */
    void Sort(Rec_file_list& list);
    /** Move the one element of entry to its place in the list. */
    void Add(Rec_file_list& list, Rec_file_list& entry);
    void Remove(Rec_file_list& list, Rec_file_list::iterator position);

    /** @return the first entry that does not start before t, or the list's end */
    Rec_file_list::iterator First_from(Rec_file_list& list, const tm& t) const;

    /**
     * Visit entries in order, until visit answers false. Those that end before t may be left out.
     */
    template <typename Visit>
    void Walk_from(Rec_file_list& list, const tm& t, Visit visit) const
    {
        const Tm_key wanted = Ifsm_tm_key(&t);
        size_t block = 0;
        do {
            if (block < m_blocks.size() && m_blocks[block].latest_end < wanted) {
                continue;
            }
            const auto end = End_of(list, block);
            for (auto it = block < m_blocks.size() ? m_blocks[block].first : list.begin(); it != end; ++it) {
                if (!visit(it)) {
                    return;
                }
            }
        } while (++block < m_blocks.size());
    }

private:
    /** Entries that follow each other, up to the first of the next block. */
    struct Block {
        Rec_file_list::iterator first;
        Tm_key latest_end;
        unsigned entries;
    };
    Rec_file_list::iterator End_of(Rec_file_list& list, size_t block) const
    {
        return block + 1 < m_blocks.size() ? m_blocks[block + 1].first : list.end();
    }
    void Make_blocks(Rec_file_list& list);
    bool Append(Rec_file_list::iterator position);

    std::vector<Block> m_blocks; ///< of the whole list, or none
    bool m_ascends = false;      ///< each entry starts in a later second than the one before it
};

#endif
