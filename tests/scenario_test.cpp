// Rules that a scenario has, on a printer without a line: when they fire, what then happens, and what is told of a
// scenario that is wrong.
#include <gtest/gtest.h>

#include "sim/event_json.h"
#include "sim/script_json.h"

namespace passbook::sim {
namespace {

using std::chrono::milliseconds;

/// What is left of an event in a short log: "text one", "jam cleared".
std::string shortOf(const Event& event) {
    const nlohmann::json shown = toJson(event);
    std::string line = shown.at("event");
    for (const char* const key : {"what", "name", "text", "page", "note"})
        if (shown.contains(key))
            line += " " + (shown[key].is_string() ? shown[key].get<std::string>() : shown[key].dump());
    return line;
}

ScenarioFile readText(const std::string& text) {
    ScenarioFile file;
    std::vector<std::string> problems;
    readScenario(text, "s.json", file, problems);
    EXPECT_EQ(problems, std::vector<std::string>{});
    return file;
}

/// A host's bytes; "@500" in a piece of its own lets the time go on to that, "?" takes what there is of answers.
struct Row {
    const char* rules;
    std::vector<std::string_view> host;
    std::string log;  // of events that tell something here
    std::string heard;
};

TEST(Scenario, RulesFireWhenAndDoWhatTheySay) {
    const std::string_view status = "\033j", paper = "\033 B", one = "one\r", two = "two\r";
    const std::string ready = "\033rP", bad = "\033rT", in = "\033B5C\033Z", out = "\033B5@\033Z";
    const Row rows[] = {
        {R"({"name":"j","when":{"text":"","nth":2},"then":{"jam":{"status":3,"for":2}}})",
         {one, two, one, "\033O", status, "?", "@1999", status, "?", "@2000", status, "?", one},
         "text one 1|text two 1|rule j|jam jammed|jammed text one|jammed eject|jam cleared|text one 1|",
         bad + bad + ready},
        {R"({"name":"j","when":{"matching":"^t.o$"},"then":{"jam":{"until":"clear-error"}}},
            {"when":{"after":1,"since":"j"},"then":{"take":true}})",
         {one, two, "\033l", one, "@500", two, "@2000", paper, "?"},
         "text one 1|text two 1|rule j|jam jammed|jam cleared|text one 1|text two 1|paper taken|",
         out},
        {R"({"when":{"command":"printer-status","nth":2,"each":true},"then":{"status":{"value":3,"answers":1}}})",
         {status, status, paper, status, "?"},
         "",
         ready + bad + in + bad},
        {R"({"when":{"byte":3},"then":{"status":3}},{"when":{"byte":5},"then":{"status":{"value":1}}})",
         {"\033l", status, "?", status, "?"},
         "",
         bad + ready},
        {R"({"when":{"after":1},"then":{"status":{"value":3,"until":"clear-error"}}})",
         {"@999", status, "@1000", status, "\033l", status, "?"},
         "",
         ready + bad + ready},
        {R"({"when":{"dots":{"x":1,"y":0.2,"width":0.4,"height":0.2}},"then":{"take":true}})",
         {"\0331A000\377\377\377\377\377\377\0332", paper, "?", "\033|A004\0331A000\377\377\377\377\377\377\0332",
          paper, "\0331A000\377\377\377\377\377\377\0332", paper, "?"},
         "paper taken|no-paper bitmap-run|",
         in + out + out},
        {R"({"when":{"paper":"ejected"},"then":[{"take":true},{"insert":true}]})",
         {one, "\033O", paper, "?", "\033L000", one},
         "text one 1|paper ejected|paper taken|paper inserted|paper fed-in|text one 2|",
         "\033B5B\033Z"},
        {R"({"when":{"event":{"event":"text","text":"two"}},"then":{"answers":"doubled"}},
            {"when":{"text":"one","nth":2},"then":{"answers":"right"}})",
         {one, two, status, one, status, "?"},
         "text one 1|text two 1|text one 1|",
         ready + ready + ready},
        {R"({"when":{"after":0},"then":[{"answers":{"how":"missing","to":"paper-status","count":1}},
                                        {"answers":{"how":"late","to":"printer-status","seconds":0.5}}]})",
         {"@0", paper, status, "?", "@499", "?", "@500", "?", paper, "?"},
         "answer-lost silent|",
         ready + in},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.rules);
        std::string log, heard;
        const auto note = [&](const Event& event) {
            if (!isAny<event::Command, event::Bitmap>(event) && toJson(event).at("event") != "answer")
                log += shortOf(event) + "|";
        };
        ScenarioFile file = readText(std::string(R"({"start":{"insertAfter":"never","takenAfter":"never"},"rules":[)") +
                                     row.rules + "]}");
        Printer printer(std::move(file.scenario), note);
        for (const std::string_view piece : row.host) {
            if (piece.starts_with('@')) {
                printer.advance(milliseconds(std::stoi(std::string(piece.substr(1)))));
            } else if (piece == "?") {
                while (printer.answerPending())
                    for (const std::uint8_t byte : printer.takeAnswer())
                        heard += static_cast<char>(byte);
            } else {
                printer.receive(std::vector<std::uint8_t>(piece.begin(), piece.end()));
            }
        }
        EXPECT_EQ(log, row.log);
        EXPECT_EQ(heard, row.heard);
    }
}

