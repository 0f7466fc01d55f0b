#include "sim/script_json.h"

#include <glib.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <set>

#include "wire/oki.h"
#include "wire/oli.h"

namespace passbook::sim {

namespace {

using nlohmann::json;
using std::chrono::milliseconds;

constexpr double maxSeconds = 1e6;
constexpr double most = 1e9;  // of what is counted
constexpr double smallestPageMm = 10;
constexpr int statuses = 15;
constexpr std::size_t mostPieces = 4096;

const std::map<std::string, int> paperStates = {{"out", static_cast<int>(PaperState::none)},
                                                {"ejected", static_cast<int>(PaperState::ejected)},
                                                {"entry", static_cast<int>(PaperState::atEntry)},
                                                {"in", static_cast<int>(PaperState::inPlace)}};

milliseconds delay(Fields& fields, const std::string& key) {
    const json* const value = fields.find(key);
    if (value != nullptr && *value == "never")
        return never;
    return ScriptReader::seconds(fields, key);
}

/// What is in the printer before anything happens.
void readStart(Fields start, ScenarioFile& file) {
    Scenario& scenario = file.scenario;
    const double widest = dotsToMm(maxPageWidthDots);
    const double longest = dotsToMm(maxPageHeightDots);
    scenario.paper = static_cast<PaperState>(start.choice("paper", paperStates, static_cast<int>(scenario.paper)));
    if (scenario.family == Family::oki && scenario.paper == PaperState::atEntry)
        start.complain("paper", "must not be \"entry\": an oki printer draws a document in by itself");
    if (start.has("width"))
        scenario.pageWidthDots = mmToDots(start.number("width", smallestPageMm, widest, smallestPageMm));
    if (start.has("height"))
        scenario.pageHeightDots = mmToDots(start.number("height", smallestPageMm, longest, smallestPageMm));
    if (start.has("takenAfter"))
        scenario.habits.takenAfter = delay(start, "takenAfter");
    if (start.has("insertAfter"))
        scenario.habits.insertAfter = delay(start, "insertAfter");
    for (const char* const key : {"width", "height", "takenAfter", "insertAfter"})
        (void)start.find(key);
    if (start.has("firmware"))
        scenario.firmware = start.text("firmware");
    const bool oli = scenario.family == Family::oli;
    for (const char* const key : {"status", "stripes"})
        if (!oli && start.has(key))
            start.complain(key, "is for printers of the family oli");
    for (const char* const key : {"paperWidth", "paperLength", "configurationResult"})
        if (oli && start.has(key))
            start.complain(key, "is for printers of the family oki");
    scenario.printerStatus = start.whole("status", 1, statuses, scenario.printerStatus);
    if (start.has("paperWidth"))
        scenario.paperWidth = start.whole("paperWidth", 0, largestMeasure, 0);
    if (start.has("paperLength"))
        scenario.paperLength = start.whole("paperLength", 0, largestMeasure, 0);
    for (const char* const key : {"firmware", "paperWidth", "paperLength"})
        (void)start.find(key);
    scenario.configurationResult = start.whole("configurationResult", 0, 2, 0);
    if (const json* const stripes = start.find("stripes")) {
        const bool texts = stripes->is_array() && stripes->size() <= scenario.stripes.size() &&
                           std::all_of(stripes->begin(), stripes->end(), [](const json& each) {
                               return each.is_string() && each.get_ref<const std::string&>().size() <= maxStripeData;
                           });
        if (!texts)
            start.complain("stripes", "must be a list of at most 2 texts, of at most 1024 bytes each");
        for (std::size_t i = 0; texts && i < stripes->size(); ++i)
            scenario.stripes.at(i) = stripes->at(i).get<std::string>();
    }
    if (start.find("scan") != nullptr) {
        Fields scan = start.object("scan");
        const std::array<const char*, 2> sides{"front", "back"};
        for (std::size_t side = 0; side < sides.size(); ++side)
            if (scan.has(sides.at(side)))
                file.scanFiles.at(side) = scan.text(sides.at(side));
        for (const char* const key : sides)
            (void)scan.find(key);
        scenario.scan.block =
            static_cast<std::size_t>(scan.whole("block", 2, 4095, static_cast<int>(scenario.scan.block)));
        scan.refuseOthers();
    }
    start.refuseOthers();
}

}  // namespace

void readScenario(std::string_view text, const std::string& fileName, ScenarioFile& file,
                  std::vector<std::string>& problems) {
    LocatedJson document;
    if (const std::string problem = document.read(text); !problem.empty()) {
        problems.push_back(fileName + ": " + problem);
        return;
    }
    Fields top(document, "", fileName, "the scenario", problems);
    file.familyGiven = top.has("family");
    file.scenario.family =
        static_cast<Family>(top.choice("family", {{"oli", 0}, {"oki", 1}}, static_cast<int>(file.scenario.family)));
    if (top.find("start") != nullptr)
        readStart(top.object("start"), file);
    ScriptReader reader(document, fileName, file.scenario.family);
    if (const json* const rules = top.find("rules")) {
        std::set<std::string> names;
        for (const json& each : *rules)
            if (each.is_object() && each.contains("name") && each.at("name").is_string())
                names.insert(each.at("name").get<std::string>());
        if (!rules->is_array())
            top.complain("rules", "must be a list");
        for (std::size_t i = 0; rules->is_array() && i < rules->size(); ++i)
            file.scenario.rules.push_back(reader.rule(
                top.object("rules", i), [&names](const std::string& name) { return names.contains(name); }));
    }
    if (top.find("expect") != nullptr)
        file.expectations = reader.expectations(top, "expect");
    top.refuseOthers();
}

milliseconds ScriptReader::seconds(Fields& fields, const std::string& key) {
    constexpr double msASecond = 1000;
    return milliseconds(std::lround(fields.needed(key, 0, maxSeconds) * msASecond));
}

template <typename Item>
std::vector<Item> ScriptReader::oneOrMore(Fields& parent, const std::string& key, Item (ScriptReader::*read)(Fields)) {
    std::vector<Item> items;
    const json* const value = parent.find(key);
    if (value == nullptr)
        parent.complain("", "has no \"" + key + "\"");
    else if (value->is_array())
        for (std::size_t i = 0; i < value->size(); ++i)
            items.push_back((this->*read)(parent.object(key, i)));
    else
        items.push_back((this->*read)(parent.object(key)));
    return items;
}

std::vector<Action> ScriptReader::actions(Fields& parent, const std::string& key) {
    return oneOrMore(parent, key, &ScriptReader::action);
}

std::vector<Expectation> ScriptReader::expectations(Fields& parent, const std::string& key) {
    return oneOrMore(parent, key, &ScriptReader::expectation);
}

Rule ScriptReader::rule(Fields fields, const std::function<bool(const std::string&)>& knows) {
    Rule rule;
    if (fields.has("name"))
        rule.name = fields.text("name");
    (void)fields.find("name");
    if (fields.find("when") == nullptr)
        fields.complain("", "has no \"when\"");
    else
        rule.when = trigger(fields.object("when"), knows);
    rule.then = actions(fields, "then");
    fields.refuseOthers();
    return rule;
}

json ScriptReader::eventKeys(Fields& fields, const std::string& key) {
    const json* const value = fields.find(key);
    if (value != nullptr && value->is_object() && !value->empty())
        return *value;
    fields.complain(key, "must be an object with some keys of an event, such as {\"event\": \"text\"}");
    return json::object();
}

std::string ScriptReader::command(Fields& fields, const std::string& key) const {
    const std::string name = fields.text(key);
    const auto table = family_ == Family::oli ? wire::oliTable() : wire::okiTable();
    const bool known = name == "text" || std::any_of(table.begin(), table.end(),
                                                     [&name](const wire::Row& row) { return row.name == name; });
    if (!known && fields.has(key))
        fields.complain(key, std::string("must be the name of a command of ") +
                                 (family_ == Family::oli ? "oli" : "oki") + " printers");
    return name;
}

Trigger ScriptReader::trigger(Fields fields, const std::function<bool(const std::string&)>& knows) {
    using Kind = Trigger::Kind;
    Trigger trigger;
    const char* const found =
        fields.oneOf({"command", "text", "matching", "dots", "byte", "transfer", "paper", "host", "after", "event"});
    const std::string_view key = found == nullptr ? "" : found;
    bool counted = true;
    if (key == "command") {
        trigger.name = command(fields, "command");
    } else if (key == "text") {
        trigger.kind = Kind::text;
        trigger.name = fields.text("text");
    } else if (key == "matching") {
        trigger.kind = Kind::matching;
        trigger.name = fields.text("matching");
        GError* problem = nullptr;
        GRegex* const expression = g_regex_new(trigger.name.c_str(), static_cast<GRegexCompileFlags>(0),
                                               static_cast<GRegexMatchFlags>(0), &problem);
        if (expression == nullptr)
            fields.complain("matching", std::string("is no regular expression: ") + problem->message);
        else
            g_regex_unref(expression);
        g_clear_error(&problem);
    } else if (key == "dots") {
        trigger.kind = Kind::dots;
        Fields box = fields.object("dots");
        const double widest = dotsToMm(maxPageWidthDots);
        const double longest = dotsToMm(maxPageHeightDots);
        const int left = mmToDots(box.needed("x", 0, widest));
        const int top = mmToDots(box.needed("y", 0, longest));
        trigger.dots = {left, top, left + mmToDots(box.needed("width", 0, widest)),
                        top + mmToDots(box.needed("height", 0, longest))};
        box.refuseOthers();
    } else if (key == "byte" || key == "transfer") {
        trigger.kind = key == "byte" ? Kind::byte : Kind::transfer;
        trigger.nth = static_cast<std::uint64_t>(fields.whole(found, 1, static_cast<int>(most), 1));
        counted = false;
    } else if (key == "paper") {
        trigger.kind = Kind::paper;
        trigger.paper = static_cast<PaperChange>(fields.choice(
            "paper",
            {{"inserted", 0}, {"fed-in", 1}, {"ejected", 2}, {"taken", 3}, {"waiting", 4}, {"waiting-ended", 5}}, 0));
    } else if (key == "host") {
        trigger.kind =
            fields.choice("host", {{"opened", 0}, {"closed", 1}}, 0) == 0 ? Kind::hostOpened : Kind::hostClosed;
    } else if (key == "after") {
        trigger.kind = Kind::time;
        trigger.after = seconds(fields, "after");
        if (fields.has("since")) {
            trigger.name = fields.text("since");
            if (!knows(trigger.name))
                fields.complain("since", "names no rule");
        }
        (void)fields.find("since");
    } else if (key == "event") {
        trigger.kind = Kind::event;
        trigger.event = eventKeys(fields, "event");
    }
    if (counted) {
        trigger.nth = static_cast<std::uint64_t>(fields.whole("nth", 1, static_cast<int>(most), 1));
        trigger.each = fields.flag("each");
    }
    fields.refuseOthers();
    return trigger;
}

Action ScriptReader::action(Fields fields) {
    const char* const found = fields.oneOf({"insert", "take", "jam", "status", "answers", "scan", "line", "usb"});
    const std::string_view key = found == nullptr ? "" : found;
    Action action = action::Insert{};
    if (key == "insert" || key == "take") {
        if (!fields.flag(found) && fields.find(found)->is_boolean())
            fields.complain(found, "must be true");
        if (key == "take")
            action = action::Take{};
    } else if (key == "jam") {
        action = jam(fields);
    } else if (key == "status") {
        action = status(fields);
    } else if (key == "answers") {
        action = answers(fields);
    } else if (key == "scan") {
        Fields scan = fields.object("scan");
        ScanTrouble trouble;
        if (scan.has("break"))
            trouble.breakAfter = static_cast<std::uint64_t>(scan.whole("break", 0, static_cast<int>(most), 0));
        (void)scan.find("break");
        const int error = static_cast<int>(most);
        trouble.sizeError = scan.whole("sizeError", -error, error, 0);
        trouble.rowsError = scan.whole("rowsError", -error, error, 0);
        trouble.fillers = scan.flag("fillers");
        trouble.noEnd = scan.flag("noEnd");
        trouble.silent = scan.flag("silent");
        scan.refuseOthers();
        action = trouble;
    } else if (key == "line") {
        action = line(fields);
    } else if (key == "usb") {
        action = action::Usb{
            static_cast<UsbFault>(fields.choice("usb", {{"stall", 1}, {"short", 2}, {"hang", 3}, {"unplug", 4}}, 0))};
    }
    fields.refuseOthers();
    return action;
}

Until ScriptReader::until(Fields& fields) {
    Until until;
    if (fields.has("for"))
        until.time = seconds(fields, "for");
    if (fields.has("until"))
        until.clearError = fields.choice("until", {{"clear-error", 1}}, 0) == 1;
    for (const char* const key : {"for", "until"})
        (void)fields.find(key);
    return until;
}

Action ScriptReader::jam(Fields& fields) {
    const json* const value = fields.find("jam");
    if (value->is_boolean())
        return value->get<bool>() ? Action(action::Jam{}) : Action(action::ClearJam{});
    if (!value->is_object()) {
        fields.complain("jam", "must be true, false or an object");
        return action::Jam{};
    }
    Fields jam = fields.object("jam");
    action::Jam action{jam.whole("status", 1, statuses, jamStatus), until(jam)};
    jam.refuseOthers();
    return action;
}

Action ScriptReader::status(Fields& fields) {
    if (family_ == Family::oki)
        fields.complain("status", "is for printers of the family oli");
    if (!fields.find("status")->is_object())
        return action::Status{fields.whole("status", 1, statuses, 1)};
    Fields status = fields.object("status");
    action::Status action{static_cast<int>(status.needed("value", 1, statuses)), until(status)};
    (void)status.whole("value", 1, statuses, 1);
    if (status.has("answers"))
        action.until.answers = status.whole("answers", 1, static_cast<int>(most), 1);
    (void)status.find("answers");
    status.refuseOthers();
    return action;
}

Action ScriptReader::answers(Fields& fields) {
    using How = AnswerTrouble::How;
    static const std::map<std::string, int> words = {{"right", 0},   {"late", 1},    {"pieces", 2},
                                                     {"garbled", 3}, {"doubled", 4}, {"missing", 5}};
    AnswerTrouble trouble;
    if (!fields.find("answers")->is_object()) {
        trouble.how = static_cast<How>(fields.choice("answers", words, 0));
        if (trouble.how == How::late || trouble.how == How::pieces)
            fields.complain("answers", trouble.how == How::late ? "must be an object with \"how\" and \"seconds\""
                                                                : "must be an object with \"how\" and \"size\"");
        return trouble;
    }
    Fields answers = fields.object("answers");
    if (!answers.has("how"))
        answers.complain("", "has no \"how\"");
    trouble.how = static_cast<How>(answers.choice("how", words, 0));
    if (answers.has("to"))
        trouble.to = command(answers, "to");
    if (answers.has("count"))
        trouble.count = answers.whole("count", 1, static_cast<int>(most), 1);
    if (trouble.how == How::late)
        trouble.delay = seconds(answers, "seconds");
    if (trouble.how == How::pieces)
        trouble.size = static_cast<std::size_t>(answers.needed("size", 1, static_cast<double>(mostPieces)));
    for (const char* const key : {"to", "count"})
        (void)answers.find(key);
    answers.refuseOthers();
    return trouble;
}

Action ScriptReader::line(Fields& fields) {
    using What = action::Line::What;
    if (!fields.find("line")->is_object())
        return action::Line{static_cast<What>(fields.choice("line", {{"stall", 0}, {"drop", 1}, {"back", 2}}, 2)), {}};
    Fields line = fields.object("line");
    action::Line action;
    if (const char* const what = line.oneOf({"stall", "drop"}))
        action = {std::string_view(what) == "stall" ? What::stall : What::drop, seconds(line, what)};
    line.refuseOthers();
    return action;
}

Expectation ScriptReader::expectation(Fields fields) {
    using Kind = Expectation::Kind;
    Expectation expected;
    expected.where =
        (file_.empty() ? "" : file_ + ":" + std::to_string(document_.lineOf(fields.path())) + ": ") + fields.path();
    const char* const found = fields.oneOf({"text", "inside", "none", "picture", "order", "pages", "fired"});
    const std::string_view key = found == nullptr ? "" : found;
    if (key == "text" || key == "none" || key == "picture" || key == "fired")
        expected.name = fields.text(found);
    if (key == "text" || key == "picture") {
        if (fields.has("page"))
            expected.page = fields.whole("page", 1, static_cast<int>(most), 1);
        (void)fields.find("page");
    }
    if (key == "text") {
        for (const auto& [name, place] : {std::pair{"x", &expected.xMm}, std::pair{"y", &expected.yMm}}) {
            if (fields.has(name))
                *place = fields.needed(name, 0, most);
            (void)fields.find(name);
        }
        expected.toleranceMm = fields.number("tolerance", 0, most, expected.toleranceMm);
    } else if (key == "inside") {
        expected.kind = Kind::inside;
        if (!fields.flag("inside") && fields.find("inside")->is_boolean())
            fields.complain("inside", "must be true");
    } else if (key == "none") {
        expected.kind = Kind::none;
        (void)fields.choice("none",
                            {{"unknown", 0},
                             {"malformed", 0},
                             {"bad-value", 0},
                             {"no-paper", 0},
                             {"off-page", 0},
                             {"jammed", 0},
                             {"jam", 0},
                             {"answer-lost", 0},
                             {"unread", 0},
                             {"text", 0},
                             {"bitmap", 0},
                             {"stripe", 0},
                             {"scan", 0},
                             {"line", 0},
                             {"rule", 0}},
                            0);
    } else if (key == "picture") {
        expected.kind = Kind::picture;
    } else if (key == "fired") {
        expected.kind = Kind::fired;
    } else if (key == "pages") {
        expected.kind = Kind::pages;
        expected.pages = fields.whole("pages", 0, static_cast<int>(most), 0);
    } else if (key == "order") {
        expected.kind = Kind::order;
        const json& list = *fields.find("order");
        const bool texts =
            list.is_array() && std::all_of(list.begin(), list.end(), [](const json& each) { return each.is_string(); });
        if (texts)
            expected.commands = list.get<std::vector<std::string>>();
        else
            fields.complain("order", "must be a list of names of commands");
    }
    fields.refuseOthers();
    return expected;
}

}  // namespace passbook::sim
