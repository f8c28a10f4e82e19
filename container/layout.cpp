#include "container/layout.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <limits>

#include <unistd.h>

#include "container/failure.h"
#include "container/file.h"
#include "container/limits.h"

namespace ifs_mp4
{

const uint8_t info_uuid[uuid_bytes] = {0x8c, 0x1e, 0x52, 0x6b, 0x0f, 0xd3, 0x4a, 0x97,
                                       0xa4, 0x2d, 0x91, 0x70, 0xe6, 0x3b, 0xc5, 0x01};
const uint8_t exact_uuid[uuid_bytes] = {0x8c, 0x1e, 0x52, 0x6b, 0x0f, 0xd3, 0x4a, 0x97,
                                        0xa4, 0x2d, 0x91, 0x70, 0xe6, 0x3b, 0xc5, 0x02};
const uint8_t check_uuid[uuid_bytes] = {0x8c, 0x1e, 0x52, 0x6b, 0x0f, 0xd3, 0x4a, 0x97,
                                        0xa4, 0x2d, 0x91, 0x70, 0xe6, 0x3b, 0xc5, 0x03};

namespace
{

constexpr uint32_t ms_timescale = 1000;
constexpr uint32_t track_in_movie = 3; // enabled, part of the presentation

// What boxes take stands beside what appends them: a full file can only be closed when the room that was kept
// for its tables is large enough.
constexpr size_t box_bytes = 8;       // size, type
constexpr size_t full_box_bytes = 12; // and version, flags
constexpr size_t table_bytes = 16;    // and a count of entries

uint32_t clamp32(uint64_t value)
{
    return static_cast<uint32_t>(std::min<uint64_t>(value, std::numeric_limits<uint32_t>::max()));
}

void put_matrix(Bytes& out)
{
    for (uint32_t value : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u})
        put32(out, value);
}

uint64_t track_duration(const Movie& movie, int track)
{
    const Track& samples = movie.tables.tracks[track];
    if (samples.count == 0)
        return 0;
    return samples.last_time - samples.start_time + movie.frame_time_ms(track);
}

constexpr size_t mvhd_bytes = full_box_bytes + 96;

void put_mvhd(Bytes& out, uint32_t duration)
{
    BoxScope box(out, "mvhd", 0, 0);
    put64(out, 0); // created, modified: unknown
    put32(out, ms_timescale);
    put32(out, duration);
    put32(out, 0x00010000); // rate
    put16(out, 0x0100);     // volume
    put_zeros(out, 10);
    put_matrix(out);
    put_zeros(out, 24);
    put32(out, track_count + 1);
}

constexpr size_t info_bytes = box_bytes + uuid_bytes + 8 + std::size(info_fields) * 4 + 8;

void put_info(Bytes& out, const Movie& movie, bool complete)
{
    BoxScope box(out, "uuid");
    put_bytes(out, info_uuid, uuid_bytes);
    put32(out, layout_version);
    put32(out, complete);
    for (auto field : info_fields)
        put32(out, static_cast<uint32_t>(movie.info.*field));
    put64(out, movie.tables.tracks[audio_track].start_time);
}

constexpr size_t exact_bytes = box_bytes + uuid_bytes + size_t{track_count + 2} * 4; // without entries

void put_header_entry(Bytes& out, const AdtsRun& run)
{
    put32(out, run.sample);
    put8(out, run.header.size);
    put_bytes(out, run.header.bytes, AdtsHeader::max_size);
    put_zeros(out, exact_header_bytes - 5 - AdtsHeader::max_size);
}

void put_order(Bytes& out, const FrameOrder& order)
{
    put32(out, static_cast<uint32_t>(order.size()));
    put_bytes(out, order.bits().data(), order.bits().size());
}

void put_exact(Bytes& out, const ExactTables& exact)
{
    BoxScope box(out, "uuid");
    put_bytes(out, exact_uuid, uuid_bytes);
    for (const auto& anchors : exact.anchors) {
        put32(out, static_cast<uint32_t>(anchors.size()));
        for (const Anchor& anchor : anchors) {
            put32(out, anchor.sample);
            put32(out, anchor.offset_ms);
        }
    }
    put32(out, static_cast<uint32_t>(exact.headers.size()));
    for (const AdtsRun& run : exact.headers)
        put_header_entry(out, run);
    put_order(out, exact.order);
}

constexpr size_t max_name_bytes = 255;
// Without a decoder configuration and the sums of the pieces.
constexpr size_t max_check_bytes =
    box_bytes + uuid_bytes + 8 + size_t{3} * 4 + 1 + max_name_bytes + 2 + 4 + checksum_bytes;

const Bytes no_config;

/** The sums are 0 until the box that ends with this one is sealed. */
void put_check(Bytes& out, const Movie& movie, const FragmentPlace& place, const Bytes& config, size_t pieces)
{
    const size_t name_bytes = std::min(movie.name.size(), max_name_bytes);
    BoxScope box(out, "uuid");
    put_bytes(out, check_uuid, uuid_bytes);
    put64(out, movie.identity);
    put32(out, place.number);
    put32(out, static_cast<uint32_t>(place.offset));
    put32(out, static_cast<uint32_t>(place.durable_end));
    put8(out, static_cast<uint32_t>(name_bytes));
    put_bytes(out, reinterpret_cast<const uint8_t*>(movie.name.data()), name_bytes);
    put16(out, static_cast<uint32_t>(config.size()));
    put_bytes(out, config.data(), config.size());
    put32(out, static_cast<uint32_t>(pieces));
    put_zeros(out, (pieces + 1) * checksum_bytes);
}

constexpr size_t tkhd_bytes = full_box_bytes + 80;

void put_tkhd(Bytes& out, const Movie& movie, int track)
{
    bool video = track == video_track;
    uint64_t end = movie.tables.tracks[track].start_time + track_duration(movie, track);
    BoxScope box(out, "tkhd", 0, track_in_movie);
    put64(out, 0);
    put32(out, static_cast<uint32_t>(track + 1));
    put32(out, 0);
    put32(out, clamp32(end));
    put_zeros(out, 12);
    put16(out, video ? 0 : 0x0100); // volume
    put16(out, 0);
    put_matrix(out);
    put32(out, video ? static_cast<uint32_t>(movie.info.width) << 16 : 0);
    put32(out, video ? static_cast<uint32_t>(movie.info.height) << 16 : 0);
}

constexpr size_t edts_bytes = box_bytes + table_bytes + size_t{2} * 12;

/** An edit that lets a track begin later than the movie. */
void put_late_start(Bytes& out, const Movie& movie, int track)
{
    uint64_t start = movie.tables.tracks[track].start_time;
    if (start == 0 || movie.tables.tracks[track].count == 0)
        return;
    BoxScope edts(out, "edts");
    BoxScope elst(out, "elst", 0, 0);
    put32(out, 2);
    put32(out, clamp32(start));
    put32(out, 0xffffffff); // nothing is shown
    put32(out, 0x00010000);
    put32(out, clamp32(track_duration(movie, track)));
    put32(out, 0);
    put32(out, 0x00010000);
}

constexpr size_t mdhd_bytes = full_box_bytes + 20;

void put_mdhd(Bytes& out, uint32_t duration)
{
    BoxScope box(out, "mdhd", 0, 0);
    put64(out, 0);
    put32(out, ms_timescale);
    put32(out, duration);
    put16(out, 0x55c4); // language: undetermined
    put16(out, 0);
}

constexpr size_t hdlr_bytes = full_box_bytes + 21;

void put_hdlr(Bytes& out, bool video)
{
    BoxScope box(out, "hdlr", 0, 0);
    put32(out, 0);
    put32(out, video ? fourcc("vide") : fourcc("soun"));
    put_zeros(out, 12);
    put8(out, 0); // name: empty
}

constexpr size_t max_media_header_bytes = full_box_bytes + 8;

void put_media_header(Bytes& out, bool video)
{
    if (video) {
        BoxScope box(out, "vmhd", 0, 1);
        put64(out, 0);
    } else {
        BoxScope box(out, "smhd", 0, 0);
        put32(out, 0);
    }
}

constexpr size_t dinf_bytes = box_bytes + table_bytes + full_box_bytes;

void put_dinf(Bytes& out)
{
    BoxScope dinf(out, "dinf");
    BoxScope dref(out, "dref", 0, 0);
    put32(out, 1);
    BoxScope url(out, "url ", 0, 1); // the file itself
}

void put_sample_entry_start(Bytes& out)
{
    put_zeros(out, 6);
    put16(out, 1); // data reference
}

constexpr size_t max_avc1_bytes = box_bytes + 78 + box_bytes + max_avc_config_bytes;

void put_avc1(Bytes& out, const Movie& movie)
{
    constexpr uint32_t dpi_72 = 0x00480000;
    BoxScope avc1(out, "avc1");
    put_sample_entry_start(out);
    put_zeros(out, 16);
    put16(out, static_cast<uint32_t>(movie.info.width));
    put16(out, static_cast<uint32_t>(movie.info.height));
    put32(out, dpi_72);
    put32(out, dpi_72);
    put32(out, 0);
    put16(out, 1); // frames in a sample
    put_zeros(out, 32);
    put16(out, 24); // depth
    put16(out, 0xffff);
    BoxScope avcc(out, "avcC");
    put_bytes(out, movie.avc_config.data(), movie.avc_config.size());
}

struct AudioConfig {
    int object_type;
    int sample_rate_index;
    int channel_conf;
};

/** What the frames say, or else what was given at create. */
AudioConfig audio_config(const Movie& movie)
{
    constexpr int aac_lc = 2;
    if (movie.adts.size > 0)
        return {movie.adts.object_type(), movie.adts.sample_rate_index(), movie.adts.channel_conf()};
    int index = movie.info.audio_sample_rate_index;
    int channels = movie.info.audio_channel_conf;
    return {aac_lc, index < 0 || index > 12 ? SAMPLE_RATE_INDEX_16000 : index,
            channels < 1 || channels > 7 ? 1 : channels};
}

void put_esds(Bytes& out, const AudioConfig& config)
{
    BoxScope box(out, "esds", 0, 0);
    uint32_t specific = static_cast<uint32_t>(config.object_type) << 11 |
                        static_cast<uint32_t>(config.sample_rate_index) << 7 |
                        static_cast<uint32_t>(config.channel_conf) << 3;
    put16(out, 0x0319); // ES descriptor, 25 bytes
    put16(out, 0);      // ES id
    put8(out, 0);
    put16(out, 0x0411); // decoder configuration, 17 bytes
    put8(out, 0x40);    // MPEG-4 audio
    put8(out, 0x15);    // audio stream
    put_zeros(out, 11); // buffer size, bit rates: unknown
    put16(out, 0x0502); // AudioSpecificConfig, 2 bytes
    put16(out, specific);
    put16(out, 0x0601); // sync layer: as in MP4 files
    put8(out, 2);
}

constexpr size_t mp4a_bytes = box_bytes + 28 + full_box_bytes + 27; // esds is the second half

void put_mp4a(Bytes& out, const Movie& movie)
{
    AudioConfig config = audio_config(movie);
    uint32_t rate = sample_rate_hz(config.sample_rate_index);
    BoxScope mp4a(out, "mp4a");
    put_sample_entry_start(out);
    put64(out, 0);
    put16(out, static_cast<uint32_t>(config.channel_conf == 7 ? 8 : config.channel_conf));
    put16(out, 16); // bits in a sample
    put32(out, 0);
    put32(out, rate > 0xffff ? 0 : rate << 16);
    put_esds(out, config);
}

void put_stsd(Bytes& out, const Movie& movie, int track)
{
    BoxScope box(out, "stsd", 0, 0);
    put32(out, 1);
    if (track == video_track)
        put_avc1(out, movie);
    else
        put_mp4a(out, movie);
}

void put_runs(Bytes& out, const std::vector<Run>& runs)
{
    put32(out, static_cast<uint32_t>(runs.size()));
    for (const Run& run : runs) {
        put32(out, run.count);
        put32(out, run.value);
    }
}

void put_times(Bytes& out, const Track& track)
{
    {
        BoxScope stts(out, "stts", 0, 0);
        put_runs(out, track.durations);
    }
    bool in_order = std::all_of(track.show_offsets.begin(), track.show_offsets.end(),
                                [](const Run& run) { return run.value == 0; });
    if (in_order)
        return;
    BoxScope ctts(out, "ctts", 1, 0);
    put_runs(out, track.show_offsets);
}

void put_keys(Bytes& out, const Track& track)
{
    BoxScope stss(out, "stss", 0, 0);
    put32(out, static_cast<uint32_t>(track.keys.size()));
    for (uint32_t key : track.keys)
        put32(out, key + 1);
}

void put_chunk_counts(Bytes& out, const std::vector<Chunk>& chunks)
{
    BoxScope stsc(out, "stsc", 0, 0);
    size_t count_at = out.size();
    uint32_t entries = 0;
    put32(out, 0);
    for (size_t i = 0; i < chunks.size(); ++i) {
        if (i > 0 && chunks[i].count == chunks[i - 1].count)
            continue;
        put32(out, static_cast<uint32_t>(i + 1));
        put32(out, chunks[i].count);
        put32(out, 1); // sample description
        ++entries;
    }
    store32(out.data() + count_at, entries);
}

void put_sizes(Bytes& out, const Track& track)
{
    BoxScope stsz(out, "stsz", 0, 0);
    put32(out, 0);
    put32(out, track.count);
    for (uint32_t size : track.sizes)
        put32(out, size);
}

void put_chunk_offsets(Bytes& out, const std::vector<Chunk>& chunks)
{
    BoxScope stco(out, "stco", 0, 0);
    put32(out, static_cast<uint32_t>(chunks.size()));
    for (const Chunk& chunk : chunks)
        put32(out, static_cast<uint32_t>(chunk.offset));
}

// stsd, stts, ctts, stss, stsc, stsz, stco, without entries.
constexpr size_t stbl_bytes = box_bytes + 6 * table_bytes + (table_bytes + 4);

void put_stbl(Bytes& out, const Movie& movie, int track)
{
    const Track& samples = movie.tables.tracks[track];
    BoxScope stbl(out, "stbl");
    put_stsd(out, movie, track);
    put_times(out, samples);
    if (track == video_track)
        put_keys(out, samples);
    put_chunk_counts(out, samples.chunks);
    put_sizes(out, samples);
    put_chunk_offsets(out, samples.chunks);
}

constexpr size_t max_trak_bytes = box_bytes + tkhd_bytes + edts_bytes + box_bytes + mdhd_bytes + hdlr_bytes +
                                  box_bytes + max_media_header_bytes + dinf_bytes + stbl_bytes;

void put_trak(Bytes& out, const Movie& movie, int track)
{
    bool video = track == video_track;
    BoxScope trak(out, "trak");
    put_tkhd(out, movie, track);
    put_late_start(out, movie, track);
    BoxScope mdia(out, "mdia");
    put_mdhd(out, clamp32(track_duration(movie, track)));
    put_hdlr(out, video);
    BoxScope minf(out, "minf");
    put_media_header(out, video);
    put_dinf(out);
    put_stbl(out, movie, track);
}

constexpr size_t trex_bytes = full_box_bytes + 20;

void put_trex(Bytes& out, int track)
{
    BoxScope trex(out, "trex", 0, 0);
    put32(out, static_cast<uint32_t>(track + 1));
    put32(out, 1); // sample description
    put64(out, 0);
    put32(out, key_sample_flags);
}

// Of any moov, without entries.
constexpr size_t max_moov_bytes =
    box_bytes + mvhd_bytes + info_bytes + track_count * max_trak_bytes + max_avc1_bytes + mp4a_bytes +
    std::max(exact_bytes + max_check_bytes, box_bytes + track_count * trex_bytes);

void put_empty_moov(Bytes& out, const Movie& movie)
{
    BoxScope moov(out, "moov");
    put_mvhd(out, 0);
    put_info(out, movie, false);
    put_trak(out, movie, video_track);
    if (movie.info.have_audio)
        put_trak(out, movie, audio_track);
    BoxScope mvex(out, "mvex");
    put_trex(out, video_track);
    if (movie.info.have_audio)
        put_trex(out, audio_track);
}

void put_video_entry(Bytes& out, const Sample& sample, uint32_t duration)
{
    put32(out, duration);
    put32(out, sample.size);
    put32(out, sample.key ? key_sample_flags : other_sample_flags);
    put32(out, static_cast<uint32_t>(sample.show_time - sample.decode_time));
}

void put_trun(Bytes& out, const std::vector<Sample>& samples, int track, uint32_t last_duration)
{
    bool video = track == video_track;
    BoxScope trun(out, "trun", video ? 1 : 0, video ? video_trun_flags : audio_trun_flags);
    put32(out, static_cast<uint32_t>(samples.size()));
    put32(out, 0); // data offset: stored when the size of the moof is known
    for (size_t i = 0; i < samples.size(); ++i) {
        bool last = i + 1 == samples.size();
        uint64_t duration = last ? last_duration : samples[i + 1].decode_time - samples[i].decode_time;
        if (video) {
            put_video_entry(out, samples[i], static_cast<uint32_t>(duration));
        } else {
            put32(out, static_cast<uint32_t>(duration));
            put32(out, samples[i].size);
        }
    }
}

constexpr size_t mfhd_bytes = full_box_bytes + 4;
constexpr size_t tfhd_bytes = full_box_bytes + 4;
constexpr size_t tfdt_bytes = full_box_bytes + 8;
constexpr size_t traf_bytes = box_bytes + tfhd_bytes + tfdt_bytes + (table_bytes + 4);

/** @return index of the trun's data offset in out */
size_t put_traf(Bytes& out, const std::vector<Sample>& samples, int track, uint32_t last_duration)
{
    BoxScope traf(out, "traf");
    {
        BoxScope tfhd(out, "tfhd", 0, tfhd_flags);
        put32(out, static_cast<uint32_t>(track + 1));
    }
    {
        BoxScope tfdt(out, "tfdt", 1, 0);
        put64(out, samples.front().decode_time);
    }
    constexpr size_t data_offset_in_trun = 16;
    size_t data_offset_at = out.size() + data_offset_in_trun;
    put_trun(out, samples, track, last_duration);
    return data_offset_at;
}

} // namespace

