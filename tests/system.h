// What the driver asks of the system, as its tests have it: clocks that only sleeping moves, files that are elsewhere or a
// test's own, calls that fail. The calls come here because they are wrapped when the tests are linked.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace passbook::tests {

/// The clocks that the driver sees. Sleeping moves them and returns at once, or at the next signal.
struct VirtualClock {
    std::int64_t microseconds = 1'700'000'000'000'000;
    std::int64_t wallAhead = 0;  // of the clock that nobody sets
    std::int64_t slept = 0;
    std::int64_t signalEvery = 0;  // 0: none comes
    [[nodiscard]] std::int64_t sleptSeconds() const { return slept / 1'000'000; }
};
extern VirtualClock virtualClock;

/// Where the driver's open() and access() go instead, by path; an empty target does not exist.
extern std::map<std::string, std::string> redirectedPaths;

/// The n-th call of the driver's of such a name from now on fails, or that one and all behind it: "allocation", "open",
/// "rename"; "write" of a file that it makes, at the byte `at`; "descriptors", of which there are no more.
/// Allocations are those of this thread, through whichever library, but for GLib, which would end the process; and not
/// under the sanitizers, which have allocators of their own.
struct FailingCalls {
    std::string name = {};
    int nth = 0;
    bool forGood = false;
    std::uint64_t at = 0;
    int calls = 0, failed = 0;
    bool fails(const char* called);
};
extern FailingCalls failingCalls;
/// Puts limits of the process back to what they were.
void endFailingCalls();

struct AnyAllocation {
    static inline thread_local bool spared = true;
    /// How many blocks the driver holds.
    static std::ptrdiff_t blocks();
};
/// While it exists, whatever is allocated is a test's own matter, or the driver's.
class Spared {
 public:
    explicit Spared(bool spared = true) : before_(std::exchange(AnyAllocation::spared, spared)) {}
    ~Spared() { AnyAllocation::spared = before_; }
    Spared(const Spared&) = delete;
    Spared& operator=(const Spared&) = delete;

 private:
    bool before_;
};

/// A device file whose other end is a test. While it exists, what the driver does with the file that it opened under
/// `path` comes here; results as of the system's calls of the same names.
class DeviceFile {
 public:
    explicit DeviceFile(const std::string& path);
    virtual ~DeviceFile();
    virtual ssize_t write(const std::string& data) = 0;
    virtual ssize_t read(char* buffer, std::size_t size) = 0;
    virtual int poll(int timeoutMs) = 0;

    static inline DeviceFile* current = nullptr;
    std::string file;  // that stands for it
    int descriptor = -1;
};

}  // namespace passbook::tests
