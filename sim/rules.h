#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <span>
#include <string_view>
#include <vector>

#include "sim/event.h"
#include "sim/script.h"

namespace passbook::sim {

/// Whether an event has all the keys of `wanted`, with the same values.
[[nodiscard]] bool hasAll(const nlohmann::json& event, const nlohmann::json& wanted);

/// Watches what happens to a printer, and tells which rules fire. It does nothing itself.
class Rules {
 public:
    using Clock = std::chrono::milliseconds;

    explicit Rules(std::vector<Rule> rules);

    /// Counts from now on.
    void add(Rule rule);

    [[nodiscard]] bool empty() const { return rules_.empty(); }
    [[nodiscard]] std::size_t size() const { return rules_.size(); }

    void command(std::string_view name);
    void event(const Event& event);
    void host(bool opened);
    void transfer();
    void bytes(std::size_t count);
    void advance(Clock now);

    [[nodiscard]] Clock nextChange() const;
    /// A bitmap has been printed in this area; `ink` tells of each of its dots.
    template <typename Ink>
    void dots(const event::Box& area, const Ink& ink) {
        happened(
            Trigger::Kind::dots,
            [&](const Trigger& trigger) {
                for (int y = std::max(area.top, trigger.dots.top); y < std::min(area.bottom, trigger.dots.bottom); ++y)
                    for (int x = std::max(area.left, trigger.dots.left); x < std::min(area.right, trigger.dots.right);
                         ++x)
                        if (ink(x, y))
                            return true;
                return false;
            });
    }

    /// The next rule that has fired, null if there is none. It stays until the next call.
    [[nodiscard]] const Rule* next();
    /// Whether a rule of that name has ever fired.
    [[nodiscard]] bool hasFired(std::string_view name) const { return fired_.contains(name); }
    [[nodiscard]] bool knows(std::string_view name) const;

 private:
    struct Watched {
        Rule rule;
        std::uint64_t count = 0;
        std::uint64_t byte = 0;  // since the start, if it is a matter of bytes
        Clock due = never;
        std::shared_ptr<void> expression{};  // a compiled one, if it is a matter of that
    };

    static unsigned bit(Trigger::Kind kind) { return 1U << static_cast<unsigned>(kind); }
    template <typename Fits>
    void happened(Trigger::Kind kind, const Fits& fits) {
        if ((kinds_ & bit(kind)) == 0)
            return;
        for (Watched& each : rules_)
            if (each.rule.when.kind == kind && fits(each.rule.when))
                count(each);
    }
    void count(Watched& watched);
    void fire(Watched& watched);

    std::deque<Watched> rules_;  // which stay where they are
    unsigned kinds_ = 0;         // of triggers that there are
    std::deque<const Rule*> due_;
    std::set<std::string, std::less<>> fired_;
    std::uint64_t received_ = 0;
    Clock now_{0};
};

}  // namespace passbook::sim
