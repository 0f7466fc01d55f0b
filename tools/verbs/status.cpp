// status: what the printer tells of itself and of the document.

#include <CLI/CLI.hpp>

#include "api/passbook.h"
#include "tools/printer.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

void status(Tool& tool) {
    Printer printer(tool);
    if (!printer.open())
        return;
    const bool oli = tool.setting.family == Family::oli;
    const Condition condition = printer.condition();
    if (oli)
        tool.report.brought["printer"] = condition.printer;
    tool.report.brought["paper"] = condition.paper;
    const int worst = condition.printer < 0 ? condition.printer : condition.paper;
    if (worst < 0) {
        if (condition.printer < 0 && condition.paper >= 0)
            (void)tool.report.fail(Exit::failed, "the printer does not tell its status");
        else
            (void)tool.report.take(condition.paper);
        return;
    }
    tool.report.brought["text"] = condition.text(tool.setting.family);
    tool.report.say(condition.text(tool.setting.family));
    if (!condition.isReady(tool.setting.family))
        (void)tool.report.fail(Exit::refused, "the printer is not ready");
    else if (oli && condition.paper != PASSBOOK_PAPER_IN_PLACE)
        (void)tool.report.fail(Exit::refused, "there is no document to print on");
}

}  // namespace

void addStatus(CLI::App& parent, Tool& tool) {
    CLI::App* const app =
        parent.add_subcommand("status", "Asks the printer whether it is ready, and for the document.");
    app->footer("Example:\n  passbook --port ttyS0 status");
    app->callback([&tool] { tool.job = status; });
}

}  // namespace passbook::tool
