#pragma once
#include "foundation/crc64.h"  // one CRC-64 for the client and the emulator
namespace quorvane::oss { using foundation::Crc64; }
