#include <dlfcn.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <thread>

#include "interface/library_state.h"
#include "interface/workers.h"
#include "tests/interface/card_test.h"

using namespace std::chrono_literals;

namespace
{

std::atomic<bool> g_no_threads{false};

/* A rebuild in steps, where it takes or gives back memory; the frames have a turn in each. */
std::atomic<bool> g_in_steps{false};
std::atomic<bool> g_frames_turn{false};
std::atomic<int> g_steps{0};

void Step() noexcept
{
    char name[16] = "";
    if (g_in_steps && prctl(PR_GET_NAME, name) == 0 && strcmp(name, "brflt") == 0) {
        g_frames_turn = true;
        for (const auto begin = std::chrono::steady_clock::now(); g_in_steps && g_frames_turn;) {
            g_in_steps = std::chrono::steady_clock::now() < begin + 30s;
        }
        ++g_steps;
    }
}

} // namespace

void* operator new(size_t size)
{
    Step();
    return malloc(size);
}

void operator delete(void* memory) noexcept
{
    Step();
    free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    operator delete(memory);
}

/** The C library's, unless no thread shall be had. */
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* arg)
{
    using Function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_create"));
    return g_no_threads ? EAGAIN : next(thread, attributes, start, arg);
}

/** A call in a thread of its own. */
class Running_call
{
public:
    explicit Running_call(const std::function<void()>& call)
        : m_thread([this, call] {
              m_id = gettid();
              call();
              m_returned = true;
          })
    {
    }
    ~Running_call() { m_thread.join(); }

    /** Wait until it has returned. @return false after a minute */
    bool Returns() const
    {
        return Comes_about([this] { return m_returned.load(); });
    }
    /** Wait until it stands still or has returned. @return whether it stands still, as one does that waits
     * for a lock */
    bool Waits() const
    {
        return Comes_about([this] { return m_returned || Sleeps(); }) && !m_returned;
    }

private:
    static bool Comes_about(const std::function<bool()>& event)
    {
        const auto limit = std::chrono::steady_clock::now() + 60s;
        while (!event() && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
        }
        return event();
    }
    bool Sleeps() const
    {
        std::string state;
        std::getline(std::ifstream("/proc/self/task/" + std::to_string(m_id) + "/stat"), state);
        return state.find(") S ") != std::string::npos;
    }

    std::atomic<int> m_id{0};
    std::atomic<bool> m_returned{false};
    std::thread m_thread;
};

class Locks : public CardTest
{
protected:
    void SetUp() override
    {
        CardTest::SetUp();
        ASSERT_EQ(Ifsi_umount(), 0);
        hostcard_set_listing(""); // mount and format then end at once
    }
    void TearDown() override
    {
        hostcard_set_listing(nullptr);
        CardTest::TearDown();
    }
};

