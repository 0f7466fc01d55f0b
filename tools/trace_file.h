// Writes a trace file. The tool does so for its own calls, and the object that `passbook run` preloads for those of a
// host program. It calls nothing of the driver.
#pragma once

#include <string>

#include "tools/family.h"

struct passbook_trace_event;

namespace passbook::tool {

/// Opens a file for a trace, or makes one that only the user can read. A trace that is there gets the new lines behind
/// its own: a session at the counter is several runs of the tool. `family` is that of calls that both families have.
/// Returns what is wrong, or an empty text.
[[nodiscard]] std::string openTrace(const std::string& path, Family family, bool unmasked);

/// The callback for passbook_set_trace. Every event is in the file when it returns, so that nothing is missing from the
/// trace of a host that is killed.
void writeTrace(const struct passbook_trace_event* event, void* user);

/// Closes the file. Returns what went wrong while it was written, or an empty text.
[[nodiscard]] std::string closeTrace();

/// How `passbook run` tells the preloaded object what to do.
inline constexpr const char* traceVariable = "PASSBOOK_TRACE_FILE";
inline constexpr const char* unmaskedVariable = "PASSBOOK_TRACE_UNMASKED";
inline constexpr const char* familyVariable = "PASSBOOK_FAMILY";

}  // namespace passbook::tool
