#include "platform/digest.h"

#include <gtest/gtest.h>

namespace teravolant::platform {
namespace {

struct KnownDigest {
    DigestAlgorithm algorithm;
    std::string bytes;
    std::string hex;
};

// The vectors of RFC 1321, appendix A.5, and of FIPS 180-4's examples.
const KnownDigest kKnownDigests[] = {
    {DigestAlgorithm::Md5, "", "d41d8cd98f00b204e9800998ecf8427e"},
    {DigestAlgorithm::Md5, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
    {DigestAlgorithm::Sha256, "abc",
     "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {DigestAlgorithm::Sha256, std::string(1'000'000, 'a'),
     "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
};

TEST(Digests, AreThePublishedOnesHoweverTheBytesAreCut) {
    for (const KnownDigest& known : kKnownDigests) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{63}, std::size_t{1} << 20U}) {
            Digest digest(known.algorithm);
            for (std::size_t start = 0; start < known.bytes.size(); start += piece) {
                digest.update(std::string_view(known.bytes).substr(start, piece));
            }
            const auto raw = digest.finish();
            ASSERT_TRUE(raw) << raw.error().localizedDescription;
            EXPECT_EQ(hexText(raw.value()), known.hex);
        }
    }
}

TEST(Base64, TakesAndMakesTheTextsOfTheStandard) {
    using Pair = std::pair<std::string, std::string>;
    for (const auto& [bytes, text] :
         {Pair{"", ""}, Pair{"f", "Zg=="}, Pair{"fo", "Zm8="}, Pair{"foo", "Zm9v"},
          Pair{"foobar", "Zm9vYmFy"}, Pair{std::string("\0\xFF\xFE", 3), "AP/+"}}) {
        EXPECT_EQ(base64Encoded(bytes), text);
        EXPECT_EQ(base64Decoded(text), bytes);
    }
}

TEST(Base64, KeepsBytesThatAreLongerThanOnePiece) {
    std::string bytes;
    for (unsigned number = 0; bytes.size() <= (std::size_t{7} << 20U); ++number) {
        bytes += static_cast<char>(number * 2654435761U >> 24U);
    }
    EXPECT_EQ(base64Decoded(base64Encoded(bytes)), bytes);
}

TEST(Base64, RefusesEveryTextButTheOneThatEncodingMakes) {
    for (const char* text : {"Zg", "Zg=", "Zg===", "Zh==", "Zm9=", "=Zg=", "====", "Zg==Zg==",
                             "Zm9v\n", "Zm9 ", " Zm9vZm9", "Zm9-", "Zm9_", "Zm9\xC3"}) {
        EXPECT_EQ(base64Decoded(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace teravolant::platform
