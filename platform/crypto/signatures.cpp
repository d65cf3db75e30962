#include "platform/crypto/signatures.h"

#include <sodium.h>

#include "platform/crypto/encodings.h"

namespace teravolant::platform {

bool isSignatureValid(std::string_view message, std::string_view signature,
                      std::string_view publicKey) {
    const auto rawKey = base64Decoded(publicKey);
    const auto rawSignature = base64Decoded(signature);
    return rawKey && rawKey->size() == crypto_sign_PUBLICKEYBYTES && rawSignature &&
           rawSignature->size() == crypto_sign_BYTES &&
           crypto_sign_verify_detached(octets(*rawSignature), octets(message), message.size(),
                                       octets(*rawKey)) == 0;
}

}  // namespace teravolant::platform
