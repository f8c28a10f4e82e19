#include "recfile/frame_header.h"

#include "tests/support.h"

namespace
{

struct Framed {
    std::string buf; ///< filled with ee before
    int payload_offset, payload_len, frame_offset, frame_len;
};

Framed Build(int type, int len)
{
    Framed framed{std::string(70100, '\xee'), 0, 0, 0, 0};
    Ifsbf_build_header(framed.buf.data(), static_cast<_ifs_frame_type_>(type), len, 0x5da20863, 6, 1,
                       0x0102030405060708, &framed.payload_offset, &framed.payload_len, &framed.frame_offset,
                       &framed.frame_len);
    return framed;
}

std::string Hex_at(const Framed& framed, size_t offset, size_t count)
{
    return Hex(framed.buf.substr(offset, count));
}

} // namespace

TEST(FrameHeader, KeyFrameCarriesTimeAndCodes)
{
    const Framed framed = Build(IFS_FRAME_I, 100);
    EXPECT_EQ(Hex_at(framed, 0, 32), Hex(Bytes(R"(
        30 30 64 63                # "00dc"
        48 32 36 34                # "H264"
        64 00 00 00                # payload length
        08 00  00 00               # extension length, reserved
        08 07 06 05 04 03 02 01    # timestamp
        63 08 a2 5d                # time
        06 01  00 00               # resolution code, video system, reserved
    )")));
    EXPECT_EQ(Hex_at(framed, 131, 6), Hex(Bytes("ee 00 00 00 00 ee")));
    EXPECT_EQ(framed.payload_offset, 32);
    EXPECT_EQ(framed.payload_len, 100);
    EXPECT_EQ(framed.frame_offset, 0);
    EXPECT_EQ(framed.frame_len, 136);
}

TEST(FrameHeader, OtherVideoLeavesTheBytesInFrontAlone)
{
    const Framed framed = Build(IFS_FRAME_P, 64);
    EXPECT_EQ(Hex_at(framed, 0, 24),
              Hex(Bytes("ee ee ee ee ee ee ee ee  30 31 64 63 48 32 36 34  40 00 00 00 "
                        "00 00 00 00")));
    EXPECT_EQ(Hex_at(framed, 96, 1), Hex(Bytes("ee")));
    EXPECT_EQ(framed.frame_offset, 8);
    EXPECT_EQ(framed.frame_len, 88);
}

TEST(FrameHeader, AudioKeepsTheLowBitsOfItsLengthTwice)
{
    const Framed framed = Build(IFS_FRAME_AUDIO, 321);
    EXPECT_EQ(Hex_at(framed, 24, 8), Hex(Bytes("30 35 77 62 41 01 41 01")));
    EXPECT_EQ(Hex_at(framed, 352, 9), Hex(Bytes("ee 00 00 00 00 00 00 00 ee")));
    EXPECT_EQ(framed.frame_offset, 24);
    EXPECT_EQ(framed.frame_len, 336);
    EXPECT_EQ(Hex_at(Build(IFS_FRAME_AUDIO, 70000), 28, 4), Hex(Bytes("70 11 70 11")));
}

TEST(FrameHeader, ForeignTypesGetTheirOwnHeaderAndNoFill)
{
    for (const int type : {2, 4, -1}) {
        const Framed framed = Build(type, 13);
        EXPECT_EQ(Hex_at(framed, 24, 8), Hex(Bytes("30 31 77 62 08 00 08 00")));
        EXPECT_EQ(Hex_at(framed, 45, 3), Hex(Bytes("ee ee ee")));
        EXPECT_EQ(framed.payload_len, 13);
        EXPECT_EQ(framed.frame_offset, 24);
        EXPECT_EQ(framed.frame_len, 16);
    }
}
