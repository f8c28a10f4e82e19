#include "scripts/witness_host/footage.h"

#include <fstream>
#include <iterator>
#include <unistd.h>

#include "kt_mp4.h"

namespace
{

std::string read_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_frame(void* file, int kind, std::string frame, unsigned pts_ms)
{
    kt_mp4_write(file, kind, frame.data(), static_cast<int>(frame.size()), nullptr, 0, pts_ms);
}

void write_frames(void* file, const Footage& footage, unsigned first_pts_ms, Random& random)
{
    for (int second = 0; second <= footage.seconds; second++) {
        const bool key = second % 4 == 0;
        const unsigned pts_ms = first_pts_ms + static_cast<unsigned>(second) * 1000;
        write_frame(file, key ? KT_MP4_VIDEO_KEY : KT_MP4_VIDEO_OTHER, picture(key, 10 + random.below(90)),
                    pts_ms);
        if (footage.have_audio)
            write_frame(file, KT_MP4_AUDIO, sound(7 + random.below(30)), pts_ms + 20);
    }
}

Footage make_one(const std::string& folder, int seconds, bool finished, Random& random)
{
    Footage footage{{},
                    seconds,
                    random.one_of({320, 1280}),
                    random.one_of({240, 720}),
                    random.one_of({1, 25}),
                    random.one_of({0, 1})};
    std::string path = folder + "/footage.mp4";
    void* const file = kt_mp4_open(path.data(), footage.width, footage.height, footage.frame_rate, 2, 11, 1,
                                   KT_MP4_CREATE, footage.have_audio, 320, 0);
    if (!file)
        return footage;
    write_frames(file, footage, random.one_of({0u, 0u, 40u, 5000000u}), random);
    kt_mp4_flush(file);
    if (!finished)
        footage.bytes = read_file(path);
    kt_mp4_close(file);
    if (finished)
        footage.bytes = read_file(path);
    unlink(path.c_str());
    return footage;
}

} // namespace

std::string picture(bool key, size_t bytes)
{
    // SPS and PPS of 320 x 240 pixels.
    static constexpr char parameter_sets[] =
        "\0\0\0\1\x67\x42\xc0\x0d\xda\x05\x07\xec\x04\x40\0\0\3\0\x40\0\0\x0c\x83"
        "\xc5\x0a\xa8\0\0\0\1\x68\xce\x0f\xc8";
    static constexpr char start_code[] = "\0\0\0\1";
    std::string frame;
    if (key)
        frame.assign(parameter_sets, sizeof parameter_sets - 1);
    frame.append(start_code, sizeof start_code - 1);
    frame += key ? '\x65' : '\x41';
    return frame + std::string(bytes, '\x55');
}

std::string sound(size_t bytes)
{
    return '\x21' + std::string(bytes, '\x10');
}

std::vector<Footage> make_footage(const std::string& folder, Random& random)
{
    std::vector<Footage> all;
    for (const int seconds : {0, 1, 10, 59, 60, 61})
        all.push_back(make_one(folder, seconds, true, random));
    for (const int seconds : {2, 30})
        all.push_back(make_one(folder, seconds, false, random));
    return all;
}
