#pragma once
// The main loop's Asio context, for code of this project that needs Asio's own timers on the main
// thread. Not installed: no public header includes Asio.
#include <asio/io_context.hpp>

namespace quorvane::foundation {

asio::io_context& mainLoopContext();

}  // namespace quorvane::foundation
