// What the tests of a day and of single dialogues have a host told, call by call, as it was told when somebody last looked
// at it: tests/recorded has a file for each test. A difference fails the test. PASSBOOK_RECORD=1 writes the files anew; what
// has changed in them is what hosts will see.
#pragma once

#include <string>

#include "api/passbook.h"

namespace passbook::tests {

/// A line of the current test's record. Lines that are the same one after another are counted.
void record(const std::string& line);

/// passbook_outcome and, in the same words, what a trace was told; without what the clock said.
std::string inWords(const struct passbook_outcome& outcome);
std::string inWords(const struct passbook_trace_event& event);

/// The first characters of a long text, its length and its check sum.
std::string shortened(const std::string& text);

}  // namespace passbook::tests
