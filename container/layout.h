/**
 * The layout of a recording, written field by field.
 *
 *     ftyp, header of 16 bytes, moov without samples, (moof, mdat)..., moov with all samples
 *
 * The header is an empty free box while recording. In a finished file it is the header of an mdat box that
 * reaches to the last moov. Three boxes of our own (uuid) hold what the standard ones cannot: "info" in each
 * moov, "exact" and behind it "check" in each moof and in the last moov.
 */
#ifndef CONTAINER_LAYOUT_H
#define CONTAINER_LAYOUT_H

#include <cstdint>
#include <optional>

#include "container/bytes.h"
#include "container/tables.h"

namespace ifs_mp4
{

constexpr size_t uuid_bytes = 16;
extern const uint8_t info_uuid[uuid_bytes];
extern const uint8_t exact_uuid[uuid_bytes];
extern const uint8_t check_uuid[uuid_bytes];

/**
 * Content of the "info" box behind its uuid: layout_version, 1 in the last moov, these fields (32 bits each),
 * the start time of the audio (64 bits).
 */
constexpr int kt_mfile_info_t::*info_fields[] = {
    &kt_mfile_info_t::width,
    &kt_mfile_info_t::height,
    &kt_mfile_info_t::frame_rate,
    &kt_mfile_info_t::audio_profile,
    &kt_mfile_info_t::audio_sample_rate_index,
    &kt_mfile_info_t::audio_channel_conf,
    &kt_mfile_info_t::have_audio,
    &kt_mfile_info_t::firstpts,
    &kt_mfile_info_t::duration,
};
constexpr uint32_t layout_version = 1;

/** Flags of the boxes in a fragment; the reader takes no others. */
constexpr uint32_t tfhd_flags = 0x020000;       /**< data offsets count from the moof box */
constexpr uint32_t video_trun_flags = 0x000f01; /**< data offset; duration, size, flags, show offset */
constexpr uint32_t audio_trun_flags = 0x000301; /**< data offset; duration, size */
constexpr uint32_t key_sample_flags = 0x02000000;
constexpr uint32_t other_sample_flags = 0x01010000;
constexpr size_t video_trun_entry_bytes = 16;
constexpr size_t audio_trun_entry_bytes = 8;

/** Entries of "exact": first sample, offset; first sample, size, bytes, fill. */
constexpr size_t anchor_bytes = 8;
constexpr size_t exact_header_bytes = 16;

/** Entries of the tables in the last moov. A chunk has its offset and, at most, a row for its samples. */
constexpr size_t run_bytes = 8;
constexpr size_t sample_size_bytes = 4;
constexpr size_t key_bytes = 4;
constexpr size_t chunk_bytes = 4 + 12;

/** Bytes in front of the header of 16 bytes. */
constexpr size_t ftyp_bytes = 32;
constexpr size_t hiding_header_bytes = 16;
/** Where the content of the first moov begins, and in it the box "info". */
constexpr size_t first_moov_begin = ftyp_bytes + hiding_header_bytes + 8;
constexpr size_t mvhd_bytes = 108;
constexpr size_t first_info_begin = first_moov_begin + mvhd_bytes;
constexpr size_t info_bytes = 76;

/** The writer cuts a fragment that has got so many frames, or so many bytes of them. */
constexpr size_t max_fragment_frames = 1024;
constexpr size_t max_fragment_bytes = 1 << 20;
/** Upper bound of what put_file_start() and put_fragment_start() append for such a fragment. */
constexpr size_t max_start_bytes = 65536;

/** Append ftyp, free and the moov without samples. */
void put_file_start(Bytes& out, const Movie& movie);

/** Bytes at a fragment's front that give its time. */
constexpr size_t fragment_head_bytes = 68;
/** @param head  these bytes. @return decode time of the first sample, ms; none: they are not a fragment's */
std::optional<uint64_t> fragment_time(const uint8_t* head);

/** Bytes that end the last moov of a recording: its box check, but for the name. */
constexpr size_t last_check_bytes = 55;

/** Append the moov box with all samples, whose last ones get their duration. @param offset  in the file */
void put_final_moov(Bytes& out, Movie& movie, uint64_t offset);

/** Upper bound of what put_final_moov() appends for a file with these tables and pending more samples. */
uint64_t moov_bound(const Tables& tables, size_t pending);

/** Where a fragment goes. */
struct FragmentPlace {
    uint32_t number;      /**< from 1 */
    uint64_t offset;      /**< in the file */
    uint64_t durable_end; /**< how far the file is durable now */
};

/**
 * Append the moof box of a fragment, with its checksums, and the header of its mdat box.
 *
 * @param payload  of the fragment: what its samples say, and behind the header
 */
void put_fragment_start(Bytes& out, const Fragment& fragment, const Movie& movie, const FragmentPlace& place,
                        const uint8_t* payload);

/**
 * Turn a recording into a plain MP4 file: add the last moov at the end of its data, make it durable, hide all
 * in front of it. Whatever interrupts this, the frames can be read.
 *
 * @param data_end  where the last moov begins; what lies behind is lost
 * @return false, errno says why: an I/O error, the file would grow too large (EFBIG)
 */
bool finish_file(int fd, Movie& movie, uint64_t data_end);

} // namespace ifs_mp4

#endif
