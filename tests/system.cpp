#include "tests/system.h"

#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

namespace passbook::tests {

VirtualClock virtualClock;
FailingCalls failingCalls;
std::map<std::string, std::string> redirectedPaths;

namespace {
std::set<void*> held;  // by the driver

const char* redirected(const char* path) {
    const auto target = redirectedPaths.find(path);
    return target == redirectedPaths.end() ? path : target->second.c_str();
}
}  // namespace

bool FailingCalls::fails(const char* called) {
    if (AnyAllocation::spared || name != called || (++calls != nth && (!forGood || calls < nth)))
        return false;
    ++failed;
    errno = name == "open" ? EACCES : name == "rename" ? EROFS : ENOMEM;
    return true;
}

namespace {
void limit(decltype(RLIMIT_FSIZE) resource, rlim_t value) {
    rlimit limits{};
    EXPECT_EQ(getrlimit(resource, &limits), 0);
    limits.rlim_cur = std::min(value, limits.rlim_max);
    EXPECT_EQ(setrlimit(resource, &limits), 0);
}

/// True when it fails by itself; else a limit may see to it.
bool openingFails(bool creates) {
    if (failingCalls.fails("descriptors")) {
        const Spared own;
        const int lowest = dup(0);
        (void)close(lowest);
        limit(RLIMIT_NOFILE, static_cast<rlim_t>(lowest));
    }
    if (creates && failingCalls.name == "write")
        limit(RLIMIT_FSIZE, failingCalls.fails("write") ? failingCalls.at : RLIM_INFINITY);
    return failingCalls.fails("open");
}
}  // namespace

void endFailingCalls() {
    static const rlim_t descriptors = [] {
        rlimit limits{};
        (void)getrlimit(RLIMIT_NOFILE, &limits);
        return limits.rlim_cur;
    }();
    limit(RLIMIT_NOFILE, descriptors);
    limit(RLIMIT_FSIZE, RLIM_INFINITY);
    failingCalls = {};
}

std::ptrdiff_t AnyAllocation::blocks() {
    return std::ssize(held);
}

extern "C" {
int __wrap_clock_nanosleep(clockid_t, int, const timespec* end, timespec*) {
    const std::int64_t all = end->tv_sec * 1'000'000 + end->tv_nsec / 1000 - virtualClock.microseconds,
                       signal = virtualClock.signalEvery;
    const std::int64_t slept = signal > 0 ? std::min(all, signal) : all;
    virtualClock.microseconds += slept;
    virtualClock.slept += slept;
    return slept < all ? EINTR : 0;
}

int __wrap_clock_gettime(clockid_t, timespec* now) {
    *now = {virtualClock.microseconds / 1'000'000, virtualClock.microseconds % 1'000'000 * 1000};
    return 0;
}

int __wrap_gettimeofday(timeval* now, void*) {
    const std::int64_t wall = virtualClock.microseconds + virtualClock.wallAhead;
    *now = {wall / 1'000'000, wall % 1'000'000};
    return 0;
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    if (openingFails((flags & O_CREAT) != 0))
        return -1;
    const Spared spared;
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    const int opened = __real_open(redirected(path), flags, mode);
    if (DeviceFile::current != nullptr && redirected(path) == DeviceFile::current->file) {
        EXPECT_TRUE((flags & O_EXCL) != 0 || flags == (O_RDWR | O_NOCTTY | O_NONBLOCK)) << "it can wait for a carrier";
        DeviceFile::current->descriptor = opened;
    }
    return opened;
}

namespace {
DeviceFile* deviceOf(int descriptor) {
    DeviceFile* const device = DeviceFile::current;
    return device != nullptr && device->descriptor == descriptor ? device : nullptr;
}
}  // namespace

ssize_t __real_write(int descriptor, const void* data, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* data, std::size_t size) {
    const Spared spared;
    DeviceFile* const device = deviceOf(descriptor);
    return device != nullptr ? device->write({static_cast<const char*>(data), size})
                             : __real_write(descriptor, data, size);
}

ssize_t __real_read(int descriptor, void* buffer, std::size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
    const Spared spared;
    DeviceFile* const device = deviceOf(descriptor);
    return device != nullptr ? device->read(static_cast<char*>(buffer), size) : __real_read(descriptor, buffer, size);
}

int __real_poll(pollfd* watched, nfds_t count, int timeoutMs);
int __wrap_poll(pollfd* watched, nfds_t count, int timeoutMs) {
    const Spared spared;
    DeviceFile* const device = deviceOf(watched->fd);
    if (device != nullptr)
        return device->poll(timeoutMs);
    const int ready = __real_poll(watched, count, timeoutMs);
    if (ready == 0 && gettid() == getpid())  // the virtual printer's thread has a clock of its own
        virtualClock.microseconds += std::int64_t{timeoutMs} * 1000;
    return ready;
}

int __real_close(int descriptor);
int __wrap_close(int descriptor) {
    const Spared spared;
    if (DeviceFile* const device = deviceOf(descriptor); device != nullptr)
        device->descriptor = -1;
    return __real_close(descriptor);
}

decltype(g_convert) __real_g_convert;
[[gnu::visibility("default")]] gchar* __wrap_g_convert(const gchar* text, gssize length, const gchar* to,
                                                       const gchar* from, gsize* read, gsize* written, GError** error) {
    const Spared spared;
    return __real_g_convert(text, length, to, from, read, written, error);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
namespace {
void* keep(void* block, const void* old = nullptr) {
    if (!AnyAllocation::spared && block != nullptr) {
        const Spared own;
        held.erase(const_cast<void*>(old));
        held.insert(block);
    }
    return block;
}
bool findsNoMemory() {
    return !AnyAllocation::spared && failingCalls.fails("allocation");
}
}  // namespace
void* __libc_malloc(std::size_t size);
[[gnu::visibility("default")]] void* malloc(std::size_t size) {
    return findsNoMemory() ? nullptr : keep(__libc_malloc(size));
}
void* __libc_calloc(std::size_t count, std::size_t size);
[[gnu::visibility("default")]] void* calloc(std::size_t count, std::size_t size) {
    return findsNoMemory() ? nullptr : keep(__libc_calloc(count, size));
}
void* __libc_realloc(void* old, std::size_t size);
[[gnu::visibility("default")]] void* realloc(void* old, std::size_t size) {
    return findsNoMemory() ? nullptr : keep(__libc_realloc(old, size), old);
}
void __libc_free(void* block);
[[gnu::visibility("default")]] void free(void* block) {
    if (!AnyAllocation::spared && block != nullptr) {
        const Spared own;
        held.erase(block);
    }
    __libc_free(block);
}
#endif

std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode) {
    return openingFails(*mode == 'w') ? nullptr : __real_fopen(path, mode);
}

int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
    return failingCalls.fails("rename") ? -1 : __real_rename(from, to);
}

int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode) {
    const Spared spared;
    return __real_access(redirected(path), mode);
}
}

DeviceFile::DeviceFile(const std::string& path) {
    file = redirectedPaths[path] =
        (std::filesystem::temp_directory_path() / ("passbook-device-" + std::to_string(getpid()))).string();
    const std::ofstream made(file);
    current = this;
}

DeviceFile::~DeviceFile() {
    current = nullptr;
    redirectedPaths.clear();
    std::filesystem::remove(file);
}

}  // namespace passbook::tests
