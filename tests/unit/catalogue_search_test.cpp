#include <malloc.h>

#include <random>

#include "store/catalogue_index.h"
#include "store/index_search.h"
#include "store/search.h"
#include "tests/support.h"

namespace
{

_ifs_rec_file_ Recording(int start_s, int length_s, int tag)
{
    _ifs_rec_file_ rec{};
    rec.start_tm = Utc(2020, 1, 1, 0, 0, start_s);
    rec.end_tm = Utc(2020, 1, 1, 0, 0, start_s + length_s);
    rec.file_size = tag;
    return rec;
}

std::string Tags(const Rec_file_list& list)
{
    std::string tags;
    for (const _ifs_rec_file_& rec : list) {
        tags += std::to_string(rec.file_size) + " ";
    }
    return tags;
}

} // namespace

TEST(CatalogueIndex, FindsWhatAWalkOfTheSortedListFindsWhateverComesAndGoes)
{
    std::mt19937 random(1);
    const auto below = [&random](int bound) {
        return static_cast<int>(random() % static_cast<unsigned>(bound));
    };
    Rec_file_list list, sorted;
    Catalogue_index index;
    for (int step = 0, start = 0; step < 5000; ++step) {
        if (list.size() > 300 || (!list.empty() && below(100) < 45)) {
            const int at = below(10) == 0 ? below(static_cast<int>(list.size())) : 0; // the oldest, as a rule
            index.Remove(list, std::next(list.begin(), at));
            sorted.erase(std::next(sorted.begin(), at));
        } else { // now and then late, in the second of another, or with an odd end
            start += below(300) == 0 ? 0 : 1 + below(3);
            const int length = below(50) == 0 ? 500 - below(1000) : 2;
            sorted.push_back(Recording(below(20) == 0 ? start - below(400) : start, length, step));
            Rec_file_list entry(1, sorted.back());
            index.Add(list, entry);
            Ifs_sort_rec_file_list(sorted);
        }
        ASSERT_EQ(Tags(list), Tags(sorted)) << step;
        _searcher_info_ search{};
        const int from = below(start + 10);
        search.start_tm = Utc(2020, 1, 1, 0, 0, from);
        search.end_tm = Utc(2020, 1, 1, 0, 0, from + below(20));
        std::string found, expected;
        bool go_on = true;
        index.Walk_from(list, search.start_tm, [&](Rec_file_list::iterator it) {
            found += Ifs_is_suitable_rec(&*it, &search, &go_on) ? Tags({*it}) : "";
            return go_on;
        });
        for (_ifs_rec_file_& rec : sorted) {
            expected += Ifs_is_suitable_rec(&rec, &search, &go_on) ? Tags({rec}) : "";
        }
        ASSERT_EQ(found, expected) << step;
    }
}

TEST(CatalogueIndex, OfOneOddEndCostsASearchOneBlockUntilItIsGone)
{
    const auto heap = [] { return mallinfo2().uordblks; };
    Rec_file_list list;
    Catalogue_index index;
    size_t after_a_while = 0;
    for (int i = 0; i < 100000; ++i) {
        Rec_file_list entry(1, Recording(i, i == 99100 ? 1 << 30 : 1, i));
        index.Add(list, entry);
        if (list.size() > 1000) {
            index.Remove(list, list.begin());
        }
        after_a_while = i == 2000 ? heap() : after_a_while;
    }
    EXPECT_LE(heap(), after_a_while + 1024);
    const auto visits = [&] {
        int count = 0;
        index.Walk_from(list, Utc(2020, 1, 1, 0, 0, 99999),
                        [&count](Rec_file_list::iterator) { return ++count > 0; });
        return count;
    };
    EXPECT_LE(visits(), 2 * 64);
    index.Remove(list, std::next(list.begin(), 100));
    EXPECT_LE(visits(), 64);
}

TEST(IndexSearch, GivesTheCatalogueThatAWalkFromTheFrontGives)
{
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        const unsigned seconds =
            1 + static_cast<unsigned>(random() % 40); // few: many start in the same second
        Rec_file_list index_list;
        for (int i = 0; i < 30; ++i) {
            index_list.push_back(Recording(static_cast<int>(random() % seconds), 1, i));
        }
        Ifs_sort_rec_file_list(index_list);
        Rec_file_list walked_list = index_list;
        Index_search search;
        search.Begin(index_list);
        Rec_file_list probed, walked;
        for (int file = 0; file < 40; ++file) {
            const _ifs_rec_file_ rec = Recording(static_cast<int>(random() % (seconds + 2)), 1, 1000 + file);
            const auto entry =
                std::find_if(walked_list.begin(), walked_list.end(), [&](const _ifs_rec_file_& item) {
                    return Ifsm_tm_cmp(&item.start_tm, &rec.start_tm) == 0;
                });
            if (entry != walked_list.end()) {
                walked.splice(walked.end(), walked_list, entry);
            } else {
                walked.push_back(rec);
            }
            if (!search.Find(rec.start_tm)) {
                probed.push_back(rec);
            }
        }
        Rec_file_list catalogue = search.Take_found(index_list);
        catalogue.splice(catalogue.end(), probed);
        Ifs_sort_rec_file_list(catalogue);
        Ifs_sort_rec_file_list(walked);
        ASSERT_EQ(Tags(catalogue), Tags(walked)) << round;
        ASSERT_EQ(Tags(index_list), Tags(walked_list)) << round;
    }
}