void put_file_start(Bytes& out, const Movie& movie)
{
    {
        BoxScope ftyp(out, "ftyp");
        put32(out, fourcc("iso5"));
        put32(out, 512);
        for (uint32_t brand : {fourcc("isom"), fourcc("iso5"), fourcc("avc1"), fourcc("mp41")})
            put32(out, brand);
    }
    {
        BoxScope free(out, "free");
        put_zeros(out, hiding_header_bytes - 8);
    }
    put_empty_moov(out, movie);
}

void put_final_moov(Bytes& out, Movie& movie, uint64_t offset)
{
    size_t begin = out.size();
    for (int i = 0; i < track_count; ++i) {
        if (movie.tables.tracks[i].count > 0)
            push_run(movie.tables.tracks[i].durations, movie.frame_time_ms(i));
    }
    movie.info.duration = movie.duration_ms();
    {
        BoxScope moov(out, "moov");
        put_mvhd(out, static_cast<uint32_t>(movie.info.duration));
        put_info(out, movie, true);
        for (int i = 0; i < track_count; ++i) {
            if (movie.tables.tracks[i].count > 0)
                put_trak(out, movie, i);
        }
        put_exact(out, movie.tables.exact);
        put_check(out, movie, {0, offset, offset}, no_config, 0);
    }
    static_assert(last_check_bytes == max_check_bytes - max_name_bytes);
    seal(out.data() + begin, out.size() - begin);
}

