#include "platform/signatures.h"

#include <gtest/gtest.h>

#include "platform/digest.h"

namespace teravolant::platform {
namespace {

std::string bytesOfHex(std::string_view hex) {
    std::string bytes;
    for (; !hex.empty(); hex.remove_prefix(2)) {
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(0, 2)), nullptr, 16));
    }
    return bytes;
}

std::string pem(const std::string& kind, const std::string& hex) {
    return "-----BEGIN " + kind + "-----\n" + base64Encoded(bytesOfHex(hex)) + "\n-----END " +
           kind + "-----\n";
}

// The second test vector of RFC 8032, section 7.1.
const std::string kMessage = "\x72";
const std::string kSecret = "4ccd089b28ff96da9db6c346ec114e0f5b8a319f35aba624da8cf6ed4fb8a6fb";
const std::string kPublic = "3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c";
const std::string kSignature =
    "92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da085ac1e43e15996e458f3613d0f11d"
    "8c387b2eaeb4302aeeb00d291612bb0c00";
/// What stands before the 32 secret bytes of a key in PKCS#8 (RFC 8410).
const std::string kPrefix = "302e020100300506032b657004220420";

TEST(Signatures, AreTheStandardsAndInvalidWhenTheyOrTheKeyAreMalformed) {
    const auto signer = SigningKey::fromPem(pem("PRIVATE KEY", kPrefix + kSecret));
    ASSERT_TRUE(signer) << signer.error().localizedDescription;
    EXPECT_EQ(signer.value().pem().value(), pem("PRIVATE KEY", kPrefix + kSecret));
    const std::string key = signer.value().publicKey().value();
    const std::string signature = signer.value().sign(kMessage).value();
    EXPECT_EQ(base64Decoded(key), bytesOfHex(kPublic));
    EXPECT_EQ(base64Decoded(signature), bytesOfHex(kSignature));
    EXPECT_TRUE(isSignatureValid(kMessage, signature, key));

    EXPECT_FALSE(isSignatureValid("another message", signature, key));
    const auto base64OfHex = [](const std::string& hex) { return base64Encoded(bytesOfHex(hex)); };
    std::string changed = kSignature;
    changed[80] ^= 1;
    for (const std::string& bad :
         {base64OfHex(changed), std::string(), base64OfHex(kSignature.substr(2)),
          base64OfHex(kSignature + "00"), kSignature, signature + "\n"}) {
        EXPECT_FALSE(isSignatureValid(kMessage, bad, key)) << bad;
    }
    for (const std::string& bad :
         {std::string(), base64OfHex(kPublic.substr(2)), base64OfHex(kPublic + "00"),
          base64Encoded(std::string(32, '\xFF'))}) {
        EXPECT_FALSE(isSignatureValid(kMessage, signature, bad)) << bad;
    }
}

TEST(SigningKeys, AreNotReadFromAnythingButAnEd25519PrivateKey) {
    const std::string whole = pem("PRIVATE KEY", kPrefix + kSecret);
    const std::string x25519 = pem("PRIVATE KEY", "302e020100300506032b656e04220420" + kSecret);
    const std::string publicOnly = pem("PUBLIC KEY", "302a300506032b6570032100" + kPublic);
    for (const std::string& text :
         {std::string(), x25519, publicOnly, whole.substr(0, whole.size() / 2)}) {
        const auto key = SigningKey::fromPem(text);
        ASSERT_FALSE(key) << text;
        EXPECT_EQ(key.error().code, errSecDecode);
    }
}

}  // namespace
}  // namespace teravolant::platform
