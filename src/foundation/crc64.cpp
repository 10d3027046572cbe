#include "foundation/crc64.h"

#if QUORVANE_HAVE_ISAL
#include <isa-l/crc64.h>
#else
#include <lzma.h>
#endif

#include <array>

namespace quorvane::foundation {
namespace {

constexpr std::uint64_t kPoly = 0xC96C5795D7870F42ULL;  // 0x42F0E1EBA9EA3693 reflected
constexpr std::uint64_t kOne = 1ULL << 63;              // the polynomial 1, reflected

constexpr std::array<std::uint64_t, 256> makeTable() {
    std::array<std::uint64_t, 256> t{};
    for (std::uint64_t n = 0; n < 256; ++n) {
        std::uint64_t c = n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? (c >> 1) ^ kPoly : c >> 1;
        t[n] = c;
    }
    return t;
}

constexpr auto kTable = makeTable();

// a(x) * b(x) modulo the polynomial, both reflected (zlib's multmodp, 64 bits wide).
constexpr std::uint64_t multModP(std::uint64_t a, std::uint64_t b) {
    std::uint64_t product = 0;
    for (std::uint64_t m = kOne; m != 0; m >>= 1) {
        if (a & m) {
            product ^= b;
            if ((a & (m - 1)) == 0) break;
        }
        b = (b & 1) ? (b >> 1) ^ kPoly : b >> 1;
    }
    return product;
}

// x^(2^k) modulo the polynomial for every k a 64-bit bit count can need (bytes are 2^3 bits).
constexpr std::size_t kPowers = 64 + 3;
constexpr std::array<std::uint64_t, kPowers> makePowers() {
    std::array<std::uint64_t, kPowers> t{};
    t[0] = kOne >> 1;  // x^1
    for (std::size_t k = 1; k < kPowers; ++k) t[k] = multModP(t[k - 1], t[k - 1]);
    return t;
}

constexpr auto kPowersOfX = makePowers();

// x^(n * 2^k) modulo the polynomial.
std::uint64_t xPowerModP(std::uint64_t n, std::size_t k) {
    std::uint64_t p = kOne;
    for (; n != 0; n >>= 1, ++k)
        if (n & 1) p = multModP(kPowersOfX[k], p);
    return p;
}

}  // namespace

// Both libraries compute this very checksum with the same chaining convention (the finished CRC
// goes back in as the start value). ISA-L folds 128 bytes a step with carry-less multiplies, about
// four times liblzma's speed on a large part.
std::uint64_t Crc64::update(std::uint64_t crc, const void* data, std::size_t size) {
    if (size == 0) return crc;
#if QUORVANE_HAVE_ISAL
    return crc64_ecma_refl(crc, static_cast<const unsigned char*>(data), size);
#else
    return lzma_crc64(static_cast<const std::uint8_t*>(data), size, crc);
#endif
}

const char* Crc64::backend() { return QUORVANE_HAVE_ISAL ? "isa-l" : "liblzma"; }

std::uint64_t Crc64::updateBytewise(std::uint64_t crc, const void* data, std::size_t size) {
    auto p = static_cast<const unsigned char*>(data);
    crc = ~crc;
    while (size--) crc = kTable[(crc ^ *p++) & 0xff] ^ (crc >> 8);
    return ~crc;
}

// Appending lengthB bytes multiplies A's register by x^(8 * lengthB): a few dozen carry-less
// products instead of squaring a 64x64 bit matrix per bit of the length.
std::uint64_t Crc64::combine(std::uint64_t crcA, std::uint64_t crcB, std::uint64_t lengthB) {
    if (lengthB == 0) return crcA;
    return multModP(xPowerModP(lengthB, 3), crcA) ^ crcB;
}

}  // namespace quorvane::foundation
