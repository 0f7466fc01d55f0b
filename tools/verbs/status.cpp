// status: what the printer tells of itself and of the document.

#include <CLI/CLI.hpp>

#include "tools/printer.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

void status(Tool& tool) {
    Printer printer(tool);
    if (!printer.open())
        return;
    const bool oli = tool.setting.family == Family::oli;
    const Condition condition = printer.ask();
    if (oli)
        tool.report.brought["printer"] = condition.printer;
    tool.report.brought["paper"] = condition.paper;
    if (!condition.isTold()) {
        (void)printer.failSilent();
        return;
    }
    tool.report.brought["text"] = condition.text(tool.setting.family);
    tool.report.say(condition.text(tool.setting.family));
    if (!condition.isReady(tool.setting.family))
        (void)tool.report.fail(Exit::refused, "the printer is not ready");
    else if (!condition.hasDocument(tool.setting.family))
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
