#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <new>

#include "interface/library_state.h"
#include "tests/interface/card_test.h"

namespace fs = std::filesystem;

namespace
{

std::atomic<bool> g_counts{false};
std::atomic<int> g_left{0}; // allocations up to the one that fails

} // namespace

/* The memory of the host, which serves the library, its container and the card as well. */
void* operator new(size_t bytes)
{
    void* const memory = g_counts && g_left.fetch_sub(1) == 1 ? nullptr : malloc(bytes);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept
{
    free(memory);
}
void operator delete(void* memory, size_t) noexcept
{
    free(memory);
}

class Memory : public CardTest
{
protected:
    Memory() { setenv("TEST_TMPDIR", "/dev/shm/", 0); } // for the syncs of hundreds of days

    /** Make a call. When memory fails in it, it may fail once. @return its result */
    int Step(const std::function<int()>& call, bool may_fail = true)
    {
        const int left = g_left;
        g_counts = true;
        int result = call();
        g_counts = false;
        m_struck = left > 0 && g_left <= 0;
        _ifs_rec_file_ rec;
        Ifsi_write(99, nullptr, 0, nullptr, 0, IFS_FRAME_I, 0); // returns when the lock that it takes is free
        Ifsi_stat(99, &rec);
        Ifsi_find_get_count(99);
        if (result < 0 && m_struck && may_fail) {
            result = call();
        }
        EXPECT_GE(result, 0);
        return result;
    }

    /** End a recording. */
    void Close(int fd, tm end)
    {
        Step([&] { return Ifsi_close(fd, &end); }, false);
        if (m_struck) { // the next mount finds what was not entered
            Remount();
        }
    }

    void Write(int fd, _ifs_frame_type_ type, unsigned second)
    {
        std::string frame = Video_frame(type == IFS_FRAME_I);
        const auto size = static_cast<int>(frame.size());
        Step([&] { return Ifsi_write(fd, frame.data(), size, nullptr, 0, type, second * 1000000ULL); });
    }

    /** Read a playback to its end. @return types and times of the frames */
    std::string Read(int fd)
    {
        std::string frames = "\n";
        char frame[4096];
        _ifs_frame_type_ type;
        int time = 0;
        while (Step([&] { return Ifsi_read_v2(fd, frame, sizeof frame, &type, &time); }) > 0) {
            frames += std::to_string(type) + "@" + std::to_string(time % 60) + " ";
        }
        return frames;
    }

    std::string Day();

    std::map<std::string, std::string> m_first; ///< files that a day begins with
    bool m_struck = false;                      ///< memory failed in the last step
};

/** Make each call, on a card with the first files. @return what the calls showed */
std::string Memory::Day()
{
    for (const auto& entry : fs::directory_iterator(m_files)) {
        fs::remove(entry);
    }
    for (const auto& [name, bytes] : m_first) {
        Put_file(name, bytes);
    }
    Step([] { return Ifsi_umount(); });
    Step([&] {
        const int result = Ifsi_mount(m_files.c_str());
        EXPECT_EQ(hostcard_is_mounted(), result == 0);
        return Ifsi_find_get_count(99) + result; // waits for the catalogue
    });
    if (m_struck) { // the next mount finds what there was no memory for
        EXPECT_GE((Starts(IFS_STREAM_MAIN) + Starts(IFS_STREAM_SUB)).size(), strlen("08:00:0009:00:00"));
        Remount();
    }
    tm early = At(0, 0), late = At(23, 59), ten = At(10, 0), latest;
    int fd = Step([&] { return Create(ten); });
    Write(fd, IFS_FRAME_I, 0);
    Write(fd, IFS_FRAME_P, 1);
    Write(fd, IFS_FRAME_I, 2);
    char path[128];
    Step([&] { return Ifsi_get_file_name_v2(&ten, IFS_STREAM_MAIN, path); });
    int playback = Step([&] { return Ifsi_open_v3(path); });
    std::string seen = Read(playback);
    Write(fd, IFS_FRAME_I, 3);
    seen += Read(playback); // it has grown
    Step([&] { return Ifsi_close(playback, nullptr); }, false);

    _ifs_rec_file_ found[4];
    const int search = Step([&] { return Ifsi_find_open(&early, &late, IFS_STREAM_MAIN); });
    for (int left = Step([&] { return Ifsi_find_next(search, 4, found); }); left-- > 0;) {
        seen += Text(found[left].end_tm);
    }
    Ifsi_find_close(search);
    unsigned char days[31];
    _ifs_system_info_ info;
    Step([&] { return Ifsi_get_rec_calendar(&early, &late, IFS_STREAM_SUB, days); });
    Step([&] { return Ifsi_get_system_info(&info); });
    Step([] { return Ifsi_is_full(); });
    Step([&] { return Ifsi_get_latest_rec_time(&latest); });
    seen += std::to_string(days[11] + info.formatted) + Text(latest);
    Close(fd, At(10, 0, 3));

    playback = Step([&] { return Ifsi_open(&found[0]); });
    Step([&] { return Ifsi_stat(playback, &found[1]); });
    Step([&] { return Ifsi_get_file_name(&found[1], path); });
    Step([&] { return Ifsi_tseek(playback, static_cast<unsigned>(timegm(&found[1].start_tm)) + 2); });
    seen += Read(playback);
    Step([&] { return Ifsi_close(playback, nullptr); }, false);
    playback = Step([&] { return Ifsi_open_v2(&ten, IFS_STREAM_MAIN); });
    seen += Read(playback);
    Ifsi_close(playback, nullptr);
    fd = Step([&] { return Create(ten, IFS_STREAM_SUB); });
    Write(fd, IFS_FRAME_I, 0); // its file is empty up to the close
    Close(fd, ten);
    Step([] {
        const Held_interface held;
        IFS_FROM_STORE(return, Ifs_overlap())
    });
    Remount();
    return seen + Starts(IFS_STREAM_MAIN) + Starts(IFS_STREAM_SUB) +
           std::to_string(File("system_index_main").size() + File("system_index_sub").size());
}

TEST_F(Memory, ThatFailsOnceLosesNothingWhicheverCallItWas)
{
    Record(At(8, 0), 3);
    Record_until(At(9, 0), At(9, 5));
    Record(At(9, 0), 3, IFS_STREAM_SUB);
    fs::remove(m_files + "/system_index_sub"); // those are probed
    for (const auto& entry : fs::directory_iterator(m_files)) {
        m_first[entry.path().filename()] = File(entry.path().filename());
    }
    const std::string undisturbed = Day();
    int nth = 0;
    do {
        g_left = ++nth;
        ASSERT_EQ(Day(), undisturbed) << "after allocation " << nth;
    } while (g_left <= 0);
    printf("%d allocations failed\n", nth - 1);
    EXPECT_GT(nth, 100) << "the calls take memory elsewhere";
}