// A frame has an entry in its trun, and in exact an offset, a header and a bit at most.
constexpr size_t fragment_frame_bytes =
    std::max(video_trun_entry_bytes, audio_trun_entry_bytes + exact_header_bytes) + anchor_bytes + 1;
// A fragment of more payload than the writer collects is one large frame. The first one, behind the file's
// start, has its decoder configuration there.
static_assert(ftyp_bytes + hiding_header_bytes + max_moov_bytes + box_bytes + mfhd_bytes +
                      track_count * traf_bytes + exact_bytes + max_check_bytes +
                      std::max(max_fragment_frames * fragment_frame_bytes +
                                   most_pieces(max_fragment_bytes) * checksum_bytes,
                               fragment_frame_bytes + most_pieces(max_frame_bytes) * checksum_bytes) +
                      box_bytes <=
                  max_start_bytes,
              "a fragment with the file's start does not fit the room for its headers");

void put_fragment_start(Bytes& out, const Fragment& fragment, const Movie& movie, const FragmentPlace& place,
                        const uint8_t* payload)
{
    const auto payload_bytes = static_cast<size_t>(fragment.payload_size());
    size_t begin = out.size();
    size_t data_offset_at[track_count] = {};
    {
        BoxScope moof(out, "moof");
        {
            BoxScope mfhd(out, "mfhd", 0, 0);
            put32(out, place.number);
        }
        for (int i = 0; i < track_count; ++i) {
            if (!fragment.samples[i].empty())
                data_offset_at[i] = put_traf(out, fragment.samples[i], i, movie.frame_time_ms(i));
        }
        put_exact(out, fragment.exact);
        put_check(out, movie, place, fragment.bare_key ? movie.avc_config : no_config,
                  most_pieces(payload_bytes));
    }
    const size_t moof_bytes = out.size() - begin;
    auto data_offset = static_cast<uint32_t>(out.size() - begin + 8);
    uint32_t payload_size = 0;
    for (int i = 0; i < track_count; ++i) {
        if (data_offset_at[i] != 0)
            store32(out.data() + data_offset_at[i], data_offset + payload_size);
        payload_size += static_cast<uint32_t>(fragment.payload_size(i));
    }
    put32(out, payload_size + 8);
    put32(out, fourcc("mdat"));
    seal(out.data() + begin, moof_bytes, payload, payload_bytes, place.offset + out.size() - begin);
}

