// preview: what a verb would print, and what is wrong with it.

#include <glib.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <set>

#include "tools/picture.h"
#include "tools/printer.h"
#include "tools/values.h"
#include "tools/verbs.h"
#include "tools/virtual_desk.h"
#include "tools/whole_file.h"

namespace passbook::tool {

namespace {

struct Given {
    std::string file = "preview.png", paper{};
    double foldMm = 0;  // 0: none
    bool strict = false;
    std::string verb{};
    std::function<void(Tool&)> job{};
    std::function<Wish()> wish{};
};

/// Ink can be so far from its place on a printer. Boxes that touch by no more are as their host meant them.
constexpr int roundingDots = 2;

/// One warning too many hides the others.
constexpr std::size_t mostWarnings = 40;

std::string format(const char* pattern, double a, double b = 0) {
    std::array<char, 200> text{};
    g_snprintf(text.data(), text.size(), pattern, a, b);
    return text.data();
}

std::string nameOf(const PrintedText& text) {
    return "\"" + text.text + "\"" +
           format(" at %.1f, %.1f mm", millimetresFrom(text.box.left), millimetresFrom(text.box.top));
}

class Warnings {
 public:
    Warnings(const Sheet& sheet, double foldMm) : sheet_(sheet), fold_(dotsFrom(foldMm)) {
        std::string whole;
        for (const PrintedText& text : sheet_.texts) {
            lookAt(text);
            whole += text.text;
        }
        lookAtCharacters(whole);
        for (std::size_t i = 0; i < sheet_.texts.size(); ++i)
            for (std::size_t j = i + 1; j < sheet_.texts.size(); ++j)
                if (overlap(sheet_.texts[i].box, sheet_.texts[j].box))
                    add(nameOf(sheet_.texts[i]) + " and " + nameOf(sheet_.texts[j]) + " overlap");
        lookAtPictures();
    }
    [[nodiscard]] const std::vector<std::string>& all() const { return all_; }

 private:
    static bool overlap(const Box& a, const Box& b) {
        const int width = std::min(a.right, b.right) - std::max(a.left, b.left);
        const int height = std::min(a.bottom, b.bottom) - std::max(a.top, b.top);
        return width > roundingDots && height > roundingDots;
    }

    void add(std::string warning) { all_.push_back(std::move(warning)); }

    void beyond(const std::string& what, int right, int bottom) {
        if (right > sheet_.width)
            add(what + " reaches " + format("%.1f mm", millimetresFrom(right - sheet_.width)) +
                " beyond the right edge of the paper");
        if (bottom > sheet_.height)
            add(what + " reaches " + format("%.1f mm", millimetresFrom(bottom - sheet_.height)) +
                " beyond the lower edge of the paper");
    }

    void lookAt(const PrintedText& text) {
        beyond(nameOf(text), text.box.right, text.box.bottom);
        if (fold_ > text.box.top && fold_ < text.box.bottom)
            add(nameOf(text) + " lies across the fold");
    }

    void lookAtCharacters(const std::string& text) {
        std::set<std::string> told;
        for (const std::string& character : missingCharacters(text).value_or(std::vector<std::string>{}))
            if (told.insert(character).second)
                add("printers may not have the character \"" + character + "\"");
        if (const std::string boxes = withoutFont(text); !boxes.empty())
            add("no font of this computer has \"" + boxes + "\": the picture shows boxes in their place");
    }

    void lookAtPictures() {
        const auto& rows = sheet_.pictureRows;
        beyond("a picture", sheet_.pictureRight, static_cast<int>(rows.size()));
        const auto fold = static_cast<std::size_t>(fold_);
        if (fold > 0 && fold < rows.size() && (rows[fold - 1] || rows[fold]))
            add("a picture has ink on the fold");
    }

