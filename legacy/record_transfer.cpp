#include <cstddef>
#include <cstring>

#include "ifs_legacy.h"

namespace
{

// Applications for the camera were compiled with these layouts; other word sizes have their own struct tm.
constexpr bool k_camera = sizeof(tm) == 44;

#define CAMERA_SIZE(type, bytes) static_assert(!k_camera || sizeof(type) == (bytes))
#define CAMERA_OFFSET(type, field, offset) static_assert(!k_camera || offsetof(type, field) == (offset))

CAMERA_SIZE(record_info_t, 4496);
CAMERA_OFFSET(record_info_t, reserved_1, 0);
CAMERA_OFFSET(record_info_t, start_tm, 12);
CAMERA_OFFSET(record_info_t, end_tm, 56);
CAMERA_OFFSET(record_info_t, always_2, 100);
CAMERA_OFFSET(record_info_t, reserved_2, 104);
CAMERA_OFFSET(record_info_t, file_size, 112);
CAMERA_OFFSET(record_info_t, reserved_3, 120);
CAMERA_OFFSET(record_info_t, width, 4448);
CAMERA_OFFSET(record_info_t, height, 4450);
CAMERA_OFFSET(record_info_t, frame_rate, 4452);
CAMERA_OFFSET(record_info_t, stream, 4456);
CAMERA_OFFSET(record_info_t, have_audio, 4460);
CAMERA_OFFSET(record_info_t, audio_profile, 4464);
CAMERA_OFFSET(record_info_t, audio_sample_rate_index, 4468);
CAMERA_OFFSET(record_info_t, audio_channel_conf, 4472);
CAMERA_OFFSET(record_info_t, file_kind, 4476);
CAMERA_OFFSET(record_info_t, reserved_4, 4480);

CAMERA_SIZE(record, 60);
CAMERA_OFFSET(record, start_tm, 0);
CAMERA_OFFSET(record, always_0, 44);
CAMERA_OFFSET(record, width, 48);
CAMERA_OFFSET(record, height, 50);
CAMERA_OFFSET(record, frame_rate, 52);
CAMERA_OFFSET(record, stream, 56);

CAMERA_SIZE(record_stat_t, 136);
CAMERA_OFFSET(record_stat_t, always_0, 0);
CAMERA_OFFSET(record_stat_t, start_tm, 8);
CAMERA_OFFSET(record_stat_t, end_tm, 52);
CAMERA_OFFSET(record_stat_t, always_4, 96);
CAMERA_OFFSET(record_stat_t, reserved_1, 100);
CAMERA_OFFSET(record_stat_t, file_size, 104);
CAMERA_OFFSET(record_stat_t, reserved_2, 112);
CAMERA_OFFSET(record_stat_t, have_audio, 116);
CAMERA_OFFSET(record_stat_t, audio_profile, 120);
CAMERA_OFFSET(record_stat_t, audio_sample_rate_index, 124);
CAMERA_OFFSET(record_stat_t, audio_channel_conf, 128);
CAMERA_OFFSET(record_stat_t, file_kind, 132);

/** The code for gIfs_file_type in the records. */
int32_t File_kind()
{
    switch (__atomic_load_n(&gIfs_file_type, __ATOMIC_RELAXED)) {
    case 0:
        return 1;
    case 1:
        return 2;
    default:
        return 0;
    }
}

int32_t Stream_flag(const _ifs_rec_file_& entry)
{
    return entry.stream_type == IFS_STREAM_MAIN ? 0 : 1;
}

} // namespace

void rec_transfer(_ifs_rec_file_* entry, record_info_t* info)
{
    memset(info, 0, sizeof *info);
    info->start_tm = entry->start_tm;
    info->end_tm = entry->end_tm;
    info->always_2 = 2;
    info->file_size = entry->file_size;
    info->width = static_cast<uint16_t>(entry->width);
    info->height = static_cast<uint16_t>(entry->height);
    info->frame_rate = entry->frame_rate;
    info->stream = Stream_flag(*entry);
    info->have_audio = entry->have_audio;
    info->audio_profile = entry->audio_profile;
    info->audio_sample_rate_index = entry->audio_sample_rate_index;
    info->audio_channel_conf = entry->audio_channel_conf;
    info->file_kind = File_kind();
}

void rec_transfer(_ifs_rec_file_* entry, record* result)
{
    memset(result, 0, sizeof *result);
    result->start_tm = entry->start_tm;
    result->width = static_cast<uint16_t>(entry->width);
    result->height = static_cast<uint16_t>(entry->height);
    result->frame_rate = entry->frame_rate;
    result->stream = Stream_flag(*entry);
}

void rec_transfer(_ifs_rec_file_* entry, record_stat_t* stat)
{
    memset(stat, 0, sizeof *stat);
    stat->start_tm = entry->start_tm;
    stat->end_tm = entry->end_tm;
    stat->always_4 = 4;
    stat->file_size = entry->file_size;
    stat->have_audio = entry->have_audio;
    stat->audio_profile = entry->audio_profile;
    stat->audio_sample_rate_index = entry->audio_sample_rate_index;
    stat->audio_channel_conf = entry->audio_channel_conf;
    stat->file_kind = File_kind();
}
