// init: resets a printer and sets it up.

#include <CLI/CLI.hpp>
#include <memory>

#include "api/passbook.h"
#include "tools/printer.h"
#include "tools/values.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

struct Given {
    int reset = PASSBOOK_RESET_ERROR;
    int seconds = 10;
};

void init(Tool& tool, const Given& given) {
    Printer printer(tool);
    if (tool.isFamily(Family::oli) && printer.open() && printer.initialise(given.reset, given.seconds))
        tool.report.say("the printer is ready");
}

}  // namespace

void addInit(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("init", "Resets an OLI printer and waits until it is ready.");
    app->footer("Example:\n  passbook --port ttyS0 init --reset all");
    const auto given = std::make_shared<Given>();
    app->add_option("--reset", given->reset, "clears an error (the default), all settings too, or feeds the form out")
        ->type_name("error|all|form-feed")
        ->transform(oneOf(
            {{"error", PASSBOOK_RESET_ERROR}, {"all", PASSBOOK_RESET_ALL}, {"form-feed", PASSBOOK_RESET_FORM_FEED}}));
    app->add_option("--wait", given->seconds, "how long to wait for the printer, 0 to 3600 seconds; else 10")
        ->check(CLI::Range(0, 3600));
    app->callback([&tool, given] { tool.job = [given](Tool& with) { init(with, *given); }; });
}

}  // namespace passbook::tool
