// explain: what a result of a function means.

#include <CLI/CLI.hpp>
#include <array>
#include <memory>

#include "api/passbook.h"
#include "tools/tool.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

struct Given {
    std::string function;
    int result = 0;
};

void explain(Tool& tool, const Given& given) {
    const passbook_meaning* const meaning = passbook_explain(given.function.c_str(), given.result);
    if (meaning == nullptr) {
        (void)tool.report.fail(Exit::badInput, given.function + " has no result " + std::to_string(given.result) +
                                                   "; see passbook.h for the functions and their results");
        return;
    }
    constexpr std::array repeats = {"safe", "only after looking at the page", "useless until the cause is removed"};
    const char* const repeat = repeats[static_cast<std::size_t>(meaning->repeat)];
    tool.report.brought["meaning"] = {{"name", meaning->name},
                                      {"cause", meaning->cause},
                                      {"paper", meaning->paper},
                                      {"remedy", meaning->remedy},
                                      {"repeat", repeat}};
    tool.report.say(meaning->name);
    tool.report.say(std::string("  cause:        ") + meaning->cause);
    tool.report.say(std::string("  on the paper: ") + meaning->paper);
    tool.report.say(std::string("  what to do:   ") + meaning->remedy);
    tool.report.say(std::string("  repeat:       ") + repeat);
}

}  // namespace

void addExplain(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("explain", "Explains a result of a function of the library.");
    app->footer("Example:\n  passbook explain YARDO_PR2_PrintData -- -3");
    const auto given = std::make_shared<Given>();
    app->add_option("FUNCTION", given->function, "its name, as in passbook.h")->required();
    app->add_option("RESULT", given->result, "the number that it returned")->required();
    app->callback([&tool, given] { tool.job = [given](Tool& with) { explain(with, *given); }; });
}

}  // namespace passbook::tool
