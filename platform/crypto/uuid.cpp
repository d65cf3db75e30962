#include "platform/crypto/uuid.h"

#include <uuid/uuid.h>

namespace teravolant::platform {

std::string randomUuid() {
    uuid_t uuid;
    uuid_generate_random(uuid);
    std::string text(UUID_STR_LEN - 1, '\0');
    uuid_unparse_upper(uuid, text.data());
    return text;
}

}  // namespace teravolant::platform
