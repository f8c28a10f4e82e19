/** card_probe FOLDER MAIN_FRAMES SUB_FRAMES: mounts a virtual card and prints a card_report.h of it. */
#include <cstdio>

#include "hostcard.h"
#include "tests/vm/card_report.h"

int main(int argc, char** argv)
{
    if (argc != 4 || hostcard_insert(argv[1]) != 0) {
        fprintf(stderr, "no card\n");
        return 2;
    }
    Ifsi_set_debug_level(IFS_DEBUG_ERROR | IFS_DEBUG_TRACE);
    return Report_card(hostcard_mount_point(), Footage(argv[2]), Footage(argv[3]));
}
