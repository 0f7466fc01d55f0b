// Files of the tool: descriptions of pages, traces, journals.
#include <glib.h>

#include <sstream>

#include "api/passbook.h"
#include "fuzz/line.h"
#include "fuzz/target.h"
#include "tools/page/description.h"
#include "tools/page/journal.h"
#include "tools/tool.h"
#include "tools/trace_file.h"

namespace passbook::fuzz {

namespace {

constexpr std::size_t steps = 5;  // of the page that a journal is for

/// Lines with the right check sums, which a fuzzer does not find.
std::string withSums(std::string_view bytes) {
    constexpr std::string_view sum = R"(,"sum":"01234567"})";
    std::string journal;
    std::istringstream lines{std::string(bytes)};
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > sum.size()) {
            const std::string object = line.substr(0, line.size() - sum.size()) + "}";
            gchar* const digest =
                g_compute_checksum_for_string(G_CHECKSUM_SHA256, object.c_str(), static_cast<gssize>(object.size()));
            line = object.substr(0, object.size() - 1) + R"(,"sum":")" + std::string(digest, 8) + "\"}";
            g_free(digest);
        }
        journal += line + (lines.eof() ? "" : "\n");
    }
    return journal;
}

}  // namespace

void readPage(Input input) {
    const int how = input.byte();
    tests::writePng(tests::inkedPicture(8, 8, {0}, {0, 5}), fileOf("a.png"));
    const Exact text(input.rest());
    std::vector<std::string> problems;
    const auto family = how % 3 == 0   ? std::nullopt
                        : how % 3 == 1 ? std::optional(tool::Family::oli)
                                       : std::optional(tool::Family::oki);
    const auto page = tool::Description::read({text.bytes.get(), static_cast<std::size_t>(text.length)},
                                              fileOf("page.json"), family, 0, 0, problems);
    require(page.has_value() == problems.empty(), "a page, or what is wrong with it");
    for (const std::string& problem : problems)
        require(!problem.empty(), "a problem is told in words");
    for (std::size_t i = 0; page && i < page->steps.size(); ++i)
        require(!page->steps[i].name.empty(), "a step has a name");
}

void readTrace(Input input) {
    const bool unmasked = input.flag(), json = input.flag();
    const std::string path = fileOf("trace");
    tests::writeFile(path, std::string(input.rest()));
    std::vector<std::string> arguments = {"decode", path};
    if (unmasked)
        arguments.emplace_back("--unmasked");
    if (json)
        arguments.emplace_back("--json");
    std::ostringstream out, err;
    const int status = tool::run(arguments, out, err);
    require(status == 0 || status == 2, "exit status 0 or 2, not " + std::to_string(status));
    require(status == 0 || !err.str().empty(), "what is wrong is told");
    require(!json || !nlohmann::json::parse(out.str(), nullptr, false).is_discarded(), "the output is JSON");
}

void readJournal(Input input) {
    const bool repaired = input.flag();
    const std::string path = fileOf("journal");
    tests::writeFile(path, repaired ? withSums(input.rest()) : std::string(input.rest()));
    std::vector<tool::StepRecord> before;
    {
        tool::Journal journal;
        if (!journal.open(path, true, steps).empty() || !journal.isBegun())
            return;
        require(journal.note(2, {.state = tool::StepState::done, .paperDots = 7}).empty(),
                "the next line can be written");
        before = journal.records();
    }
    tool::Journal journal;
    require(journal.open(path, true, steps).empty(), "a journal that was gone on with can be read");
    for (std::size_t i = 0; i < steps; ++i)
        require(journal.records()[i].state == before[i].state, "and says the same of step " + std::to_string(i + 1));
}

Texts pageSeeds() {
    Texts seeds = {'\0' + tests::readFile(PASSBOOK_SOURCE_DIR "/examples/page.json")};
    const Texts pages = {
        R"({"family":"oli","eject":true,"steps":[{"text":"A","x":1,"y":2.5},{"image":"a.png","x":3,"y":44,"width":9}]})",
        R"({"steps":[{"format":{"pitch":12,"bold":true,"width":1,"height":1}},{"lineSpace":4.2},{"underline":"plain"},
            {"stripe":"6222=1","track":1}],"initialise":{"reset":"error","wait":5},"insert":{"wait":3},
            "eject":{"wait":3},"paper":{"width":90,"height":50,"fold":25}})",
        R"({"family":"oki","steps":[{"lines":["1","","\u5bf9"],"x":1,"y":2,"spacing":5,"mayOverlap":true},
            {"image":"a.png","x":0,"y":30,"turn":90,"dither":true,"threshold":99,"fitWidth":5,"fitHeight":3}]})",
        "[]", R"({"steps":[{"image":"/dev/zero","x":1e308,"y":-0}]})"};
    for (const std::string& page : pages)
        for (const char how : {'\0', '\1', '\2'})
            seeds.push_back(how + page);
    return seeds;
}

Texts traceSeeds() {
    Texts seeds;
    const std::string path = fileOf("trace");
    for (const auto family : {tool::Family::oli, tool::Family::oki}) {
        (void)tool::openTrace(path, family, true);
        (void)passbook_set_trace(tool::writeTrace, nullptr);
        const bool oli = family == tool::Family::oli;
        Desk desk({.family = oli ? sim::Family::oli : sim::Family::oki, .stripes = {"6222=1", ""}});
        char stripe[40];
        if (oli) {
            (void)YARDO_PR2_PrintData(0, 1, 1, "A", 1);
            (void)YARDO_PR2_MSR(0, stripe, sizeof stripe);
        } else
            (void)PT_PrintTxtStream("line", 0, 1, 10, 10, "A", 1);
        (void)passbook_set_trace(nullptr, nullptr);
        (void)tool::closeTrace();
        const std::string trace = tests::readFile(path);
        for (const char* how : {"\1\1", "\2\1", "\2\2"})
            seeds.push_back(how + trace.substr(0, 3500));
        (void)remove(path.c_str());
    }
    return seeds;
}

Texts journalSeeds() {
    const std::string path = fileOf("journal");
    tool::Journal journal;
    (void)journal.open(path, false, steps);
    (void)journal.begin({"0123", "oli", "line", "PASSBOOKSIM10"});
    const tool::StepState states[] = {tool::StepState::begun, tool::StepState::done, tool::StepState::doubtful,
                                      tool::StepState::again, tool::StepState::skipped};
    for (std::size_t i = 0; i < steps; ++i)
        (void)journal.note(i + 1, {.state = states[i], .paperDots = static_cast<int>(i)});
    const std::string text = tests::readFile(path);
    return {'\1' + text, '\2' + text, '\1' + text.substr(0, text.size() - 9), "\1"};
}

Texts jsonWords() {
    Texts words = {"1e309", "-1", "4294967297", "\\ud800", "null", "[[[[", "true", R"("x":1)", R"("y":2)"};
    std::istringstream keys(
        "steps text image family oli oki eject format pitch bold a.png stripe track initialise lines spacing paper "
        "fold "
        "fitWidth turn insert underline lineSpace kind write read call return function bytes result us state done "
        "begun "
        "again paperDots journal sum");
    for (std::string key; keys >> key;)
        words.push_back('"' + key + '"');
    return words;
}

}  // namespace passbook::fuzz
