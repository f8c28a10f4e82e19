/* Prints what a library makes of a virtual card: a line for each recording, with its frames and a sum of
   them. Usage: older_host CARD */
#include <stdio.h>
#include <string.h>

#include "hostcard.h"
#include "ifs.h"

#define LARGEST_FRAME (2 << 20)

static void play(_ifs_rec_file_* entry)
{
    static char frame[LARGEST_FRAME];
    char path[128] = "";
    enum _ifs_frame_type_ type;
    unsigned sum = 0;
    int frames = 0, time = 0, length;
    const int fd = Ifsi_open(entry);
    while (fd > 0 && (length = Ifsi_read_v2(fd, frame, sizeof frame, &type, &time)) > 0) {
        ++frames;
        for (int i = 0; i < length; ++i) {
            sum = sum * 31 + (unsigned char)frame[i];
        }
        sum = sum * 31 + (unsigned)time + (unsigned)type;
    }
    Ifsi_get_file_name(entry, path);
    printf("%s frames=%d sum=%08x\n", strrchr(path, '/') + 1, frames, sum);
    Ifsi_close(fd, NULL);
}

int main(int argc, char** argv)
{
    unsigned long number[2];
    if (argc != 2 || hostcard_insert(argv[1]) != 0) {
        return 1;
    }
    Ifsi_set_debug_level(0);
    if (Ifsi_mount(hostcard_mount_point()) != 0 || Ifsi_get_file_number(&number[0], &number[1]) != 0) {
        return 1;
    }
    for (int stream = 0; stream < 2; ++stream) {
        struct tm from, to;
        _ifs_rec_file_ entry;
        const time_t first = 0, last = 0x7fffffff;
        gmtime_r(&first, &from);
        gmtime_r(&last, &to);
        const int search = Ifsi_find_open(&from, &to, (enum _ifs_stream_type_)stream);
        while (Ifsi_find_next(search, 1, &entry) == 1) {
            play(&entry);
        }
        Ifsi_find_close(search);
    }
    return Ifsi_umount() == 0 ? 0 : 1;
}
