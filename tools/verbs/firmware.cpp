// firmware: the printer's identifier.

#include <CLI/CLI.hpp>

#include "tools/printer.h"
#include "tools/verbs.h"

namespace passbook::tool {

void addFirmware(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("firmware", "Reads the firmware identifier of an OLI printer.");
    app->footer("Example:\n  passbook --port ttyS0 firmware");
    app->callback([&tool] {
        tool.job = [](Tool& with) {
            Printer printer(with);
            if (!with.isFamily(Family::oli) || !printer.open())
                return;
            const std::string identifier = printer.firmware();
            with.report.brought["firmware"] = identifier;
            if (with.report.exit() == Exit::done)
                with.report.say(identifier);
        };
    });
}

}  // namespace passbook::tool
