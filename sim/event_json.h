#pragma once

#include <nlohmann/json.hpp>

#include "sim/event.h"

namespace passbook::sim {

/// An event as the log has it, without the time. "event" names the kind; bytes are hexadecimal and cut short when there
/// are many, except where only their number is told; a place is "xDots", "yDots", "xMm", "yMm".
[[nodiscard]] nlohmann::json toJson(const Event& event);

}  // namespace passbook::sim
