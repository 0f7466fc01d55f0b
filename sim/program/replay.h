// Plays what a trace tells into a printer: what a host sent, as if it were sent again.
#pragma once

#include <optional>
#include <string>

#include "sim/printer.h"

namespace passbook::sim {

/// The family whose commands a trace begins with. None if it can't be read, and `error` says why.
[[nodiscard]] std::optional<Family> familyOfTrace(const std::string& path, std::string& error);

/// Has the printer receive the bytes that the line took, at the times of the trace. Answers are dropped: the host got
/// those of its own printer. What is odd about the trace is told on standard error. False if it can't be read to its end;
/// `error` then says why, and what is in front of that has been played.
[[nodiscard]] bool replay(const std::string& path, Printer& printer, std::string& error);

}  // namespace passbook::sim
