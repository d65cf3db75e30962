#include "update_framework/installation.h"

#include "platform/system/bundle.h"

namespace teravolant::platform {

Installation installationOf(const Bundle& bundle) {
    Installation installation{.bundleIdentifier = bundle.bundleIdentifier().value_or(""),
                              .bundleVersion = bundle.shortVersion().value_or("")};
    const Value* const keys = bundle.objectForInfoDictionaryKey("TVUpdatePublicKeys");
    if (keys != nullptr && keys->array() != nullptr) {
        for (const Value& key : *keys->array()) {
            if (key.text() != nullptr) {
                installation.publicKeys.push_back(*key.text());
            }
        }
    }
    const Value* const built = bundle.objectForInfoDictionaryKey("TVBuildTime");
    if (built != nullptr && built->date() != nullptr) {
        installation.buildTime = *built->date();
    }
    return installation;
}

}  // namespace teravolant::platform
