#include "wire/trace.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <nlohmann/json.hpp>

namespace passbook::wire {

namespace {

/// More than the writer ever puts into one.
constexpr std::size_t longestLine = 4 * tracePieceBytes;

bool readHex(const std::string& text, std::vector<std::uint8_t>& bytes) {
    bytes.assign(text.size() / 2, 0);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char* const at = text.data() + 2 * i;
        if (std::from_chars(at, at + 2, bytes[i], 16).ptr != at + 2)
            return false;
    }
    return text.size() % 2 == 0;
}

template <class T>
T valueOf(const nlohmann::json& object, const char* key, T otherwise) {
    return object.contains(key) ? object.at(key).get<T>() : otherwise;
}

/// A number without a fraction: none that only a floating point number can hold, which no integer could take.
std::int64_t wholeOf(const nlohmann::json& object, const char* key) {
    constexpr std::int64_t largest = std::int64_t{1} << 53;  // of differences too
    return object.contains(key) ? std::clamp(object.at(key).get_ref<const std::int64_t&>(), -largest, largest) : 0;
}

}  // namespace

std::size_t TraceLine::taken() const {
    return result < 0 ? bytes.size() : std::min(bytes.size(), static_cast<std::size_t>(result));
}

TraceReader::TraceReader(const std::string& path) : path_(path), file_(path, std::ios::binary) {
    if (!file_.is_open())
        problem_ = path_ + ": " + std::strerror(errno);
}

bool TraceReader::fail(const std::string& what) {
    problem_ = path_ + ": line " + std::to_string(number_) + ": " + what;
    return false;
}

bool TraceReader::next(TraceLine& line) {
    if (!problem_.empty())
        return false;
    ++number_;
    std::string text;
    // A file without line ends must not be read whole.
    for (int next = file_.get(); next != '\n'; next = file_.get()) {
        if (next == std::ifstream::traits_type::eof()) {
            if (text.empty() && number_ > 1)
                return false;
            return fail(number_ == 1 ? "this is no trace" : "the line is cut short");
        }
        text += static_cast<char>(next);
        if (text.size() > longestLine)
            return fail(number_ == 1 ? "this is no trace" : "the line is too long");
    }
    return parse(text, line);
}

bool TraceReader::parse(const std::string& text, TraceLine& line) {
    const nlohmann::json object = nlohmann::json::parse(text, nullptr, false);
    const char* const broken = number_ == 1 ? "this is no trace" : "the line is damaged";
    if (!object.is_object() || (number_ == 1 && !object.contains(traceKindNames[0])))
        return fail(broken);
    line = {};
    line.number = number_;
    try {
        line.microseconds = wholeOf(object, "us");
        if (object.contains(traceKindNames[0])) {
            const std::int64_t version = wholeOf(object, traceKindNames[0]);
            if (version != traceVersion)
                return fail("a trace of version " + std::to_string(version) + ", which is not known");
            const auto family = object.at("family").get<std::string>();
            const auto* const known = std::find(familyNames.begin(), familyNames.end(), family);
            if (known == familyNames.end())
                return fail("there is no family \"" + family + "\"");
            line.family = static_cast<Family>(known - familyNames.begin());
            line.masked = object.at("masked").get<bool>();
            line.text = valueOf<std::string>(object, "time", {});
            return true;
        }
        const auto kind = object.at("kind").get<std::string>();
        const auto* const known = std::find(traceKindNames.begin(), traceKindNames.end(), kind);
        if (known == traceKindNames.end())
            return fail("there is no kind \"" + kind + "\"");
        line.kind = static_cast<TraceKind>(known - traceKindNames.begin());
        line.function = valueOf<std::string>(object, "function", {});
        line.result = static_cast<int>(wholeOf(object, "result"));
        line.systemError = static_cast<int>(wholeOf(object, "error"));
        line.text = valueOf<std::string>(object, "port", {});
        if (!readHex(valueOf<std::string>(object, "bytes", {}), line.bytes))
            return fail("the bytes are not hexadecimal");
    } catch (const nlohmann::json::exception&) {
        return fail(broken);
    }
    return true;
}

}  // namespace passbook::wire
