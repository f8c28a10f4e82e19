#include "recfile/frame_header.h"

#include <cstring>

#include "util/little_endian.h"

namespace
{

/* Video header; a key frame has the extension behind it. */
enum {
    VIDEO_TAG = 0,
    VIDEO_CODEC = 4,
    VIDEO_LENGTH = 8,
    VIDEO_EXTENSION_LENGTH = 12,
    VIDEO_RESERVED = 14,
    VIDEO_TIMESTAMP = 16,
    VIDEO_BYTES = 24,
};

enum {
    EXTENSION_TIME = 0,
    EXTENSION_VIDEO_RES = 4,
    EXTENSION_VIDEO_SYSTEM = 5,
    EXTENSION_RESERVED = 6,
    EXTENSION_BYTES = 8,
};

enum {
    AUDIO_TAG = 0,
    AUDIO_LENGTH = 4,
    AUDIO_LENGTH_AGAIN = 6,
    AUDIO_BYTES = 8,
};

constexpr int k_tag_bytes = 4;

int Down_to_8(int len)
{
    return len / 8 * 8;
}

int Up_to_8(int len)
{
    return Down_to_8(len + IFS_FRAME_FILL_BYTES);
}

void Put_video_header(unsigned char* at, const char* tag, int len, int extension_bytes,
                      unsigned long long timestamp)
{
    memcpy(at + VIDEO_TAG, tag, k_tag_bytes);
    memcpy(at + VIDEO_CODEC, "H264", k_tag_bytes);
    Put_le32(at + VIDEO_LENGTH, static_cast<uint32_t>(len));
    Put_le16(at + VIDEO_EXTENSION_LENGTH, static_cast<uint32_t>(extension_bytes));
    Put_le16(at + VIDEO_RESERVED, 0);
    Put_le64(at + VIDEO_TIMESTAMP, timestamp);
}

void Put_extension(unsigned char* at, long time, unsigned char video_res, unsigned char video_system)
{
    Put_le32(at + EXTENSION_TIME, static_cast<uint32_t>(time));
    at[EXTENSION_VIDEO_RES] = video_res;
    at[EXTENSION_VIDEO_SYSTEM] = video_system;
    Put_le16(at + EXTENSION_RESERVED, 0);
}

void Put_audio_header(unsigned char* at, const char* tag, int len)
{
    memcpy(at + AUDIO_TAG, tag, k_tag_bytes);
    Put_le16(at + AUDIO_LENGTH, static_cast<uint32_t>(len));
    Put_le16(at + AUDIO_LENGTH_AGAIN, static_cast<uint32_t>(len));
}

} // namespace

int Ifsbf_build_header(char* buf, _ifs_frame_type_ type, int len, long time, unsigned char video_res,
                       unsigned char video_system, unsigned long long timestamp, int* payload_offset,
                       int* payload_len, int* frame_offset, int* frame_len)
{
    *payload_offset = IFS_FRAME_HEAD_BYTES;
    *payload_len = len;
    auto* const payload = reinterpret_cast<unsigned char*>(buf) + IFS_FRAME_HEAD_BYTES;

    int head_bytes = AUDIO_BYTES;
    int filled_len = Up_to_8(len);
    if (type == IFS_FRAME_I) {
        head_bytes = VIDEO_BYTES + EXTENSION_BYTES;
        Put_video_header(payload - head_bytes, "00dc", len, EXTENSION_BYTES, timestamp);
        Put_extension(payload - EXTENSION_BYTES, time, video_res, video_system);
    } else if (type == IFS_FRAME_P) {
        head_bytes = VIDEO_BYTES;
        Put_video_header(payload - head_bytes, "01dc", len, 0, timestamp);
    } else if (type == IFS_FRAME_AUDIO) {
        Put_audio_header(payload - head_bytes, "05wb", len);
    } else {
        filled_len = Down_to_8(len);
        Put_audio_header(payload - head_bytes, "01wb", filled_len);
    }
    *frame_offset = IFS_FRAME_HEAD_BYTES - head_bytes;
    *frame_len = head_bytes + filled_len;
    if (filled_len > len) {
        memset(payload + len, 0, static_cast<size_t>(filled_len - len));
    }
    return 0;
}
