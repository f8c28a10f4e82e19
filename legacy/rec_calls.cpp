#include <cstdlib>
#include <memory>

#include "ifs_legacy.h"

namespace
{

struct Free {
    void operator()(void* memory) const { free(memory); }
};

_ifs_stream_type_ Stream(int selector)
{
    return selector == 0 ? IFS_STREAM_MAIN : IFS_STREAM_SUB;
}

/** Fetch up to count results into entries and convert them. @return as Ifsi_find_next() */
int Fetch(int handle, record* records, record_stat_t* stats, int count, _ifs_rec_file_* entries)
{
    const int fetched = Ifsi_find_next(handle, count, entries);
    for (int i = 0; i < fetched; ++i) {
        rec_transfer(&entries[i], &records[i]);
        rec_transfer(&entries[i], &stats[i]);
    }
    return fetched;
}

} // namespace

int rec_get_calendar(tm* start, tm* end, unsigned char* days)
{
    return Ifsi_get_rec_calendar(start, end, IFS_STREAM_MAIN, days);
}

int rec_find_open(tm* start, tm* end, int /*ignored*/, int stream)
{
    return Ifsi_find_open(start, end, Stream(stream));
}

int rec_find_close(int handle)
{
    return Ifsi_find_close(handle);
}

int rec_find_getcounts(int handle)
{
    return Ifsi_find_get_count(handle);
}

int rec_find_next(int handle, record* records, record_stat_t* stats, int count)
{
    if (count <= 0) {
        return -1;
    }
    if (count == 1) {
        _ifs_rec_file_ entry;
        return Fetch(handle, records, stats, 1, &entry);
    }
    // calloc() refuses a count whose bytes no size_t holds, as on the camera it may.
    const std::unique_ptr<void, Free> entries(calloc(static_cast<size_t>(count), sizeof(_ifs_rec_file_)));
    if (!entries) {
        return -1;
    }
    return Fetch(handle, records, stats, count, static_cast<_ifs_rec_file_*>(entries.get()));
}

int rec_get_file_name(tm* time, int stream, char* name)
{
    return Ifsi_get_file_name_v2(time, Stream(stream), name);
}

int rec_open(int /*ignored*/, tm* start, int stream)
{
    return Ifsi_open_v2(start, Stream(stream));
}

int rec_close(int handle, tm* end)
{
    return Ifsi_close(handle, end);
}

int rec_tseek(int handle, unsigned int time, int /*ignored*/, int* out)
{
    *out = 0;
    return Ifsi_tseek(handle, time);
}

int rec_stat(int handle, record_info_t* info)
{
    _ifs_rec_file_ entry;
    if (Ifsi_stat(handle, &entry) != 0) {
        return -1;
    }
    rec_transfer(&entry, info);
    return 0;
}
