// Where a NAL unit begins, in whatever two pieces a frame comes.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "container/frame.h"

TEST(StartCode, IsFoundWhereverItLiesInBothPieces)
{
    const std::string code("\0\0\1", 3);
    std::mt19937 random(20240229);
    for (int round = 0; round < 2000; ++round) {
        // Seldom zeros and ones, so that long stretches without any are passed over, too.
        std::string bytes(random() % 900, 'x');
        const unsigned rarity = 1 + random() % 40;
        for (char& byte : bytes)
            byte = static_cast<char>(random() % rarity == 0 ? random() % 4 / 3 : 2 + random() % 254);
        for (size_t codes = random() % 3; codes > 0 && bytes.size() >= code.size(); --codes)
            bytes.replace(random() % (bytes.size() - 2), code.size(), code);
        const size_t seam = random() % (bytes.size() + 1);
        const std::string first = bytes.substr(0, seam);
        const std::string second = bytes.substr(seam);
        const ifs_mp4::Pieces frame(first.data(), first.size(), second.data(), second.size());
        for (size_t from = 0; from <= bytes.size(); ++from)
            ASSERT_EQ(frame.find_start_code(from), std::min(bytes.find(code, from), bytes.size())) << round;
    }
}
