// CRC-64/XZ as object storage reports it in "x-oss-hash-crc64ecma": slicing-by-8 for speed, and the
// zlib-style combine so an object's CRC follows from its parts' CRCs without reading them again.
#include <array>
#include <bit>
#include <cstring>

#include "emulator/cloud_emulator.h"

namespace quorvane::emulator {
namespace {

constexpr std::uint64_t kPoly = 0xC96C5795D7870F42ULL;  // reflected 0x42F0E1EBA9EA3693

using Tables = std::array<std::array<std::uint64_t, 256>, 8>;

Tables makeTables() {
    Tables t{};
    for (std::uint64_t n = 0; n < 256; ++n) {
        std::uint64_t c = n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? (c >> 1) ^ kPoly : c >> 1;
        t[0][n] = c;
    }
    for (int n = 0; n < 256; ++n)
        for (int k = 1; k < 8; ++k) t[k][n] = (t[k - 1][n] >> 8) ^ t[0][t[k - 1][n] & 0xFF];
    return t;
}

const Tables& tables() {
    static const Tables t = makeTables();
    return t;
}

std::uint64_t gf2Times(const std::uint64_t* mat, std::uint64_t vec) {
    std::uint64_t sum = 0;
    for (; vec; vec >>= 1, ++mat)
        if (vec & 1) sum ^= *mat;
    return sum;
}

void gf2Square(std::uint64_t* square, const std::uint64_t* mat) {
    for (int n = 0; n < 64; ++n) square[n] = gf2Times(mat, mat[n]);
}

}  // namespace

std::uint64_t crc64(const void* data, std::size_t size, std::uint64_t crc) {
    const auto& t = tables();
    auto p = static_cast<const unsigned char*>(data);
    crc = ~crc;
    while (size >= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
        crc ^= word;
        crc = t[7][crc & 0xFF] ^ t[6][(crc >> 8) & 0xFF] ^ t[5][(crc >> 16) & 0xFF] ^ t[4][(crc >> 24) & 0xFF] ^
              t[3][(crc >> 32) & 0xFF] ^ t[2][(crc >> 40) & 0xFF] ^ t[1][(crc >> 48) & 0xFF] ^ t[0][crc >> 56];
        p += 8;
        size -= 8;
    }
    while (size--) crc = t[0][(crc ^ *p++) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

std::uint64_t crc64Combine(std::uint64_t crcA, std::uint64_t crcB, std::uint64_t lengthB) {
    if (lengthB == 0) return crcA;
    std::uint64_t even[64];
    std::uint64_t odd[64];
    odd[0] = kPoly;  // the operator for one zero bit
    std::uint64_t row = 1;
    for (int n = 1; n < 64; ++n, row <<= 1) odd[n] = row;
    gf2Square(even, odd);  // two zero bits
    gf2Square(odd, even);  // four zero bits
    do {  // apply len(B) zero bytes to crcA
        gf2Square(even, odd);
        if (lengthB & 1) crcA = gf2Times(even, crcA);
        lengthB >>= 1;
        if (!lengthB) break;
        gf2Square(odd, even);
        if (lengthB & 1) crcA = gf2Times(odd, crcA);
        lengthB >>= 1;
    } while (lengthB);
    return crcA ^ crcB;
}

}  // namespace quorvane::emulator
