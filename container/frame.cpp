#include "container/frame.h"

#include <algorithm>
#include <cstring>

namespace ifs_mp4
{
namespace
{

constexpr size_t start_code_size = 3;

/** Passes over three bytes with one look where the last of them can be in no start code. */
const uint8_t* scan(const uint8_t* p, const uint8_t* end)
{
    while (end - p >= static_cast<ptrdiff_t>(start_code_size)) {
        if (p[2] > 1)
            p += 3;
        else if (p[1] != 0)
            p += 2;
        else if (p[0] != 0 || p[2] != 1)
            p += 1;
        else
            return p;
    }
    return nullptr;
}

// Compilers test 16 bytes of a block at once where the processor can; elsewhere scan() alone is faster.
#if defined(__SSE2__) || defined(__ARM_NEON)
constexpr bool tests_blocks = true;
#else
constexpr bool tests_blocks = false;
#endif
constexpr size_t block_bytes = 256;

/** Whether a byte of a block and its successor are zero, which a NAL unit hardly ever has. */
bool has_zero_pair(const uint8_t* block)
{
    uint8_t least = 0xff;
    for (size_t i = 0; i < block_bytes; ++i)
        least = std::min(least, static_cast<uint8_t>(block[i] | block[i + 1]));
    return least == 0;
}

const uint8_t* find_in(const uint8_t* p, const uint8_t* end)
{
    constexpr size_t looked_at = block_bytes + start_code_size - 1;
    while (tests_blocks && end - p >= static_cast<ptrdiff_t>(looked_at)) {
        const uint8_t* found = has_zero_pair(p) ? scan(p, p + looked_at) : nullptr;
        if (found)
            return found;
        p += block_bytes;
    }
    return scan(p, end);
}

/** Reads the first fields of a sequence parameter set; reads zeros past its end. */
class BitReader
{
public:
    BitReader(const uint8_t* data, size_t size) : m_data(data), m_bits(size * 8) {}

    uint32_t bit()
    {
        if (m_pos >= m_bits)
            return 0;
        uint32_t value = m_data[m_pos / 8] >> (7 - m_pos % 8) & 1;
        ++m_pos;
        return value;
    }

