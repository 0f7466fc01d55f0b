// A day at the counter: jobs of both families one after another, on any port, with the results that each may have.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "sim/printer.h"
#include "tests/support.h"

namespace passbook::tests {

struct Step {
    const char* name;
    Call call;
    int good;               // its result on a good line
    std::set<int> failing;  // the header's other results
};

/// Runs in a directory of its own, where the files to be printed lie and scans are put.
class Day : public ::testing::Test {
 protected:
    void SetUp() override;
    void TearDown() override;

    static std::vector<Step> steps(sim::Family family, const std::string& portName);
    /// The printer with a document to be scanned.
    static sim::Scenario scenario(sim::Family family);
    /// Does the day. `open` opens the port in front of the first step and of any that finds it closed. True when every step went well.
    static bool spend(const std::vector<Step>& steps, const std::function<void()>& open);

 private:
    TemporaryDirectory directory_;
};

}  // namespace passbook::tests
