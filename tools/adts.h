/** What AAC carries about itself: AudioSpecificConfig and ADTS headers. */
#ifndef TOOLS_ADTS_H
#define TOOLS_ADTS_H

#include <array>
#include <cstddef>
#include <cstdint>

/** Parameters of an AAC-LC stream in the numbers of an ADTS header. */
struct AacParameters {
    int sample_rate_index; /**< 0 to 12 */
    int channel_conf;      /**< 1 to 7 */
};

/** AAC-LC as an ADTS header counts the profiles. */
constexpr int aac_lc_profile = 1;

constexpr size_t adts_header_size = 7;

/**
 * Read an AudioSpecificConfig. With SBR in it, the parameters are those of the stream underneath.
 *
 * @return whether it is AAC-LC that an ADTS header can express; *aac is untouched otherwise
 */
bool parse_audio_specific_config(const uint8_t* data, size_t size, AacParameters* aac);

/** Whether an access unit already begins with an ADTS header of its own length. */
bool has_adts_header(const uint8_t* data, size_t size);

/**
 * The ADTS header for a raw access unit.
 *
 * @param size  bytes of the access unit, at most 8184
 */
std::array<uint8_t, adts_header_size> adts_header(const AacParameters& aac, size_t size);

#endif
