#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "tests/interface/card_test.h"

namespace
{

constexpr int k_recordings = 16000; // about as many as a card's only directory has room for
constexpr size_t k_heap_most = 4 << 20;

size_t Heap_in_use()
{
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

/** Move a time of the first minute of a day, as an index file holds it, to another second of the day. */
void Put_time(std::string& item, size_t offset, int second)
{
    item[offset] = static_cast<char>(second % 60);
    item[offset + 4] = static_cast<char>(second / 60 % 60);
    item[offset + 8] = static_cast<char>(second / 3600);
}

} // namespace

class Heap : public CardTest
{
protected:
    /** Multiply a recording with its index item. The files stay empty: what an index lists is not opened. */
    void Fill(const std::string& name, const std::string& index_name)
    {
        std::string index = File(index_name);
        const std::string first = index.substr(15);
        for (int i = 1; i < k_recordings / 2; ++i) {
            const int start = i * 10;
            std::string item = first;
            Put_time(item, 4, start);
            Put_time(item, 48, start + 9);
            index += item;
            char clock[16];
            snprintf(clock, sizeof clock, "%02d%02d%02d", start / 3600, start / 60 % 60, start % 60);
            Put_file(std::string(name).replace(13, 6, clock), "");
        }
        Put_file(index_name, index);
    }
};

TEST_F(Heap, OfAFullCardsCatalogueFitsACamera)
{
    Fill(Record(At(0, 0), 9), "system_index_main");
    Fill(Record(At(0, 0), 9, IFS_STREAM_SUB), "system_index_sub");
    ASSERT_EQ(Ifsi_umount(), 0);

    const size_t before = Heap_in_use();
    size_t most = before;
    for (int mount = 1; mount <= 2; ++mount) { // the second beside the first one's catalogue
        ASSERT_EQ(Ifsi_mount(m_files.c_str()), 0);
        while (Ifsi_loading_rebuilding_index_file_flag()) {
            most = std::max(most, Heap_in_use());
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // counting the heap stops its use
        }
    }
    const size_t after = Heap_in_use();

    EXPECT_EQ(Counts(), "8000 8000");
    printf("heap: %zu bytes with %d recordings, at most %zu while they are catalogued\n", after - before,
           k_recordings, most - before);
    EXPECT_GE(after - before, k_recordings * sizeof(_ifs_rec_file_)) << "the measurement misses something";
    EXPECT_LE(std::max(most, after) - before, k_heap_most);
}
