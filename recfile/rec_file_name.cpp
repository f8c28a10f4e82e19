#include <cstdio>
#include <cstring>

#include "device/os_adapter.h"
#include "recfile/rec_file.h"
#include "util/log.h"

namespace
{

/* Positions in a record file name; the separators between are not examined. */
enum {
    NAME_START_TIME = 4,
    NAME_VIDEO_RES = 20,
    NAME_VIDEO_SYSTEM = 22,
    NAME_STREAM = 24,
    NAME_DOT = 25,
};

constexpr char k_prefix[] = "Rec";
constexpr char k_media_suffix[] = ".mp4";
constexpr char k_main_letter[] = "M";
constexpr char k_sub_letter[] = "S";

/** The rest of a name from a position on; empty behind its end. */
const char* Text_from(const std::string& fn, size_t position)
{
    return position <= fn.size() ? fn.c_str() + position : "";
}

/** Stream that a name's letter stands for. @return whether it is one */
bool Parse_stream(const std::string& fn, _ifs_stream_type_* stream)
{
    const char* text = Text_from(fn, NAME_STREAM);
    *stream = Is_sub_string(text, k_main_letter) ? IFS_STREAM_MAIN : IFS_STREAM_SUB;
    return Is_sub_string(text, k_main_letter) || Is_sub_string(text, k_sub_letter);
}

bool Is_digit(char c)
{
    return c >= '0' && c <= '9';
}

/** Value of digits, which were checked. */
int Number(const char* digits, int n)
{
    int value = 0;
    for (int i = 0; i < n; ++i) {
        value = value * 10 + (digits[i] - '0');
    }
    return value;
}

bool Has_dot(const std::string& fn)
{
    return Is_sub_string(Text_from(fn, NAME_DOT), ".");
}

} // namespace

unsigned Is_sub_string(const char* s, const char* prefix)
{
    return strncmp(s, prefix, strlen(prefix)) == 0;
}

unsigned Is_digital_string(const char* s, int n)
{
    for (int i = 0; i < n; ++i) {
        if (!Is_digit(s[i])) {
            return 0;
        }
    }
    return 1;
}

unsigned Get_value(const char* s, int n, int* value)
{
    *value = 0;
    for (int i = 0; i < n; ++i) {
        if (!Is_digit(s[i])) {
            return 0;
        }
        *value = Wrap_add(Wrap_mul(*value, 10), s[i] - '0');
    }
    return 1;
}

unsigned Get_ymdhms(const char* s, tm* t)
{
    constexpr int k_date_digits = 8;
    constexpr int k_clock = 9;
    constexpr int k_clock_digits = 6;
    if (strlen(s) < k_clock + k_clock_digits || !Is_digital_string(s, k_date_digits) ||
        !Is_digital_string(s + k_clock, k_clock_digits)) {
        return 0;
    }
    t->tm_year = Number(s, 4);
    t->tm_mon = Number(s + 4, 2);
    t->tm_mday = Number(s + 6, 2);
    t->tm_hour = Number(s + k_clock, 2);
    t->tm_min = Number(s + k_clock + 2, 2);
    t->tm_sec = Number(s + k_clock + 4, 2);
    return 1;
}

bool CIpcRecFile::SIrf_is_mp4_type()
{
    return Load_shared(gIfs_file_type) == 0;
}

int CIpcRecFile::SIrf_build_base_fn(std::string& fn, const _rec_file_info_* info)
{
    fn = k_prefix;
    if (!(info->info_mask & REC_INFO_START_TIME)) {
        IFS_ERROR("There is no start time\n");
        return -1;
    }
    char text[32];
    const tm& start = info->rec.start_tm;
    snprintf(text, sizeof text, "%04d%02d%02d_%02d%02d%02d", IFS_TM_ARGS(start));
    fn.append("_").append(text);

    constexpr unsigned k_codes = REC_INFO_VIDEO_RES | REC_INFO_VIDEO_SYSTEM;
    if ((info->info_mask & k_codes) != k_codes) {
        IFS_ERROR("There is no resolution or tv system\n");
        return -1;
    }
    snprintf(text, sizeof text, "%02d%01d", info->rec.video_res, info->rec.video_system);
    fn.append("_").append(text);

    if (!(info->info_mask & REC_INFO_STREAM_TYPE)) {
        IFS_ERROR("There is no stream type\n");
        return -1;
    }
    fn.append("_");
    if (info->rec.stream_type != IFS_STREAM_MAIN && info->rec.stream_type != IFS_STREAM_SUB) {
        IFS_ERROR("Invalid stream type(%d)\n", static_cast<int>(info->rec.stream_type));
        return -1;
    }
    fn.append(info->rec.stream_type == IFS_STREAM_MAIN ? k_main_letter : k_sub_letter);
    return 0;
}

