// The fuzz targets as one program.
//   passbook_fuzz --list                       the targets, one a line: name, longest input, dictionary
//   passbook_fuzz --replay                     runs all seeds, also without libFuzzer: a test of every build
//   passbook_fuzz TARGET [libFuzzer's arguments]
#include <glib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "api/passbook.h"
#include "fuzz/target.h"
#include "tests/support.h"

#ifdef __SANITIZE_ADDRESS__
// Of <sanitizer/allocator_interface.h>, which GCC does not have.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*taken)(const volatile void*, std::size_t),
                                                         void (*released)(const volatile void*));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void*);
#endif

namespace passbook::fuzz {

namespace {

const Target* g_target = nullptr;
std::string g_seed;                              // that is being run
std::atomic<std::ptrdiff_t> g_held, g_mostHeld;  // GLib has threads
int g_errorOutput = STDERR_FILENO;               // libFuzzer closes the one that codecs complain on

/// Sets up what all runs have in common.
void prepare() {
    // A picture that says it is large must not fill the disk.
    constexpr rlim_t largestFile = 256 << 20;
    const rlimit limit{largestFile, largestFile};
    (void)setrlimit(RLIMIT_FSIZE, &limit);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    (void)passbook_set_temporary_directory(fileOf("").c_str());
    g_errorOutput = dup(STDERR_FILENO);
    [[gnu::used]] static const GIConv loaded =
        g_iconv_open("UTF-8", "GB18030");  // which is loaded for every text anew otherwise
#ifdef __SANITIZE_ADDRESS__
    const auto taken = [](const volatile void*, std::size_t size) {
        g_mostHeld = std::max<std::ptrdiff_t>(g_mostHeld, g_held += static_cast<std::ptrdiff_t>(size));
    };
    const auto released = [](const volatile void* memory) {
        g_held -= static_cast<std::ptrdiff_t>(__sanitizer_get_allocated_size(memory));
    };
    (void)__sanitizer_install_malloc_and_free_hooks(taken, released);
#endif
}

}  // namespace

void require(bool holds, const std::string& what) {
    if (holds)
        return;
    dprintf(g_errorOutput, "passbook_fuzz: %s %s: does not hold: %s\n", g_target->name, g_seed.c_str(), what.c_str());
    std::abort();
}

std::string fileOf(const std::string& name) {
    static const tests::TemporaryDirectory directory;
    return directory.file(name);
}

long long secondsGone() {
    return (tests::virtualClock.microseconds - tests::VirtualClock{}.microseconds) / 1'000'000;
}

int Input::byte() {
    const std::string_view first = take(1);
    return first.empty() ? 0 : static_cast<unsigned char>(first.front());
}

std::string_view Input::take(std::size_t count) {
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(taken.size());
    return taken;
}

Exact::Exact(std::string_view from) : bytes(new char[from.size()]), length(static_cast<int>(from.size())) {
    std::copy(from.begin(), from.end(), bytes.get());
}

}  // namespace passbook::fuzz

using namespace passbook;
using namespace passbook::fuzz;

/// A request can name any file for a picture of the page; none is to be written but our own.
extern "C" int __real_mkstemp(char* name);
extern "C" int __wrap_mkstemp(char* name) {
    const std::string path = name;
    errno = EACCES;
    return path.starts_with(fileOf("")) && path.find("..") == std::string::npos ? __real_mkstemp(name) : -1;
}

extern "C" [[gnu::visibility("default")]] int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::ptrdiff_t bytesEach = 16 << 10;
    constexpr double freeSeconds = 4, secondsEach = 0.002;
    tests::virtualClock = {};
    const auto openBefore = tests::openFiles();
    const std::clock_t begin = std::clock();
    const std::ptrdiff_t heldBefore = g_mostHeld = g_held.load();
    g_target->run(Input({reinterpret_cast<const char*>(data), size}));
    const double seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
    const auto bytes = static_cast<std::ptrdiff_t>(size);
    require(g_mostHeld - heldBefore <= (g_target->freeMegabytes << 20) + bytesEach * bytes,
            "memory follows the input, not " + std::to_string(g_mostHeld - heldBefore) + " bytes");
    require(seconds <= freeSeconds + secondsEach * static_cast<double>(bytes),
            "time follows the input, not " + std::to_string(seconds) + " s");
    require(tests::openFiles() == openBefore, "no file stays open");
    for (const auto& entry : std::filesystem::directory_iterator(fileOf("")))
        std::filesystem::remove_all(entry);
    return 0;
}

static void replay(const std::string& folder) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        g_seed = entry.path().filename();
        const std::string seed = tests::readFile(entry.path());
        (void)LLVMFuzzerTestOneInput(tests::octets(seed.data()), seed.size());
    }
}

extern "C" [[gnu::visibility("default")]] int LLVMFuzzerInitialize(int* argc, char*** argv) {
    const std::string wish = *argc > 1 ? (*argv)[1] : "";
    prepare();
    for (const auto& some : {pictureTargets, printerTargets, fileTargets})
        for (const Target& target : some) {
            g_target = &target;
            if (wish == target.name) {
                (*argv)[1] = (*argv)[0];
                ++*argv;
                --*argc;
                return 0;
            }
            if (wish == "--replay")
                replay(std::string(PASSBOOK_SOURCE_DIR "/fuzz/seeds/") + target.name);
            else
                std::printf("%s %d %s\n", target.name, target.longestInput, target.words);
        }
    std::fflush(stdout);
    std::exit(wish == "--list" || wish == "--replay" ? 0 : 2);
}

#ifdef PASSBOOK_FUZZ_REPLAY
int main(int argc, char** argv) {
    return LLVMFuzzerInitialize(&argc, &argv);
}
#endif
