#include "tools/virtual_desk.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>
#include <utility>

#include "sim/printer.h"
#include "sim/program/pty_port.h"
#include "sim/text.h"

namespace passbook::tool {

namespace {

// The process-wide state of the virtual desk.

std::atomic<int> g_serving{0};

/// How late the end of the service is noticed at most.
constexpr int roundMs = 20;

sim::Scenario scenarioOf(Family family, double widthMm, double heightMm) {
    sim::Scenario scenario;
    scenario.family = family == Family::oki ? wire::Family::oki : wire::Family::oli;
    scenario.pageWidthDots = sim::mmToDots(widthMm);
    scenario.pageHeightDots = sim::mmToDots(heightMm);
    return scenario;
}

/// A mistake of the host in words; empty for any other event. What lies beside the paper is seen on the sheet.
struct Mistake {
    std::string operator()(const sim::event::Unknown& e) const {
        return "the printer does not know the bytes " + sim::toHex(e.bytes) + (e.note.empty() ? "" : ": ") +
               std::string(e.note);
    }
    std::string operator()(const sim::event::Malformed& e) const {
        return "the printer cannot use what came as " + std::string(e.name) + ": " + std::string(e.note);
    }
    std::string operator()(const sim::event::BadValue& e) const {
        return "the printer does not follow the command " + std::string(e.name) + ": its value means nothing";
    }
    std::string operator()(const sim::event::NoPaper& e) const {
        return "printed without a document in place: " + (e.text ? sim::toUtf8(e.text->bytes) : "a part of a picture");
    }
    std::string operator()(const sim::event::OffPage& e) const {
        return "farther out than the printer can print: " +
               (e.utf8.empty() ? std::to_string(e.dots) + " dots of a picture" : e.utf8);
    }
    template <typename Other>
    std::string operator()(const Other& /*event*/) const {
        return {};
    }
};

Sheet sheetOf(const sim::Page& page, std::vector<PrintedText> texts) {
    Sheet sheet;
    sheet.width = page.paperWidth();
    sheet.height = page.paperHeight();
    sheet.texts = std::move(texts);
    sheet.blank = page.blank();
    for (int y = 0; y < page.height(); ++y) {
        for (int x = 0; x < page.width(); ++x) {
            if (!page.dot(x, y))
                continue;
            sheet.pictureRight = std::max(sheet.pictureRight, x + 1);
            sheet.pictureRows.resize(static_cast<std::size_t>(y) + 1);
            sheet.pictureRows.back() = true;
        }
    }
    const std::vector<std::uint8_t> png = page.png();
    sheet.png.assign(png.begin(), png.end());
    return sheet;
}

}  // namespace

class VirtualDesk::Running {
 public:
    Running(Family family, double widthMm, double heightMm)
        : printer_(
              scenarioOf(family, widthMm, heightMm), [this](const sim::Event& event) { note(event); },
              [this](const sim::Page& page) { sheets_.push_back(sheetOf(page, std::exchange(texts_, {}))); }),
          port_(sim::PtyPort::open(printer_, problem_)) {
        if (!port_)
            return;
        name_ = port_->name();
        ++g_serving;
        thread_ = std::thread([this] {
            while (!stop_ && port_->serve(roundMs))
                continue;
            (void)port_->takeIn();  // what the host has sent before the end
        });
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() { stop(); }

    void stop() {
        stop_ = true;
        if (!thread_.joinable())
            return;
        thread_.join();
        --g_serving;
    }

    [[nodiscard]] Result result() {
        stop();
        printer_.finish();
        if (printer_.page() != nullptr && (sheets_.empty() || !printer_.page()->blank()))
            sheets_.push_back(sheetOf(*printer_.page(), std::exchange(texts_, {})));
        return {std::move(sheets_), std::move(mistakes_)};
    }

    std::string name_, problem_;

 private:
    void note(const sim::Event& event) {
        if (const auto* const text = std::get_if<sim::event::Text>(&event); text != nullptr && text->ink)
            texts_.push_back(
                {sim::toUtf8(text->bytes), {text->ink->left, text->ink->top, text->ink->right, text->ink->bottom}});
        if (std::string mistake = std::visit(Mistake{}, event); !mistake.empty())
            mistakes_.push_back(std::move(mistake));
    }

    // Of the thread, as long as it runs.
    std::vector<PrintedText> texts_;
    std::vector<Sheet> sheets_;
    std::vector<std::string> mistakes_;
    sim::Printer printer_;
    std::unique_ptr<sim::PtyPort> port_;

    std::atomic<bool> stop_{false};
    std::thread thread_;
};

VirtualDesk::VirtualDesk(Family family, double widthMm, double heightMm)
    : running_(std::make_unique<Running>(family, widthMm, heightMm)) {}
VirtualDesk::~VirtualDesk() = default;

const std::string& VirtualDesk::port() const {
    return running_->name_;
}

const std::string& VirtualDesk::problem() const {
    return running_->problem_;
}

VirtualDesk::Result VirtualDesk::close() {
    return running_->result();
}

bool VirtualDesk::isServing() {
    return g_serving > 0;
}

std::string withoutFont(const std::string& text) {
    const std::unique_ptr<PangoFontMap, decltype(&g_object_unref)> fonts(pango_cairo_font_map_new(), g_object_unref);
    const std::unique_ptr<PangoContext, decltype(&g_object_unref)> context(pango_font_map_create_context(fonts.get()),
                                                                           g_object_unref);
    const std::unique_ptr<PangoLayout, decltype(&g_object_unref)> layout(pango_layout_new(context.get()),
                                                                         g_object_unref);
    std::set<std::string> seen;
    std::string missing;
    for (const char* at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        const std::string character(at, static_cast<std::size_t>(g_utf8_next_char(at) - at));
        if (!seen.insert(character).second)
            continue;
        pango_layout_set_text(layout.get(), character.c_str(), static_cast<int>(character.size()));
        if (pango_layout_get_unknown_glyphs_count(layout.get()) > 0)
            missing += character;
    }
    return missing;
}

}  // namespace passbook::tool
