// text: prints one line.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <memory>

#include "tools/printer.h"
#include "tools/text_extent.h"
#include "tools/values.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

struct Given {
    std::string text;
    double xMm = 0, yMm = 0;
    bool raw = false;
};

void print(Tool& tool, const Given& given) {
    // A control character would be a command: the rest of the page could stand in a wrong place.
    const bool control = std::any_of(given.text.begin(), given.text.end(),
                                     [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; });
    const auto missing = missingCharacters(given.text);
    TextFormat format;
    format.pitch = tool.setting.family == Family::oli ? 15 : 10;  // as an initialised printer has it
    const char* const problem = !missing  ? "the text is not UTF-8"
                                : control ? "the text has control characters: --raw prints it all the same"
                                : !missing->empty()
                                    ? "the text has characters that the printer has not: --raw sends them all the same"
                                    : nullptr;
    if (problem != nullptr && !(given.raw && missing)) {
        (void)tool.report.fail(Exit::badInput, problem);
        return;
    }
    const Box box = boxOf(given.text, format, dotsFrom(given.xMm + tool.setting.offsetXMm), 0);
    constexpr int reachDots = 1500;
    if (!given.raw && box.right > reachDots) {
        (void)tool.report.fail(Exit::badInput,
                               "the text would end " +
                                   std::to_string(static_cast<int>(std::ceil(millimetresFrom(box.right - reachDots)))) +
                                   " mm beyond where the printer can print: --raw prints it all the same");
        return;
    }
    Printer printer(tool);
    if (printer.open() && printer.canPrint() && printer.text(given.xMm, given.yMm, given.text) && printer.hasPrinted())
        tool.report.say("the text was handed over");
}

}  // namespace

void addText(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("text", "Prints a line of text at a place on the document.");
    app->footer("Example:\n  passbook --port ttyS0 text --x 20 --y 35.5 \"2026-11-23 DEPOSIT 100.00\"");
    const auto given = std::make_shared<Given>();
    app->add_option("TEXT", given->text, "the line, in UTF-8")->required();
    app->add_option("--x", given->xMm, "millimetres from the left edge, decimals too; else 0")
        ->check(millimetres(0.0, 211.0));
    app->add_option("--y", given->yMm, "millimetres from the top; OKI: from where the paper is; else 0")
        ->check(millimetres(0.0, 1057.0));
    app->add_flag("--raw", given->raw, "let control characters, and such that the printer has not, through");
    app->callback([&tool, given] { tool.job = [given](Tool& with) { print(with, *given); }; });
}

}  // namespace passbook::tool
