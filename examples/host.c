#include <hostcard.h>
#include <ifs.h>
#include <stdio.h>
static char picture[] =
    "\0\0\0\1\x67\x42\xc0\x0a\xd9\x1e\xc0\x44\0\0\3\0\4\0\0\3\0\x08\x3c\x48\x99\x20" /* SPS */
    "\0\0\0\1\x68\xcb\x83\xcb\x20\0\0\1\x65\x88\x84\5\x7c\x98\xa0\0\x20\x5b\x80";    /* PPS, IDR */
int main(int argc, char** argv)
{
    struct tm noon = {.tm_year = 126, .tm_mon = 4, .tm_mday = 9, .tm_hour = 12}; /* 2026-05-09, UTC */
    if (argc != 2) {
        fprintf(stderr, "usage: %s FOLDER   (of a virtual card, which is made there)\n", argv[0]);
        return 2;
    }
    if (hostcard_create(argv[1], 1ull << 30, 255, 63) != 0 || hostcard_insert(argv[1]) != 0) {
        perror(argv[1]);
        return 1;
    }
    Ifsi_set_debug_level(0);
    if (Ifsi_init() != 0 || Ifsi_format() != 0 || Ifsi_mount(hostcard_mount_point()) != 0)
        return 1;
    int fd = Ifsi_create(&noon, 0, 0, 16, 16, 1, 0, SAMPLE_RATE_INDEX_8000, 0, 0, IFS_STREAM_MAIN);
    for (unsigned pts_us = 0; pts_us < 10000000; pts_us += 1000000)
        if (Ifsi_write(fd, picture, sizeof picture - 1, NULL, 0, IFS_FRAME_I, pts_us) != 0)
            return 1;
    Ifsi_close(fd, NULL);
    int search = Ifsi_find_open(&noon, &noon, IFS_STREAM_MAIN);
    _ifs_rec_file_ found;
    while (Ifsi_find_next(search, 1, &found) == 1)
        printf("%dx%d, %d s\n", found.width, found.height, found.end_tm.tm_sec - found.start_tm.tm_sec);
    Ifsi_find_close(search);
    return Ifsi_umount() == 0 ? 0 : 1;
}
