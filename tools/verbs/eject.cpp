// eject: gives the document back.

#include <CLI/CLI.hpp>
#include <memory>

#include "tools/printer.h"
#include "tools/verbs.h"

namespace passbook::tool {

void addEject(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("eject", "Ejects the document.");
    app->footer("Example:\n  passbook --port ttyS0 eject --wait 30");
    const auto seconds = std::make_shared<int>(0);
    app->add_option("--wait", *seconds, "OLI: wait so many seconds until somebody takes it, 0 to 3600; else 0")
        ->check(CLI::Range(0, 3600));
    app->callback([&tool, seconds] {
        tool.job = [seconds](Tool& with) {
            if (*seconds > 0 && with.setting.family == Family::oki) {
                (void)with.report.fail(Exit::badInput,
                                       "--wait: printers of the family oki do not tell whether the document is taken");
                return;
            }
            Printer printer(with);
            if (printer.open() && printer.eject(*seconds))
                with.report.say(*seconds > 0 ? "the document has been taken" : "the document is ejected");
        };
    });
}

}  // namespace passbook::tool
