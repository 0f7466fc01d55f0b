#include "tools/page/journal.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>

namespace passbook::tool {

namespace {

using nlohmann::ordered_json;

constexpr std::array stateNames = {"open", "begun", "done", "not-sent", "doubtful", "skipped", "again"};
constexpr int version = 1;
/// A page of thousands of steps has less.
constexpr off_t mostBytes = 16 << 20;

std::string systemError(const std::string& path) {
    return path + ": " + std::strerror(errno);
}

std::string sumOf(const std::string& text) {
    constexpr std::size_t digits = 8;
    gchar* const sum = g_compute_checksum_for_string(G_CHECKSUM_SHA256, text.data(), static_cast<gssize>(text.size()));
    std::string first(sum, digits);
    g_free(sum);
    return first;
}

/// `{"a":1}` as `{"a":1,"sum":"01234567"}`, with the line's end. The sum is also over the sum of the line before: no
/// line can be left out, or stand twice.
std::string withSum(const std::string& object, const std::string& before) {
    return object.substr(0, object.size() - 1) + ",\"sum\":\"" + sumOf(before + object) + "\"}\n";
}

/// The sum that stands in a line.
std::string sumIn(const std::string& line) {
    return line.substr(line.size() - std::min(line.size(), std::string_view("01234567\"}\n").size()));
}

/// The name of a new file is only on the disk when its folder is.
bool syncFolder(const std::string& path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool good = descriptor >= 0 && fsync(descriptor) == 0;
    if (descriptor >= 0)
        (void)close(descriptor);
    return good;
}

}  // namespace

Journal::~Journal() {
    if (descriptor_ >= 0)
        (void)close(descriptor_);  // every line has been brought to the disk
}

std::string Journal::open(const std::string& path, bool resume, std::size_t steps) {
    path_ = path;
    records_.assign(steps, {});
    descriptor_ =
        ::open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | (resume ? 0 : O_CREAT), 0600);
    if (descriptor_ < 0)
        return systemError(path);
    struct stat file {};
    if (fstat(descriptor_, &file) != 0)
        return systemError(path);
    if (!S_ISREG(file.st_mode))
        return path + ": is no regular file";
    if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0)
        return errno == EWOULDBLOCK ? path + ": another process prints with this journal" : systemError(path);
    if (fstat(descriptor_, &file) != 0)
        return systemError(path);
    if (file.st_size > mostBytes)
        return path + ": is too large for a journal";
    if (!resume && file.st_size > 0)
        return path + ": is there already: --resume goes on with it. Do not delete it, unless the page is blank";
    if (!resume && !syncFolder(path))
        return systemError(path);
    return resume ? read() : "";
}

std::string Journal::read() {
    std::string text;
    std::array<char, 1 << 16> piece{};
    for (;;) {
        const ssize_t got = ::read(descriptor_, piece.data(), piece.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return systemError(path_);
        if (got == 0)
            break;
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    const std::size_t whole = text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n') + 1;
    std::size_t number = 1;
    for (std::size_t at = 0; at < whole; ++number) {
        const std::size_t end = text.find('\n', at);
        if (const std::string problem = readLine(text.substr(at, end - at), number); !problem.empty())
            return path_ + ":" + std::to_string(number) + ": " + problem;
        at = end + 1;
    }
    // Behind half a line nothing can be appended.
    if (whole < text.size() && (ftruncate(descriptor_, static_cast<off_t>(whole)) != 0 || fsync(descriptor_) != 0))
        return systemError(path_);
    return {};
}

std::string Journal::readLine(const std::string& line, std::size_t number) {
    constexpr std::string_view damaged = "the journal is damaged";
    constexpr std::size_t sumBytes = std::string_view(R"(,"sum":"01234567"})").size();
    if (line.size() <= sumBytes)
        return std::string(damaged);
    const std::string object = line.substr(0, line.size() - sumBytes) + "}";
    const auto json = ordered_json::parse(object, nullptr, false);
    if (withSum(object, sum_) != line + "\n" || !json.is_object())
        return std::string(damaged);
    sum_ = sumIn(line + "\n");
    const auto text = [&](const char* key) {
        const auto found = json.find(key);
        return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    const auto whole = [&](const char* key) {
        const auto found = json.find(key);
        return found != json.end() && found->is_number_integer() ? found->get<int>() : -1;
    };
    if (number == 1) {
        if (whole("journal") != version)
            return "is no journal of this version of passbook";
        head_ = {text("description"), text("family"), text("port"), text("firmware")};
        begun_ = true;
        return {};
    }
    const auto state = std::find(stateNames.begin(), stateNames.end(), text("state"));
    const int step = whole("step");
    if (state == stateNames.end() || step < 1 || static_cast<std::size_t>(step) > records_.size())
        return std::string(damaged);
    StepRecord& record = records_[static_cast<std::size_t>(step) - 1];
    record.state = static_cast<StepState>(state - stateNames.begin());
    record.paperDots = whole("paperDots");
    record.paperKnown = record.paperDots >= 0;
    return {};
}

std::string Journal::begin(const JournalHead& head) {
    head_ = head;
    begun_ = true;
    return append(ordered_json({{"journal", version},
                                {"description", head.description},
                                {"family", head.family},
                                {"port", head.port},
                                {"firmware", head.firmware}})
                      .dump(-1, ' ', true, ordered_json::error_handler_t::replace));
}

std::string Journal::note(std::size_t step, const StepRecord& record) {
    records_[step - 1] = record;
    return append(ordered_json({{"step", step},
                                {"state", stateNames[static_cast<std::size_t>(record.state)]},
                                {"paperDots", record.paperKnown ? record.paperDots : -1}})
                      .dump());
}

std::string Journal::append(const std::string& object) {
    const std::string line = withSum(object, sum_);
    sum_ = sumIn(line);
    for (std::size_t at = 0; at < line.size();) {
        const ssize_t put = write(descriptor_, line.data() + at, line.size() - at);
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            return systemError(path_);
        at += static_cast<std::size_t>(put);
    }
    return fsync(descriptor_) == 0 ? "" : systemError(path_);
}

}  // namespace passbook::tool
