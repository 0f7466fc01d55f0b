#include "sim/history.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "sim/event_json.h"
#include "sim/text.h"

namespace passbook::sim {

namespace {

/// A host that never ends must not eat memory: older ones are forgotten.
constexpr std::size_t mostTexts = 100'000;
constexpr std::size_t mostCommands = 1'000'000;
constexpr std::size_t mostPages = 32;

/// The command that an event tells of, empty if it tells of none.
struct CommandOf {
    std::string_view operator()(const event::Command& e) const { return e.name; }
    std::string_view operator()(const event::BadValue& e) const { return e.name; }
    std::string_view operator()(const event::Text&) const { return "text"; }
    std::string_view operator()(const event::Bitmap&) const { return "bitmap-run"; }
    std::string_view operator()(const event::StripeSelected&) const { return "stripe-select"; }
    std::string_view operator()(const event::Stripe& e) const {
        return e.what == event::Access::read ? "stripe-read" : "stripe-write";
    }
    std::string_view operator()(const event::Configuration& e) const {
        return e.what == event::Access::read ? "configuration-read" : "configuration-write";
    }
    template <typename Other>
    std::string_view operator()(const Other& /*event*/) const {
        return {};
    }
};

bool beyondPaper(const Page& page) {
    return page.width() > page.paperWidth() || page.height() > page.paperHeight();
}

std::string format(const char* form, double x, double y) {
    std::array<char, 96> text{};
    (void)std::snprintf(text.data(), text.size(), form, x, y);
    return text.data();
}

std::string numbered(const char* before, int number) {
    return before + std::to_string(number);
}

}  // namespace

void History::note(const Event& event) {
    ++kinds_[toJson(event).at("event").get<std::string>()];
    if (const std::string_view command = std::visit(CommandOf{}, event);
        !command.empty() && commands_.size() < mostCommands)
        commands_.push_back(command);
    if (const auto* const text = std::get_if<event::Text>(&event)) {
        texts_.push_back({toUtf8(text->bytes), text->at, text->look.page});
        if (texts_.size() > mostTexts)
            texts_.pop_front();
    } else if (const auto* const rule = std::get_if<event::RuleFired>(&event)) {
        fired_.insert(rule->name);
    }
}

void History::pageEnded(std::shared_ptr<const Page> page) {
    if (beyondPaper(*page))
        beyond_.insert(page->number());
    if (page->number() == 0)
        return;
    ended_.push_back(std::move(page));
    if (ended_.size() > mostPages)
        ended_.pop_front();
}

std::string History::unmet(const Expectation& expected, const Page* inPlace, int pages) const {
    const std::string what = problem(expected, inPlace, pages);
    return what.empty() ? "" : expected.where + ": " + what;
}

std::string History::problem(const Expectation& expected, const Page* inPlace, int pages) const {
    using Kind = Expectation::Kind;
    switch (expected.kind) {
        case Kind::text:
            return missingText(expected);
        case Kind::picture:
            return wrongPicture(expected, inPlace);
        case Kind::order:
            return wrongOrder(expected);
        case Kind::inside: {
            if (kinds_.contains("off-page"))
                return "ink lies farther out than any paper";
            if (inPlace != nullptr && beyondPaper(*inPlace))
                return numbered("ink lies beyond the paper of page ", inPlace->number());
            return beyond_.empty() ? "" : numbered("ink lies beyond the paper of page ", *beyond_.begin());
        }
        case Kind::none: {
            const auto found = kinds_.find(expected.name);
            return found == kinds_.end() ? ""
                                         : "there are " + std::to_string(found->second) + " events \"" + expected.name +
                                               "\", and none is expected";
        }
        case Kind::pages:
            return pages == expected.pages ? ""
                                           : "there are " + std::to_string(pages) + " pages, and " +
                                                 std::to_string(expected.pages) + " are expected";
        case Kind::fired:
            return fired_.contains(expected.name) ? "" : "the rule \"" + expected.name + "\" has not fired";
    }
    return {};
}

std::string History::missingText(const Expectation& expected) const {
    std::string elsewhere;
    for (const Seen& seen : texts_) {
        if (seen.utf8.find(expected.name) == std::string::npos)
            continue;
        const double xMm = dotsToMm(seen.at.xDots);
        const double yMm = dotsToMm(seen.at.yDots);
        const auto near = [&expected](std::optional<double> wanted, double is) {
            return !wanted || std::abs(*wanted - is) <= expected.toleranceMm;
        };
        if (near(expected.xMm, xMm) && near(expected.yMm, yMm) && expected.page.value_or(seen.page) == seen.page)
            return {};
        if (elsewhere.empty())
            elsewhere = format("; it is at %.2f, %.2f mm", xMm, yMm) + numbered(" on page ", seen.page);
    }
    return "the text \"" + expected.name + "\" is not " + (elsewhere.empty() ? "there" : "where it is expected") +
           elsewhere;
}

std::string History::wrongPicture(const Expectation& expected, const Page* inPlace) const {
    const int number = expected.page.value_or(1);
    const auto found =
        std::find_if(ended_.begin(), ended_.end(), [number](const auto& page) { return page->number() == number; });
    const Page* page = found != ended_.end() ? found->get() : nullptr;
    if (page == nullptr && inPlace != nullptr && inPlace->number() == number)
        page = inPlace;
    if (page == nullptr)
        return numbered("there is no page ", number);
    const Document shown = documentFromPage(*page);
    const Document& wanted = expected.picture;
    if (shown.width != wanted.width || shown.height != wanted.height)
        return numbered("page ", number) + " has " + std::to_string(shown.width) + " x " +
               std::to_string(shown.height) + " pixels, and " + expected.name + " " + std::to_string(wanted.width) +
               " x " + std::to_string(wanted.height);
    const auto rowBytes = static_cast<std::size_t>(shown.width) * 3;
    std::vector<std::uint8_t> one(rowBytes);
    std::vector<std::uint8_t> other(rowBytes);
    for (int y = 0; y < shown.height; ++y) {
        shown.row(y, one);
        wanted.row(y, other);
        const auto differs = std::mismatch(one.begin(), one.end(), other.begin()).first;
        if (differs != one.end())
            return numbered("page ", number) + " differs from " + expected.name +
                   format(" at %.0f, %.0f dots", static_cast<double>((differs - one.begin()) / 3), y);
    }
    return {};
}

std::string History::wrongOrder(const Expectation& expected) const {
    auto at = commands_.begin();
    std::string before = "the start";
    for (const std::string& command : expected.commands) {
        at = std::find(at, commands_.end(), command);
        if (at == commands_.end())
            return "\"" + command + "\" does not come after " + before;
        ++at;
        before = "\"" + command + "\"";
    }
    return {};
}

}  // namespace passbook::sim
