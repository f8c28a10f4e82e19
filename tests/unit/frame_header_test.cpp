#include "recfile/frame_header.h"

#include "tests/support.h"

TEST(FrameHeader, LiesInFrontOfItsPayloadAndFillsItUp)
{
    const struct {
        int type, len;
        const char* numbers; ///< payload's offset and length, frame's offset and length
        const char* bytes;   ///< from the frame's offset on, and one behind
    } kinds[] = {
        {IFS_FRAME_P, 3, "32 3 8 32", R"(
            30 31 64 63  48 32 36 34  03 00 00 00  00 00  00 00  08 07 06 05 04 03 02 01
            ee ee ee 00 00 00 00 00 ee)"},
        {IFS_FRAME_AUDIO, 1, "32 1 24 16", "30 35 77 62 01 00 01 00 ee 00 00 00 00 00 00 00 ee"},
        {IFS_FRAME_AUDIO, 65536, "32 65536 24 65544", "30 35 77 62 00 00 00 00 ee"}, // low 16 bits
        {2, 13, "32 13 24 16", "30 31 77 62 08 00 08 00 ee ee ee ee ee ee ee ee ee"},
        {-1, 7, "32 7 24 8", "30 31 77 62 00 00 00 00 ee"},
    };
    for (const auto& kind : kinds) {
        std::string buf(static_cast<size_t>(kind.len) + 48, '\xee');
        int payload_offset, payload_len, frame_offset, frame_len;
        Ifsbf_build_header(buf.data(), static_cast<_ifs_frame_type_>(kind.type), kind.len, 0x5da20863, 6, 1,
                           0x0102030405060708, &payload_offset, &payload_len, &frame_offset, &frame_len);
        const std::string bytes = Bytes(kind.bytes);
        EXPECT_EQ(Numbers({payload_offset, payload_len, frame_offset, frame_len}), kind.numbers);
        EXPECT_EQ(Hex(buf.substr(buf.find_first_not_of('\xee'), bytes.size())), Hex(bytes)) << kind.type;
    }
}
