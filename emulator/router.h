#pragma once
#include "emulator/emulator_impl.h"

namespace quorvane::emulator {

void installRoutes(httplib::Server& server, CloudEmulator::Impl& impl);

}  // namespace quorvane::emulator
