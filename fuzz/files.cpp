// Files of the tool's, and what makes trouble to order: scenarios, and requests at the virtual printer's controls.
#include <glib.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <sstream>

#include "api/passbook.h"
#include "fuzz/line.h"
#include "fuzz/target.h"
#include "sim/program/control.h"
#include "sim/program/desk.h"
#include "sim/program/replay.h"
#include "sim/script_json.h"
#include "tools/page/description.h"
#include "tools/page/journal.h"
#include "tools/tool.h"
#include "tools/trace_file.h"

namespace passbook::fuzz {

using sim::Family;

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

void readPage(Input input) {
    const int how = input.byte();
    tests::writePng(tests::inkedPicture(8, 8, {0}, {0, 5}), fileOf("a.png"));
    const Exact text(input.rest());
    std::vector<std::string> problems;
    const auto family = how % 3 == 0   ? std::nullopt
                        : how % 3 == 1 ? std::optional(tool::Family::oli)
                                       : std::optional(tool::Family::oki);
    const auto page = tool::Description::read(text.view(), fileOf("page.json"), family, 0, 0, problems);
    require(page.has_value() == problems.empty(), "a page, or what is wrong with it");
    for (const std::string& problem : problems)
        require(!problem.empty(), "a problem is told in words");
    for (std::size_t i = 0; page && i < page->steps.size(); ++i)
        require(!page->steps[i].name.empty(), "a step has a name");
}

void readTrace(Input input) {
    const int how = input.upTo(7);
    const bool json = how % 2 != 0;
    const std::string path = fileOf("trace");
    tests::writeFile(path, std::string(input.rest()));
    sim::Printer printer;
    std::string error;
    require(sim::replay(path, printer, error) == error.empty(), "a trace is printed whole, or what is wrong is told");
    if (how >= 4)  // the tool takes its time
        return;
    std::ostringstream out, err;
    const int status = tool::run({"decode", path, json ? "--json" : "--unmasked"}, out, err);
    require(status == 0 || status == 2, "exit status 0 or 2, not " + std::to_string(status));
    require(status == 0 || !err.str().empty(), "what is wrong is told");
    require(!json || nlohmann::json::accept(out.str()), "the output is JSON");
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

void playScenario(Input input) {
    const Exact text(input.rest());
    sim::ScenarioFile file;
    std::vector<std::string> problems;
    sim::readScenario(text.view(), "s.json", file, problems);
    for (const std::string& problem : problems)
        require(problem.starts_with("s.json:"), "a problem is told with its place: " + problem);
    const std::string& day = dayOf(file.scenario.family);
    require(!problems.empty() || lifeOf(file, day, 4096, 3, false) == lifeOf(file, day, 7, 3, false),
            "pieces make no difference");
}

/// What a client gets that sends all that and then no more. A wait can last longer than is waited here.
std::string answersTo(const std::string& requests, sim::Control& control, sim::Desk& desk) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = fileOf("socket");
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const sim::Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    require(connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "a way in");
    (void)send(client.get(), requests.data(), requests.size(), MSG_NOSIGNAL);
    (void)shutdown(client.get(), SHUT_WR);
    std::string answers;
    for (int idle = 0; idle < 3;) {
        control.serve(desk, "pts/0");
        char bytes[4096];
        const ssize_t got = recv(client.get(), bytes, sizeof bytes, 0);
        if (got == 0)
            return answers;
        answers.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(0, got)));
        idle = got < 0 ? idle + 1 : 0;
    }
    require(control.untilNextDeed(1000) < 1000, "who gets no answer waits for something");
    return answers;
}

void control(Input input) {
    sim::Options options;
    options.scenario = {.family = input.flag() ? Family::oki : Family::oli, .pageWidthDots = 90, .pageHeightDots = 90};
    options.control = fileOf("socket");
    sim::EventLog log;
    log.keepEvents();
    sim::Desk desk(options, log);
    std::string error;
    const auto control = sim::Control::open(options.control, error);
    require(control != nullptr, "a socket: " + error);
    const std::string& day = dayOf(options.scenario.family);
    desk.printer().receive({reinterpret_cast<const std::uint8_t*>(day.data()), day.size()});
    std::istringstream requests{std::string(input.rest())}, answers(answersTo(requests.str(), *control, desk));
    for (std::string request, answer; std::getline(requests, request);) {
        if (request.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        if (!std::getline(answers, answer))
            return;
        const auto asked = nlohmann::json::parse(request, nullptr, false),
                   got = nlohmann::json::parse(answer, nullptr, false);
        require(got.is_object() && got.contains("ok"), "an answer is an object: " + answer);
        const bool good = got["ok"] == true;
        require(good != got.contains("error"), "what is wrong is told: " + answer);
        require(
            !good || (asked.is_object() && asked.value("id", nlohmann::json()) == got.value("id", nlohmann::json())),
            "an answer is that of its request: " + answer);
    }
    std::string more;
    require(!std::getline(answers, more), "no answer without a request: " + more);
}

constexpr Target table[] = {{"page", 4096, readPage, "json"},
                            {"trace", 4096, readTrace, "json"},
                            {"journal", 4096, readJournal, "json"},
                            {"scenario", 4096, playScenario, "json"},
                            {"control", 4096, control, "json"}};

}  // namespace

const std::span<const Target> fileTargets = table;

}  // namespace passbook::fuzz
