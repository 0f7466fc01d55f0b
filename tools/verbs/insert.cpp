// insert: draws a document in.

#include <CLI/CLI.hpp>
#include <memory>

#include "tools/printer.h"
#include "tools/verbs.h"

namespace passbook::tool {

void addInsert(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("insert", "Draws a document into an OLI printer and waits for it.");
    app->footer("Example:\n  passbook --port ttyS0 insert --wait 60");
    const auto seconds = std::make_shared<int>(60);
    app->add_option("--wait", *seconds, "how long to wait for the document, 0 to 3600 seconds; else 60")
        ->check(CLI::Range(0, 3600));
    app->callback([&tool, seconds] {
        tool.job = [seconds](Tool& with) {
            Printer printer(with);
            if (with.isFamily(Family::oli) && printer.open() && printer.insert(*seconds))
                with.report.say("the document is in place");
        };
    });
}

}  // namespace passbook::tool
