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

    /** Insert a new blank card in place of an inserted one. */
    void Insert_blank(unsigned long long bytes = 8000000000ULL, unsigned heads = 255, unsigned sectors = 63);
    /** Mount and wait for the catalogue. */
    void Mount();
    /** Unmount and mount again. */
    void Remount();

    /** Begin a recording. @return its handle */
    static int Create(tm start, int stream = IFS_STREAM_MAIN);
    /** Write seconds of stream time, one frame a second, the first a key frame. */
    static void Write_seconds(int fd, int seconds);
    /** Make a finished recording that ends when it is told, whatever it holds. */
    static void Record_until(tm start, tm end, int stream = IFS_STREAM_MAIN, int seconds = 2);
    /** Make a finished recording of the given length. @return its file's name */
    static std::string Record(tm start, int seconds = 10, int stream = IFS_STREAM_MAIN);
    /** Begin a playback. @return its handle */
    static int Play(tm start, int stream = IFS_STREAM_MAIN);

    /** Begin a search, of the whole day unless a range is given. @return its handle */
    static int Find(int stream, tm from = At(0, 0), tm to = At(23, 59, 59));
    /** What a search finds. */
    static std::vector<_ifs_rec_file_> Search(int stream, tm from = At(0, 0), tm to = At(23, 59, 59));
    /** Starts of the recordings found, "hh:mm:ss" each, blanks between. */
    static std::string Starts(int stream);
    /** Main and sub counts, e.g. "2 0". */
    static std::string Counts();

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
