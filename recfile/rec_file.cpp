#include "recfile/rec_file.h"

#include <fcntl.h>

#include <cerrno>
#include <new>

#include "device/os_adapter.h"
#include "recfile/frame_header.h"
#include "util/calendar_time.h"
#include "util/log.h"

namespace
{

constexpr int k_no_kind = -1;

/** Container's kind of a frame, k_no_kind for a value that is no frame type. */
int Container_kind(_ifs_frame_type_ type)
{
    switch (type) {
    case IFS_FRAME_I:
        return KT_MP4_VIDEO_KEY;
    case IFS_FRAME_P:
        return KT_MP4_VIDEO_OTHER;
    case IFS_FRAME_AUDIO:
        return KT_MP4_AUDIO;
    }
    return k_no_kind;
}

/** Type of a container's frame kind. @return whether it has one; *type is untouched otherwise */
bool Frame_type(int kind, _ifs_frame_type_* type)
{
    switch (kind) {
    case KT_MP4_VIDEO_KEY:
        *type = IFS_FRAME_I;
        return true;
    case KT_MP4_VIDEO_OTHER:
        *type = IFS_FRAME_P;
        return true;
    case KT_MP4_AUDIO:
        *type = IFS_FRAME_AUDIO;
        return true;
    default:
        return false;
    }
}

/** Take a bit out of the wanted ones. @return whether it was among them */
bool Take(unsigned* wanted, unsigned bit)
{
    const bool asked = (*wanted & bit) != 0;
    *wanted &= ~bit;
    return asked;
}

void Serve_name_fields(const _ifs_rec_file_& named, unsigned* wanted, _ifs_rec_file_* rec)
{
    if (Take(wanted, REC_INFO_START_TIME)) {
        rec->start_tm = named.start_tm;
    }
    if (Take(wanted, REC_INFO_STREAM_TYPE)) {
        rec->stream_type = named.stream_type;
    }
    if (Take(wanted, REC_INFO_VIDEO_RES)) {
        rec->video_res = named.video_res;
    }
    if (Take(wanted, REC_INFO_VIDEO_SYSTEM)) {
        rec->video_system = named.video_system;
    }
}

void Serve_container_fields(const kt_mfile_info_t& media, const tm& start, unsigned* wanted,
                            _ifs_rec_file_* rec)
{
    if (Take(wanted, REC_INFO_PICTURE_SIZE)) {
        rec->width = media.width;
        rec->height = media.height;
    }
    if (Take(wanted, REC_INFO_FRAME_RATE)) {
        rec->frame_rate = static_cast<unsigned char>(media.frame_rate);
    }
    if (Take(wanted, REC_INFO_END_TIME)) {
        rec->end_tm = start;
        if (media.duration > 0) {
            Ifsm_utc_time_inc(&rec->end_tm, media.duration / 1000);
        }
    }
    if (Take(wanted, REC_INFO_AUDIO)) {
        rec->have_audio = media.have_audio;
        rec->audio_profile = media.audio_profile;
        rec->audio_sample_rate_index = media.audio_sample_rate_index;
        rec->audio_channel_conf = media.audio_channel_conf;
    }
}

} // namespace

CIpcRecFile::~CIpcRecFile()
{
    Irf_close();
}

int CIpcRecFile::Irf_open_file(const char* dir, _rec_file_info_* info, int mode)
{
    if (dir == nullptr || info == nullptr) {
        IFS_ERROR("Invalid parameter(%p, %p)\n", static_cast<const void*>(dir), static_cast<void*>(info));
        return -1;
    }
    const bool create = (mode & IRF_OPEN_CREATE) != 0;
    constexpr unsigned k_needed = REC_INFO_CONTAINER;
    if (create && (info->info_mask & k_needed) != k_needed) {
        IFS_ERROR("You must give the resolution or frame rate\n");
        return -1;
    }
    m_dir = dir;
    if (SIrf_build_media_fn(m_media_fn, info) != 0) {
        IFS_ERROR("SIrf_build_media_fn Failed\n");
        Forget_names();
        return -1;
    }
    const std::string path = m_dir + "/" + m_media_fn;
    if (mode & IRF_OPEN_READ) {
        m_fd = Ifsod_open_file(path.c_str(), O_RDONLY);
    }
    if (!SIrf_is_mp4_type()) {
        Forget_names();
        return -1;
    }
    if (Open_container(path, *info, mode) != 0) {
        IFS_ERROR("kt_mp4_open(%s) Failed(fn:%s, w:%d, h:%d, fr:%d)\n", create ? "create" : "open",
                  path.c_str(), info->rec.width, info->rec.height, info->rec.frame_rate);
        Forget_names();
        return -1;
    }
    m_writable = create ? 1 : 0;
    m_info = *info;
    m_read_first_pts = -1;
    m_start_seconds = static_cast<uint32_t>(Ifsm_mktime_abs(&m_info.rec.start_tm));
    IFS_DETAIL("%s record file(%s) SUCC\n", create ? "Create" : "Open", m_media_fn.c_str());
    return 0;
}

