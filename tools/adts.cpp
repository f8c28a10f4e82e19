#include "tools/adts.h"

bool parse_audio_specific_config(const uint8_t* data, size_t size, AacParameters* aac)
{
    constexpr int type_lc = 2;
    constexpr int type_sbr = 5;
    constexpr int type_parametric_stereo = 29;
    if (size < 2)
        return false;
    int object_type = data[0] >> 3;
    int rate_index = (data[0] & 7) << 1 | data[1] >> 7;
    int channel_conf = data[1] >> 3 & 15;
    bool lc = object_type == type_lc || object_type == type_sbr || object_type == type_parametric_stereo;
    if (!lc || rate_index > 12 || channel_conf < 1 || channel_conf > 7)
        return false;
    *aac = {rate_index, channel_conf};
    return true;
}

bool has_adts_header(const uint8_t* data, size_t size)
{
    if (size < adts_header_size || data[0] != 0xFF || (data[1] & 0xF6) != 0xF0)
        return false;
    size_t frame_length = static_cast<size_t>(data[3] & 3) << 11 | data[4] << 3 | data[5] >> 5;
    return frame_length == size;
}

std::array<uint8_t, adts_header_size> adts_header(const AacParameters& aac, size_t size)
{
    size_t length = size + adts_header_size;
    return {0xFF,
            0xF1,
            static_cast<uint8_t>(aac_lc_profile << 6 | aac.sample_rate_index << 2 | aac.channel_conf >> 2),
            static_cast<uint8_t>((aac.channel_conf & 3) << 6 | length >> 11),
            static_cast<uint8_t>(length >> 3),
            static_cast<uint8_t>((length & 7) << 5 | 0x1F),
            0xFC};
}
