#include <CLI/CLI.hpp>

#include "tools/tool.h"
#include "tools/verbs.h"

namespace passbook::tool {

void addRaw(CLI::App& /*parent*/, Tool& /*tool*/) {}

}  // namespace passbook::tool