int CIpcRecFile::Open_container(const std::string& path, const _rec_file_info_& info, int mode)
{
    _ifs_rec_file_ rec{}; // without the create bit all picture and audio values are 0
    if (mode & IRF_OPEN_CREATE) {
        rec = info.rec;
    }
    std::string writable_path = path;
    errno = 0;
    m_mp4 = kt_mp4_open(writable_path.data(), rec.width, rec.height, rec.frame_rate, rec.audio_profile,
                        rec.audio_sample_rate_index, rec.audio_channel_conf, mode, rec.have_audio, 320, 0);
    if (m_mp4 == nullptr && errno == ENOMEM && mode == IRF_OPEN_PROBE) {
        throw std::bad_alloc(); // the file must not be taken for one that cannot be read
    }
    return m_mp4 != nullptr ? 0 : -1;
}

void CIpcRecFile::Forget_names()
{
    m_media_fn.clear();
    m_dir.clear();
}

int CIpcRecFile::Irf_create(const char* dir, _rec_file_info_* info)
{
    return Irf_open_file(dir, info, IRF_OPEN_CREATE);
}

int CIpcRecFile::Irf_open(const char* dir, _rec_file_info_* info, int mode)
{
    return Irf_open_file(dir, info, mode);
}

int CIpcRecFile::Irf_open(const char* dir, const char* fn, int mode)
{
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_NAME;
    if (SIrf_get_rec_info(fn, &info) != 0) {
        IFS_ERROR("SIrf_get_rec_info Failed(%s)\n", fn);
        return -1;
    }
    return Irf_open_file(dir, &info, mode);
}

int CIpcRecFile::Irf_write(char* data1, int len1, char* data2, int len2, _ifs_frame_type_ type,
                           unsigned long long pts)
{
    if (m_mp4 == nullptr) {
        IFS_ERROR("You must create file first\n");
        return -1;
    }
    if (!m_writable) {
        IFS_ERROR("It's not writable file(%s)\n", m_media_fn.c_str());
        return -1;
    }
    const int kind = Container_kind(type);
    if (kind == k_no_kind) {
        IFS_ERROR("Invalid frame type(%s)(%d)\n", m_media_fn.c_str(), static_cast<int>(type));
        return -1;
    }
    const uint64_t pts_ms = pts / 1000;
    if (SIrf_is_mp4_type()) {
        const int result = kt_mp4_write(m_mp4, kind, data1, len1, data2, len2, static_cast<uint32_t>(pts_ms));
        if (result < 0) {
            IFS_ERROR("kt_mp4_write Failed(%d)(%s)\n", result, m_media_fn.c_str());
            return -1;
        }
    }
    if (m_write_first_pts < 0) {
        Store_shared(m_write_first_pts, Wrap_to_int32(pts_ms));
    }
    const auto first_pts_ms = static_cast<uint64_t>(static_cast<int64_t>(m_write_first_pts));
    Store_shared(m_write_duration, static_cast<uint32_t>((pts_ms - first_pts_ms) / 1000));
    return 0;
}

int CIpcRecFile::Irf_read(char* buf, int size)
{
    if (m_fd < 0) {
        IFS_ERROR("You must open the file first(%d)\n", m_fd);
        return -1;
    }
    if (m_writable) {
        IFS_ERROR("It's not readable file(%s)\n", m_media_fn.c_str());
        return -1;
    }
    return Ifsod_read_file(m_fd, buf, size);
}

