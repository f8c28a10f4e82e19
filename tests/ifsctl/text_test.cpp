#include "tests/support.h"
#include "tools/adts.h"
#include "tools/failure.h"
#include "tools/progress.h"
#include "tools/size_text.h"
#include "tools/time_text.h"

namespace
{

constexpr int64_t march_5_ten_utc_s = 1772704800;
const char* const berlin = "CET-1CEST,M3.5.0,M10.5.0/3";

TEST(Times, EveryWayOfWritingAnInstantNamesIt)
{
    Zone zone(berlin);
    for (const char* text : {"2026-03-05T11:00:00", "2026-03-05 11:00", "2026-03-05T10:00:00Z",
                             "2026-03-05T15:30:00+05:30", "2026-03-05T03:00-0700"})
        EXPECT_EQ(parse_time(text), march_5_ten_utc_s * 1000) << text;
    EXPECT_EQ(parse_time("2026-03-05T10:00:00.25Z"), march_5_ten_utc_s * 1000 + 250);
    EXPECT_EQ(parse_end_time("2026-03-05T10:00Z"), march_5_ten_utc_s * 1000);
    for (const auto& [zone_name, date, begin, end] : std::vector<std::array<const char*, 4>>{
             {berlin, "2026-10-25", "2026-10-25T00:00+02:00", "2026-10-26T00:00+01:00"},
             {"EET-2EEST,M3.5.0/0,M10.5.0/0", "2026-03-29", "2026-03-28T22:00Z", "2026-03-29T21:00Z"},
             {"EET-2EEST,M3.5.0/0,M10.5.0/1", "2026-10-25", "2026-10-24T21:00Z", "2026-10-25T22:00Z"}}) {
        Zone other(zone_name);
        EXPECT_EQ(time_text_ms(parse_time(date)), time_text_ms(parse_time(begin)));
        EXPECT_EQ(time_text_ms(parse_end_time(date)), time_text_ms(parse_time(end)));
    }
}

TEST(Times, ALengthIsMoreThanNothing)
{
    EXPECT_EQ(parse_duration("1.5"), 1500);
    EXPECT_EQ(parse_duration("10m") + parse_duration("2h"), 7800000);
    for (const char* text : {"", "0", "0.0001", "-1", "nan", "inf", "1e9", "10 m", "10d", "9999999999"})
        EXPECT_THROW(parse_duration(text), Failure) << text;
}

TEST(Times, PrintedTimesCarryTheirZoneAndAreReadBack)
{
    for (const char* name : {"UTC0", berlin, "NST3:30NDT,M3.2.0,M11.1.0"}) {
        Zone zone(name);
        for (int64_t seconds : {int64_t{86400 * 2}, march_5_ten_utc_s, int64_t{1783000000}, max_time_s})
            EXPECT_EQ(parse_time(time_text(seconds)), seconds * 1000) << name << " " << seconds;
    }
    Zone zone("NST3:30");
    EXPECT_EQ(time_text(march_5_ten_utc_s), "2026-03-05T06:30:00-03:30");
    EXPECT_EQ(time_text_ms(march_5_ten_utc_s * 1000 + 7), "2026-03-05T06:30:00.007-03:30");
}

TEST(Times, WhatIsNoTimeIsRefusedInsteadOfGuessed)
{
    Zone zone(berlin);
    for (const char* text :
         {"", "now", "10:00", "2026-3-5T10:00", "2026-02-29", "2026-13-01", "2026-03-05T24:00",
          "2026-03-05T10:00:00x", "2026-03-05T10:00+1", "2026-03-29T02:30", "2026-10-25T02:00",
          "2026-10-25T02:59:59", "2026-03-05T10:00+14:01", "2026-03-05T10:00-09:60", "1969-12-31T23:00Z",
          "2038-01-19T03:14:08Z", "20260305T100000"})
        EXPECT_THROW(parse_time(text), Failure) << text;
}

TEST(Months, AMonthKnowsItsDaysAcrossAClockChange)
{
    Zone zone(berlin);
    Month march = parse_month("2026-03");
    EXPECT_EQ(time_text(march.first_s), "2026-03-01T00:00:00+01:00");
    EXPECT_EQ(time_text(march.last_s), "2026-03-31T23:59:59+02:00");
    EXPECT_EQ(march.days, 31);
    EXPECT_EQ(march.weekday, 6); // a Sunday
    EXPECT_EQ(parse_month("2028-02").days, 29);
    EXPECT_EQ(time_text(parse_month("2026-12").last_s), "2026-12-31T23:59:59+01:00");
    for (const char* text : {"2026-13", "2026-00", "2026", "2026-03-01", "March"})
        EXPECT_THROW(parse_month(text), Failure) << text;
}

TEST(Sizes, SizesAreReadAndWrittenInPowersOf1024)
{
    EXPECT_EQ(parse_size("8G"), 8ULL << 30);
    EXPECT_EQ(parse_size("300m"), 300ULL << 20);
    EXPECT_EQ(parse_size("1048576"), 1ULL << 20);
    EXPECT_EQ(parse_size("8GiB"), 8ULL << 30);
    EXPECT_EQ(parse_size("8gb"), 8000000000ULL);
    EXPECT_EQ(size_text(8ULL << 30), "8.0 GiB");
    EXPECT_EQ(size_text((1ULL << 30) - 1), "1.0 GiB");
    EXPECT_EQ(size_text(1023), "1023 B");
    for (const char* text : {"", "G", "0", "-1G", "8B", "8.5G", "99999999999T", "9999999999999999999"})
        EXPECT_THROW(parse_size(text), Failure) << text;
}

TEST(Aac, AnAccessUnitGetsTheHeaderOfItsStream)
{
    constexpr int index_of_16_khz = 8;

    std::array<uint8_t, adts_header_size> header = adts_header({index_of_16_khz, 1}, 300);

    EXPECT_EQ(header, (std::array<uint8_t, 7>{0xFF, 0xF1, 0x60, 0x40, 0x26, 0x7F, 0xFC}));
    std::vector<uint8_t> frame(header.begin(), header.end());
    frame.resize(307);
    EXPECT_TRUE(has_adts_header(frame.data(), frame.size()));
    EXPECT_FALSE(has_adts_header(frame.data(), frame.size() - 1)); // raw data that only look like a header
}

TEST(Aac, SbrIsRecordedAsTheStreamUnderneathAndTheRestRefused)
{
    const uint8_t he_aac_24_khz_stereo[] = {0x2B, 0x11, 0x88, 0x00};
    const uint8_t error_resilient[] = {0x89, 0x10};
    AacParameters aac = {};
    EXPECT_TRUE(parse_audio_specific_config(he_aac_24_khz_stereo, 4, &aac));
    EXPECT_EQ(aac.sample_rate_index, 6);
    EXPECT_EQ(aac.channel_conf, 2);
    EXPECT_FALSE(parse_audio_specific_config(error_resilient, 2, &aac));
    EXPECT_FALSE(parse_audio_specific_config(he_aac_24_khz_stereo, 1, &aac));
}

TEST(ProgressLine, ShowsShareSpeedAndRemainingTimeAndFitsTheTerminal)
{
    EXPECT_EQ(progress_text("Recording", 30000, 120000, 3000, 80),
              "Recording  [#######.......................]  25%  10.0x real time, 0:00:09 left");
    EXPECT_EQ(progress_text("Recording", 30000, 120000, 3000, 60),
              "Recording  [##........]  25%  10.0x real time, 0:00:09 left");
    EXPECT_EQ(progress_text("Recording", 90000, 0, 90000, 80), "Recording  0:01:30  1.0x real time");
    EXPECT_NE(progress_text("Playing", 200, 100, 1000, 80).find("100%"), std::string::npos);
    EXPECT_NE(progress_text("Playing", 0, 100, 1000, 80).find("? left"), std::string::npos);
    EXPECT_EQ(piece_progress_text("Checking", 30, 40, 6000, 80),
              "Checking  [######################........]  75%  0:00:02 left");
    for (size_t columns = 1; columns < 100; ++columns)
        EXPECT_LT(progress_text("Recording", 30000, 120000, 3000, columns).size(), columns);
}

} // namespace
