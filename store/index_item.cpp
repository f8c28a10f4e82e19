#include "store/index_item.h"

#include "util/little_endian.h"
#include "util/wrap.h"

namespace
{

/* Offsets in an entry image. */
enum {
    ITEM_START = 0,
    ITEM_END = 44,
    ITEM_VIDEO_RES = 88,
    ITEM_VIDEO_SYSTEM = 89,
    ITEM_FRAME_RATE = 90,
    ITEM_RESERVED = 91,
    ITEM_STREAM_TYPE = 92,
    ITEM_WIDTH = 96,
    ITEM_HEIGHT = 100,
    ITEM_HAVE_AUDIO = 104,
    ITEM_AUDIO_PROFILE = 108,
    ITEM_AUDIO_SAMPLE_RATE_INDEX = 112,
    ITEM_AUDIO_CHANNEL_CONF = 116,
    ITEM_FILE_SIZE = 120,
};

/* Offsets in a time image. */
enum {
    TIME_SEC = 0,
    TIME_MIN = 4,
    TIME_HOUR = 8,
    TIME_MDAY = 12,
    TIME_MON = 16,
    TIME_YEAR = 20,
    TIME_WDAY = 24,
    TIME_YDAY = 28,
    TIME_ISDST = 32,
    TIME_GMTOFF = 36,
    TIME_ZONE = 40,
};

void Put_int(unsigned char* at, long value)
{
    Put_le32(at, static_cast<uint32_t>(value));
}

int Get_int(const unsigned char* at)
{
    return Wrap_to_int32(Get_le32(at));
}

void Put_time(unsigned char* at, const tm& t)
{
    Put_int(at + TIME_SEC, t.tm_sec);
    Put_int(at + TIME_MIN, t.tm_min);
    Put_int(at + TIME_HOUR, t.tm_hour);
    Put_int(at + TIME_MDAY, t.tm_mday);
    Put_int(at + TIME_MON, t.tm_mon);
    Put_int(at + TIME_YEAR, t.tm_year);
    Put_int(at + TIME_WDAY, t.tm_wday);
    Put_int(at + TIME_YDAY, t.tm_yday);
    Put_int(at + TIME_ISDST, t.tm_isdst);
    Put_int(at + TIME_GMTOFF, t.tm_gmtoff);
    Put_int(at + TIME_ZONE, 0);
}

tm Get_time(const unsigned char* at)
{
    tm t{};
    t.tm_sec = Get_int(at + TIME_SEC);
    t.tm_min = Get_int(at + TIME_MIN);
    t.tm_hour = Get_int(at + TIME_HOUR);
    t.tm_mday = Get_int(at + TIME_MDAY);
    t.tm_mon = Get_int(at + TIME_MON);
    t.tm_year = Get_int(at + TIME_YEAR);
    t.tm_wday = Get_int(at + TIME_WDAY);
    t.tm_yday = Get_int(at + TIME_YDAY);
    t.tm_isdst = Get_int(at + TIME_ISDST);
    t.tm_gmtoff = Get_int(at + TIME_GMTOFF);
    return t;
}

} // namespace

void Ifs_put_index_item(const _ifs_rec_file_& rec, unsigned char* image)
{
    Put_time(image + ITEM_START, rec.start_tm);
    Put_time(image + ITEM_END, rec.end_tm);
    image[ITEM_VIDEO_RES] = rec.video_res;
    image[ITEM_VIDEO_SYSTEM] = rec.video_system;
    image[ITEM_FRAME_RATE] = rec.frame_rate;
    image[ITEM_RESERVED] = 0;
    Put_int(image + ITEM_STREAM_TYPE, rec.stream_type);
    Put_int(image + ITEM_WIDTH, rec.width);
    Put_int(image + ITEM_HEIGHT, rec.height);
    Put_int(image + ITEM_HAVE_AUDIO, rec.have_audio);
    Put_int(image + ITEM_AUDIO_PROFILE, rec.audio_profile);
    Put_int(image + ITEM_AUDIO_SAMPLE_RATE_INDEX, rec.audio_sample_rate_index);
    Put_int(image + ITEM_AUDIO_CHANNEL_CONF, rec.audio_channel_conf);
    Put_int(image + ITEM_FILE_SIZE, rec.file_size);
}

_ifs_rec_file_ Ifs_get_index_item(const unsigned char* image)
{
    _ifs_rec_file_ rec{};
    rec.start_tm = Get_time(image + ITEM_START);
    rec.end_tm = Get_time(image + ITEM_END);
    rec.video_res = image[ITEM_VIDEO_RES];
    rec.video_system = image[ITEM_VIDEO_SYSTEM];
    rec.frame_rate = image[ITEM_FRAME_RATE];
    rec.stream_type = static_cast<_ifs_stream_type_>(Get_int(image + ITEM_STREAM_TYPE));
    rec.width = Get_int(image + ITEM_WIDTH);
    rec.height = Get_int(image + ITEM_HEIGHT);
    rec.have_audio = Get_int(image + ITEM_HAVE_AUDIO);
    rec.audio_profile = Get_int(image + ITEM_AUDIO_PROFILE);
    rec.audio_sample_rate_index = Get_int(image + ITEM_AUDIO_SAMPLE_RATE_INDEX);
    rec.audio_channel_conf = Get_int(image + ITEM_AUDIO_CHANNEL_CONF);
    rec.file_size = Get_int(image + ITEM_FILE_SIZE);
    return rec;
}
