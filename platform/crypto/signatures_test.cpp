#include "platform/crypto/signatures.h"

#include <gtest/gtest.h>

#include "platform/crypto/encodings.h"
#include "platform/crypto/signing_key.h"

namespace teravolant::platform {

/// The second test vector of RFC 8032, section 7.1, with its key in the form of RFC 8410.
const std::string kMessage = "\x72";
const std::string kPrivateKey =
    "-----BEGIN PRIVATE "
    "KEY-----\nMC4CAQAwBQYDK2VwBCIEIEzNCJso/5banbbDRuwRTg9bijGfNaumJNqM9u1PuKb7\n"
    "-----END PRIVATE KEY-----\n";
const std::string kPublicKey = "PUAXw+hDiVqStwqnTRt+vJyYLM8uxJaMwM1V8Sr0Zgw=";
const std::string kSignature =
    "kqAJqfDUyrhyDoILX2QlQKKye1QWUD+Ps3YiI+vbadoIWsHkPhWZbkWPNhPQ8R2MOHsurrQwKu6wDSkWErsMAA==";

TEST(Base64, RefusesNonCanonicalText) {
    for (const std::string& bytes : {std::string(), std::string("\0\xFF\xFE\xFD", 4)}) {
        EXPECT_EQ(base64Decoded(base64Encoded(bytes)), bytes);
    }
    for (const char* text : {"Zg", "Zg=", "Zg===", "Zh==", "Zm9=", "=Zg=", "====", "Zg==Zg==",
                             "Zm9v\n", "Zm9 ", " Zm9vZm9", "Zm9-", "Zm9\xC3"}) {
        EXPECT_EQ(base64Decoded(text), std::nullopt) << text;
    }
}

TEST(Signatures, MatchRfc8032AndRefuseMalformedInput) {
    const auto signer = SigningKey::fromPem(kPrivateKey);
    ASSERT_TRUE(signer) << printedForm(signer.error());
    EXPECT_EQ(*signer->pem(), kPrivateKey);
    EXPECT_EQ(*signer->publicKey(), kPublicKey);
    EXPECT_EQ(*signer->sign(kMessage), kSignature);
    EXPECT_TRUE(isSignatureValid(kMessage, kSignature, kPublicKey));
    EXPECT_FALSE(isSignatureValid("another message", kSignature, kPublicKey));

    const std::string key = *base64Decoded(kPublicKey);
    const std::string signature = *base64Decoded(kSignature);
    std::string changed = signature;
    changed[40] ^= 1;
    for (const std::string& bad :
         {base64Encoded(changed), std::string(), base64Encoded(signature.substr(1)),
          base64Encoded(signature + "x"), signature, kSignature + "\n",
          base64Encoded(key.substr(1)), base64Encoded(key + "x"),
          base64Encoded(std::string(32, '\xFF'))}) {
        EXPECT_FALSE(isSignatureValid(kMessage, bad, kPublicKey)) << bad;
        EXPECT_FALSE(isSignatureValid(kMessage, kSignature, bad)) << bad;
    }
}

}  // namespace teravolant::platform
