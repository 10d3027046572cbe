#include <gtest/gtest.h>

#include "foundation/crypto.h"
#include "foundation/value.h"

using namespace quorvane::foundation;

// Vectors published with the object-storage header signature rules.
TEST(Crypto, HmacSha1MatchesPublishedSignatureVector) {
    const std::string stringToSign =
        "PUT\nODBGOERFMDMzQTczRUY3NUE3NzA5QzdFNUYzMDQxNEM=\ntext/html\nThu, 17 Nov 2005 18:49:58 GMT\n"
        "x-oss-magic:abracadabra\nx-oss-meta-author:foo@bar.com\n/oss-example/nelson";
    EXPECT_EQ(hmacSha1Base64("OtxrzxIsfpFjA7SwPzILwy8Bw21TLhquhboDYROV", stringToSign), "26NBxoKdsyly4EDv6inkoDft/yA=");
    EXPECT_EQ(hmacSha1Base64("OtxrzxIsfpFjA7SwPzILwy8Bw21TLhquhboDYROV", "GET\n\n\n1141889120\n/oss-example/oss-api.pdf"),
              "EwaNTn1erJGkimiJ9WmXgwnANLc=");
}

// FIPS 180-2 and RFC 4231 (test cases 1 and 2).
TEST(Crypto, Sha256AndItsHmacMatchPublishedVectors) {
    EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(hexLower(hmacSha256Raw(std::string(20, '\x0b'), "Hi There")),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(hexLower(hmacSha256Raw("Jefe", "what do ya want for nothing?")),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

TEST(Crypto, Md5IsLowerHexAndStreamsLikeOneShot) {
    EXPECT_EQ(md5Hex(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5Hex("The quick brown fox jumps over the lazy dog"), "9e107d9d372bb6826bd81d3542a419d6");
    Md5Stream s;
    s.update("The quick brown ", 16);
    s.update("fox jumps over the lazy dog", 27);
    EXPECT_EQ(hexLower(s.finishRaw()), "9e107d9d372bb6826bd81d3542a419d6");
}

TEST(Base64, RoundTripsEveryLengthAndRejectsJunk) {
    std::string bytes;
    for (int i = 0; i < 40; ++i) {
        auto decoded = base64Decode(base64Encode(bytes));
        ASSERT_TRUE(decoded.has_value()) << i;
        EXPECT_EQ(*decoded, bytes);
        bytes.push_back(static_cast<char>(i * 37));
    }
    EXPECT_EQ(base64Encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(base64Decode("Zm9vYg==").value(), "foob");
    for (const char* bad : {"Zm9", "Zm9v!mFy", "Zm=vYmFy", "Zm9vYg=a", " Zm9vYmFy", "Zm9vYmFy\n"})
        EXPECT_FALSE(base64Decode(bad).has_value()) << bad;
}

TEST(Json, FragmentsParseAndMalformedTextIsNotAnException) {
    EXPECT_EQ(parseJson("123").value(), 123);
    EXPECT_EQ(parseJson("\"x\"").value(), "x");
    EXPECT_FALSE(parseJson("{\"a\":").has_value());
    EXPECT_FALSE(parseJson("").has_value());
    auto v = parseJson(R"({"b":1,"a":2})").value();
    EXPECT_EQ(v.begin().key(), "b");  // written order is kept
}
