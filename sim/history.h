#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "sim/document.h"
#include "sim/event.h"
#include "sim/page.h"

namespace passbook::sim {

/// What is to be true in the end.
struct Expectation {
    enum class Kind { text, inside, none, picture, order, pages, fired };

    Kind kind = Kind::text;
    std::string where{};  // for messages: "jam.json:12: /expect/3"
    std::string name{};   // a text, a kind of event, the file of the picture, or a rule
    std::optional<double> xMm{};
    std::optional<double> yMm{};
    double toleranceMm = 1;
    std::optional<int> page{};
    std::vector<std::string> commands{};
    int pages = 0;
    Document picture{};
};

/// What has happened to a printer, as far as somebody could have expected it.
class History {
 public:
    void note(const Event& event);
    void pageEnded(std::shared_ptr<const Page> page);

    /// What is wrong, with the expectation's place in front; empty if it is met. `inPlace` is the document in place, null
    /// if there is none; `pages` the number of documents with something on.
    [[nodiscard]] std::string unmet(const Expectation& expected, const Page* inPlace, int pages) const;

 private:
    struct Seen {
        std::string utf8;
        event::Place at;
        int page;
    };

    [[nodiscard]] std::string problem(const Expectation& expected, const Page* inPlace, int pages) const;
    [[nodiscard]] std::string missingText(const Expectation& expected) const;
    [[nodiscard]] std::string wrongPicture(const Expectation& expected, const Page* inPlace) const;
    [[nodiscard]] std::string wrongOrder(const Expectation& expected) const;

    std::deque<Seen> texts_;
    std::vector<std::string_view> commands_;
    std::map<std::string, std::uint64_t, std::less<>> kinds_;  // how many events of each
    std::set<std::string, std::less<>> fired_;
    std::set<int> beyond_;  // pages with ink beside the paper
    std::deque<std::shared_ptr<const Page>> ended_;
};

}  // namespace passbook::sim
