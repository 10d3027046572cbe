#pragma once
// CRC-64/XZ (ECMA-182 polynomial, reflected, init and xorout all ones), the checksum object storage
// answers in "x-oss-hash-crc64ecma" (liblzma's CRC-64), so checking costs little next to sending.
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quorvane::oss {

class Crc64 {
public:
    // Continues a finished CRC: update(b, update(a)) == update(a + b). Start with 0.
    static std::uint64_t update(std::uint64_t crc, const void* data, std::size_t size);
    static std::uint64_t compute(std::string_view data) { return update(0, data.data(), data.size()); }
    // CRC of a + b from the CRCs of a and b and the length of b, without the bytes.
    static std::uint64_t combine(std::uint64_t crcA, std::uint64_t crcB, std::uint64_t lengthB);
    // Byte-at-a-time reference, to cross-check the fast path.
    static std::uint64_t updateBytewise(std::uint64_t crc, const void* data, std::size_t size);
};

}  // namespace quorvane::oss
