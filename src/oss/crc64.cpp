#include "oss/crc64.h"

#include <array>

namespace quorvane::oss {
namespace {

constexpr std::uint64_t kPoly = 0xC96C5795D7870F42ULL;  // 0x42F0E1EBA9EA3693 reflected

using Tables = std::array<std::array<std::uint64_t, 256>, 8>;

constexpr Tables makeTables() {
    Tables t{};
    for (std::uint64_t n = 0; n < 256; ++n) {
        std::uint64_t c = n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? (c >> 1) ^ kPoly : c >> 1;
        t[0][n] = c;
    }
    for (int k = 1; k < 8; ++k)
        for (int n = 0; n < 256; ++n) t[k][n] = (t[k - 1][n] >> 8) ^ t[0][t[k - 1][n] & 0xff];
    return t;
}

constexpr Tables kTables = makeTables();

inline std::uint64_t loadLe64(const unsigned char* p) {
    std::uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = (v << 8) | p[i];
    return v;
}

// GF(2) matrix helpers for combine(), as in zlib's crc32_combine.
std::uint64_t matrixTimes(const std::uint64_t* mat, std::uint64_t vec) {
    std::uint64_t sum = 0;
    for (; vec; vec >>= 1, ++mat)
        if (vec & 1) sum ^= *mat;
    return sum;
}

void matrixSquare(std::uint64_t* square, const std::uint64_t* mat) {
    for (int n = 0; n < 64; ++n) square[n] = matrixTimes(mat, mat[n]);
}

}  // namespace

std::uint64_t Crc64::update(std::uint64_t crc, const void* data, std::size_t size) {
    auto p = static_cast<const unsigned char*>(data);
    crc = ~crc;
    while (size >= 8) {
        crc ^= loadLe64(p);
        crc = kTables[7][crc & 0xff] ^ kTables[6][(crc >> 8) & 0xff] ^ kTables[5][(crc >> 16) & 0xff] ^
              kTables[4][(crc >> 24) & 0xff] ^ kTables[3][(crc >> 32) & 0xff] ^ kTables[2][(crc >> 40) & 0xff] ^
              kTables[1][(crc >> 48) & 0xff] ^ kTables[0][crc >> 56];
        p += 8;
        size -= 8;
    }
    while (size--) crc = kTables[0][(crc ^ *p++) & 0xff] ^ (crc >> 8);
    return ~crc;
}

std::uint64_t Crc64::updateBytewise(std::uint64_t crc, const void* data, std::size_t size) {
    auto p = static_cast<const unsigned char*>(data);
    crc = ~crc;
    while (size--) crc = kTables[0][(crc ^ *p++) & 0xff] ^ (crc >> 8);
    return ~crc;
}

std::uint64_t Crc64::combine(std::uint64_t crcA, std::uint64_t crcB, std::uint64_t lengthB) {
    if (lengthB == 0) return crcA;
    std::uint64_t even[64];
    std::uint64_t odd[64];
    odd[0] = kPoly;  // the operator for one zero bit
    std::uint64_t row = 1;
    for (int n = 1; n < 64; ++n, row <<= 1) odd[n] = row;
    matrixSquare(even, odd);  // two zero bits
    matrixSquare(odd, even);  // four zero bits
    // Apply lengthB zero bytes to crcA, one bit of the length per squaring.
    do {
        matrixSquare(even, odd);
        if (lengthB & 1) crcA = matrixTimes(even, crcA);
        lengthB >>= 1;
        if (!lengthB) break;
        matrixSquare(odd, even);
        if (lengthB & 1) crcA = matrixTimes(odd, crcA);
        lengthB >>= 1;
    } while (lengthB);
    return crcA ^ crcB;
}

}  // namespace quorvane::oss
