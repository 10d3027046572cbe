#pragma once
// CRC-64/XZ (ECMA-182 polynomial, reflected, init and xorout all ones), the checksum object storage
// answers in "x-oss-hash-crc64ecma". One implementation for the client and the emulator: ISA-L's
// carry-less-multiply code where the build found it, liblzma's otherwise.
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quorvane::foundation {

class Crc64 {
public:
    // Continues a finished CRC: update(update(0, a), b) == update(0, a + b). Start with 0.
    static std::uint64_t update(std::uint64_t crc, const void* data, std::size_t size);
    static std::uint64_t compute(std::string_view data) { return update(0, data.data(), data.size()); }
    // CRC of a + b from the CRCs of a and b and the length of b, without the bytes.
    static std::uint64_t combine(std::uint64_t crcA, std::uint64_t crcB, std::uint64_t lengthB);
    // Byte-at-a-time reference, to cross-check the fast path.
    static std::uint64_t updateBytewise(std::uint64_t crc, const void* data, std::size_t size);
    // The library behind update(): "isa-l" or "liblzma".
    static const char* backend();
};

}  // namespace quorvane::foundation
