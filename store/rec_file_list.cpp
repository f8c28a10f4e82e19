#include "store/rec_file_list.h"

#include <algorithm>

#include "util/calendar_time.h"
#include "util/log.h"

bool Ifs_rec_file_sort(_ifs_rec_file_& a, _ifs_rec_file_& b)
{
    return Ifsm_tm_cmp(&a.start_tm, &b.start_tm) != 1;
}

bool Ifs_sort_rec_file_list(Rec_file_list& list)
{
    const auto ascends = [&list] {
        const auto not_before = [](_ifs_rec_file_& a, _ifs_rec_file_& b) { return Ifs_rec_file_sort(b, a); };
        return std::adjacent_find(list.begin(), list.end(), not_before) == list.end();
    };
    if (ascends()) {
        return true;
    }
    list.sort([](_ifs_rec_file_& a, _ifs_rec_file_& b) { return Ifs_rec_file_sort(a, b); });
    return ascends();
}

void Ifs_rec_file_info_init(_ifs_rec_file_* rec)
{
    *rec = {};
    rec->video_res = 255;
    rec->video_system = 255;
    rec->frame_rate = 255;
    rec->width = -1;
    rec->height = -1;
    rec->file_size = -1;
}

void Ifs_rec_file_info_copy(Rec_file_list::iterator& it, _ifs_rec_file_* rec, bool to_rec)
{
    if (to_rec) {
        *rec = *it;
    } else {
        *it = *rec;
    }
}

void Ifs_print_rec_file_info(const char* tag, int number, _ifs_rec_file_* rec)
{
    IFS_DETAIL("\n\n#(%s, %d)########################################\n", tag != nullptr ? tag : "", number);
    IFS_DETAIL("stream type:%s\n", Ifs_stream_word(rec->stream_type));
    IFS_DETAIL("start time:" IFS_TM_FORMAT "\n", IFS_TM_ARGS(rec->start_tm));
    IFS_DETAIL("end time:" IFS_TM_FORMAT "\n", IFS_TM_ARGS(rec->end_tm));
    IFS_DETAIL("resolution(%d):%d * %d\n", rec->video_res, rec->width, rec->height);
    IFS_DETAIL("frame rate:%d\n", rec->frame_rate);
    IFS_DETAIL("have audio:%d\n", rec->have_audio);
    IFS_DETAIL("audio profile:%d\n", rec->audio_profile);
    IFS_DETAIL("audio sample rate index:%d\n", rec->audio_sample_rate_index);
    IFS_DETAIL("audio channel conf:%d\n", rec->audio_channel_conf);
    IFS_DETAIL("file size:%d\n", rec->file_size);
    IFS_DETAIL("#########################################\n\n\n");
}

void Ifs_print_rec_file_info(const char* tag, int number, Rec_file_list::iterator& it)
{
    _ifs_rec_file_ local;
    Ifs_rec_file_info_copy(it, &local, true);
    Ifs_print_rec_file_info(tag, number, &local);
}
