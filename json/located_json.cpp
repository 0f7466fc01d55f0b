#include "json/located_json.h"

#include <cstddef>
#include <iterator>
#include <vector>

namespace passbook {

namespace {

/// Deeper than anything that is meant: the path of each value is kept.
constexpr std::size_t deepest = 32;

/// Characters of a text, which count the lines while the parser takes them.
class Counting {
 public:
    // NOLINTBEGIN(readability-identifier-naming): std::iterator_traits has these names
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = char;
    // NOLINTEND(readability-identifier-naming)

    Counting(const char* at, int* line) : at_(at), line_(line) {}
    /// A line feed belongs to the line that it ends: a number is only over when the parser has seen what follows it.
    char operator*() const {
        if (line_ != nullptr && afterFeed_) {
            ++*line_;
            afterFeed_ = false;
        }
        return *at_;
    }
    Counting& operator++() {
        afterFeed_ = *at_ == '\n';
        ++at_;
        return *this;
    }
    bool operator==(const Counting& other) const { return at_ == other.at_; }

 private:
    const char* at_;
    int* line_;
    mutable bool afterFeed_ = false;
};

/// Keeps the line of every value, and nothing else.
class Lines : public nlohmann::json_sax<nlohmann::json> {
 public:
    Lines(const int& line, std::map<std::string, int>& lines) : line_(line), lines_(lines) {}

    bool null() override { return value(); }
    bool boolean(bool /*value*/) override { return value(); }
    bool number_integer(number_integer_t /*value*/) override { return value(); }
    bool number_unsigned(number_unsigned_t /*value*/) override { return value(); }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return value(); }
    bool string(string_t& /*value*/) override { return value(); }
    bool binary(binary_t& /*value*/) override { return value(); }
    bool start_object(std::size_t /*elements*/) override { return begin(false); }
    bool start_array(std::size_t /*elements*/) override { return begin(true); }
    bool end_object() override { return end(); }
    bool end_array() override { return end(); }
    bool key(string_t& name) override {
        path_.back() = nlohmann::json::json_pointer().operator/=(std::string(name)).to_string();
        const bool isNew = lines_.emplace(path(), line_).second;
        if (!isNew)
            problem_ = "line " + std::to_string(line_) + ": " + path() + " stands twice";
        return isNew;
    }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const nlohmann::json::exception& error) override {
        const std::string what = error.what();
        constexpr std::string_view from = "parse error at ";
        const std::size_t at = what.find(from);
        problem_ = at == std::string::npos ? what : what.substr(at + from.size());
        return false;
    }

    [[nodiscard]] const std::string& problem() const { return problem_; }

 private:
    [[nodiscard]] std::string path() const {
        std::string whole;
        for (const std::string& part : path_)
            whole += part;
        return whole;
    }
    bool value() {
        if (!path_.empty() && index_.back() >= 0)
            path_.back() = "/" + std::to_string(index_.back()++);
        lines_.emplace(path(), line_);
        return true;
    }
    bool begin(bool array) {
        (void)value();
        if (path_.size() == deepest) {
            problem_ = "line " + std::to_string(line_) + ": goes deeper than any value that is known";
            return false;
        }
        path_.emplace_back();
        index_.push_back(array ? 0 : -1);
        return true;
    }
    bool end() {
        path_.pop_back();
        index_.pop_back();
        return true;
    }

    const int& line_;
    std::map<std::string, int>& lines_;
    std::vector<std::string> path_;  // "/key" or "/3" of each level that is open
    std::vector<int> index_;         // of the next value in an array; -1 in an object
    std::string problem_;
};

}  // namespace

int LocatedJson::lineOf(std::string path) const {
    for (;;) {
        if (const auto found = lines.find(path); found != lines.end())
            return found->second;
        const std::size_t slash = path.rfind('/');
        if (slash == std::string::npos)
            return 1;
        path.erase(slash);
    }
}

std::string LocatedJson::read(std::string_view text) {
    int line = 1;
    Lines handler(line, lines);
    const char* const end = text.data() + text.size();
    if (!nlohmann::json::sax_parse(Counting(text.data(), &line), Counting(end, nullptr), &handler))
        return handler.problem();
    root = nlohmann::json::parse(text, nullptr, false);
    return root.is_discarded() ? "is not JSON" : "";
}

}  // namespace passbook
