#pragma once

#include <string_view>

namespace teravolant::platform {

/// Whether the Ed25519 signature (RFC 8032) of the message was created with the private key of
/// `publicKey`. Both are raw bytes, 64 and 32 of them, as base64 text. Returns false for a
/// malformed key or signature. May be called from any thread.
[[nodiscard]] bool isSignatureValid(std::string_view message, std::string_view signature,
                                    std::string_view publicKey);

}  // namespace teravolant::platform
