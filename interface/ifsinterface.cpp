#include "ifs.h"

#include <cstring>

#include "device/card_scan.h"
#include "device/os_adapter.h"
#include "interface/library_state.h"
#include "interface/workers.h"
#include "store/limits.h"
#include "util/log.h"

// Applications for the camera were compiled with these sizes; other word sizes have their own struct tm.
static_assert(sizeof(tm) != 44 || sizeof(_ifs_rec_file_) == 124);
static_assert(sizeof(tm) != 44 || sizeof(_ifs_system_info_) == 40);
static_assert(sizeof(kt_mfile_info_t) == 180);

namespace
{

constexpr int k_fs_version = 2;

#if defined(__mips__)
constexpr char k_processor[] = "mips";
#elif defined(__x86_64__)
constexpr char k_processor[] = "x86-64";
#else
constexpr char k_processor[] = "unknown processor";
#endif

/** The store's answers on the card, after its device was found. @return whether the device's size is known */
bool Fill_sizes(const std::string& dev, _ifs_system_info_* info)
{
    if (Ifsod_get_dev_size(dev.c_str(), &info->dev_size) != 0) {
        info->dev_size = 0;
        return false;
    }
    const int mounted = pgIpc_file_system->Ifs_get_fs_size(&info->fs_total_size, &info->fs_free_size);
    info->formatted = mounted == 0 ? 1 : 0;
    return true;
}

} // namespace

/* ---- Settings ---- */

void Ifsi_set_debug_level(unsigned int level)
{
    Store_shared(gIfs_debug_level, level);
}

int Ifsi_set_overlap(unsigned char enable)
{
    Store_shared(gIfs_overlap_flag, enable);
    return 0;
}

void Ifsi_set_demo_flag(void)
{
    Store_shared(gIfs_demo_flag, 1);
}

void Ifsi_set_scan_rec_file_flag(int flag)
{
    Store_shared(gScan_rec_file_flag, flag);
}

/* ---- Card ---- */

int Ifsi_init(void)
{
    Ifs_print("libifs for %s, built %s %s\n", k_processor, __DATE__, __TIME__);
    Store_shared(gIfs_file_type, 0);
    Ifst_create_detached_thread(Overlap_thread, nullptr);
    return 0;
}

int Ifsi_mount(const char* mount_point)
{
    Held_interface held;
    std::string dev;
    if (Ifsscs_scan_sd_card(dev) != 0) {
        IFS_ERROR("There is no sd card\n");
        return -1;
    }
    int mounted;
    IFS_FROM_STORE(mounted =, Ifs_mount(dev.c_str(), mount_point))
    if (mounted != 0) {
        IFS_ERROR("Ifs_mount Failed\n");
        return -1;
    }
    Store_shared(gLoading_or_rebuilding_index_file, 1);
    held.Hand_over();
    Rebuild_and_release();
    return 0;
}

int Ifsi_umount(void)
{
    const Held_interface held;
    int result;
    IFS_FROM_STORE(result =, Ifs_umount())
    return result == 0 ? 0 : -1;
}

int Ifsi_format(void)
{
    const Held_interface held;
    int result;
    IFS_FROM_STORE(result =, Ifs_format())
    return result == 0 ? 0 : -1;
}

int Ifsi_is_full(void)
{
    const Held_interface held;
    unsigned long long free_bytes = 0;
    if (pgIpc_file_system->Ifs_get_fs_size(nullptr, &free_bytes) != 0) {
        return -1;
    }
    return free_bytes < IFS_FULL_FREE_LIMIT ? 1 : 0;
}

int Ifsi_get_system_info(_ifs_system_info_* info)
{
    const Held_interface held;
    memset(info, 0, sizeof *info);
    info->fs_version = k_fs_version;
    info->card_fs_version = Load_shared(gCard_fs_version);
    std::string dev;
    if (Ifsscs_scan_sd_card(dev) != 0) {
        IFS_ERROR("There is no sd card\n");
    } else {
        info->have_card = 1;
        if (!Fill_sizes(dev, info)) {
            IFS_ERROR("Ifsod_get_dev_size Failed\n");
        }
    }
    IFS_TRACE("have_card:%d, formatted:%d, dev_size:%lld, fs_total_size:%lld, fs_free_size:%lld\n",
              info->have_card, info->formatted, static_cast<long long>(info->dev_size),
              static_cast<long long>(info->fs_total_size), static_cast<long long>(info->fs_free_size));
    return 0;
}

int Ifsi_loading_rebuilding_index_file_flag(void)
{
    const int loading = Load_shared(gLoading_or_rebuilding_index_file);
    IFS_DETAIL("loading or rebuilding flag:%d\n", loading);
    return loading;
}

/* ---- Recording ---- */

int Ifsi_create(tm* start, int video_system, int video_res, int width, int height, int frame_rate,
                int audio_profile, SAMPLE_RATE_INDEX_E sample_rate_index, int audio_channel_conf,
                int have_audio, _ifs_stream_type_ stream_type)
{
    const Held_interface_write held;
    IFS_TRACE("start:" IFS_TM_FORMAT
              ", stream_type:%s, video_system:%d, video_res:%d(%d * %d), frame_rate:%d\n",
              IFS_TM_ARGS(*start), Ifs_stream_word(stream_type), video_system, video_res, width, height,
              frame_rate);
    int ret_val;
    IFS_FROM_STORE(ret_val =,
                   Ifs_create(start, video_system, video_res, width, height, frame_rate, audio_profile,
                              sample_rate_index, audio_channel_conf, have_audio, stream_type))
    IFS_TRACE("start:" IFS_TM_FORMAT ", stream_type:%s, ret_val:%d\n", IFS_TM_ARGS(*start),
              Ifs_stream_word(stream_type), ret_val);
    return ret_val;
}