int CIpcRecFile::SIrf_build_media_fn(std::string& fn, const _rec_file_info_* info)
{
    const int result = SIrf_build_base_fn(fn, info);
    if (SIrf_is_mp4_type()) {
        fn.append(k_media_suffix);
    }
    return result;
}

int CIpcRecFile::SIrf_build_index_fn(std::string& fn, const _rec_file_info_* info)
{
    SIrf_build_base_fn(fn, info);
    return 0;
}

int CIpcRecFile::SIrf_is_base_fn(const std::string& fn)
{
    tm start{};
    _ifs_stream_type_ stream;
    const bool is_name =
        Is_sub_string(fn.c_str(), k_prefix) && Get_ymdhms(Text_from(fn, NAME_START_TIME), &start) &&
        Is_digital_string(Text_from(fn, NAME_VIDEO_RES), 3) && Parse_stream(fn, &stream) && Has_dot(fn);
    return is_name ? 0 : -1;
}

int CIpcRecFile::SIrf_is_media_suffix(const std::string& fn)
{
    const char* const dot = strchr(fn.c_str(), '.');
    return dot != nullptr && SIrf_is_mp4_type() && strcmp(dot, k_media_suffix) == 0 ? 0 : -1;
}

int CIpcRecFile::SIrf_is_media_fn(const std::string& fn)
{
    return SIrf_is_base_fn(fn) == 0 && SIrf_is_media_suffix(fn) == 0 ? 0 : -1;
}

int CIpcRecFile::SIrf_is_index_suffix(const std::string&)
{
    return -1;
}

int CIpcRecFile::SIrf_is_index_fn(const std::string& fn)
{
    return SIrf_is_base_fn(fn) == 0 ? SIrf_is_index_suffix(fn) : -1;
}

int CIpcRecFile::SIrf_get_rec_info(const std::string& fn, _rec_file_info_* info)
{
    tm start{};
    int video_res = 0;
    int video_system = 0;
    _ifs_stream_type_ stream;
    if (!Is_sub_string(fn.c_str(), k_prefix) || !Get_ymdhms(Text_from(fn, NAME_START_TIME), &start) ||
        !Get_value(Text_from(fn, NAME_VIDEO_RES), 2, &video_res) ||
        !Get_value(Text_from(fn, NAME_VIDEO_SYSTEM), 1, &video_system) || !Parse_stream(fn, &stream) ||
        !Has_dot(fn) || SIrf_is_media_suffix(fn) != 0) {
        return -1;
    }
    start.tm_year -= 1900;
    start.tm_mon -= 1;

    if (info->info_mask & REC_INFO_START_TIME) {
        info->rec.start_tm = start;
    }
    if (info->info_mask & REC_INFO_STREAM_TYPE) {
        info->rec.stream_type = stream;
    }
    if (info->info_mask & REC_INFO_VIDEO_RES) {
        info->rec.video_res = static_cast<unsigned char>(video_res);
    }
    if (info->info_mask & REC_INFO_VIDEO_SYSTEM) {
        info->rec.video_system = static_cast<unsigned char>(video_system);
    }
    return (info->info_mask & ~static_cast<unsigned>(REC_INFO_NAME)) == 0 ? 0 : -1;
}

int CIpcRecFile::SIrf_remove_file(const char* dir, const char* fn)
{
    const std::string path = std::string(dir) + "/" + fn;
    IFS_TRACE("Remove file(%s)\n", path.c_str());
    return Ifsod_remove_file(path.c_str());
}
