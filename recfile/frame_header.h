#ifndef IFS_RECFILE_FRAME_HEADER_H
#define IFS_RECFILE_FRAME_HEADER_H

#include "ifs.h"

/** Bytes of a frame buffer in front of the payload, and the most that are filled up behind it. */
constexpr int IFS_FRAME_HEAD_BYTES = 32;
constexpr int IFS_FRAME_FILL_BYTES = 7;

/**
 * Write the frame header that ends at buf + 32, where the payload begins, and fill the payload up to a
 * multiple of 8 bytes with zeros.
 *
 * @param buf             32 + len bytes, len taken up to a multiple of 8
 * @param type            any value; one that is no frame type gets a header of its own kind and no fill
 * @param len             payload, bytes
 * @param time            seconds since 1970; key frames only
 * @param timestamp       microseconds; video only
 * @param payload_offset  receives 32
 * @param payload_len     receives len
 * @param frame_offset    receives the header's offset in buf
 * @param frame_len       receives the bytes from there to the end of the fill
 * @return 0
 */
int Ifsbf_build_header(char* buf, _ifs_frame_type_ type, int len, long time, unsigned char video_res,
                       unsigned char video_system, unsigned long long timestamp, int* payload_offset,
                       int* payload_len, int* frame_offset, int* frame_len);

#endif
