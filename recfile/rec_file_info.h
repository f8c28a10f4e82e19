#ifndef IFS_RECFILE_REC_FILE_INFO_H
#define IFS_RECFILE_REC_FILE_INFO_H

#include "ifs.h"

/** Which fields of a recording's description are asked for or present. */
enum {
    REC_INFO_START_TIME = 0x001,
    REC_INFO_END_TIME = 0x002,
    REC_INFO_STREAM_TYPE = 0x004,
    REC_INFO_FILE_SIZE = 0x008,
    REC_INFO_PICTURE_SIZE = 0x010,
    REC_INFO_VIDEO_RES = 0x020,
    REC_INFO_VIDEO_SYSTEM = 0x040,
    REC_INFO_FRAME_RATE = 0x080,
    REC_INFO_AUDIO = 0x100,

    REC_INFO_NAME = REC_INFO_START_TIME | REC_INFO_STREAM_TYPE | REC_INFO_VIDEO_RES | REC_INFO_VIDEO_SYSTEM,
    REC_INFO_NAME_AND_END = REC_INFO_NAME | REC_INFO_END_TIME,
    REC_INFO_IDENTITY = REC_INFO_START_TIME | REC_INFO_STREAM_TYPE,
    REC_INFO_SPAN = REC_INFO_IDENTITY | REC_INFO_END_TIME,
    REC_INFO_CONTAINER = REC_INFO_PICTURE_SIZE | REC_INFO_FRAME_RATE | REC_INFO_AUDIO,
    REC_INFO_CREATE = REC_INFO_NAME | REC_INFO_CONTAINER,
    REC_INFO_ALL = REC_INFO_CREATE | REC_INFO_END_TIME | REC_INFO_FILE_SIZE,
};

/**
 * A description that is asked for (the mask names the wanted fields) or given (the fields present).
 * Functions read the mask and leave it as it is.
 */
struct _rec_file_info_ {
    unsigned int info_mask;
    _ifs_rec_file_ rec;
};

#endif
