// The trace: what a driver wrote and read, in a file, one JSON object a line.
#pragma once

#include <string>

namespace passbook::tool {

struct Setting;

/// Begins to write setting.trace, when it names a file. Returns what is wrong, or an empty text.
[[nodiscard]] std::string startTrace(const Setting& setting);
/// Ends that. Returns what went wrong meanwhile, or an empty text.
[[nodiscard]] std::string stopTrace();

}  // namespace passbook::tool
