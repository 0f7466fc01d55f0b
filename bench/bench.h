// Benchmarks come in pairs: what is measured, and what it is held against in the same run.
#pragma once

#include <string>

namespace passbook::bench {

/// Registers the pairs; `directory` is for files and goes with the program.
void registerImageBenchmarks(const std::string& directory);

}  // namespace passbook::bench