    const Sheet& sheet_;
    int fold_;
    std::vector<std::string> all_{};
};

/// The name for the sheet of that number: "page.png", "page-2.png".
std::string nameFor(const std::string& file, std::size_t number) {
    if (number == 1)
        return file;
    const std::size_t dot = file.ends_with(".png") ? file.size() - 4 : file.size();
    return file.substr(0, dot) + "-" + std::to_string(number) + file.substr(dot);
}

void judge(Tool& tool, const Given& given, const VirtualDesk::Result& result) {
    std::vector<std::string> warnings = result.mistakes;
    std::size_t number = 0;
    nlohmann::ordered_json files = nlohmann::ordered_json::array();
    for (const Sheet& sheet : result.sheets) {
        if (sheet.blank && tool.report.exit() != Exit::done)
            continue;  // the verb has failed before it printed
        const Warnings of(sheet, given.foldMm);
        warnings.insert(warnings.end(), of.all().begin(), of.all().end());
        const std::string name = nameFor(given.file, ++number);
        const std::string problem = sheet.png.empty() ? "no memory for the picture" : writeWhole(name, sheet.png);
        if (!problem.empty()) {
            (void)tool.report.fail(Exit::failed, problem);
            continue;
        }
        files.push_back(name);
        tool.report.say("the page is in " + name);
    }
    tool.report.brought["pages"] = files;
    for (std::size_t i = 0; i < std::min(warnings.size(), mostWarnings); ++i)
        tool.report.warn(warnings[i]);
    if (warnings.size() > mostWarnings)
        tool.report.warn("and " + std::to_string(warnings.size() - mostWarnings) + " more warnings");
    if (given.strict && !warnings.empty())
        (void)tool.report.fail(Exit::badInput, "the page is not as it should be: see the warnings");
}

void preview(Tool& tool, const Given& given) {
    // As far as ink of a printer can reach.
    constexpr double least = 10, mostWidth = 211, mostHeight = 1072;
    constexpr std::pair usual = {150.0, 200.0};
    const Wish wish = given.wish ? given.wish() : Wish();
    if (!tool.setting.familyAsked && wish.family)
        tool.setting.family = *wish.family;
    const auto paper = !given.paper.empty()
                           ? sizeFrom(given.paper)
                           : std::optional(std::pair(wish.widthMm > 0 ? wish.widthMm : usual.first,
                                                     wish.heightMm > 0 ? wish.heightMm : usual.second));
    if (!paper || paper->first < least || paper->first > mostWidth || paper->second < least ||
        paper->second > mostHeight) {
        (void)tool.report.fail(Exit::badInput,
                               "--paper: \"" + given.paper + "\" is not WxH in millimetres, from 10x10 to 211x1072");
        return;
    }
    if (const std::string problem = problemWithTarget(given.file); !problem.empty()) {
        (void)tool.report.fail(Exit::badInput, problem);
        return;
    }
    VirtualDesk desk(tool.setting.family, paper->first, paper->second);
    if (desk.port().empty()) {
        (void)tool.report.fail(Exit::notOpened, "no virtual printer: " + desk.problem());
        return;
    }
    // The verb has a report of its own: nothing of what it tells of the paper is true of a real one.
    Tool inner;
    inner.setting = tool.setting;
    inner.setting.port = desk.port();
    inner.report.verb = given.verb;
    given.job(inner);
    const VirtualDesk::Result result = desk.close();
    for (const std::string& warning : inner.report.warnings())
        tool.report.warn(warning);
    tool.report.brought = inner.report.brought;
    if (inner.report.exit() != Exit::done)
        (void)tool.report.fail(inner.report.exit() == Exit::badInput ? Exit::badInput : Exit::failed,
                               inner.report.message());
    judge(tool, given, result);
}

}  // namespace

void addPreview(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("preview", "Shows what a verb would print, and what is wrong with it.");
    app->require_subcommand(1);
    app->footer(
        "Prints on a virtual printer: no port is needed, and no paper.\n"
        "Example:\n  passbook preview --page-file p.png --paper 105x148 --fold 74 text --x 80 --y 72 \"100.00\"");
    const auto given = std::make_shared<Given>();
    app->add_option("--page-file", given->file, "the picture of the page, a PNG; else preview.png")->type_name("FILE");
    app->add_option("--paper", given->paper,
                    "the size of the document in millimetres; else what the description says, or 150x200")
        ->type_name("WxH");
    app->add_option("--fold", given->foldMm, "warn of ink on the fold, so many millimetres from the top")
        ->check(millimetres(0.1, 1072.0));
    app->add_flag("--strict", given->strict, "end with exit status 2 when there are warnings");
    for (AddVerb* const add : {addText, addImage, addPage, addGrid})
        add(*app, tool);
    // The verb's own callback comes before this one.
    app->callback([&tool, given, app] {
        given->verb = app->get_subcommands().front()->get_name();
        given->job = std::exchange(tool.job, {});
        given->wish = std::exchange(tool.wish, {});
        tool.job = [given](Tool& with) { preview(with, *given); };
    });
}

}  // namespace passbook::tool
