#pragma once
// Text from outside (server messages, file names) made safe to print: control characters and escape
// sequences removed, credentials redacted; and the width of the terminal standard output goes to.
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::app {

// Drops C0 and C1 control characters (ESC included, so no escape sequence survives) and DEL; bytes that
// are not UTF-8 become U+FFFD. Tabs and newlines become spaces: one message stays one line.
std::string printableText(std::string_view text);

// Replaces every occurrence of each whole secret of kMinRedactedLength characters or more with "***",
// and everything after "x-oss-security-token:" up to the end of its line (a string to sign quoted by
// the service). A shorter "secret" is no real key: hiding its letters everywhere would only garble
// the message ("--secret s" would turn "is" into "i***").
inline constexpr std::size_t kMinRedactedLength = 8;
std::string redactSecrets(std::string text, const std::vector<std::string>& secrets);

// Columns of the terminal on `fd`, or 0 when it is not a terminal or does not say.
int terminalColumns(int fd);
// Notes SIGWINCH; resized() is true once after each change of window size.
void watchTerminalSize();
bool terminalResized();

}  // namespace quorvane::app
