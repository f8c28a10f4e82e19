#ifndef IFS_TESTS_VM_CARD_REPORT_H
#define IFS_TESTS_VM_CARD_REPORT_H

#include "tests/vm/footage_frames.h"

/**
 * Mount the card, play every recording to its end, unmount, and print what was found to standard error:
 *
 *     mounted main=COUNT sub=COUNT
 *     recording NAME seconds=LENGTH frames=READ same=AS_WRITTEN missing=BETWEEN_THESE
 *         video_ms=LAST_TIME_OF_THESE bad=FAILED_READS
 *
 * on a line each. Frames count as written in their order, whether others are missing between them or not.
 *
 * @return 0, or 1: the card cannot be mounted or unmounted
 */
int Report_card(const char* mount_point, const Footage& main_footage, const Footage& sub_footage);

#endif
