/** Big-endian fields in byte buffers, and the boxes that an MP4 file is made of. */
#ifndef CONTAINER_BYTES_H
#define CONTAINER_BYTES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ifs_mp4
{

using Bytes = std::vector<uint8_t>;

inline uint32_t be16(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) << 8 | p[1];
}
inline uint32_t be32(const uint8_t* p)
{
    return be16(p) << 16 | be16(p + 2);
}
inline uint64_t be64(const uint8_t* p)
{
    return static_cast<uint64_t>(be32(p)) << 32 | be32(p + 4);
}

inline void store32(uint8_t* p, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

inline void put8(Bytes& out, uint32_t value)
{
    out.push_back(static_cast<uint8_t>(value));
}

inline void put16(Bytes& out, uint32_t value)
{
    put8(out, value >> 8);
    put8(out, value);
}

inline void put32(Bytes& out, uint32_t value)
{
    uint8_t field[4];
    store32(field, value);
    out.insert(out.end(), field, field + 4);
}

inline void put64(Bytes& out, uint64_t value)
{
    put32(out, static_cast<uint32_t>(value >> 32));
    put32(out, static_cast<uint32_t>(value));
}

inline void put_zeros(Bytes& out, size_t count)
{
    out.insert(out.end(), count, 0);
}

inline void put_bytes(Bytes& out, const uint8_t* data, size_t size)
{
    out.insert(out.end(), data, data + size);
}

/** Room for some more elements; doubles, so that growing costs little in the long run. */
template <class Vector>
void make_room_in(Vector& list, size_t more)
{
    if (list.capacity() - list.size() < more)
        list.reserve(std::max(list.size() + more, list.capacity() * 2));
}

constexpr uint32_t fourcc(const char (&name)[5])
{
    uint32_t code = 0;
    for (int i = 0; i < 4; ++i)
        code = code << 8 | static_cast<uint8_t>(name[i]);
    return code;
}

/** A box under construction: begins where it is declared, ends with its scope. */
class BoxScope
{
public:
    BoxScope(Bytes& out, const char (&type)[5]) : m_out(out), m_begin(out.size())
    {
        put32(out, 0);
        put32(out, fourcc(type));
    }
    BoxScope(Bytes& out, const char (&type)[5], uint32_t version, uint32_t flags) : BoxScope(out, type)
    {
        put32(out, version << 24 | flags);
    }
    ~BoxScope() { store32(m_out.data() + m_begin, static_cast<uint32_t>(m_out.size() - m_begin)); }
    BoxScope(const BoxScope&) = delete;
    BoxScope& operator=(const BoxScope&) = delete;

private:
    Bytes& m_out;
    size_t m_begin;
};

} // namespace ifs_mp4

#endif
