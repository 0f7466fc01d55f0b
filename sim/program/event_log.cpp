#include "sim/program/event_log.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "sim/event_json.h"

namespace passbook::sim {

bool EventLog::open(const std::string& path, std::string& error) {
    path_ = path;
    file_ = Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!file_.valid())
        error = path + ": " + std::strerror(errno);
    return file_.valid();
}

void EventLog::toStandardOutput() {
    path_ = "standard output";
    file_ = Descriptor(fcntl(1, F_DUPFD_CLOEXEC, 0));
}

void EventLog::add(const Event& event) {
    lastAt_ = std::chrono::steady_clock::now();
    ++count_;
    const bool writes = file_.valid() && problem_.empty();
    if (!writes && !wanted_)
        return;
    const auto sinceStart = std::chrono::duration_cast<std::chrono::milliseconds>(lastAt_ - start_);
    const nlohmann::json shown = toJson(event);
    // What is read first stands first, for someone who follows the log on a screen.
    nlohmann::ordered_json stamped{{"ms", sinceStart.count()}, {"event", shown.at("event")}};
    stamped.update(nlohmann::ordered_json(shown));
    // Bytes that are no text must not end the log: they become replacement characters.
    line_ = stamped.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    if (writes && !writeAll(file_.get(), line_ + '\n'))
        problem_ = path_ + ": " + std::strerror(errno);
    if (!keeps_)
        return;
    nlohmann::ordered_json numbered{{"n", count_ - 1}};
    numbered.update(stamped);
    kept_.push_back(std::move(numbered));
    if (kept_.size() > mostKept)
        kept_.pop_front();
}

}  // namespace passbook::sim
