#include "platform/crypto/random.h"

#include <sodium.h>

namespace teravolant::platform {

std::vector<std::uint8_t> randomBytes(std::size_t count) {
    std::vector<std::uint8_t> bytes(count);
    randombytes_buf(bytes.data(), bytes.size());
    return bytes;
}

}  // namespace teravolant::platform
