#ifndef IFS_UTIL_WRAP_H
#define IFS_UTIL_WRAP_H

#include <cstdint>

/** 32-bit signed arithmetic that wraps modulo 2^32, as the camera's processor does it. */
inline int32_t Wrap_to_int32(uint64_t value)
{
    return static_cast<int32_t>(static_cast<uint32_t>(value));
}

inline int32_t Wrap_add(int32_t a, int32_t b)
{
    return Wrap_to_int32(static_cast<uint64_t>(static_cast<uint32_t>(a)) + static_cast<uint32_t>(b));
}

inline int32_t Wrap_sub(int32_t a, int32_t b)
{
    return Wrap_to_int32(static_cast<uint64_t>(static_cast<uint32_t>(a)) - static_cast<uint32_t>(b));
}

inline int32_t Wrap_mul(int32_t a, int32_t b)
{
    return Wrap_to_int32(static_cast<uint64_t>(static_cast<uint32_t>(a)) * static_cast<uint32_t>(b));
}

#endif
