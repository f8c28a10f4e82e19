#include "device/fat32_format.h"
#include "tests/support.h"

/* The usual card's are in docs/format.md. */
TEST(FatSizes, UseTheLargestVolumeThatFits)
{
    const auto sizes = [](unsigned long long total) {
        unsigned long used = 0;
        unsigned long fat_sectors = 0;
        unsigned long clusters = 0;
        Ifsf_calculate(total, 32, 128, &used, &fat_sectors, &clusters);
        return std::to_string(clusters) + " " + std::to_string(fat_sectors) + " " + std::to_string(used);
    };
    EXPECT_EQ(sizes(2097152), "16381 128 2097056");
    EXPECT_EQ(sizes(162), "1 1 162");
    EXPECT_EQ(sizes(161), "0 1 34");
}