TEST(Scenario, WhatIsExpectedIsToldWhenItIsNotSo) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"text":"one","x":5,"y":10,"page":1})", ""},
        {R"({"text":"one","x":7})", R"(the text "one" is not where it is expected; it is at 5.08, 10.02 mm on page 1)"},
        {R"({"text":"one","page":2})", R"(the text "one" is not where)"},
        {R"({"text":"six"})", R"(the text "six" is not there)"},
        {R"({"inside":true})", "ink lies beyond the paper of page 2"},
        {R"({"none":"unknown"})", R"(there are 1 events "unknown")"},
        {R"({"none":"no-paper"})", ""},
        {R"({"order":["text","eject","feed-in","text"]})", ""},
        {R"({"order":["eject","eject"]})", R"("eject" does not come after "eject")"},
        {R"({"pages":3})", "there are 2 pages, and 3 are expected"},
        {R"({"picture":"a.png","page":3})", "there is no page 3"},
        {R"({"picture":"a.png"})", "page 1 has 1063 x 1417 pixels, and a.png 0 x 0"},
        {R"({"fired":"x"})", R"(the rule "x" has not fired)"},
    };
    History history;
    Printer printer(
        {}, [&](const Event& event) { history.note(event); },
        [&](Page page) { history.pageEnded(std::make_shared<const Page>(std::move(page))); });
    const std::string_view host = "\033|A024\033/10094one\r\033O\033L000\033|A800\x01two\r";
    printer.receive(std::vector<std::uint8_t>(host.begin(), host.end()));
    for (const auto& [expected, told] : rows) {
        const ScenarioFile file = readText(std::string("{\n\"expect\":") + expected + "}");
        const std::string what = history.unmet(file.expectations.at(0), printer.page(), printer.pages());
        const std::string whole = *told == 0 ? "" : std::string("s.json:2: /expect: ") + told;
        EXPECT_TRUE(what.starts_with(whole) && what.empty() == whole.empty()) << what;
    }
}

TEST(Scenario, OneThatIsWrongIsToldWithItsPlace) {
    const std::pair<std::string, const char*> rows[] = {
        {"[", "s.json: line 1, column 2"},
        {"[]", "s.json:1: the scenario must be an object"},
        {std::string(100000, '['), "s.json: line 1: goes deeper"},
        {"{\"rules\":[],\n\"rules\":[]}", "s.json: line 2: /rules stands twice"},
        {"{\"start\":{\n\"status\":16}}", "s.json:2: /start/status must be a number from 1 to 15"},
        {R"({"family":"oki","start":{"stripes":["1"]}})", "s.json:1: /start/stripes is for printers of the family oli"},
        {R"({"start":{"takenAfter":-1}})", "s.json:1: /start/takenAfter must be a number from 0"},
        {R"({"start":{"scan":{"block":1}}})", "s.json:1: /start/scan/block must be"},
        {R"({"rules":[{"when":{"text":"a"}}]})", "s.json:1: /rules/0 has no \"then\""},
        {R"({"rules":[{"when":{},"then":[]}]})", "s.json:1: /rules/0/when needs one of \"command\""},
        {R"({"rules":[{"when":{"text":"","byte":1},"then":[]}]})", "s.json:1: /rules/0/when may have only one of"},
        {R"({"rules":[{"when":{"command":"ejekt"},"then":[]}]})", "s.json:1: /rules/0/when/command must be the name"},
        {R"({"rules":[{"when":{"matching":"("},"then":[]}]})", "s.json:1: /rules/0/when/matching is no regular"},
        {R"({"rules":[{"when":{"after":1,"since":"x"},"then":[]}]})", "s.json:1: /rules/0/when/since names no rule"},
        {R"({"rules":[{"when":{"byte":0},"then":[]}]})", "s.json:1: /rules/0/when/byte must be a number from 1"},
        {R"({"rules":[{"when":{"text":"","nth":1.5},"then":[]}]})", "s.json:1: /rules/0/when/nth must be a whole"},
        {"{\"rules\":[{\"when\":{\"text\":\"\"},\n\"then\":[{\"take\":true},\n{\"jam\":{\"fro\":1}}]}]}",
         "s.json:3: /rules/0/then/1/jam/fro is not known here"},
        {R"({"rules":[{"when":{"text":""},"then":{"answers":"late"}}]})", "s.json:1: /rules/0/then/answers must be an"},
        {R"({"rules":[{"when":{"text":""},"then":{"line":"cut"}}]})", "s.json:1: /rules/0/then/line must be one of"},
        {R"({"expect":[{"inside":true},{"none":"nothing"}]})", "s.json:1: /expect/1/none must be one of"},
        {R"({"expect":{"order":"eject"}})", "s.json:1: /expect/order must be a list"},
    };
    for (const auto& [text, told] : rows) {
        ScenarioFile file;
        std::vector<std::string> problems;
        readScenario(text, "s.json", file, problems);
        ASSERT_FALSE(problems.empty()) << text;
        EXPECT_TRUE(problems.front().starts_with(told)) << text << ": " << problems.front();
    }
}

}  // namespace
}  // namespace passbook::sim
