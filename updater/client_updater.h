#pragma once

#include "platform/update_framework/sqrl_updater.h"

namespace teravolant {

/// The updater of this product. Owned by the application delegate.
class ClientUpdater : public platform::SQRLUpdater {};

}  // namespace teravolant
