#pragma once

#include <chrono>
#include <string>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Returns `time` in seconds as a decimal number, for messages.
[[nodiscard]] std::string secondsText(std::chrono::milliseconds time);

/// A transfer that libcurl ended with an error.
struct FailedTransfer {
    int code = 0;                 ///< A CURLcode.
    std::string host;             ///< As messages show it.
    std::string explanation;      ///< libcurl's message.
    long certificateVerdict = 0;  ///< OpenSSL's result (X509_V_…).
    std::chrono::milliseconds connectTimeout{};
};

/// Returns the error of the transfer. Its code and text distinguish failures of the network, of the
/// server's certificate and of its response.
[[nodiscard]] Status errorOfTransfer(const FailedTransfer& failed);

}  // namespace teravolant::platform
