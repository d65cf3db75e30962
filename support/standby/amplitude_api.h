#pragma once

#include <string_view>

#include "platform/core/http_message.h"
#include "platform/core/result.h"
#include "support/standby/amplitude_event.h"

namespace teravolant {

/// Posts events to the analytics service. Retries nothing. The caller must have the user's consent.
class AmplitudeApi {
  public:
    /// The host of the service, set at build time.
    static constexpr std::string_view kHost = TERAVOLANT_ANALYTICS_HOST;

    /// Posts the event in the background and returns at once; does nothing if it is null. May be
    /// called from any thread, once the application object exists.
    ///
    /// The application loop logs the response to the console on the main thread: its body for any
    /// status, "(null)" if the body is not UTF-8, or the reason if the request failed, the body
    /// exceeds 1 MiB or a redirect leaves https. If the process ends first, the response is lost.
    /// An event without data is posted with an empty body.
    static void sendEvent(const AmplitudeEvent* event, std::string_view host = kHost);

  private:
    static void answerReceived(const platform::Result<platform::HttpResponse>& response);
};

}  // namespace teravolant
