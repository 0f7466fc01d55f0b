// USB, which a library can be built without.
#pragma once

#include <memory>

#include "device/device.h"

namespace passbook {

/// The first of the known printers that can be opened, open; null when there is none, which explainFailure tells of.
[[nodiscard]] std::unique_ptr<Protocol> openUsb();

}  // namespace passbook
