// Date parsing takes text from the network: every input is either a date the clock can hold or a failure.
#include <gtest/gtest.h>

#include "foundation/dates.h"

namespace quorvane::foundation {
namespace {

using std::chrono::system_clock;

TEST(DateParsing, RejectsYearsAndFieldsOutOfRange) {
    for (const char* text : {"Mon, 01 Jan -2147483648 00:00:00 GMT", "Mon, 01 Jan 2147483647 00:00:00 GMT",
                             "Mon, 01 Jan 99999999999 00:00:00 GMT", "Fri, 31 Dec 9999 23:59:59 GMT",
                             "Mon, 01 Jan 0001 00:00:00 GMT", "Thu, 17 Nov 2005 24:00:00 GMT",
                             "Thu, 17 Nov 2005 -1:00:00 GMT", "Thu, 31 Nov 2005 10:00:00 GMT",
                             "Thu, 29 Feb 2005 10:00:00 GMT", "Thu, 17 Nov 2005 18:49:58 GMT junk",
                             "Thu, 17 Nov +2005 18:49:58 GMT", "Thu, 17 Nov 2005 18:49:58 UTC", "",
                             "Thu, 17 Nov 2005 18:49:58", "yesterday"})
        EXPECT_FALSE(parseRfc1123(text).has_value()) << text;
    for (const char* text : {"9999-12-31T23:59:59Z", "-999-01-01T00:00:00Z", "0001-01-01T00:00:00Z",
                             "2005-13-01T00:00:00Z", "2005-02-30T00:00:00Z", "2005-11-17T18:49:58.Z",
                             "2005-11-17T18:49:58Zx", "2005-1-17T18:49:58Z", "2005-11-17 18:49:58"})
        EXPECT_FALSE(parseIso8601Utc(text).has_value()) << text;
}

TEST(DateParsing, FormatsAndAcceptsTheProtocolFormsOverTheWholeRangeTheClockHolds) {
    auto t = system_clock::from_time_t(1132253398);
    EXPECT_EQ(rfc1123Gmt(t), "Thu, 17 Nov 2005 18:49:58 GMT");
    EXPECT_EQ(parseRfc1123("Thu, 17 Nov 2005 18:49:58 GMT").value(), t);
    EXPECT_EQ(iso8601Utc(t), "2005-11-17T18:49:58Z");
    EXPECT_EQ(iso8601UtcMillis(t + std::chrono::milliseconds(7)), "2005-11-17T18:49:58.007Z");
    EXPECT_EQ(parseIso8601Utc("2005-11-17T18:49:58.007Z").value(), t + std::chrono::milliseconds(7));
    EXPECT_EQ(parseIso8601Utc("2005-11-17T18:49:58Z").value(), t);
    EXPECT_EQ(parseRfc1123("Thu, 01 Jan 1970 00:00:00 GMT").value(), system_clock::from_time_t(0));
    EXPECT_EQ(parseRfc1123("Sat, 1 Jan 2000 00:00:00 GMT").value(), system_clock::from_time_t(946684800));
    EXPECT_EQ(parseRfc1123("Tue, 29 Feb 2000 12:00:00 GMT").value(), system_clock::from_time_t(951825600));
    EXPECT_EQ(parseRfc1123("Wed, 31 Dec 1969 23:59:59 GMT").value(), system_clock::from_time_t(-1));
    EXPECT_EQ(parseIso8601Utc("2200-01-01T00:00:00Z").value(), system_clock::from_time_t(7258118400));
    EXPECT_EQ(rfc1123Gmt(*parseRfc1123("Tue, 31 Dec 2199 23:59:59 GMT")), "Tue, 31 Dec 2199 23:59:59 GMT");
}

}  // namespace
}  // namespace quorvane::foundation