    uint32_t exp_golomb()
    {
        int zeros = 0;
        while (zeros < 31 && bit() == 0)
            ++zeros;
        uint32_t value = 1;
        for (int i = 0; i < zeros; ++i)
            value = value << 1 | bit();
        return value - 1;
    }

private:
    const uint8_t* m_data;
    size_t m_bits;
    size_t m_pos = 0;
};

/** The sample format that avcC repeats from the sequence parameter set of a High profile. */
void put_sample_format(Bytes& config, const uint8_t* sps, size_t size)
{
    BitReader bits(sps + 4, size - 4);
    bits.exp_golomb(); // parameter set id
    uint32_t chroma_format = bits.exp_golomb();
    if (chroma_format == 3)
        bits.bit();
    uint32_t luma_depth = bits.exp_golomb();
    uint32_t chroma_depth = bits.exp_golomb();
    put8(config, 0xfc | (chroma_format & 3));
    put8(config, 0xf8 | (luma_depth & 7));
    put8(config, 0xf8 | (chroma_depth & 7));
    put8(config, 0);
}

bool has_sample_format(uint8_t profile)
{
    return profile == 100 || profile == 110 || profile == 122 || profile == 144;
}

size_t put_parameter_sets(Bytes& config, const Pieces& frame, const std::vector<Nal>& nals, int type,
                          size_t max_count)
{
    size_t count = 0;
    for (const Nal& nal : nals) {
        if (nal.type != type || count == max_count)
            continue;
        put16(config, static_cast<uint32_t>(nal.size));
        frame.append_to(config, nal.begin, nal.size);
        ++count;
    }
    return count;
}

} // namespace

Pieces::Pieces(const void* data1, size_t size1, const void* data2, size_t size2)
    : m_data1(static_cast<const uint8_t*>(data1)), m_size1(size1),
      m_data2(static_cast<const uint8_t*>(data2)), m_size2(size2)
{
}

void Pieces::append_to(Bytes& out, size_t begin, size_t size) const
{
    size_t end = begin + size;
    if (begin < m_size1)
        put_bytes(out, m_data1 + begin, std::min(end, m_size1) - begin);
    if (end > m_size1) {
        size_t from = std::max(begin, m_size1) - m_size1;
        put_bytes(out, m_data2 + from, end - m_size1 - from);
    }
}

size_t Pieces::find_start_code(size_t from) const
{
    if (from < m_size1) {
        if (const uint8_t* found = find_in(m_data1 + from, m_data1 + m_size1))
            return static_cast<size_t>(found - m_data1);
        from = std::max(from, m_size1 - std::min(m_size1, start_code_size - 1));
    }
    for (; from < m_size1 && from + start_code_size <= size(); ++from) {
        if (at(from) == 0 && at(from + 1) == 0 && at(from + 2) == 1)
            return from;
    }
    if (from + start_code_size > size())
        return size();
    const uint8_t* found = find_in(m_data2 + (from - m_size1), m_data2 + m_size2);
    return found ? m_size1 + static_cast<size_t>(found - m_data2) : size();
}

bool split_access_unit(const Pieces& frame, std::vector<Nal>& nals)
{
    nals.clear();
    size_t pos = frame.find_start_code(0);
    for (size_t i = 0; i < pos; ++i) {
        if (frame.at(i) != 0)
            return false;
    }
    while (pos < frame.size()) {
        size_t begin = pos + start_code_size;
        pos = frame.find_start_code(begin);
        size_t end = pos;
        while (pos < frame.size() && end > begin && frame.at(end - 1) == 0)
            --end;
        if (end == begin)
            continue;
        uint8_t header = frame.at(begin);
        int type = header & 31;
        if ((header & 0x80) != 0 || type == 0 || type > 23)
            return false;
        nals.push_back({begin, end - begin, type});
    }
    return !nals.empty();
}

bool is_reordered(const Pieces& frame, const std::vector<Nal>& nals)
{
    for (const Nal& nal : nals) {
        if (nal.type != 1 || nal.size < 2)
            continue;
        // first_mb_in_slice 0 is the bit 1; slice_type 1 and 6 (B) are 010 and 00111.
        uint8_t bits = frame.at(nal.begin + 1);
        return (bits & 0xf0) == 0xa0 || (bits & 0xfc) == 0x9c;
    }
    return false;
}

Bytes build_avc_config(const Pieces& frame, const std::vector<Nal>& nals)
{
    Bytes sps;
    Bytes pps;
    size_t total = 0;
    for (const Nal& nal : nals)
        total += nal.type == nal_sps || nal.type == nal_pps ? nal.size : 0;
    if (total > max_parameter_set_bytes)
        return {};
    size_t sps_count = put_parameter_sets(sps, frame, nals, nal_sps, max_sps_count);
    size_t pps_count = put_parameter_sets(pps, frame, nals, nal_pps, max_pps_count);
    if (sps_count == 0 || pps_count == 0 || be16(sps.data()) < 4)
        return {};
    const uint8_t* first = sps.data() + 2;
    Bytes config = {1, first[1], first[2], first[3], 0xff, static_cast<uint8_t>(0xe0 | sps_count)};
    put_bytes(config, sps.data(), sps.size());
    put8(config, static_cast<uint32_t>(pps_count));
    put_bytes(config, pps.data(), pps.size());
    if (has_sample_format(first[1]))
        put_sample_format(config, first, be16(sps.data()));
    return config;
}

bool AdtsHeader::operator==(const AdtsHeader& other) const
{
    return size == other.size && std::memcmp(bytes, other.bytes, max_size) == 0;
}

void AdtsHeader::rebuild(size_t payload_size, uint8_t* out) const
{
    size_t length = payload_size + size;
    std::memcpy(out, bytes, size);
    out[3] = static_cast<uint8_t>(out[3] | (length >> 11 & 3));
    out[4] = static_cast<uint8_t>(length >> 3);
    out[5] = static_cast<uint8_t>(out[5] | (length & 7) << 5);
}

bool parse_adts(const Pieces& frame, AdtsHeader& header)
{
    header = {};
    // A raw access unit cannot begin like this: its first element would be the terminator.
    bool synchronised = frame.size() >= 2 && frame.at(0) == 0xff && (frame.at(1) & 0xf6) == 0xf0;
    if (!synchronised)
        return true;
    size_t size = frame.at(1) & 1 ? 7 : 9;
    if (frame.size() <= size)
        return false;
    header.size = static_cast<uint8_t>(size);
    for (size_t i = 0; i < size; ++i)
        header.bytes[i] = frame.at(i);
    uint8_t* bytes = header.bytes;
    size_t length =
        static_cast<size_t>(bytes[3] & 3) << 11 | static_cast<size_t>(bytes[4]) << 3 | bytes[5] >> 5;
    bytes[3] &= 0xfc;
    bytes[4] = 0;
    bytes[5] &= 0x1f;
    bool one_access_unit = (bytes[6] & 3) == 0;
    return length == frame.size() && one_access_unit && header.sample_rate_index() <= 12;
}

uint32_t sample_rate_hz(int index)
{
    static const uint32_t rates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                     22050, 16000, 12000, 11025, 8000,  7350};
    return index < 0 || index > 12 ? 16000 : rates[index];
}

} // namespace ifs_mp4
