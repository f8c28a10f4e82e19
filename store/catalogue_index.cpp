#include "store/catalogue_index.h"

#include <algorithm>
#include <iterator>

namespace
{

constexpr unsigned k_entries_a_mark = 64;

} // namespace

void Catalogue_index::Sort(Rec_file_list& list)
{
    m_ascends = false; // the next addition sorts again should memory run out here
    const bool ascends = Ifs_sort_rec_file_list(list);
    m_marks.clear();
    m_latest_end = {};
    for (auto position = list.begin(); position != list.end(); ++position) {
        Append(position);
    }
    m_ascends = ascends;
}

void Catalogue_index::Extend(Rec_file_list& list)
{
    Append(std::prev(list.end()));
}

void Catalogue_index::Append(Rec_file_list::iterator position)
{
    const Tm_key latest_before = m_latest_end;
    m_latest_end = std::max(latest_before, Ifsm_tm_key(&position->end_tm));
    if (m_marks.empty() || m_since_mark == k_entries_a_mark) {
        m_marks.push_back({position, latest_before});
        m_since_mark = 0;
    }
    ++m_since_mark;
}

void Catalogue_index::Forget(Rec_file_list& list, Rec_file_list::iterator position)
{
    for (Mark& mark : m_marks) {
        if (mark.position == position) {
            mark.position = std::next(position);
        }
    }
    // Two marks meet when all between them is gone; the first one knows better what lies in front.
    const auto met = [](const Mark& a, const Mark& b) { return a.position == b.position; };
    m_marks.erase(std::unique(m_marks.begin(), m_marks.end(), met), m_marks.end());
    if (!m_marks.empty() && m_marks.back().position == list.end()) {
        m_marks.pop_back();
        m_since_mark = k_entries_a_mark; // the next entry gets a mark
    }
}

Rec_file_list::iterator Catalogue_index::Walk_from(Rec_file_list& list, const tm& t) const
{
    const Tm_key wanted = Ifsm_tm_key(&t);
    const auto too_late = std::partition_point(m_marks.begin(), m_marks.end(),
                                               [&](const Mark& mark) { return mark.latest_end < wanted; });
    return too_late - m_marks.begin() < 2 ? list.begin() : std::prev(too_late)->position;
}