TEST_F(Locks, AreWaitedForExactlyAsTheInterfaceSays)
{
    struct Call {
        const char* name;
        unsigned locks;
        std::function<void()> run;
    };
    const unsigned i = LOCK_INTERFACE, w = LOCK_WRITE, r = LOCK_READ;
    tm t = At(10, 0);
    char path[128] = "x";
    unsigned char days[31];
    _ifs_rec_file_ rec{};
    _ifs_system_info_ info;
    const std::vector<Call> calls = {
        {"Ifsi_mount", i, [] { Ifsi_mount("/"); }},
        {"Ifsi_umount", i, [] { Ifsi_umount(); }},
        {"Ifsi_format", i, [] { Ifsi_format(); }},
        {"Ifsi_is_full", i, [] { Ifsi_is_full(); }},
        {"Ifsi_get_system_info", i, [&] { Ifsi_get_system_info(&info); }},
        {"Ifsi_create", i | w, [] { Create(At(10, 0)); }},
        {"Ifsi_write", w, [] { Ifsi_write(99, nullptr, 0, nullptr, 0, IFS_FRAME_I, 0); }},
        {"Ifsi_close", i | w | r, [] { Ifsi_close(99, nullptr); }},
        {"Ifsi_open", i | r, [&] { Ifsi_open(&rec); }},
        {"Ifsi_open_v2", i | r, [&] { Ifsi_open_v2(&t, IFS_STREAM_MAIN); }},
        {"Ifsi_open_v3", i | r, [&] { Ifsi_open_v3(path); }},
        {"Ifsi_stat", r, [&] { Ifsi_stat(99, &rec); }},
        {"Ifsi_read", r,
         [] { Ifsi_read(99, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }},
        {"Ifsi_read_v2", r, [] { Ifsi_read_v2(99, nullptr, 0, nullptr, nullptr); }},
        {"Ifsi_read_standard", r, [] { Ifsi_read_standard(99, nullptr, 0); }},
        {"Ifsi_seek", r, [] { Ifsi_seek(99, 0, SEEK_SET); }},
        {"Ifsi_tseek", r, [] { Ifsi_tseek(99, 0); }},
        {"Ifsi_get_file_name", 0, [&] { Ifsi_get_file_name(&rec, path); }},
        {"Ifsi_get_file_name_v2", r, [&] { Ifsi_get_file_name_v2(&t, IFS_STREAM_SUB, path); }},
        {"Ifsi_get_latest_rec_time", i, [&] { Ifsi_get_latest_rec_time(&t); }},
        {"Ifsi_find_open", i, [&] { Ifsi_find_open(&t, &t, IFS_STREAM_MAIN); }},
        {"Ifsi_find_close", i, [] { Ifsi_find_close(99); }},
        {"Ifsi_find_get_count", i, [] { Ifsi_find_get_count(99); }},
        {"Ifsi_find_next", i, [] { Ifsi_find_next(99, 1, nullptr); }},
        {"Ifsi_get_rec_calendar", i, [&] { Ifsi_get_rec_calendar(&t, &t, IFS_STREAM_MAIN, days); }},
        {"Ifsi_get_file_number", i, [] { Counts(); }},
        {"Ifsi_loading_rebuilding_index_file_flag", 0, [] { Ifsi_loading_rebuilding_index_file_flag(); }},
        {"Ifsi_set_overlap", 0, [] { Ifsi_set_overlap(1); }},
        {"Ifsi_set_debug_level", 0, [] { Ifsi_set_debug_level(0); }},
    };
    const std::pair<unsigned, CIfsThreadLock*> locks[] = {
        {i, pgIfs_interface_tl}, {w, pgIfs_write_tl}, {r, pgIfs_read_tl}};
    for (const auto& [held, lock] : locks) {
        for (const Call& call : calls) {
            lock->Tl_lock(nullptr);
            const Running_call running(call.run);
            EXPECT_TRUE((call.locks & held) != 0 ? running.Waits() : running.Returns())
                << call.name << " while lock " << held << " is held";
            lock->Tl_unlock(nullptr);
        }
    }
}

TEST_F(Locks, AreTakenInOrder)
{
    pgIfs_read_tl->Tl_lock(nullptr);
    const Running_call close([] { Ifsi_close(99, nullptr); });
    EXPECT_TRUE(close.Waits()); // for the read lock, with the interface and the write lock
    const Running_call write([] { Ifsi_write(99, nullptr, 0, nullptr, 0, IFS_FRAME_I, 0); });
    const Running_call query([] { Ifsi_find_get_count(99); });
    EXPECT_TRUE(write.Waits());
    EXPECT_TRUE(query.Waits());
    pgIfs_read_tl->Tl_unlock(nullptr);
    EXPECT_TRUE(close.Returns() && write.Returns() && query.Returns());
}

TEST_F(Locks, PassFromTheMountToTheRebuildWorker)
{
    hostcard_set_listing(nullptr);
    // The worker prints before it begins: while standard output is held here, it stands still.
    Ifsi_set_debug_level(IFS_DEBUG_TRACE);
    testing::internal::CaptureStdout();
    flockfile(stdout);
    const Running_call mount([this] { EXPECT_EQ(Ifsi_mount(m_files.c_str()), 0); });
    EXPECT_TRUE(mount.Returns());
    const Running_call count([] { Counts(); });
    EXPECT_TRUE(count.Waits());
    EXPECT_EQ(Ifsi_loading_rebuilding_index_file_flag(), 1);
    EXPECT_EQ(Ifsi_write(99, nullptr, 0, nullptr, 0, IFS_FRAME_I, 0), -1); // does not wait
    funlockfile(stdout);
    EXPECT_TRUE(count.Returns());
    EXPECT_EQ(Ifsi_loading_rebuilding_index_file_flag(), 0);
    Ifsi_set_debug_level(0);
    testing::internal::GetCapturedStdout();
}

TEST_F(Locks, AreFreeAgainWhenNoRebuildWorkerCanBeStarted)
{
    hostcard_set_listing(nullptr);
    Mount();
    Record(At(10, 0));
    ASSERT_EQ(Ifsi_umount(), 0);
    g_no_threads = true;
    EXPECT_EQ(Ifst_create_detached_thread(Build_rec_file_list_thread, nullptr), 0);
    EXPECT_EQ(Ifsi_mount(m_files.c_str()), 0);
    g_no_threads = false;
    EXPECT_EQ(Ifsi_loading_rebuilding_index_file_flag(), 0);
    EXPECT_EQ(Counts(), "1 0");
}

TEST_F(Locks, NoFrameWaitsForWhatARebuildDoesToTheCatalogue)
{
    hostcard_set_listing(nullptr);
    Mount();
    Record(At(10, 0));
    Record(At(11, 0), 10, IFS_STREAM_SUB);
    g_in_steps = true;
    std::thread frames([] {
        tm t = At(10, 0);
        char path[128];
        while (g_in_steps) {
            if (g_frames_turn) {
                Ifsi_write(99, nullptr, 0, nullptr, 0, IFS_FRAME_I, 0);
                Ifsi_read_standard(99, nullptr, 0);
                Ifsi_get_file_name_v2(&t, IFS_STREAM_MAIN, path);
                g_frames_turn = false;
            }
        }
    });
    Mount();
    EXPECT_TRUE(g_in_steps) << "a frame still waits in step " << g_steps;
    EXPECT_GE(g_steps, 4); // two recordings freed, two read
    g_in_steps = false;
    frames.join();
}

TEST(Library, StaysWhereItsWorkersRunWhenItsHostUnloadsIt)
{
    void* const library = dlopen(LIBIFS, RTLD_LAZY);
    ASSERT_NE(library, nullptr) << dlerror();
    reinterpret_cast<int (*)()>(dlsym(library, "Ifsi_init"))();
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_NE(dlopen(LIBIFS, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "its worker wakes where no code is";
}
