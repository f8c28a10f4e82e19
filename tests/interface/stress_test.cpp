#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "tests/interface/card_test.h"

/** Every call against every other; the sanitizers judge. */
class Stress : public CardTest
{
protected:
    /** Run bodies, each of which goes on until m_stop, side by side. */
    void Run_together(const std::vector<std::function<void()>>& bodies)
    {
        std::vector<std::thread> threads;
        for (const auto& body : bodies) {
            threads.emplace_back([this, &body] {
                while (!m_stop) {
                    body();
                }
            });
        }
        std::this_thread::sleep_for(std::chrono::seconds(4));
        m_stop = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    std::atomic<bool> m_stop{false};
};

TEST_F(Stress, EveryCallBesideEveryOther)
{
    for (int i = 0; i < 20; ++i) {
        Record(At(8, i), 2);
        Record(At(8, i), 2, IFS_STREAM_SUB);
    }
    Printed([] { Ifsi_init(); });
    __atomic_store_n(&gFs_max_file_number, 45, __ATOMIC_RELAXED); // the library's worker reads it
    tm from = At(0, 0);
    tm to = At(23, 59);
    const auto record = [this](int stream) {
        for (int i = 0; !m_stop; ++i) {
            const int fd = Create(At(9 + i / 3600, i / 60 % 60, i % 60), stream);
            for (int frame = 0; frame < 40 && fd > 0; ++frame) {
                std::string bytes = Video_frame(frame % 10 == 0);
                Ifsi_write(fd, bytes.data(), 10, bytes.data() + 10, static_cast<int>(bytes.size()) - 10,
                           frame % 10 == 0 ? IFS_FRAME_I : IFS_FRAME_P, frame * 100000ULL);
            }
            Ifsi_close(fd, nullptr);
        }
    };
    const auto play = [&](int stream) {
        char buf[4096];
        _ifs_rec_file_ rec;
        for (_ifs_rec_file_& found : Search(stream)) {
            const int fd = Ifsi_open(&found);
            while (Read(fd).length > 0) {
            }
            Ifsi_tseek(fd, 1570900643);
            Ifsi_read_standard(fd, buf, 100);
            Ifsi_stat(fd, &rec);
            Ifsi_close(fd, nullptr);
        }
    };
    const std::vector<std::function<void()>> bodies = {
        [&] { record(IFS_STREAM_MAIN); },
        [&] { record(IFS_STREAM_SUB); },
        [&] { play(IFS_STREAM_MAIN); },
        [&] { play(IFS_STREAM_SUB); },
        [&] {
            tm t = At(8, 3);
            char path[128];
            _ifs_rec_file_ rec{};
            _ifs_system_info_ info;
            unsigned char days[31];
            Ifsi_get_file_name_v2(&t, IFS_STREAM_MAIN, path);
            Ifsi_get_file_name(&rec, path);
            for (int fd = 1; fd <= 4; ++fd) {
                Ifsi_stat(fd, &rec);
            }
            Ifsi_get_system_info(&info);
            Ifsi_get_rec_calendar(&from, &to, IFS_STREAM_MAIN, days);
            Ifsi_get_latest_rec_time(&t);
            Ifsi_is_full();
        },
        [&] {
            for (int i = 0; !m_stop; ++i) {
                Ifsi_set_debug_level(i % 8 == 0 ? IFS_DEBUG_TRACE : 0);
                Ifsi_set_overlap(i % 4 != 0);
                Ifsi_umount();
                Ifsi_mount(m_files.c_str());
                Ifsi_loading_rebuilding_index_file_flag();
                tm t = At(8, 1);
                Ifsi_close(Ifsi_open_v2(&t, IFS_STREAM_SUB), nullptr);
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        },
    };
    testing::internal::CaptureStdout();
    Run_together(bodies);
    Ifsi_set_debug_level(0);
    const std::string printed = testing::internal::GetCapturedStdout();
    // No message lies inside another: each prefix begins a line or follows a text's own blank line.
    for (size_t at = printed.find("[func:"); at != std::string::npos; at = printed.find("[func:", at + 1)) {
        ASSERT_TRUE(at == 0 || printed[at - 1] == '\n') << printed.substr(at > 200 ? at - 200 : 0, 300);
    }
    Ifsi_set_overlap(0);
    __atomic_store_n(&gFs_max_file_number, 0, __ATOMIC_RELAXED);
    Mount();
    EXPECT_NE(Counts(), "0 0");
}
