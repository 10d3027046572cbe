// Text from servers and file names made safe for a terminal: no control character or escape sequence
// survives, bytes that are not UTF-8 are replaced, and credentials are redacted.
#include <gtest/gtest.h>

#include "terminal_text.h"

namespace quorvane::app {
namespace {

TEST(TerminalText, ControlsAndEscapeSequencesGoAndBadBytesAreReplaced) {
    EXPECT_EQ(printableText("plain name.bin"), "plain name.bin");
    EXPECT_EQ(printableText("caf\xC3\xA9 \xE4\xB8\xAD"), "caf\xC3\xA9 \xE4\xB8\xAD");  // UTF-8 stays
    auto coloured = printableText("\x1b[31mred\x1b[0m\x07\x7f");
    EXPECT_EQ(coloured.find('\x1b'), std::string::npos);
    EXPECT_EQ(coloured.find('\x07'), std::string::npos);
    EXPECT_EQ(coloured.find('\x7f'), std::string::npos);
    EXPECT_EQ(printableText("a\xC2\x9B" "b"), "ab");                        // C1 CSI
    EXPECT_EQ(printableText("x\xff\xfey"), "x\xEF\xBF\xBD\xEF\xBF\xBDy");    // invalid bytes
    EXPECT_EQ(printableText("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");        // overlong
    EXPECT_EQ(printableText("\xED\xA0\x80").find("\xED"), std::string::npos);  // surrogate
    EXPECT_EQ(printableText("one\ntwo\tthree"), "one two three");
}

TEST(TerminalText, SecretsAndTheTokenHeaderOfAStringToSignAreRedacted) {
    std::string toSign = "PUT\n\napplication/octet-stream\nMon, 01 Jan 2024\nx-oss-security-token:CAIS-token-text\n/b/k";
    auto shown = redactSecrets("SignatureDoesNotMatch: " + toSign + " key SECRETVALUE", {"SECRETVALUE", ""});
    EXPECT_EQ(shown.find("CAIS-token-text"), std::string::npos);
    EXPECT_EQ(shown.find("SECRETVALUE"), std::string::npos);
    EXPECT_NE(shown.find("x-oss-security-token:***"), std::string::npos);
    EXPECT_NE(shown.find("/b/k"), std::string::npos);  // the rest of the text stays
    EXPECT_EQ(redactSecrets("aaaaaaaaaaaaaaaa", {"aaaaaaaa"}), "******");
    // A short "secret" is no key: the letters of messages stay as they are.
    EXPECT_EQ(redactSecrets("this is it", {"s", "is", "this is"}), "this is it");
    EXPECT_EQ(redactSecrets("key=abcdefgh.", {"abcdefgh"}), "key=***.");
}

}  // namespace
}  // namespace quorvane::app