int CIpcRecFile::Irf_read(char* buf, int size, int* payload_offset, int* payload_len, int* frame_offset,
                          int* frame_len, _ifs_frame_type_* frame_type, int* time)
{
    constexpr int k_least_bytes = IFS_FRAME_HEAD_BYTES + IFS_FRAME_FILL_BYTES;
    if (size < k_least_bytes) {
        IFS_ERROR("Buffer is too small(%d)\n", size);
        return -1;
    }
    if (m_mp4 == nullptr) {
        IFS_ERROR("You must open the file first\n");
        return -1;
    }
    if (m_writable) {
        IFS_ERROR("It's not readable file(%s)\n", m_media_fn.c_str());
        return -1;
    }
    if (!SIrf_is_mp4_type()) {
        return -1;
    }
    int kind = 0;
    unsigned int pts_ms = 0;
    const int length = kt_mp4_read(m_mp4, &kind, buf + IFS_FRAME_HEAD_BYTES, size - k_least_bytes, &pts_ms);
    if (length < 0) {
        IFS_ERROR("kt_mp4_read Failed(%s, %d)\n", m_media_fn.c_str(), length);
        return -1;
    }
    if (m_read_first_pts == -1) {
        kt_mfile_info_t media{};
        if (kt_mp4_getinfo(m_mp4, &media) == 0) {
            m_read_first_pts = media.firstpts;
        } else {
            IFS_ERROR("kt_mp4_getinfo Failed(%s)\n", m_media_fn.c_str());
            m_read_first_pts = Wrap_to_int32(pts_ms);
        }
    }
    if (length == 0) {
        IFS_DETAIL("Read Over(%s)\n", m_media_fn.c_str());
        return 0;
    }
    _ifs_frame_type_ type = IFS_FRAME_I;
    if (Frame_type(kind, &type)) {
        *frame_type = type;
    }
    const uint32_t since_first_ms = pts_ms - static_cast<uint32_t>(m_read_first_pts);
    *time = Wrap_to_int32(since_first_ms / 1000 + m_start_seconds);
    const uint64_t timestamp_us = (static_cast<uint64_t>(m_start_seconds) * 1000 + pts_ms) * 1000;
    Ifsbf_build_header(buf, type, length, *time, m_info.rec.video_res, m_info.rec.video_system, timestamp_us,
                       payload_offset, payload_len, frame_offset, frame_len);
    return *frame_len;
}

int CIpcRecFile::Irf_seek(long offset, int whence)
{
    if (m_fd < 0) {
        IFS_ERROR("You must open the file first(%d)\n", m_fd);
        return -1;
    }
    if (m_writable) {
        IFS_ERROR("It's not readable file(%s)\n", m_media_fn.c_str());
        return -1;
    }
    return Ifsod_lseek_file(m_fd, Wrap_to_int32(static_cast<uint64_t>(offset)), whence);
}

int CIpcRecFile::Irf_tseek(unsigned int t)
{
    if (m_mp4 == nullptr) {
        IFS_ERROR("You must open the file first\n");
        return -1;
    }
    const int32_t seconds = Wrap_to_int32(t);
    IFS_TRACE("file name:%s, seek time:%d\n", m_media_fn.c_str(), seconds);
    if (m_writable) {
        IFS_ERROR("It's not readable file(%s)\n", m_media_fn.c_str());
        return -1;
    }
    const auto utc = static_cast<uint32_t>(Ifsm_local_to_utc(seconds));
    const time_t wide = seconds;
    tm target{};
    gmtime_r(&wide, &target);
    IFS_DETAIL("tseek(local:%d, utc:%d, offset:%d)(start:" IFS_TM_FORMAT ")(end:" IFS_TM_FORMAT
               ")(seek to(utc):" IFS_TM_FORMAT ")\n",
               seconds, Wrap_to_int32(utc), Wrap_to_int32(utc - m_start_seconds),
               IFS_TM_ARGS(m_info.rec.start_tm), IFS_TM_ARGS(m_info.rec.end_tm), IFS_TM_ARGS(target));
    const uint32_t offset_ms = t < m_start_seconds ? 0 : (utc - m_start_seconds) * 1000;
    if (!SIrf_is_mp4_type()) {
        return 0;
    }
    const int result = kt_mp4_seek_read(m_mp4, offset_ms);
    if (result < 0) {
        IFS_ERROR("kt_mp4_seek_read Failed(%s, %d)\n", m_media_fn.c_str(), result);
        return -1;
    }
    return 0;
}

