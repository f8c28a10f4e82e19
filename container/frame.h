/** Encoded frames as they come from the camera: H.264 access units in Annex B, AAC access units. */
#ifndef CONTAINER_FRAME_H
#define CONTAINER_FRAME_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "container/bytes.h"

namespace ifs_mp4
{

/** A frame in two pieces of memory that are read as one. */
class Pieces
{
public:
    Pieces(const void* data1, size_t size1, const void* data2, size_t size2);

    size_t size() const { return m_size1 + m_size2; }
    uint8_t at(size_t index) const { return index < m_size1 ? m_data1[index] : m_data2[index - m_size1]; }
    void append_to(Bytes& out, size_t begin, size_t size) const;
    /** @return index of the first 00 00 01 at or after from, size() when there is none */
    size_t find_start_code(size_t from) const;

private:
    const uint8_t* m_data1;
    size_t m_size1;
    const uint8_t* m_data2;
    size_t m_size2;
};

enum NalType {
    nal_sps = 7,
    nal_pps = 8
};

/** A NAL unit within its frame, without its start code. */
struct Nal {
    size_t begin;
    size_t size;
    int type;
};

/**
 * Split an access unit into its NAL units.
 *
 * Zeros in front of a start code belong to it; those at the end of the frame stay with the last NAL unit.
 * @return false: no Annex B, or a NAL unit that H.264 does not have
 */
bool split_access_unit(const Pieces& frame, std::vector<Nal>& nals);

/** Whether a frame may be shown before the frame in front of it: its first slice is a B slice. */
bool is_reordered(const Pieces& frame, const std::vector<Nal>& nals);

/** Limits of a decoder configuration: of the counts by its fields, of the bytes by what real ones have. */
constexpr size_t max_sps_count = 31;
constexpr size_t max_pps_count = 255;
constexpr size_t max_parameter_set_bytes = 16384;
/** Profile to counts, the sample format, each set behind its length. */
constexpr size_t max_avc_config_bytes = 7 + 4 + 2 * (max_sps_count + max_pps_count) + max_parameter_set_bytes;

/**
 * Build the decoder configuration (the content of an avcC box) from a frame's parameter sets.
 * @return empty: SPS or PPS are missing, or are larger than any real ones
 */
Bytes build_avc_config(const Pieces& frame, const std::vector<Nal>& nals);

/** The header in front of an ADTS frame, with its frame length taken out; raw AAC has size 0. */
struct AdtsHeader {
    static constexpr size_t max_size = 9;
    uint8_t size = 0;
    uint8_t bytes[max_size] = {};

    bool operator==(const AdtsHeader& other) const;
    int object_type() const { return (bytes[2] >> 6) + 1; }
    int sample_rate_index() const { return bytes[2] >> 2 & 15; }
    int channel_conf() const { return (bytes[2] & 1) << 2 | bytes[3] >> 6; }
    /** Write the header of a frame with this payload. out has room for size bytes. */
    void rebuild(size_t payload_size, uint8_t* out) const;
};

/** Take the ADTS header off a frame. @return false: not one access unit, or its length is not the frame's */
bool parse_adts(const Pieces& frame, AdtsHeader& header);

/** Samples per second of a SAMPLE_RATE_INDEX_E value; 16000 for a value that is none. */
uint32_t sample_rate_hz(int index);

} // namespace ifs_mp4

#endif
