#include <gtest/gtest.h>

#include <random>
#include <string>

#include "oss/crc64.h"

using quorvane::oss::Crc64;

TEST(Crc64, PublishedCheckValues) {
    EXPECT_EQ(Crc64::compute("123456789"), 0x995DC9BBDF1939FAULL);
    EXPECT_EQ(Crc64::compute("This is a test of the emergency broadcast system."), 2871916124362751090ULL);
    EXPECT_EQ(Crc64::compute(""), 0u);
}

TEST(Crc64, SlicedPathMatchesBytewiseAtEveryLengthAndAlignment) {
    std::mt19937_64 rng(7);
    std::string data(4096 + 13, '\0');
    for (auto& c : data) c = static_cast<char>(rng());
    for (std::size_t offset = 0; offset < 9; ++offset) {
        for (std::size_t len : {0u, 1u, 7u, 8u, 9u, 15u, 16u, 17u, 63u, 1000u, 4096u}) {
            auto fast = Crc64::update(0, data.data() + offset, len);
            auto slow = Crc64::updateBytewise(0, data.data() + offset, len);
            ASSERT_EQ(fast, slow) << "offset " << offset << " length " << len;
        }
    }
}

TEST(Crc64, ChainingAndCombineAgreeWithWholeBuffer) {
    std::mt19937_64 rng(11);
    std::string data(300000, '\0');
    for (auto& c : data) c = static_cast<char>(rng());
    auto whole = Crc64::compute(data);
    for (std::size_t cut : {0u, 1u, 102400u, 131072u, 299999u, 300000u}) {
        std::string_view a(data.data(), cut), b(data.data() + cut, data.size() - cut);
        EXPECT_EQ(Crc64::update(Crc64::compute(a), b.data(), b.size()), whole) << cut;
        EXPECT_EQ(Crc64::combine(Crc64::compute(a), Crc64::compute(b), b.size()), whole) << cut;
    }
    // Several parts folded in order, as a multipart upload's parts are.
    std::uint64_t folded = 0;
    for (std::size_t off = 0; off < data.size(); off += 102400) {
        auto part = std::string_view(data).substr(off, 102400);
        folded = Crc64::combine(folded, Crc64::compute(part), part.size());
    }
    EXPECT_EQ(folded, whole);
}
