// stripe: reads and writes the magnetic stripe.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string_view>

#include "api/passbook.h"
#include "tools/printer.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

/// Far more than a stripe holds.
constexpr std::size_t mostData = 1024;

struct Given {
    std::string track = "0";
    std::string data;
};

bool isPlain(const std::string& data) {
    return std::all_of(
        data.begin(), data.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

/// For a terminal, on which a control character would do something.
std::string shown(const std::string& data) {
    std::string text;
    for (const char c : data) {
        constexpr std::string_view digits = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(c);
        if (c >= ' ' && c <= '~')
            text += c;
        else
            text += std::string("\\x") + digits[byte >> 4] + digits[byte & 15];
    }
    return text;
}

/// What is on a stripe. Nothing, with a failure in the report, when the printer does not tell.
std::optional<std::string> read(Tool& tool, int track) {
    constexpr std::size_t around = 3;  // two bytes in front of the data, one behind
    std::array<char, mostData + around> buffer{};
    if (!tool.report.take(YARDO_PR2_MSR(track, buffer.data(), static_cast<int>(buffer.size()))))
        return {};
    return std::string(buffer.data());
}

void readStripes(Tool& tool, const Given& given) {
    Printer printer(tool);
    if (!tool.isFamily(Family::oli) || !printer.open() || !printer.canPrint())
        return;
    nlohmann::ordered_json stripes = nlohmann::ordered_json::array();
    for (const int track : {0, 1}) {
        if (stopAsked() || (given.track != "both" && given.track != std::to_string(track)))
            continue;
        if (const std::optional<std::string> data = read(tool, track)) {
            stripes.push_back({{"track", track}, {"data", *data}});
            tool.report.say("track " + std::to_string(track) + ": " + (data->empty() ? "empty" : shown(*data)));
        }
    }
    tool.report.brought["stripes"] = std::move(stripes);
}

void writeStripe(Tool& tool, const Given& given) {
    if (!tool.isFamily(Family::oli))
        return;
    if (given.data.empty() || given.data.size() > mostData || !isPlain(given.data)) {
        (void)tool.report.fail(Exit::badInput, given.data.empty() ? "stripe: there is no data"
                                               : given.data.size() > mostData
                                                   ? "stripe: more than 1024 characters"
                                                   : "stripe: the data has other characters than ASCII letters, "
                                                     "digits and signs");
        return;
    }
    const int track = given.track == "0" ? 0 : 1;
    Printer printer(tool);
    if (!printer.open() || !printer.canPrint())
        return;
    if (!tool.report.take(YARDO_PR2_MSW(track, given.data.data(), static_cast<int>(given.data.size())))) {
        tool.report.warn("nobody knows now what is on the stripe: read it");
        return;
    }
    const std::optional<std::string> found = read(tool, track);
    if (!found) {
        tool.report.warn("the data was sent, but the stripe cannot be read back: nobody knows what is on it");
        return;
    }
    tool.report.brought["stripes"] = {{{"track", track}, {"data", *found}}};
    if (*found != given.data)
        (void)tool.report.fail(Exit::failed, "the stripe was not written: it holds \"" + shown(*found) + "\"");
    else
        tool.report.say("track " + std::to_string(track) + " was written, and read back");
}

}  // namespace

void addStripe(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("stripe", "Reads or writes the magnetic stripe (OLI).");
    app->require_subcommand(1);
    app->footer(
        "Example:\n  passbook --port ttyS0 stripe read --track both\n"
        "  passbook --port ttyS0 stripe write --track 1 6217000012345678");
    const auto given = std::make_shared<Given>();
    CLI::App* const reads = app->add_subcommand("read", "Reads a stripe, or both.");
    reads->footer("Example:\n  passbook --port ttyS0 stripe read --track both");
    reads->add_option("--track", given->track, "which stripe; else 0")
        ->type_name("0|1|both")
        ->check(CLI::IsMember({"0", "1", "both"}));
    reads->callback([&tool, given] { tool.job = [given](Tool& with) { readStripes(with, *given); }; });
    CLI::App* const writes = app->add_subcommand("write", "Writes a stripe, reads it back and compares.");
    writes->footer("Example:\n  passbook --port ttyS0 stripe write --track 1 6217000012345678");
    writes->add_option("--track", given->track, "which stripe; else 0")
        ->type_name("0|1")
        ->check(CLI::IsMember({"0", "1"}));
    writes->add_option("DATA", given->data, "the data: ASCII, at most 1024 characters")->required();
    writes->callback([&tool, given] { tool.job = [given](Tool& with) { writeStripe(with, *given); }; });
}

}  // namespace passbook::tool
