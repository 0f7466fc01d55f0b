// What the values of options may be.
#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace passbook::tool {

/// Has an option take one of some words, as the number that stands for it.
inline CLI::Validator oneOf(std::vector<std::pair<std::string, int>> words) {
    return {[words = std::move(words)](std::string& word) -> std::string {
                const auto found = std::find_if(
                    words.begin(), words.end(), [&](const auto& each) { return each.first == word; });
                if (found != words.end()) {
                    word = std::to_string(found->second);
                    return {};
                }
                std::string list;
                for (const auto& [known, number] : words)
                    list += (list.empty() ? "" : ", ") + known;
                return "\"" + word + "\" is none of " + list;
            },
            ""};
}

/// Has an option take a whole number.
inline CLI::Validator wholeNumber(int lowest, int highest) {
    return {[=](std::string& text) -> std::string {
                int value = 0;
                if (CLI::detail::lexical_cast(text, value) && value >= lowest && value <= highest)
                    return {};
                return text + " is no whole number from " + std::to_string(lowest) + " to " + std::to_string(highest);
            },
            ""};
}

/// Has an option take a number of millimetres, decimals too.
inline CLI::Validator millimetres(double lowest, double highest) {
    return {[=](std::string& text) -> std::string {
                double value = NAN;  // which is in no range, given or not
                if (CLI::detail::lexical_cast(text, value) && value >= lowest && value <= highest)
                    return {};
                char list[96];
                (void)std::snprintf(list, sizeof list, " is no number of millimetres from %g to %g", lowest, highest);
                return text + list;
            },
            ""};
}

}  // namespace passbook::tool
