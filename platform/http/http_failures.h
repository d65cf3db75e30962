#pragma once

#include <chrono>
#include <string>

#include "platform/core/error.h"

namespace teravolant::platform {

/// `time` in seconds, for messages.
std::string secondsText(std::chrono::milliseconds time);

/// What is known of a transfer that the network library gave up.
struct FailedTransfer {
    int code = 0;  ///< The library's (a CURLcode).
    std::string host;
    std::string explanation;      ///< The library's, in its own words.
    long certificateVerdict = 0;  ///< OpenSSL's, of the server's certificate.
    std::chrono::milliseconds connectTimeout{};
};

/// Says what failed, so that problems of the network, of the server's certificate and of its
/// answer are told apart.
Error errorOfTransfer(const FailedTransfer& failed);

}  // namespace teravolant::platform
