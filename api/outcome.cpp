// The exported functions that tell of calls and change how they go. None of them is recorded, but passbook_oki_paper
// is.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "api/call.h"
#include "api/passbook.h"
#include "device/device.h"
#include "device/outcome.h"
#include "image/file.h"
#include "status/status.h"

using namespace passbook;

namespace {

// The process-wide state of these functions.

passbook_trace_callback g_traceCallback = nullptr;
passbook_progress_callback g_progressCallback = nullptr;

void handOver(const TraceEvent& event, void* user) {
    const passbook_trace_event told{sizeof(passbook_trace_event),
                                    event.kind,
                                    event.function,
                                    event.result,
                                    event.data,
                                    event.length,
                                    event.systemError,
                                    event.microseconds};
    g_traceCallback(&told, user);
}

static_assert(int{TraceEvent::callBegins} == PASSBOOK_TRACE_CALL && int{TraceEvent::callEnds} == PASSBOOK_TRACE_RETURN);
static_assert(int{TraceEvent::bytesWritten} == PASSBOOK_TRACE_WRITE &&
              int{TraceEvent::bytesRead} == PASSBOOK_TRACE_READ);
static_assert(int{TraceEvent::portOpened} == PASSBOOK_TRACE_OPEN &&
              int{TraceEvent::portClosed} == PASSBOOK_TRACE_CLOSE);

int tellProgress(std::int64_t done, std::int64_t total, void* user) {
    return g_progressCallback(done, total, user);
}

int inkOf(const Outcome& last) {
    if (!last.inkLeft)
        return PASSBOOK_INK_NONE;
    return last.inkLost || last.done < last.total ? PASSBOOK_INK_POSSIBLE : PASSBOOK_INK_SENT;
}

}  // namespace

int passbook_outcome(struct passbook_outcome* out) {
    if (out == nullptr || out->size < offsetof(struct passbook_outcome, result))
        return PASSBOOK_BAD_ARGUMENT;
    const Outcome& last = outcome();
    struct passbook_outcome whole {};
    whole.size = out->size;
    std::copy(std::begin(last.function), std::end(last.function), whole.function);
    whole.result = last.result;
    whole.ink = inkOf(last);
    whole.in_place = last.inPlace ? 1 : 0;
    whole.transfers = last.transfers;
    whole.failed_transfers = last.failedTransfers;
    whole.missing_answers = last.missingAnswers;
    whole.bytes_sent = last.bytesSent;
    whole.x_dots = last.xDots;
    whole.y_dots = last.yDots;
    whole.done = last.done;
    whole.total = last.total;
    whole.parts = last.parts;
    whole.system_error = last.systemError;
    std::copy(std::begin(last.message), std::end(last.message), whole.message);
    // What failed before any transfer has nothing to tell but its result.
    const passbook_meaning* const meaning = last.result < 0 ? passbook_explain(last.function, last.result) : nullptr;
    if (whole.message[0] == '\0' && meaning != nullptr)
        (void)std::snprintf(whole.message, sizeof whole.message, "%s", meaning->cause);
    std::memcpy(out, &whole, std::min<std::size_t>(out->size, sizeof whole));
    return PASSBOOK_OK;
}

int passbook_set_trace(passbook_trace_callback callback, void* user) {
    g_traceCallback = callback;
    setTrace(callback != nullptr ? handOver : nullptr, user);
    return PASSBOOK_OK;
}

int passbook_set_progress(passbook_progress_callback callback, void* user) {
    g_progressCallback = callback;
    setProgress(callback != nullptr ? tellProgress : nullptr, user);
    return PASSBOOK_OK;
}

int passbook_cancel(void) {
    cancelCall();
    return PASSBOOK_OK;
}

int passbook_set_write_limit(int milliseconds) {
    if (milliseconds < 0)
        return PASSBOOK_BAD_ARGUMENT;
    g_writeLimitMs = milliseconds;
    return PASSBOOK_OK;
}

int passbook_oki_paper(const char* portName, struct passbook_oki_paper* out) {
    if (portName == nullptr || out == nullptr || out->size < sizeof(struct passbook_oki_paper))
        return refused(__func__, PASSBOOK_BAD_ARGUMENT);
    const auto ask = [out] {
        callIsRelative();
        out->width = out->length = 0;
        out->status = GetPaperStatus();
        if (out->status > 0) {
            out->width = GetPaperWidth();
            out->length = GetPaperLength();
        }
        return std::min(out->status, int{PASSBOOK_OK});
    };
    return usbFlag ? recorded(__func__, ask) : recordedOnPort(__func__, portName, ask);
}

int passbook_set_temporary_directory(const char* directory) {
    if (directory == nullptr) {
        (void)std::snprintf(TMP_PATH, sizeof TMP_PATH, ".");
        return PASSBOOK_OK;
    }
    constexpr std::size_t longest = 220;  // so that a file's name fits behind it
    struct stat status {};
    if (std::strlen(directory) > longest || stat(directory, &status) != 0 || !S_ISDIR(status.st_mode) ||
        access(directory, W_OK | X_OK) != 0)
        return PASSBOOK_BAD_ARGUMENT;
    // A name is put behind its last slash.
    (void)std::snprintf(TMP_PATH, sizeof TMP_PATH, "%s/", directory);
    return PASSBOOK_OK;
}

const char* passbook_version(void) {
    return PASSBOOK_VERSION;
}
