#ifndef IFS_UTIL_LITTLE_ENDIAN_H
#define IFS_UTIL_LITTLE_ENDIAN_H

#include <cstdint>

/** Little-endian fields at any address, byte by byte: the same on every host. */
inline void Put_le16(unsigned char* at, uint32_t value)
{
    at[0] = static_cast<unsigned char>(value);
    at[1] = static_cast<unsigned char>(value >> 8);
}

inline void Put_le32(unsigned char* at, uint32_t value)
{
    Put_le16(at, value);
    Put_le16(at + 2, value >> 16);
}

inline void Put_le64(unsigned char* at, uint64_t value)
{
    Put_le32(at, static_cast<uint32_t>(value));
    Put_le32(at + 4, static_cast<uint32_t>(value >> 32));
}

inline uint32_t Get_le16(const unsigned char* at)
{
    return at[0] | static_cast<uint32_t>(at[1]) << 8;
}

inline uint32_t Get_le32(const unsigned char* at)
{
    return Get_le16(at) | Get_le16(at + 2) << 16;
}

#endif
