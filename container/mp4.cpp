// The functions are found by a shared library, whatever this one is compiled with.
#pragma GCC visibility push(default)
#include "include/kt_mp4.h"
#pragma GCC visibility pop

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <string>

#include "container/failure.h"
#include "container/reader.h"
#include "container/writer.h"

namespace
{

using ifs_mp4::failure;
using ifs_mp4::Pieces;
using ifs_mp4::Reader;
using ifs_mp4::Writer;

/** What a handle points to: one of the two. */
struct File {
    std::unique_ptr<Writer> writer;
    std::unique_ptr<Reader> reader;
    char name[sizeof(kt_mfile_info_t::name)] = {};
};

int result(bool success)
{
    return success ? 0 : -1;
}

/** Call a function that may run out of memory. */
template <class Function>
int guarded(Function function)
{
    try {
        return function();
    } catch (const std::exception&) {
        return failure(ENOMEM);
    }
}

void set_name(File& file, const char* path)
{
    const std::string name = ifs_mp4::name_of(path);
    name.copy(file.name, sizeof file.name - 1);
}

} // namespace

void* kt_mp4_open(char* path, int width, int height, int frame_rate, int audio_profile,
                  int audio_sample_rate_index, int audio_channel_conf, int mode, int have_audio, int, int)
{
    if (!path || (mode & (KT_MP4_READ | KT_MP4_CREATE | KT_MP4_PROBE)) == 0) {
        errno = EINVAL;
        return nullptr;
    }
    kt_mfile_info_t info{};
    info.width = width;
    info.height = height;
    info.frame_rate = frame_rate;
    info.have_audio = have_audio;
    info.audio_profile = audio_profile;
    info.audio_sample_rate_index = audio_sample_rate_index;
    info.audio_channel_conf = audio_channel_conf;
    try {
        auto file = std::make_unique<File>();
        set_name(*file, path);
        if (mode & KT_MP4_CREATE)
            file->writer = Writer::create(path, info);
        else
            file->reader = Reader::open(path, (mode & KT_MP4_READ) == 0);
        return file->writer || file->reader ? file.release() : nullptr;
    } catch (const std::exception&) {
        errno = ENOMEM;
        return nullptr;
    }
}

int kt_mp4_write(void* handle, int kind, char* data1, int len1, char* data2, int len2, unsigned int timestamp)
{
    auto* file = static_cast<File*>(handle);
    if (!file || !file->writer)
        return failure(EBADF);
    if (len1 < 0 || len2 < 0 || (!data1 && len1 > 0) || (!data2 && len2 > 0) || (len1 == 0 && len2 == 0))
        return failure(EINVAL);
    Pieces frame(data1, static_cast<size_t>(len1), data2, static_cast<size_t>(len2));
    return guarded([&] { return result(file->writer->write(kind, frame, timestamp)); });
}

int kt_mp4_read(void* handle, int* kind, char* buf, int capacity, unsigned int* timestamp)
{
    auto* file = static_cast<File*>(handle);
    if (!file || !file->reader)
        return failure(EBADF);
    if (!kind || !timestamp || capacity < 0 || (!buf && capacity > 0))
        return failure(EINVAL);
    return guarded([&] { return file->reader->read(*kind, buf, static_cast<size_t>(capacity), *timestamp); });
}

int kt_mp4_seek_read(void* handle, unsigned int offset)
{
    auto* file = static_cast<File*>(handle);
    if (!file || !file->reader)
        return failure(EBADF);
    return result(file->reader->seek(offset));
}

int kt_mp4_getinfo(void* handle, kt_mfile_info_t* info)
{
    auto* file = static_cast<File*>(handle);
    if (!file || !info)
        return failure(EINVAL);
    *info = file->writer ? file->writer->info() : file->reader->info();
    std::copy_n(file->name, sizeof file->name, info->name);
    return 0;
}

int kt_mp4_flush(void* handle)
{
    auto* file = static_cast<File*>(handle);
    if (!file)
        return failure(EBADF);
    return guarded([&] { return result(!file->writer || file->writer->flush()); });
}

int kt_mp4_close(void* handle)
{
    if (!handle)
        return failure(EBADF);
    std::unique_ptr<File> file(static_cast<File*>(handle));
    return guarded([&] { return result(!file->writer || file->writer->close()); });
}
