#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "sim/printer.h"

namespace passbook::sim {

using namespace std::string_literals;

inline std::vector<std::uint8_t> bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

// A printer on the bench: bytes go in as strings, and everything that comes out is kept.
struct Bench {
    explicit Bench(Scenario scenario = {})
        : printer(std::move(scenario), [this](const nlohmann::json& event) { events.push_back(event); }) {}

    void send(std::string_view bytes) { printer.receive(bytesOf(bytes)); }

    std::string answer() {
        const std::vector<std::uint8_t> bytes = printer.takeAnswer();
        return {bytes.begin(), bytes.end()};
    }

    std::string ask(std::string_view bytes) {
        send(bytes);
        return answer();
    }

    // The last event of a kind; null if there was none.
    nlohmann::json last(std::string_view kind) const {
        for (auto event = events.rbegin(); event != events.rend(); ++event) {
            if (event->at("event") == kind) {
                return *event;
            }
        }
        return nullptr;
    }

    std::vector<nlohmann::json> events;
    Printer printer;
};

// One column whose three bytes are given, at a place in the printer's units.
inline std::string columnAt(int x, int y, std::string_view column) {
    char place[16];
    std::snprintf(place, sizeof place, "\033/1%04d\033|A%03d", y, x);
    return place + "\0331A000"s + std::string(column) + "\0332";
}

}  // namespace passbook::sim
