#include <gtest/gtest.h>

#include <random>
#include <string>

#include "foundation/crc64.h"

using quorvane::foundation::Crc64;

TEST(Crc64, PublishedCheckValues) {
    EXPECT_EQ(Crc64::compute("123456789"), 0x995DC9BBDF1939FAULL);
    EXPECT_EQ(Crc64::compute("This is a test of the emergency broadcast system."), 2871916124362751090ULL);
    EXPECT_EQ(Crc64::compute(""), 0u);
}

TEST(Crc64, FastPathMatchesBytewiseAtEveryLengthAndAlignment) {
    std::mt19937_64 rng(7);
    std::string data(4096 + 13, '\0');
    for (auto& c : data) c = static_cast<char>(rng());
    for (std::size_t offset = 0; offset < 9; ++offset) {
        for (std::size_t len : {0u, 1u, 7u, 8u, 9u, 15u, 16u, 17u, 63u, 64u, 65u, 1000u, 4096u}) {
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

TEST(Crc64, CombineHoldsForPartSizedAndHugeLengths) {
    // A multi-megabyte part, as the engine sends them.
    std::string zeros(5 * 1024 * 1024 + 3, '\0');
    auto head = Crc64::compute("head");
    EXPECT_EQ(Crc64::combine(head, Crc64::compute(zeros), zeros.size()),
              Crc64::update(head, zeros.data(), zeros.size()));
    // Lengths past 4 GiB cannot be hashed here, but appending n1 then n2 bytes must equal
    // appending the n1 + n2 bytes at once, whatever the split.
    const std::uint64_t a = 0x0123456789ABCDEFULL, b = 0xFEDCBA9876543210ULL, c = 0x5A5A5A5AA5A5A5A5ULL;
    for (auto [n1, n2] : {std::pair<std::uint64_t, std::uint64_t>{1, 1}, {1048576, 3}, {(1ULL << 32) + 7, 1ULL << 33},
                          {(1ULL << 40) - 1, 12345}, {1ULL << 61, (1ULL << 61) + 1}}) {
        EXPECT_EQ(Crc64::combine(Crc64::combine(a, b, n1), c, n2), Crc64::combine(a, Crc64::combine(b, c, n2), n1 + n2))
            << n1 << " + " << n2;
    }
}
