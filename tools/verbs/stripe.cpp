#include <CLI/CLI.hpp>

#include "tools/tool.h"
#include "tools/verbs.h"

namespace passbook::tool {

void addStripe(CLI::App& /*parent*/, Tool& /*tool*/) {}

}  // namespace passbook::tool
