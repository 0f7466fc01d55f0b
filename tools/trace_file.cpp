#include "tools/trace_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "api/passbook.h"
#include "wire/mask.h"
#include "wire/trace.h"

namespace passbook::tool {

namespace {

/// A line with two digits for every byte of data, and what is around them.
constexpr std::size_t lineBytes = 2 * wire::tracePieceBytes + 512;

struct Writer {
    int file = -1;
    bool unmasked = false;
    Family family = Family::oli;
    std::optional<Family> told;  // by the latest line that begins a trace
    std::unique_ptr<wire::Masker> masker;
    bool whole = true;  // the line took all that this call wrote
    std::string problem;
    std::array<char, lineBytes> line{};
    std::size_t length = 0;
    std::array<std::uint8_t, wire::tracePieceBytes> piece{};
};

// The process-wide state of this module.
std::unique_ptr<Writer> g_writer;

std::string systemText(int error) {
    std::array<char, 128> text{};
    return strerror_r(error, text.data(), text.size());
}

__attribute__((format(printf, 2, 3))) void append(Writer& to, const char* format, ...) {
    const std::size_t room = to.line.size() - to.length;
    va_list values;
    va_start(values, format);
    const int more = std::vsnprintf(to.line.data() + to.length, room, format, values);
    va_end(values);
    to.length += std::min(room - 1, static_cast<std::size_t>(std::max(more, 0)));
}

/// A write that ends the process when the file is too large must not end a host in the middle of a page.
class WithoutLimitSignal {
 public:
    WithoutLimitSignal() {
        sigemptyset(&limit_);
        sigaddset(&limit_, SIGXFSZ);
        (void)pthread_sigmask(SIG_BLOCK, &limit_, &before_);
    }
    WithoutLimitSignal(const WithoutLimitSignal&) = delete;
    WithoutLimitSignal& operator=(const WithoutLimitSignal&) = delete;
    ~WithoutLimitSignal() {
        constexpr timespec none{};
        if (sigismember(&before_, SIGXFSZ) == 0)
            (void)sigtimedwait(&limit_, nullptr, &none);
        (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

 private:
    sigset_t limit_{}, before_{};
};

/// Hands the line to the system, in one write: other processes may write to the same trace.
void endLine(Writer& to) {
    append(to, "}\n");
    const WithoutLimitSignal guard;
    const auto wanted = static_cast<ssize_t>(to.length);
    ssize_t got = 0;
    do {
        got = ::write(to.file, to.line.data(), to.length);
    } while (got < 0 && errno == EINTR);
    to.length = 0;
    if (got == wanted)
        return;
    to.problem = got < 0 ? systemText(errno) : "no room for the whole line";
    if (struct stat status{}; got > 0 && fstat(to.file, &status) == 0)
        (void)!ftruncate(to.file, status.st_size - got);  // half a line would make the trace a damaged one
}

/// The family of a function; none of those that both families have.
std::optional<Family> familyOf(std::string_view function) {
    if (function.starts_with("PT_") || function.starts_with("passbook_oki") || function == "YARDO_ScantoFileOKI")
        return Family::oki;
    if (function == "YARDO_PR2_OpenPort" || function == "YARDO_PR2_ClosePort" || function == "YARDO_PR2_Command")
        return std::nullopt;
    return Family::oli;
}

/// Begins a trace, or one of the other family behind it: its commands are others.
void tellFamily(Writer& to, const passbook_trace_event& event) {
    const Family family = familyOf(event.function).value_or(to.told.value_or(to.family));
    if (to.told == family)
        return;
    to.told = family;
    to.masker = std::make_unique<wire::Masker>(family == Family::oki ? wire::Family::oki : wire::Family::oli);
    std::array<char, 32> when{};
    const time_t now = ::time(nullptr);
    tm parts{};
    if (gmtime_r(&now, &parts) != nullptr)
        (void)std::strftime(when.data(), when.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    append(to, R"({"trace":%d,"family":"%s","masked":%s,"time":"%s","process":%ld,"us":%lld)", wire::traceVersion,
           nameOf(family), to.unmasked ? "false" : "true", when.data(), static_cast<long>(getpid()),
           event.microseconds);
    endLine(to);
}

void begin(Writer& to, const passbook_trace_event& event) {
    append(to, R"({"us":%lld,"kind":"%s","function":"%s")", event.microseconds,
           wire::traceKindNames[static_cast<std::size_t>(event.kind) + 1], event.function);
}

void writeData(Writer& to, const passbook_trace_event& event) {
    const auto length = static_cast<std::size_t>(std::max(event.length, 0));
    const bool writes = event.kind == PASSBOOK_TRACE_WRITE;
    for (std::size_t at = 0; at < length && to.problem.empty();) {
        const std::span piece(to.piece.data(), std::min(length - at, to.piece.size()));
        std::copy_n(event.data + at, piece.size(), piece.begin());
        if (writes)
            to.masker->send(piece);
        else
            to.masker->answer(piece);
        if (to.unmasked)
            std::copy_n(event.data + at, piece.size(), piece.begin());
        begin(to, event);
        if (writes) {
            const auto most = static_cast<int>(piece.size());
            append(to, R"(,"result":%d)",
                   event.result < 0 ? -1 : std::clamp(event.result - static_cast<int>(at), 0, most));
        }
        if (event.system_error != 0)
            append(to, R"(,"error":%d)", event.system_error);
        append(to, R"(,"bytes":")");
        for (const std::uint8_t byte : piece) {
            constexpr std::string_view digits = "0123456789abcdef";
            to.line[to.length++] = digits[byte >> 4];
            to.line[to.length++] = digits[byte & 15];
        }
        append(to, "\"");
        endLine(to);
        at += piece.size();
    }
}

void writeEvent(Writer& to, const passbook_trace_event& event) {
    tellFamily(to, event);
    if (!to.problem.empty())
        return;
    if (event.kind == PASSBOOK_TRACE_WRITE || event.kind == PASSBOOK_TRACE_READ) {
        to.whole = to.whole && (event.kind == PASSBOOK_TRACE_READ || event.result == event.length);
        writeData(to, event);
        return;
    }
    begin(to, event);
    if (event.kind == PASSBOOK_TRACE_OPEN) {
        std::string port(reinterpret_cast<const char*>(event.data), static_cast<std::size_t>(event.length));
        std::replace_if(
            port.begin(), port.end(), [](char c) { return c < ' ' || c > '~' || c == '"' || c == '\\'; }, '?');
        append(to, R"(,"port":"%.*s")", 256, port.c_str());
    }
    if (event.kind != PASSBOOK_TRACE_CALL)
        append(to, R"(,"result":%d)", event.result);
    if (event.system_error != 0)
        append(to, R"(,"error":%d)", event.system_error);
    endLine(to);
    if (event.kind == PASSBOOK_TRACE_RETURN)
        to.masker->endCall(std::exchange(to.whole, true), event.result >= 0);
}

/// What is wrong with a file as a trace of ours; empty when nothing is.
std::string unfit(int file) {
    struct stat status {};
    if (fstat(file, &status) != 0)
        return systemText(errno);
    if (!S_ISREG(status.st_mode))
        return "this is not a regular file";
    if (status.st_uid != geteuid())
        return "the file belongs to another user";
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        return "other users may read the file: chmod 600 mends it";
    if (status.st_size == 0)
        return {};
    constexpr std::string_view start = "{\"trace\":";
    std::array<char, start.size()> found{};
    char last = 0;
    if (pread(file, found.data(), found.size(), 0) != static_cast<ssize_t>(found.size()) ||
        std::string_view(found.data(), found.size()) != start || pread(file, &last, 1, status.st_size - 1) != 1 ||
        last != '\n')
        return "the file is there, and is no whole trace: give another name";
    return {};
}

}  // namespace

std::string openTrace(const std::string& path, Family family, bool unmasked) {
    const int file =
        ::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
    std::string problem;
    if (file < 0)
        problem = errno == ELOOP ? "this is a symbolic link" : systemText(errno);
    else
        problem = unfit(file);
    if (problem.empty())
        g_writer.reset(new (std::nothrow) Writer);
    if (problem.empty() && g_writer == nullptr)
        problem = systemText(ENOMEM);
    if (!problem.empty()) {
        if (file >= 0)
            (void)::close(file);
        return "the trace " + path + " cannot be written: " + problem;
    }
    g_writer->file = file;
    g_writer->family = family;
    g_writer->unmasked = unmasked;
    return {};
}

void writeTrace(const struct passbook_trace_event* event, void* /*user*/) {
    if (g_writer == nullptr || !g_writer->problem.empty() || event->kind < 0 || event->kind > PASSBOOK_TRACE_CLOSE)
        return;
    const int before = errno;
    try {
        writeEvent(*g_writer, *event);
    } catch (const std::bad_alloc&) {  // the decoder keeps what a command has of data
        g_writer->problem = systemText(ENOMEM);
    }
    errno = before;
}

std::string closeTrace() {
    if (g_writer == nullptr)
        return {};
    const std::unique_ptr<Writer> writer = std::move(g_writer);
    if (::close(writer->file) != 0 && writer->problem.empty())
        writer->problem = systemText(errno);
    return writer->problem.empty() ? std::string() : "the trace is not complete: " + writer->problem;
}

}  // namespace passbook::tool
