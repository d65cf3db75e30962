#include "platform/core/local_time.h"

#include <array>

namespace teravolant::platform {
namespace {

struct Stamp {
    std::time_t second = 0;
    std::array<char, 32> text{};
    std::size_t length = 0;
};

}  // namespace

std::string_view localTimeText(std::time_t second) {
    // Log entries come in bursts, and formatting the time takes longer than writing the entry.
    thread_local Stamp stamp;
    if (stamp.length == 0 || stamp.second != second) {
        std::tm local{};
        localtime_r(&second, &local);
        stamp.length =
            std::strftime(stamp.text.data(), stamp.text.size(), "%Y-%m-%d %H:%M:%S", &local);
        stamp.second = second;
    }
    return {stamp.text.data(), stamp.length};
}

}  // namespace teravolant::platform
