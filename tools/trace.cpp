#include "tools/trace.h"

#include "api/passbook.h"
#include "tools/tool.h"
#include "tools/trace_file.h"

namespace passbook::tool {

std::string startTrace(const Setting& setting) {
    if (setting.trace.empty())
        return {};
    std::string problem = openTrace(setting.trace, setting.family, setting.traceUnmasked);
    if (problem.empty())
        (void)passbook_set_trace(writeTrace, nullptr);
    return problem;
}

std::string stopTrace() {
    (void)passbook_set_trace(nullptr, nullptr);
    return closeTrace();
}

}  // namespace passbook::tool
