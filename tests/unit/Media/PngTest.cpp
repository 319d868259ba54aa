#include "Utils/QXVCPng.h"

TEST(PngTest, RejectsSizesThatDoNotMatchTheBuffer) {
    std::vector<uint8_t> rgb(12);
    EXPECT_TRUE(qxvc::png::encodeRGB8(rgb.data(), rgb.size(), 2, 3).empty());
    EXPECT_TRUE(qxvc::png::encodeRGB8(rgb.data(), rgb.size(), 0, 4).empty());
    EXPECT_TRUE(qxvc::png::encodeRGB8(nullptr, 0, 1, 1).empty());
    // 2^31 rows of one pixel would overflow a naive size check.
    EXPECT_TRUE(qxvc::png::encodeRGB8(rgb.data(), rgb.size(), 4, 0x80000000u).empty());
    EXPECT_FALSE(qxvc::png::encodeRGB8(rgb.data(), rgb.size(), 2, 2).empty());
}

TEST(PngTest, ConvertsI420WithChromaSharedOverTwoByTwoBlocks) {
    // 3x3 image: chroma is 2x2. Left chroma column neutral, right column red-ish.
    const std::vector<uint8_t> y = {16, 235, 126, 16, 235, 126, 81, 81, 81};
    const std::vector<uint8_t> u = {128, 90, 128, 90};
    const std::vector<uint8_t> v = {128, 240, 128, 240};
    const auto rgb = qxvc::png::rgbFromI420(y.data(), y.size(), 3, u.data(), u.size(), 2, v.data(),
                                            v.size(), 2, 3, 3);
    ASSERT_EQ(rgb.size(), 27u);
    EXPECT_EQ(std::vector<int>(rgb.begin(), rgb.begin() + 6),
              (std::vector<int>{0, 0, 0, 255, 255, 255}));
    // Y=81, U=90, V=240 is BT.601 red.
    EXPECT_TRUE(rgb[24] >= 250 && rgb[25] <= 5 && rgb[26] <= 5)
        << int{rgb[24]} << " " << int{rgb[25]} << " " << int{rgb[26]};

    // A chroma plane one byte short is refused, not overread.
    EXPECT_TRUE(
        qxvc::png::rgbFromI420(y.data(), y.size(), 3, u.data(), 3, 2, v.data(), v.size(), 2, 3, 3)
            .empty());
    EXPECT_TRUE(qxvc::png::rgbFromI420(y.data(), y.size(), 2, u.data(), u.size(), 2, v.data(),
                                       v.size(), 2, 3, 3)
                    .empty());
}
