// The fuzz targets as one program.
//   passbook_fuzz --list                       the targets, one a line: name and longest input
//   passbook_fuzz TARGET --seeds DIRECTORY     writes the inputs to begin with
//   passbook_fuzz TARGET --dictionary FILE     writes the words that inputs are made of
//   passbook_fuzz TARGET [libFuzzer's arguments]
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "api/passbook.h"
#include "fuzz/target.h"
#include "tests/support.h"

namespace passbook::fuzz {

namespace {

constexpr Target targets[] = {
    {"bmp", 8192, printBmp, bmpSeeds, pictureWords},
    {"jpeg", 8192, printJpeg, jpegSeeds, pictureWords},
    {"png", 4096, printPng, pngSeeds, pictureWords},
    {"stream", 4096, printStream, streamSeeds, pictureWords},
    {"turning", 8192, printTurned, turnedSeeds, pictureWords},
    {"oki-scan", 16384, scanOki, okiScanSeeds, replyWords},
    {"oli-scan", 16384, scanOli, oliScanSeeds, replyWords},
    {"replies", 512, hearReplies, replySeeds, replyWords},
    {"text", 1024, printText, textSeeds, wireWords},
    {"wire", 2048, decodeWire, wireSeeds, wireWords},
    {"page", 4096, readPage, pageSeeds, jsonWords},
    {"trace", 4096, readTrace, traceSeeds, jsonWords},
    {"journal", 4096, readJournal, journalSeeds, jsonWords},
};

const Target* g_target = nullptr;
int g_errorOutput = STDERR_FILENO;  // libFuzzer closes the one that codecs complain on

const tests::TemporaryDirectory& directory() {
    static const tests::TemporaryDirectory its;
    return its;
}

[[noreturn]] void leave(int status) {
    std::fflush(stdout);
    std::exit(status);
}

void writeSeeds(const std::string& folder) {
    std::filesystem::create_directories(folder);
    int number = 0;
    for (const std::string& seed : g_target->seeds())
        tests::writeFile(folder + "/seed-" + std::to_string(number++), seed);
}

void writeDictionary(const std::string& path) {
    std::string lines;
    for (const std::string& word : g_target->words()) {
        lines += '"';
        for (const char byte : word) {
            char code[8];
            (void)std::snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned char>(byte));
            lines += code;
        }
        lines += "\"\n";
    }
    tests::writeFile(path, lines);
}

}  // namespace

void require(bool holds, const std::string& what) {
    if (holds)
        return;
    dprintf(g_errorOutput, "passbook_fuzz: %s: does not hold: %s\n", g_target->name, what.c_str());
    std::abort();
}

std::string fileOf(const std::string& name) {
    return directory().file(name);
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

using namespace passbook::fuzz;

extern "C" [[gnu::visibility("default")]] int LLVMFuzzerInitialize(int* argc, char*** argv) {
    char** const arguments = *argv;
    if (*argc == 2 && std::strcmp(arguments[1], "--list") == 0) {
        for (const Target& target : targets)
            std::printf("%s %d\n", target.name, target.longestInput);
        leave(0);
    }
    for (const Target& target : targets)
        if (*argc > 1 && std::strcmp(arguments[1], target.name) == 0)
            g_target = &target;
    if (g_target == nullptr) {
        std::fprintf(stderr, "usage: passbook_fuzz --list | TARGET [--seeds DIRECTORY | --dictionary FILE | ...]\n");
        leave(2);
    }
    // A picture that says it is large must not fill the disk.
    constexpr rlim_t largestFile = 256 << 20;
    const rlimit limit{largestFile, largestFile};
    (void)setrlimit(RLIMIT_FSIZE, &limit);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    (void)passbook_set_temporary_directory(fileOf("").c_str());
    g_errorOutput = dup(STDERR_FILENO);
    if (*argc == 4 && std::strcmp(arguments[2], "--seeds") == 0) {
        writeSeeds(arguments[3]);
        leave(0);
    }
    if (*argc == 4 && std::strcmp(arguments[2], "--dictionary") == 0) {
        writeDictionary(arguments[3]);
        leave(0);
    }
    arguments[1] = arguments[0];
    ++*argv;
    --*argc;
    return 0;
}

extern "C" [[gnu::visibility("default")]] int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    passbook::tests::virtualClock = {};
    const auto openBefore = passbook::tests::openFiles();
    g_target->run(Input({reinterpret_cast<const char*>(data), size}));
    require(passbook::tests::openFiles() == openBefore, "no file stays open");
    for (const auto& entry : std::filesystem::directory_iterator(fileOf("")))
        std::filesystem::remove_all(entry);
    return 0;
}