int CIpcRecFile::Irf_flush()
{
    if (m_mp4 != nullptr && SIrf_is_mp4_type()) {
        kt_mp4_flush(m_mp4);
    }
    return 0;
}

int CIpcRecFile::Irf_close()
{
    if (m_fd >= 0) {
        Ifsod_close_file(m_fd);
        m_fd = -1;
    }
    if (m_mp4 != nullptr) {
        if (SIrf_is_mp4_type()) {
            kt_mp4_close(m_mp4);
        }
        m_mp4 = nullptr;
    }
    Forget_names();
    m_writable = 0;
    return 0;
}

int CIpcRecFile::Irf_get_rec_info(_rec_file_info_* info, bool)
{
    if (m_mp4 == nullptr) {
        IFS_ERROR("You must open the file first\n");
        return -1;
    }
    unsigned int wanted = info->info_mask;
    _rec_file_info_ named{};
    named.info_mask = REC_INFO_NAME;
    if (wanted & REC_INFO_NAME_AND_END) {
        if (SIrf_get_rec_info(m_media_fn, &named) != 0) {
            IFS_ERROR("SIrf_get_rec_info Failed(%s)\n", m_media_fn.c_str());
            return -1;
        }
        Serve_name_fields(named.rec, &wanted, &info->rec);
    }
    if ((wanted & (REC_INFO_CONTAINER | REC_INFO_END_TIME)) && SIrf_is_mp4_type()) {
        kt_mfile_info_t media{};
        if (kt_mp4_getinfo(m_mp4, &media) != 0) {
            IFS_ERROR("kt_mp4_getinfo Failed(%s)\n", m_media_fn.c_str());
            return -1;
        }
        Irf_printf_kt_mfile_info(m_media_fn.c_str(), &media);
        const bool end_asked = (wanted & REC_INFO_END_TIME) != 0;
        Serve_container_fields(media, named.rec.start_tm, &wanted, &info->rec);
        if (end_asked && m_writable) {
            IFS_ALWAYS("recording file(%s) end time(" IFS_TM_FORMAT
                       ")(first pts:%d ms, duration:%d seconds)(mp4 duration:%d)\n",
                       m_media_fn.c_str(), IFS_TM_ARGS(info->rec.end_tm), Load_shared(m_write_first_pts),
                       Wrap_to_int32(Load_shared(m_write_duration)), media.duration);
        }
    }
    if (wanted & REC_INFO_FILE_SIZE) {
        if (Ifsod_get_file_size((m_dir + "/" + m_media_fn).c_str(), &info->rec.file_size) != 0) {
            IFS_ERROR("Ifsod_get_file_size Failed(%s)\n", m_media_fn.c_str());
            return -1;
        }
        wanted &= ~REC_INFO_FILE_SIZE;
    }
    if (wanted != 0) {
        IFS_ERROR("Get information Failed(0x%08lx)\n", static_cast<unsigned long>(wanted));
        return -1;
    }
    return 0;
}

int CIpcRecFile::Irf_printf_kt_mfile_info(const char* title, const kt_mfile_info_t* info)
{
    IFS_DETAIL("#(%s)########################################\n", title != nullptr ? title : "");
    IFS_DETAIL("name:%s\n", info->name);
    IFS_DETAIL("resolution:%d * %d\n", info->width, info->height);
    IFS_DETAIL("frame rate:%d\n", info->frame_rate);
    IFS_DETAIL("duration:%d Second\n", info->duration / 1000);
    IFS_DETAIL("firstpts:%d\n", info->firstpts);
    IFS_DETAIL("#########################################\n\n\n");
    return 0;
}

int CIpcRecFile::Irf_get_media_fn(std::string& fn)
{
    fn = m_media_fn;
    return 0;
}
