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
    ++count_;
    if (!file_.valid() || !problem_.empty())
        return;
    const auto sinceStart =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_);
    const nlohmann::json shown = toJson(event);
    // What is read first stands first, for someone who follows the log on a screen.
    nlohmann::ordered_json stamped{{"ms", sinceStart.count()}, {"event", shown.at("event")}};
    stamped.update(nlohmann::ordered_json(shown));
    // Bytes that are no text must not end the log: they become replacement characters.
    const std::string line = stamped.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    if (!writeAll(file_.get(), line + '\n'))
        problem_ = path_ + ": " + std::strerror(errno);
}

}  // namespace passbook::sim
