#include "device/outcome.h"

#include <grp.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/results.h"
#include "device/device.h"

namespace passbook {

namespace {

// This module's process-wide state.

Outcome g_outcome;
Sending g_sending = Sending::other;
bool g_ending = false;

/// Whether a printer that counts from where it stands has lost track, and how many bytes it still takes for something
/// else. Both outlive the call, as they do in the printer.
bool g_trackLost = false;
std::int64_t g_owedBytes = 0;

/// The printer of this call counts from where it stands.
bool g_relative = false;

/// A command has been cut in this call, or the printer takes what comes for something else: any byte can be ink.
bool g_garbled = false;

int g_xDots = -1;
int g_yDots = -1;

void (*g_trace)(const TraceEvent& event, void* user) = nullptr;
void* g_traceUser = nullptr;
int (*g_progress)(std::int64_t done, std::int64_t total, void* user) = nullptr;
void* g_progressUser = nullptr;
std::atomic<bool> g_cancelled{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal's handler sets it");

void trace(TraceEvent event) {
    event.function = g_outcome.function;
    event.microseconds = monotonicUs();
    g_trace(event, g_traceUser);
}

}  // namespace

const Outcome& outcome() {
    return g_outcome;
}

void beginCall(const char* function) {
    g_outcome = {};
    (void)std::snprintf(g_outcome.function, sizeof g_outcome.function, "%s", function);
    g_outcome.inPlace = !g_trackLost;
    g_relative = false;
    g_garbled = g_owedBytes > 0;
    g_xDots = g_yDots = -1;
    g_sending = Sending::other;
    g_ending = false;
    g_cancelled = false;
    if (g_trace != nullptr)
        trace({TraceEvent::callBegins, nullptr, 0, nullptr, 0, 0, 0});
}

int endCall(int result) {
    g_outcome.result = g_ending ? int{cancelled} : result;
    if (g_trace != nullptr)
        trace({TraceEvent::callEnds, nullptr, g_outcome.result, nullptr, 0, g_outcome.systemError, 0});
    return g_outcome.result;
}

SendingScope::SendingScope(Sending what) : before_(std::exchange(g_sending, what)) {}

SendingScope::~SendingScope() {
    g_sending = before_;
}

void callIsRelative() {
    g_relative = true;
}

void findTrack() {
    g_trackLost = false;
    g_owedBytes = 0;
}

std::int64_t owedBytes() {
    return g_owedBytes;
}

void headAt(int xDots) {
    g_xDots = xDots;
}

void paperAt(int yDots) {
    g_yDots = yDots;
}

void headBy(int dots) {
    g_xDots = g_xDots < 0 ? -1 : g_xDots + dots;
}

void paperBy(int dots) {
    g_yDots = g_yDots < 0 ? -1 : g_yDots + dots;
}

void missAnswer() {
    ++g_outcome.missingAnswers;
}

void havePart(unsigned part) {
    g_outcome.parts |= 1U << part;
}

bool goOn(std::int64_t done, std::int64_t total) {
    g_outcome.done = done;
    g_outcome.total = total;
    return goOn();
}

void haveDone(std::int64_t done, std::int64_t total) {
    const bool before = g_ending;
    (void)goOn(done, total);
    g_ending = before;
}

bool goOn() {
    if (g_progress != nullptr && g_progress(g_outcome.done, g_outcome.total, g_progressUser) != 0)
        g_ending = true;
    if (g_cancelled)
        g_ending = true;
    return !g_ending;
}

bool isEnding() {
    return g_ending;
}

void explainFailure(int systemError, const char* format, ...) {
    if (g_outcome.systemError == 0)
        g_outcome.systemError = systemError;
    if (g_outcome.message[0] != '\0')
        return;
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(g_outcome.message, sizeof g_outcome.message, format, arguments);
    va_end(arguments);
}

void explainOpening(const char* path, int systemError) {
    if (systemError == ENOENT || systemError == ENODEV || systemError == ENXIO) {
        explainFailure(systemError, "%s: there is no such device", path);
    } else if (systemError == EWOULDBLOCK || systemError == EBUSY) {
        explainFailure(systemError, "%s is in use: another program has it open", path);
    } else if (struct stat status{}; systemError == EACCES && stat(path, &status) == 0) {
        group entry{};
        group* found = nullptr;
        char names[1024];
        const bool named = getgrgid_r(status.st_gid, &entry, names, sizeof names, &found) == 0 && found != nullptr;
        if ((status.st_mode & S_IWGRP) == 0)
            explainFailure(systemError, "%s cannot be opened: permission denied; only its owner may", path);
        else if (named)
            explainFailure(systemError, "%s cannot be opened: permission denied; the device belongs to group %s", path,
                           found->gr_name);
        else
            explainFailure(systemError, "%s cannot be opened: permission denied; the device belongs to group %u", path,
                           status.st_gid);
    } else {
        char text[128];
        explainFailure(systemError, "%s cannot be opened: %s", path, strerror_r(systemError, text, sizeof text));
    }
}

void noteWrite(std::span<const unsigned char> data, int taken, int systemError) {
    const auto length = static_cast<std::int64_t>(data.size());
    const bool whole = taken == length;
    ++g_outcome.transfers;
    g_outcome.bytesSent += std::max(taken, 0);
    g_owedBytes = std::max<std::int64_t>(0, g_owedBytes - std::max(taken, 0));
    const bool ink = g_sending == Sending::ink || g_sending == Sending::announcedInk;
    if (length > 0 && (ink || g_garbled)) {
        g_outcome.inPlace = g_outcome.inPlace && !g_garbled;
        // On USB nobody knows how far a transfer came that failed.
        g_outcome.inkLeft = g_outcome.inkLeft || taken != 0;
        g_outcome.inkLost = g_outcome.inkLost || !whole || g_garbled;
        g_outcome.xDots = g_xDots;
        g_outcome.yDots = g_yDots;
    }
    if (!whole) {
        ++g_outcome.failedTransfers;
        g_garbled = g_garbled || taken != 0;
        if (g_sending == Sending::place)
            g_outcome.inPlace = false;
        if (g_relative && g_sending != Sending::ink) {
            // It does not wait for a command that never began; it takes movements for the rest of one that did.
            const bool waits = taken != 0 || g_sending == Sending::announcedInk;
            g_owedBytes += waits ? length - std::max(taken, 0) : 0;
            g_trackLost = g_trackLost || waits || g_sending == Sending::place;
        }
        char text[128];
        const char* const why = systemError > 0 ? strerror_r(systemError, text, sizeof text)
                                : taken > 0     ? "the rest was lost"
                                                : "no port is open";
        explainFailure(systemError, "the printer took %d of %d bytes: %s", taken, static_cast<int>(length), why);
    }
    if (g_trace != nullptr)
        trace({TraceEvent::bytesWritten, nullptr, taken, data.data(), static_cast<int>(length), systemError, 0});
}

void noteRead(std::span<const unsigned char> data) {
    if (g_trace != nullptr)
        trace({TraceEvent::bytesRead, nullptr, 0, data.data(), static_cast<int>(data.size()), 0, 0});
}

void noteOpening(const char* name, bool opened) {
    if (g_trace != nullptr)
        trace({TraceEvent::portOpened, nullptr, opened ? 0 : -1, reinterpret_cast<const unsigned char*>(name),
               static_cast<int>(std::strlen(name)), opened ? 0 : g_outcome.systemError, 0});
}

void noteClosing(bool closed) {
    if (g_trace != nullptr)
        trace({TraceEvent::portClosed, nullptr, closed ? 0 : -1, nullptr, 0, 0, 0});
}

void setTrace(void (*callback)(const TraceEvent& event, void* user), void* user) {
    g_trace = callback;
    g_traceUser = user;
}

void setProgress(int (*callback)(std::int64_t done, std::int64_t total, void* user), void* user) {
    g_progress = callback;
    g_progressUser = user;
}

void cancelCall() {
    g_cancelled = true;
}

}  // namespace passbook
