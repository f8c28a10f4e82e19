// What may run beside writing on the same handle, for ThreadSanitizer to judge, too.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/container/camera.h"

using namespace camera;

TEST(Beside, InfoBesideWritingAndReadingIsNeverTorn)
{
    Folder folder;
    const Frames frames = shoot();
    Mp4 recording(folder.file(), KT_MP4_CREATE);
    std::atomic<bool> done{false};
    int newest = 0;
    bool sound = true;
    std::thread observer([&] {
        while (!done) {
            kt_mfile_info_t info = recording.info();
            sound = sound && info.duration >= newest && info.width == 320;
            newest = info.duration;
        }
    });
    for (const Frame& frame : frames) {
        recording.write(frame);
        if (frame.kind == KT_MP4_VIDEO_KEY)
            recording.flush();
    }
    done = true;
    observer.join();
    EXPECT_TRUE(sound);
    EXPECT_EQ(recording.info().duration, 4040);
}
