#ifndef IFS_TESTS_INTERFACE_CARD_TEST_H
#define IFS_TESTS_INTERFACE_CARD_TEST_H

#include <string>
#include <vector>

#include "hostcard.h"
#include "ifs.h"
#include "tests/support.h"

/** A time by hour, minute and second on the day of most tests. */
inline tm At(int hour, int minute, int second = 0, int day = 12)
{
    return Utc(2019, 10, day, hour, minute, second);
}

/** An H.264 access unit, a key frame with its parameter sets or another, of about the given payload. */
std::string Video_frame(bool key, size_t bytes = 100);

/** A new virtual card, formatted and mounted, with sleeps shortened and the library silent but for errors and
    what it always prints. */
class CardTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /** Mount and wait for the catalogue. */
    void Mount();
    /** Unmount and mount again. */
    void Remount();

    /** Begin a recording. @return its handle */
    int Create(tm start, int stream = IFS_STREAM_MAIN, int video_res = 6);
    /** Write seconds of stream time, one frame a second, the first a key frame. */
    void Write_seconds(int fd, int seconds);
    /** Make a finished recording that holds 2 s and ends when it is told. */
    void Record_until(tm start, tm end, int stream = IFS_STREAM_MAIN);
    /** Make a finished recording of the given length. @return its file's name */
    std::string Record(tm start, int seconds = 10, int stream = IFS_STREAM_MAIN);

    /** What a search finds, of the whole day unless a range is given. */
    std::vector<_ifs_rec_file_> Search(int stream, tm from = At(0, 0), tm to = At(23, 59, 59));
    /** Starts of the recordings found, "hh:mm:ss" each, blanks between. */
    std::string Starts(int stream);
    /** Main and sub counts, e.g. "2 0". */
    std::string Counts();

    /** The next frame of a playback, its header in front. */
    struct Frame {
        int length; ///< or the failing result
        _ifs_frame_type_ type;
        int time;
        std::string bytes;
    };
    static Frame Read(int fd, int capacity = 4096);

    bool Exists(const std::string& name);
    std::string File(const std::string& name);
    void Put_file(const std::string& name, const std::string& bytes);
    /** Bytes of the card's image. */
    std::string Image(size_t offset, size_t bytes);

    std::string m_folder;
    std::string m_files; ///< mount point
};

#endif
