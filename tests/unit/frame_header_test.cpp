#include "recfile/frame_header.h"

#include "tests/support.h"

namespace
{

/** A buffer of ee bytes into which a frame's header was put, and the offsets and lengths that came back. */
struct Framed {
    std::string buf;
    std::string numbers;
};

Framed Build(int type, int len)
{
    std::string buf(static_cast<size_t>(len) + 48, '\xee');
    int payload_offset, payload_len, frame_offset, frame_len;
    Ifsbf_build_header(buf.data(), static_cast<_ifs_frame_type_>(type), len, 0x5da20863, 6, 1,
                       0x0102030405060708, &payload_offset, &payload_len, &frame_offset, &frame_len);
    return {buf, Numbers({payload_offset, payload_len, frame_offset, frame_len})};
}

} // namespace

TEST(FrameHeader, LiesInFrontOfItsPayloadAndFillsItUp)
{
    const struct {
        int type, len;
        const char* numbers; ///< payload's offset and length, frame's offset and length
        const char* bytes;   ///< from the frame's offset on, and one behind
    } kinds[] = {
        {IFS_FRAME_I, 3, "32 3 0 40", R"(
            30 30 64 63  48 32 36 34   # "00dc", "H264"
            03 00 00 00  08 00  00 00  # payload length, extension length, reserved
            08 07 06 05 04 03 02 01    # timestamp
            63 08 a2 5d  06 01  00 00  # time, resolution code, video system, reserved
            ee ee ee 00 00 00 00 00 ee)"},
        {IFS_FRAME_P, 8, "32 8 8 32", R"(
            30 31 64 63  48 32 36 34  08 00 00 00  00 00  00 00  08 07 06 05 04 03 02 01
            ee ee ee ee ee ee ee ee ee)"},
        {IFS_FRAME_AUDIO, 1, "32 1 24 16", "30 35 77 62 01 00 01 00 ee 00 00 00 00 00 00 00 ee"},
        {2, 13, "32 13 24 16", "30 31 77 62 08 00 08 00 ee ee ee ee ee ee ee ee ee"},
        {-1, 7, "32 7 24 8", "30 31 77 62 00 00 00 00 ee"},
    };
    for (const auto& kind : kinds) {
        const Framed framed = Build(kind.type, kind.len);
        const std::string bytes = Bytes(kind.bytes);
        const size_t offset = framed.buf.find_first_not_of('\xee');
        EXPECT_EQ(framed.numbers, kind.numbers);
        EXPECT_EQ(Hex(framed.buf.substr(offset, bytes.size())), Hex(bytes)) << kind.type;
    }
    EXPECT_EQ(Hex(Build(IFS_FRAME_AUDIO, 70000).buf.substr(28, 4)),
              Hex(Bytes("70 11 70 11"))); // low 16 bits, twice
}