int Ifsi_write(int fd, char* data1, int len1, char* data2, int len2, _ifs_frame_type_ type,
               unsigned long long pts)
{
    const Held_write held;
    IFS_FROM_STORE(return, Ifs_write(fd, data1, len1, data2, len2, type, pts))
}

int Ifsi_close(int fd, tm* end)
{
    const Held_all held;
    int ret_val;
    IFS_FROM_STORE(ret_val =, Ifs_close(fd, end))
    IFS_TRACE("fd:%d, ret_val:%d\n", fd, ret_val);
    return ret_val;
}

/* ---- Playback ---- */

int Ifsi_open(_ifs_rec_file_* rec)
{
    const Held_interface_read held;
    int ret_val;
    IFS_FROM_STORE(ret_val =, Ifs_open(rec))
    IFS_TRACE("start:" IFS_TM_FORMAT ", end:" IFS_TM_FORMAT ", stream_type:%s, ret_val:%d\n",
              IFS_TM_ARGS(rec->start_tm), IFS_TM_ARGS(rec->end_tm), Ifs_stream_word(rec->stream_type),
              ret_val);
    return ret_val;
}

int Ifsi_open_v2(tm* start, _ifs_stream_type_ stream_type)
{
    const Held_interface_read held;
    int ret_val;
    IFS_FROM_STORE(ret_val =, Ifs_open(start, stream_type))
    IFS_TRACE("start:" IFS_TM_FORMAT ", stream_type:%s, ret_val:%d\n", IFS_TM_ARGS(*start),
              Ifs_stream_word(stream_type), ret_val);
    return ret_val;
}

int Ifsi_open_v3(char* file_name)
{
    const Held_interface_read held;
    int ret_val;
    IFS_FROM_STORE(ret_val =, Ifs_open(file_name))
    IFS_TRACE("file_name:%s, ret_val:%d\n", file_name, ret_val);
    return ret_val;
}

int Ifsi_stat(int fd, _ifs_rec_file_* rec)
{
    const Held_read held;
    IFS_FROM_STORE(return, Ifs_stat(fd, rec))
}

int Ifsi_read(int fd, char* buf, int size, int* payload_offset, int* payload_len, int* frame_offset,
              int* frame_len, _ifs_frame_type_* frame_type, int* time)
{
    const Held_read held;
    IFS_FROM_STORE(return, Ifs_read(fd, buf, size, payload_offset, payload_len, frame_offset, frame_len,
                                    frame_type, time))
}

int Ifsi_read_v2(int fd, char* buf, int size, _ifs_frame_type_* frame_type, int* time)
{
    int payload_offset = 0;
    int payload_len = 0;
    int frame_offset = 0;
    int frame_len = 0;
    const int ret_val =
        Ifsi_read(fd, buf, size, &payload_offset, &payload_len, &frame_offset, &frame_len, frame_type, time);
    if (ret_val > 0 && frame_offset != 0) {
        memmove(buf, buf + frame_offset, static_cast<size_t>(frame_len));
    }
    return ret_val;
}

int Ifsi_read_standard(int fd, char* buf, int size)
{
    const Held_read held;
    IFS_FROM_STORE(return, Ifs_read(fd, buf, size))
}

int Ifsi_seek(int fd, long offset, int whence)
{
    const Held_read held;
    IFS_FROM_STORE(return, Ifs_seek(fd, offset, whence))
}

int Ifsi_tseek(int fd, unsigned int time)
{
    const Held_read held;
    IFS_FROM_STORE(return, Ifs_tseek(fd, time))
}

int Ifsi_get_file_name(_ifs_rec_file_* rec, char* name)
{
    IFS_FROM_STORE(return, Ifs_get_file_name(rec, name))
}

int Ifsi_get_file_name_v2(tm* time, _ifs_stream_type_ stream_type, char* name)
{
    const Held_read held;
    IFS_FROM_STORE(return, Ifs_get_file_name(time, stream_type, name))
}

/* ---- Queries ---- */

int Ifsi_get_latest_rec_time(tm* latest)
{
    const Held_interface held;
    IFS_FROM_STORE(return, Ifs_get_latest_rec_time(latest))
}

int Ifsi_find_open(tm* start, tm* end, _ifs_stream_type_ stream)
{
    const Held_interface held;
    IFS_FROM_STORE(return, Ifs_find_open(start, end, stream))
}

int Ifsi_find_close(int handle)
{
    const Held_interface held;
    IFS_FROM_STORE(return, Ifs_find_close(handle))
}

int Ifsi_find_get_count(int handle)
{
    const Held_interface held;
    IFS_FROM_STORE(return, Ifs_find_get_count(handle))
}

int Ifsi_find_next(int handle, int count, _ifs_rec_file_* out)
{
    const Held_interface held;
    IFS_FROM_STORE(return, Ifs_find_next(handle, count, out))
}

int Ifsi_get_rec_calendar(tm* start, tm* end, _ifs_stream_type_ stream, unsigned char* days)
{
    const Held_interface held;
    IFS_FROM_STORE(return, Ifs_get_rec_calendar(start, end, stream, days))
}

int Ifsi_get_file_number(unsigned long* main_number, unsigned long* sub_number)
{
    const Held_interface held;
    IFS_FROM_STORE(return, Ifs_get_file_number(main_number, sub_number))
}
