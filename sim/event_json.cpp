#include "sim/event_json.h"

#include <cmath>

#include "sim/page.h"
#include "sim/text.h"
#include "wire/table.h"

namespace passbook::sim {

namespace {

using nlohmann::json;
using namespace event;

constexpr std::array<std::string_view, 6> paperChanges{"inserted", "fed-in",  "ejected",
                                                       "taken",    "waiting", "waiting-ended"};
constexpr std::array<std::string_view, 3> accesses{"read", "written", "refused"};

constexpr std::array<std::string_view, 4> underlines{"none", "single", "double", "heavy"};
constexpr std::array<std::string_view, 3> lineStates{"stalled", "dropped", "back"};

template <typename Enum, std::size_t size>
std::string_view nameOf(Enum value, const std::array<std::string_view, size>& names) {
    return names.at(static_cast<std::size_t>(value));
}

json at(json shown, const std::optional<Place>& place) {
    if (place) {
        const auto roundedMm = [](int dots) { return std::round(dotsToMm(dots) * 100) / 100; };
        shown["xDots"] = place->xDots;
        shown["xMm"] = roundedMm(place->xDots);
        shown["yDots"] = place->yDots;
        shown["yMm"] = roundedMm(place->yDots);
    }
    return shown;
}

json named(const char* kind, std::string_view name, const std::vector<int>& numbers) {
    json shown{{"event", kind}, {"name", name}};
    if (numbers.size() > 1)
        shown["values"] = numbers;
    else if (!numbers.empty())
        shown["value"] = numbers.front();
    return shown;
}

struct Show {
    json operator()(const Command& e) const { return at(named("command", e.name, e.numbers), e.at); }
    json operator()(const BadValue& e) const { return named("bad-value", e.name, e.numbers); }
    json operator()(const Text& e) const {
        json shown = at({{"event", "text"}, {"bytes", toHex(e.bytes)}, {"text", toUtf8(e.bytes)}}, e.at);
        shown.update({{"pitch", e.look.perInch},
                      {"bold", e.look.bold},
                      {"width", e.look.width},
                      {"chineseWidth", e.look.chineseWidth},
                      {"height", e.look.height},
                      {"underline", nameOf(e.look.underline, underlines)}});
        if (e.ink)
            shown["extent"] = {
                {"left", e.ink->left}, {"top", e.ink->top}, {"right", e.ink->right}, {"bottom", e.ink->bottom}};
        return onPage(std::move(shown), e.look.page);
    }
    json operator()(const Bitmap& e) const {
        return onPage(at({{"event", "bitmap"}, {"bytes", e.bytes}, {"columns", e.bytes / wire::columnBytes}}, e.at),
                      e.page);
    }
    json operator()(const Malformed& e) const {
        json shown = at({{"event", "malformed"}, {"name", e.name}, {"note", e.note}, {"bytes", e.bytes}}, e.at);
        if (e.at)
            shown["columns"] = e.bytes / wire::columnBytes;
        return shown;
    }
    json operator()(const Unknown& e) const {
        return {{"event", "unknown"}, {"bytes", toHex(e.bytes)}, {"note", e.note}};
    }
    json operator()(const NoPaper& e) const { return unprinted("no-paper", e); }
    json operator()(const Jammed& e) const { return unprinted("jammed", e); }
    json operator()(const Jam& e) const { return {{"event", "jam"}, {"what", e.jammed ? "jammed" : "cleared"}}; }
    json operator()(const RuleFired& e) const { return {{"event", "rule"}, {"name", e.name}}; }
    json operator()(const Host& e) const { return {{"event", "host"}, {"what", e.opened ? "opened" : "closed"}}; }
    json operator()(const Line& e) const {
        return {{"event", "line"}, {"what", nameOf(e.what, lineStates)}, {"port", e.port}};
    }
    json operator()(const OffPage& e) const {
        json shown{{"event", "off-page"}, {"name", e.name}};
        if (e.utf8.empty())
            shown["dots"] = e.dots;
        else
            shown["text"] = e.utf8;
        return shown;
    }
    json operator()(const event::Paper& e) const {
        return {{"event", "paper"}, {"what", nameOf(e.what, paperChanges)}, {"status", e.status}};
    }
    json operator()(const Configuration& e) const {
        return {{"event", "configuration"}, {"what", nameOf(e.what, accesses)}, {"bytes", toHex(octets(e.block))}};
    }
    json operator()(const StripeSelected& e) const {
        return {{"event", "stripe"}, {"what", "selected"}, {"stripe", e.stripe}};
    }
    json operator()(const Stripe& e) const {
        const Bytes data = octets(e.data);
        return {{"event", "stripe"},
                {"what", nameOf(e.what, accesses)},
                {"stripe", e.stripe},
                {"bytes", toHex(data)},
                {"text", toUtf8(data)}};
    }
    json operator()(const ScanStarted& e) const {
        return {{"event", "scan"},
                {"what", "started"},
                {"bits", e.bits},
                {"dpi", e.dotsPerInch},
                {"fromBottom", e.fromBottom}};
    }
    json operator()(const ScanDelivered& e) const {
        return {{"event", "scan"}, {"what", e.brokenOff ? "broken-off" : "delivered"}, {"bytes", e.bytes}};
    }
    json operator()(const ScanEnded&) const { return {{"event", "scan"}, {"what", "ended"}}; }
    json operator()(const Answer& e) const {
        json shown{{"event", e.lost.empty() ? "answer" : "answer-lost"}, {"to", e.to}, {"bytes", toHex(e.bytes)}};
        if (!e.lost.empty())
            shown["note"] = e.lost;
        return shown;
    }
    json operator()(const Unread& e) const { return {{"event", "unread"}, {"bytes", e.bytes}}; }

 private:
    static json onPage(json shown, int page) {
        if (page > 0)
            shown["page"] = page;
        return shown;
    }
    template <typename Lost>
    json unprinted(const char* kind, const Lost& e) const {
        json shown = e.text ? (*this)(*e.text) : json::object();
        shown["event"] = kind;
        shown["name"] = e.name;
        if (e.columns)
            shown["columns"] = *e.columns;
        return shown;
    }
    static Bytes octets(const std::string& text) { return {text.begin(), text.end()}; }
};

}  // namespace

json toJson(const Event& event) {
    return std::visit(Show{}, event);
}

}  // namespace passbook::sim
