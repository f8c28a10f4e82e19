/* Records both streams of a camera for three minutes, a recording a minute, and lists what the card holds. */
#include <hostcard.h>
#include <ifs.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

enum {
    RECORDINGS = 3,
    RECORDING_S = 60,
    FRAME_RATE = 5,
    WIDTH = 16,
    HEIGHT = 16
};

static const time_t first_start = 1778328000; /* 2026-05-09 12:00:00 UTC; a camera takes time(NULL) */

/* What an encoder would hand over: here the same key frame again and again. */
static char access_unit[] =
    "\0\0\0\1\x67\x42\xc0\x0a\xd9\x1e\xc0\x44\0\0\3\0\4\0\0\3\0\x08\x3c\x48\x99\x20" /* SPS */
    "\0\0\0\1\x68\xcb\x83\xcb\x20\0\0\1\x65\x88\x84\5\x7c\x98\xa0\0\x20\x5b\x80";    /* PPS, IDR */

/* Put the card in order, and make it ready for recordings. On a camera, ask before formatting. */
static int mount_card(const char* mount_point)
{
    if (Ifsi_mount(mount_point) != 0 && (Ifsi_format() != 0 || Ifsi_mount(mount_point) != 0))
        return -1;
    while (Ifsi_loading_rebuilding_index_file_flag())
        usleep(100000);
    return 0;
}

/* One recording. A frame that is refused is lost, the recording goes on with the next one. */
static int record(_ifs_stream_type_ stream, time_t start)
{
    struct tm start_tm, end_tm;
    const time_t end = start + RECORDING_S;
    gmtime_r(&start, &start_tm);
    gmtime_r(&end, &end_tm);
    const int fd =
        Ifsi_create(&start_tm, 0, 0, WIDTH, HEIGHT, FRAME_RATE, 0, SAMPLE_RATE_INDEX_8000, 0, 0, stream);
    if (fd < 0)
        return -1;
    int lost = 0;
    for (int frame = 0; frame < RECORDING_S * FRAME_RATE; ++frame) {
        const unsigned long long pts_us = frame * 1000000ULL / FRAME_RATE;
        if (Ifsi_write(fd, access_unit, sizeof access_unit - 1, NULL, 0, IFS_FRAME_I, pts_us) != 0)
            ++lost;
    }
    Ifsi_close(fd, &end_tm);
    return lost == 0 ? 0 : -1;
}

/* One thread a stream: it creates, writes and closes. Returns null when all went well. */
static void* record_stream(void* stream)
{
    for (int i = 0; i < RECORDINGS; ++i)
        if (record(*(_ifs_stream_type_*)stream, first_start + i * RECORDING_S) != 0)
            return stream;
    return NULL;
}

static void list_stream(const char* name, _ifs_stream_type_ stream)
{
    struct tm from, to;
    const time_t day_end = first_start + 86399;
    gmtime_r(&first_start, &from);
    gmtime_r(&day_end, &to);
    const int search = Ifsi_find_open(&from, &to, stream);
    _ifs_rec_file_ found;
    char path[128];
    while (Ifsi_find_next(search, 1, &found) == 1 && Ifsi_get_file_name(&found, path) == 0)
        printf("%s %02d:%02d:%02d to %02d:%02d:%02d, %d bytes, %s\n", name, found.start_tm.tm_hour,
               found.start_tm.tm_min, found.start_tm.tm_sec, found.end_tm.tm_hour, found.end_tm.tm_min,
               found.end_tm.tm_sec, found.file_size, strrchr(path, '/') + 1);
    Ifsi_find_close(search);
}

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s FOLDER   (of a virtual card; made when it is missing)\n", argv[0]);
        return 2;
    }
    /* These two lines go away in a camera, whose kernel presents the card. */
    hostcard_create(argv[1], 8000000000ULL, 255, 63);
    if (hostcard_insert(argv[1]) != 0) {
        perror(argv[1]);
        return 1;
    }

    Ifsi_set_debug_level(0);
    gFs_max_file_number = 16000;
    if (Ifsi_init() != 0 || mount_card(hostcard_mount_point()) != 0)
        return 1;

    _ifs_stream_type_ streams[] = {IFS_STREAM_MAIN, IFS_STREAM_SUB};
    pthread_t threads[2];
    void* failed[2];
    for (int i = 0; i < 2; ++i)
        if (pthread_create(&threads[i], NULL, record_stream, &streams[i]) != 0)
            return 1;
    for (int i = 0; i < 2; ++i)
        pthread_join(threads[i], &failed[i]);

    list_stream("main", IFS_STREAM_MAIN);
    list_stream("sub", IFS_STREAM_SUB);
    return Ifsi_umount() == 0 && !failed[0] && !failed[1] ? 0 : 1;
}
