#pragma once

#include <string_view>

#include "platform/core/result.h"
#include "platform/http/http.h"
#include "support/standby/amplitude_event.h"

namespace teravolant {

/// Posts events to the analytics service. Nothing is retried, and whether the user agreed to it is
/// the caller's to ask.
class AmplitudeApi {
  public:
    /// Where the service is. Set when the program is built.
    static constexpr std::string_view kHost = TERAVOLANT_ANALYTICS_HOST;

    /// Starts to post the event and returns at once; without an event, does nothing. May be called
    /// from any thread, once the application object was made.
    ///
    /// The answer is written to the console log, on the main thread, once the application's loop
    /// gets to it: the body's text whatever the status, "(null)" for one that is not UTF-8, and the
    /// reason where none arrived, it is longer than 1 MiB, or a redirect leads away from https. A
    /// process that ends before drops it. An event without data is posted without a body, and the
    /// service's answer says so.
    static void sendEvent(const AmplitudeEvent* event, std::string_view host = kHost);

  private:
    static void answerReceived(const platform::Result<platform::HttpResponse>& answer);
};

}  // namespace teravolant
