// libpassbook-trace.so: `passbook run` has the system load it into a host program, where it writes the trace of the
// calls. It does nothing in a program that does not have libpassbook, such as a shell that starts the host.

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "api/passbook.h"
#include "tools/trace_file.h"

// Null in a program without the library: the object must not bring it along, it could be another one than the host's.
#pragma weak passbook_set_trace

namespace {

using namespace passbook::tool;

std::string_view setting(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

void tell(const std::string& problem) {
    if (!problem.empty())
        (void)std::fprintf(stderr, "passbook run: %s\n", problem.c_str());
}

__attribute__((constructor)) void begin() {
    const std::string path(setting(traceVariable));
    if (passbook_set_trace == nullptr || path.empty())
        return;
    const Family family = setting(familyVariable) == nameOf(Family::oki) ? Family::oki : Family::oli;
    const std::string problem = openTrace(path, family, !setting(unmaskedVariable).empty());
    tell(problem);
    if (problem.empty())
        (void)passbook_set_trace(writeTrace, nullptr);
}

__attribute__((destructor)) void end() {
    if (passbook_set_trace != nullptr)
        (void)passbook_set_trace(nullptr, nullptr);
    tell(closeTrace());
}

}  // namespace
