// doctor: why the printer does not work, and what helps. Nothing is printed.

#include <CLI/CLI.hpp>
#include <array>
#include <memory>
#include <sstream>

#include "tools/doctor/findings.h"
#include "tools/tool.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

using doctor::Finding;
using doctor::Findings;
using doctor::Level;

constexpr std::array levels = {"ok", "warning", "problem"};

void tell(const Findings& findings, Report& report) {
    constexpr std::size_t column = 9;
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Finding& each : findings.list()) {
        const std::string level = levels[static_cast<std::size_t>(each.level)];
        list.push_back({{"kind", each.kind}, {"level", level}, {"text", each.text}, {"remedy", each.remedy}});
        report.say(level + std::string(column - level.size(), ' ') + each.text);
        std::istringstream remedy(each.remedy);
        for (std::string line; std::getline(remedy, line);)
            report.say(std::string(column, ' ') + "> " + line);
    }
    report.brought["findings"] = list;
}

doctor::Way examine(const std::string& port, Findings& findings) {
    if (port == "USB")
        return doctor::examineUsb(findings);
    if (port.find("LPT") != std::string::npos || port.find("lpt") != std::string::npos)
        return doctor::examineParallel(findings);
    return doctor::examineDevice(port, findings);
}

void seeDoctor(Tool& tool, bool askOther) {
    if (!tool.hasPort())
        return;
    Findings findings;
    const doctor::Way way = examine(tool.setting.port, findings);
    doctor::examineAnswer(tool, way, askOther, findings);
    tell(findings, tool.report);
    tool.report.dropRemedies();
    for (const Level level : {Level::problem, Level::warning})
        if (const Finding* const first = findings.first(level); first != nullptr && tool.report.exit() == Exit::done)
            (void)tool.report.fail(Exit::failed, first->text);
    if (const Finding* const first = findings.first(Level::problem); first != nullptr)
        tool.report.rephrase(first->text);
}

}  // namespace

void addDoctor(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("doctor", "Finds out why the printer does not work, and what helps.");
    const auto askOther = std::make_shared<bool>(false);
    app->add_flag("--ask-other", *askOther,
                  "ask in the other family's way too, if nothing answers; take the document out first");
    app->footer(
        "Prints nothing on the paper. Every line tells a finding, the lines below it what helps.\n"
        "Exit status: 0 all is well; 3 the port cannot be opened; 4 the printer is not ready; else 1.\n"
        "Example:\n  passbook --port ttyUSB0 --family oli doctor");
    app->callback([&tool, askOther] { tool.job = [askOther](Tool& asked) { seeDoctor(asked, *askOther); }; });
}

}  // namespace passbook::tool