std::optional<uint64_t> fragment_time(const uint8_t* head)
{
    constexpr size_t mfhd_at = box_bytes;
    constexpr size_t tfdt_at = mfhd_at + mfhd_bytes + box_bytes + tfhd_bytes;
    static_assert(tfdt_at + tfdt_bytes == fragment_head_bytes);
    auto type_at = [head](size_t box) { return be32(head + box + 4); };
    if (type_at(0) != fourcc("moof") || type_at(mfhd_at) != fourcc("mfhd") ||
        type_at(tfdt_at) != fourcc("tfdt"))
        return {};
    return be64(head + tfdt_at + full_box_bytes);
}

uint64_t moov_bound(const Tables& tables, size_t pending)
{
    // The last sample of each track gets a duration at the end.
    constexpr uint64_t fixed_bytes = max_moov_bytes + track_count * run_bytes + 1;
    constexpr uint64_t pending_sample_bytes =
        sample_size_bytes + 2 * run_bytes + key_bytes + chunk_bytes + anchor_bytes + exact_header_bytes + 1;
    uint64_t bound = fixed_bytes + pending * pending_sample_bytes +
                     tables.exact.headers.size() * exact_header_bytes + tables.exact.order.size() / 8;
    for (int i = 0; i < track_count; ++i) {
        const Track& track = tables.tracks[i];
        bound += track.sizes.size() * sample_size_bytes +
                 (track.durations.size() + track.show_offsets.size()) * run_bytes +
                 track.keys.size() * key_bytes + track.chunks.size() * chunk_bytes +
                 tables.exact.anchors[i].size() * anchor_bytes;
    }
    return bound;
}

bool finish_file(int fd, Movie& movie, uint64_t data_end)
{
    Bytes moov;
    moov.reserve(static_cast<size_t>(moov_bound(movie.tables, 0)));
    put_final_moov(moov, movie, data_end);
    if (data_end + moov.size() > max_file_bytes)
        return fail(EFBIG);
    if (!write_at(fd, moov.data(), moov.size(), data_end)) {
        discard_from(fd, data_end);
        return false;
    }
    if (ftruncate(fd, static_cast<off_t>(data_end + moov.size())) != 0 || fdatasync(fd) != 0)
        return false;
    Bytes header;
    put32(header, 1); // the size follows, in 64 bits
    put32(header, fourcc("mdat"));
    put64(header, data_end - ftyp_bytes);
    return write_at(fd, header.data(), header.size(), ftyp_bytes) && fdatasync(fd) == 0;
}

} // namespace ifs_mp4
