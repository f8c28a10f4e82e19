#include "tests/container/camera.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

namespace camera
{
namespace
{

uint32_t be32(const std::string& bytes, size_t at)
{
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    return value;
}

/** Encode once per set of options; the tests of one run share the result. */
std::string encoded(const std::string& arguments, const std::string& format)
{
    mkdir("streams", 0755);
    std::string path = "streams/" + std::to_string(std::hash<std::string>()(arguments)) + "." + format;
    if (access(path.c_str(), R_OK) != 0) {
        std::string part = path + "." + std::to_string(getpid());
        std::string messages = run("ffmpeg -v error -y " + arguments + " -f " + format + " " + part);
        if (!messages.empty() || rename(part.c_str(), path.c_str()) != 0)
            std::fprintf(stderr, "no test stream: %s\n", messages.c_str());
    }
    return load(path);
}

Frames video_of(const std::string& stream)
{
    Frames frames;
    for (const std::string& nal : nal_units(stream)) {
        int type = nal[0] & 31;
        if (type == 9)
            frames.push_back({KT_MP4_VIDEO_OTHER, "", 40 * static_cast<unsigned>(frames.size())});
        frames.back().bytes += start_code + nal;
        if (type == 5)
            frames.back().kind = KT_MP4_VIDEO_KEY;
    }
    return frames;
}

Frames audio_of(const std::string& stream)
{
    Frames frames;
    for (size_t at = 0; at + 7 <= stream.size(); at += frames.back().bytes.size()) {
        auto timestamp = static_cast<unsigned>(frames.size() * 1024 * 1000 / 44100);
        frames.push_back({KT_MP4_AUDIO, stream.substr(at, be32(stream, at + 2) >> 5 & 0x1fff), timestamp});
    }
    return frames;
}

} // namespace

Frames shoot(const Scene& scene)
{
    std::string length = " -t " + std::to_string(scene.seconds);
    Frames frames =
        video_of(encoded("-f lavfi -i testsrc2=rate=25:size=" + scene.size + length +
                             " -c:v libx264 -preset ultrafast -x264-params aud=1:keyint=25:" + scene.x264,
                         "h264"));
    if (scene.audio) {
        Frames audio =
            audio_of(encoded("-f lavfi -i sine=sample_rate=44100" + length + " -c:a aac -b:a 48k", "adts"));
        frames.insert(frames.end(), audio.begin(), audio.end());
    }
    std::stable_sort(frames.begin(), frames.end(),
                     [](const Frame& a, const Frame& b) { return a.timestamp < b.timestamp; });
    return frames;
}

Frames without_adts(Frames frames)
{
    for (Frame& frame : frames) {
        if (frame.kind == KT_MP4_AUDIO)
            frame.bytes.erase(0, 7);
    }
    return frames;
}

Frames without_audio(const Frames& frames, unsigned begin, unsigned end)
{
    Frames kept;
    std::copy_if(frames.begin(), frames.end(), std::back_inserter(kept), [=](const Frame& frame) {
        return frame.kind != KT_MP4_AUDIO || frame.timestamp < begin || frame.timestamp >= end;
    });
    return kept;
}

Frames only_video(const Frames& frames)
{
    return without_audio(frames, 0, UINT_MAX);
}

bool is_part(const Frames& part, const Frames& whole)
{
    auto next = whole.begin();
    return std::all_of(part.begin(), part.end(), [&](const Frame& frame) {
        next = std::find(next, whole.end(), frame);
        return next != whole.end() && next++ != whole.end();
    });
}

std::vector<std::string> nal_units(const std::string& frame)
{
    const std::string code("\0\0\1", 3);
    std::vector<std::string> nals;
    size_t at = frame.find(code);
    while (at != std::string::npos) {
        size_t next = frame.find(code, at + 3);
        nals.push_back(frame.substr(at + 3, next - at - 3));
        nals.back().erase(nals.back().find_last_not_of('\0') + 1); // the first zero of four-byte start codes
        at = next;
    }
    return nals;
}

Mp4::Mp4(const std::string& path, int mode, bool audio)
{
    bool create = mode == KT_MP4_CREATE;
    std::string copy = path;
    m_handle = create
                   ? kt_mp4_open(&copy[0], 320, 240, 25, 2, SAMPLE_RATE_INDEX_44100, 1, mode, audio, 320, 0)
                   : kt_mp4_open(&copy[0], 0, 0, 0, 0, 0, 0, mode, 0, 320, 0);
}

int Mp4::write(const Frame& frame, size_t first_piece)
{
    std::string data1 = frame.bytes.substr(0, first_piece);
    std::string data2 = frame.bytes.substr(data1.size());
    return kt_mp4_write(m_handle, frame.kind, &data1[0], static_cast<int>(data1.size()), &data2[0],
                        static_cast<int>(data2.size()), frame.timestamp);
}

int Mp4::write(const Frames& frames)
{
    return static_cast<int>(std::count_if(frames.begin(), frames.end(),
                                          [this](const Frame& frame) { return write(frame) != 0; }));
}

int Mp4::read(Frame& frame, size_t capacity)
{
    thread_local std::string buf;
    buf.resize(capacity);
    char* data = capacity > 0 ? &buf[0] : nullptr;
    int length = kt_mp4_read(m_handle, &frame.kind, data, static_cast<int>(capacity), &frame.timestamp);
    frame.bytes = buf.substr(0, static_cast<size_t>(std::max(length, 0)));
    return length;
}

Frames Mp4::read_all()
{
    Frames frames;
    Frame frame{};
    while (m_handle && read(frame) > 0)
        frames.push_back(frame);
    return frames;
}

kt_mfile_info_t Mp4::info() const
{
    kt_mfile_info_t info{};
    kt_mp4_getinfo(m_handle, &info);
    return info;
}

int Mp4::close()
{
    int result = m_handle ? kt_mp4_close(m_handle) : 0;
    m_handle = nullptr;
    return result;
}

void expect_seeks(Mp4& player, const Frames& frames)
{
    for (unsigned offset = 0; offset < 6200; offset += 7) {
        auto expected = std::find_if(frames.begin(), frames.end(),
                                     [=](const Frame& frame) { return frame.timestamp >= offset; });
        ASSERT_EQ(player.seek(offset), 0);
        ASSERT_EQ(player.read_all(), Frames(expected, frames.end())) << offset;
    }
}

int error_of(int result)
{
    return result < 0 ? errno : 0;
}

void record(const std::string& path, const Frames& frames, bool audio)
{
    EXPECT_EQ(Mp4(path, KT_MP4_CREATE, audio).write(frames), 0);
}

Frames read_back(const std::string& path)
{
    return Mp4(path, KT_MP4_READ).read_all();
}

std::string load(const std::string& path)
{
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

void save(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string without_checks(std::string bytes)
{
    const std::string uuid("\x70\xe6\x3b\xc5\x03", 5);
    for (size_t at = 0; (at = bytes.find(uuid, at)) != std::string::npos;)
        bytes[at] = 'x';
    return bytes;
}

std::vector<size_t> box_boundaries(const std::string& bytes)
{
    const std::string parents = "moov trak mdia minf stbl mvex moof traf";
    std::vector<size_t> boundaries;
    size_t at = 0;
    while (at + 8 <= bytes.size()) {
        boundaries.push_back(at);
        bool enter = parents.find(bytes.substr(at + 4, 4)) != std::string::npos;
        // The mdat of a finished file hides the boxes of the recording behind 16 bytes.
        if (be32(bytes, at) == 1)
            at += 16;
        else
            at += enter ? 8 : be32(bytes, at);
    }
    boundaries.push_back(bytes.size());
    return boundaries;
}

std::string run(const std::string& command)
{
    std::string output;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    for (int c; (c = fgetc(pipe)) != EOF;)
        output += static_cast<char>(c);
    pclose(pipe);
    return output;
}

std::string probe(const std::string& path, const std::string& entries)
{
    return run("ffprobe -v error -of csv=p=0 -show_entries " + entries + " " + path);
}

std::string decode(const std::string& path)
{
    std::string messages = run("ffmpeg -v error -i " + path + " -f null -");
    std::string frames = probe(path, "stream=nb_read_frames -count_frames -select_streams v");
    return messages + frames.substr(0, frames.find_first_of(",\n"));
}

} // namespace camera
