// Runs the benchmarks, the two of a pair in turn, and prints the ratio of their CPU times.
//
// A pair's names are "subject/of" and "subject/against".

#include "bench/bench.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <map>

namespace {

/// The medians, and the pairs' ratios behind them.
class RatioReporter : public benchmark::BenchmarkReporter {
 public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name != "median")
                continue;
            medians_[run.run_name.function_name] = run.GetAdjustedCPUTime();
            std::printf("median     %-48s %8.1f %s\n", run.run_name.function_name.c_str(), run.GetAdjustedCPUTime(),
                        benchmark::GetTimeUnitString(run.time_unit));
        }
    }
    void printRatios() const {
        for (const auto& [name, time] : medians_) {
            const auto cut = name.rfind("/of");
            if (cut == std::string::npos || cut + 3 != name.size())
                continue;
            const auto against = medians_.find(name.substr(0, cut) + "/against");
            if (against != medians_.end())
                std::printf("ratio      %-48s %8.2f\n", name.substr(0, cut).c_str(), time / against->second);
        }
    }

 private:
    std::map<std::string, double> medians_;
};

}  // namespace

int main(int argc, char** argv) {
    std::string name = (std::filesystem::temp_directory_path() / "passbook-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        std::perror("passbook_bench");
        return 1;
    }
    // In turn rather than one behind the other, for the machine's speed drifts; five times, for the medians.
    std::vector<std::string> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1, {"--benchmark_repetitions=5", "--benchmark_enable_random_interleaving=true",
                                             "--benchmark_report_aggregates_only=true"});
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data()))
        return 2;
    passbook::bench::registerImageBenchmarks(name);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    std::filesystem::remove_all(name);
    return 0;
}
