#include "store/index_item.h"

#include "util/little_endian.h"
#include "util/wrap.h"

namespace
{

/** A field and its offset in the image, all of them little-endian. */
template <typename Record, typename Field>
struct Placed {
    int offset;
    Field Record::*field;
};

/* Time image, 44 bytes; behind these fields the UTC offset and the zone word, which carries nothing. */
constexpr Placed<tm, int> k_time_fields[] = {
    {0, &tm::tm_sec},   {4, &tm::tm_min},   {8, &tm::tm_hour},  {12, &tm::tm_mday},  {16, &tm::tm_mon},
    {20, &tm::tm_year}, {24, &tm::tm_wday}, {28, &tm::tm_yday}, {32, &tm::tm_isdst},
};
enum {
    TIME_GMTOFF = 36,
    TIME_ZONE = 40,
};

/* Entry image, 124 bytes: two time images, bytes, words. */
enum {
    ITEM_START = 0,
    ITEM_END = 44,
    ITEM_RESERVED = 91,
    ITEM_STREAM_TYPE = 92,
};
constexpr Placed<_ifs_rec_file_, unsigned char> k_byte_fields[] = {
    {88, &_ifs_rec_file_::video_res},
    {89, &_ifs_rec_file_::video_system},
    {90, &_ifs_rec_file_::frame_rate},
};
constexpr Placed<_ifs_rec_file_, int> k_word_fields[] = {
    {96, &_ifs_rec_file_::width},
    {100, &_ifs_rec_file_::height},
    {104, &_ifs_rec_file_::have_audio},
    {108, &_ifs_rec_file_::audio_profile},
    {112, &_ifs_rec_file_::audio_sample_rate_index},
    {116, &_ifs_rec_file_::audio_channel_conf},
    {120, &_ifs_rec_file_::file_size},
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
    for (const auto& placed : k_time_fields) {
        Put_int(at + placed.offset, t.*placed.field);
    }
    Put_int(at + TIME_GMTOFF, t.tm_gmtoff);
    Put_int(at + TIME_ZONE, 0);
}

tm Get_time(const unsigned char* at)
{
    tm t{};
    for (const auto& placed : k_time_fields) {
        t.*placed.field = Get_int(at + placed.offset);
    }
    t.tm_gmtoff = Get_int(at + TIME_GMTOFF);
    return t;
}

} // namespace

void Ifs_put_index_item(const _ifs_rec_file_& rec, unsigned char* image)
{
    Put_time(image + ITEM_START, rec.start_tm);
    Put_time(image + ITEM_END, rec.end_tm);
    for (const auto& placed : k_byte_fields) {
        image[placed.offset] = rec.*placed.field;
    }
    image[ITEM_RESERVED] = 0;
    Put_int(image + ITEM_STREAM_TYPE, rec.stream_type);
    for (const auto& placed : k_word_fields) {
        Put_int(image + placed.offset, rec.*placed.field);
    }
}

_ifs_rec_file_ Ifs_get_index_item(const unsigned char* image)
{
    _ifs_rec_file_ rec{};
    rec.start_tm = Get_time(image + ITEM_START);
    rec.end_tm = Get_time(image + ITEM_END);
    for (const auto& placed : k_byte_fields) {
        rec.*placed.field = image[placed.offset];
    }
    rec.stream_type = static_cast<_ifs_stream_type_>(Get_int(image + ITEM_STREAM_TYPE));
    for (const auto& placed : k_word_fields) {
        rec.*placed.field = Get_int(image + placed.offset);
    }
    return rec;
}
