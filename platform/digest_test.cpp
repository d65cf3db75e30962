#include "platform/digest.h"

#include <gtest/gtest.h>

namespace teravolant::platform {
namespace {

// The vectors of RFC 1321, appendix A.5, and of FIPS 180-4's examples.
TEST(Digests, AreThePublishedOnesHoweverTheBytesAreCut) {
    const std::tuple<DigestAlgorithm, std::string, const char*> table[] = {
        {DigestAlgorithm::Md5, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {DigestAlgorithm::Sha256, std::string(1'000'000, 'a'),
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& [algorithm, bytes, hex] : table) {
        for (const std::size_t piece : {std::size_t{63}, bytes.size()}) {
            Digest digest(algorithm);
            for (std::size_t start = 0; start < bytes.size(); start += piece) {
                digest.update(std::string_view(bytes).substr(start, piece));
            }
            EXPECT_EQ(hexText(digest.finish().value()), hex);
        }
    }
}

TEST(Base64, RefusesEveryTextButTheOneThatEncodingMakes) {
    for (const std::string& bytes : {std::string(), std::string("\0\xFF\xFE\xFD", 4)}) {
        EXPECT_EQ(base64Decoded(base64Encoded(bytes)), bytes);
    }
    for (const char* text : {"Zg", "Zg=", "Zg===", "Zh==", "Zm9=", "=Zg=", "====", "Zg==Zg==",
                             "Zm9v\n", "Zm9 ", " Zm9vZm9", "Zm9-", "Zm9\xC3"}) {
        EXPECT_EQ(base64Decoded(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace teravolant::platform
