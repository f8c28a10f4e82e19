#include "store/catalogue_index.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace
{

constexpr unsigned k_block_entries = 64;

} // namespace

void Catalogue_index::Sort(Rec_file_list& list)
{
    m_ascends = Ifs_sort_rec_file_list(list);
    Make_blocks(list);
}

void Catalogue_index::Make_blocks(Rec_file_list& list)
{
    m_blocks.clear();
    for (auto position = list.begin(); position != list.end() && Append(position); ++position) {
    }
}

/** Enter the entry behind those in the blocks. @return whether memory sufficed */
bool Catalogue_index::Append(Rec_file_list::iterator position)
{
    if (m_blocks.empty() || m_blocks.back().entries >= k_block_entries) {
        try {
            m_blocks.push_back({position, {}, 0});
        } catch (const std::bad_alloc&) {
            m_blocks.clear();
            m_ascends = false; // so that the next addition makes them anew
            return false;
        }
    }
    Block& last = m_blocks.back();
    last.latest_end = std::max(last.latest_end, Ifsm_tm_key(&position->end_tm));
    ++last.entries;
    return true;
}

void Catalogue_index::Add(Rec_file_list& list, Rec_file_list& entry)
{
    const auto added = entry.begin();
    const bool is_latest = list.empty() || Ifsm_tm_cmp(&list.back().start_tm, &added->start_tm) < 0;
    const auto place = is_latest || !m_ascends ? list.end() : First_from(list, added->start_tm);
    list.splice(place, entry);
    if (!m_ascends) {
        Sort(list);
    } else if (is_latest) {
        Append(added);
    } else {
        // In front of an entry of the same second, as a sort puts it.
        m_ascends = Ifsm_tm_cmp(&place->start_tm, &added->start_tm) != 0;
        Make_blocks(list);
    }
}

void Catalogue_index::Remove(Rec_file_list& list, Rec_file_list::iterator position)
{
    for (size_t i = 0; i < m_blocks.size(); ++i) {
        const auto end = End_of(list, i);
        bool is_here = false;
        Tm_key latest_end{}; // of the others
        for (auto it = m_blocks[i].first; it != end; ++it) {
            if (it == position) {
                is_here = true;
            } else {
                latest_end = std::max(latest_end, Ifsm_tm_key(&it->end_tm));
            }
        }
        if (is_here) {
            Block& block = m_blocks[i];
            block.latest_end = latest_end;
            block.first = block.first == position ? std::next(position) : block.first;
            if (--block.entries == 0) {
                m_blocks.erase(m_blocks.begin() + static_cast<std::ptrdiff_t>(i));
            }
            break;
        }
    }
    list.erase(position);
}

Rec_file_list::iterator Catalogue_index::First_from(Rec_file_list& list, const tm& t) const
{
    const Tm_key wanted = Ifsm_tm_key(&t);
    const auto starts_before = [&wanted](const _ifs_rec_file_& rec) {
        return Ifsm_tm_key(&rec.start_tm) < wanted;
    };
    const auto block = std::partition_point(m_blocks.begin(), m_blocks.end(),
                                            [&](const Block& b) { return starts_before(*b.first); });
    const auto begin = block == m_blocks.begin() ? list.begin() : std::prev(block)->first;
    return std::find_if_not(begin, list.end(), starts_before);
}
