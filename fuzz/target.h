// A fuzz target: what is done with one input, and what inputs begin with. The targets stand in a table, in main.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace passbook::fuzz {

/// What libFuzzer hands over. The first bytes decide how a target works, the rest is what it works on.
class Input {
 public:
    explicit Input(std::string_view bytes) : rest_(bytes) {}
    /// 0 behind the end.
    [[nodiscard]] int byte();
    /// From 0 to `most`.
    [[nodiscard]] int upTo(int most) { return byte() % (most + 1); }
    [[nodiscard]] bool flag() { return byte() % 2 != 0; }
    [[nodiscard]] std::string_view take(std::size_t count);
    [[nodiscard]] std::string_view rest() const { return rest_; }

 private:
    std::string_view rest_;
};

/// Bytes on the heap, with nothing before and behind them: a byte read too far is found.
struct Exact {
    explicit Exact(std::string_view from);
    std::unique_ptr<char[]> bytes;
    int length;
    [[nodiscard]] const unsigned char* octets() const { return reinterpret_cast<const unsigned char*>(bytes.get()); }
};

using Texts = std::vector<std::string>;

struct Target {
    const char* name;
    int longestInput;
    void (*run)(Input input);
    Texts (*seeds)();
    Texts (*words)();  // of the dictionary
};

/// Ends the run with a find: what the target holds for true is not so.
void require(bool holds, const std::string& what);

/// A file in the folder that belongs to this process, which is empty when a target begins.
[[nodiscard]] std::string fileOf(const std::string& name);

/// The seconds that have gone by, by the virtual clock, since the target began.
[[nodiscard]] long long secondsGone();

// The targets, by source: pictures.cpp
void printBmp(Input input);
void printJpeg(Input input);
void printPng(Input input);
void printStream(Input input);
void printTurned(Input input);
Texts bmpSeeds();
Texts jpegSeeds();
Texts pngSeeds();
Texts streamSeeds();
Texts turnedSeeds();
Texts pictureWords();
// answers.cpp
void scanOki(Input input);
void scanOli(Input input);
void hearReplies(Input input);
Texts okiScanSeeds();
Texts oliScanSeeds();
Texts replySeeds();
Texts replyWords();
// bytes.cpp
void printText(Input input);
void decodeWire(Input input);
Texts textSeeds();
Texts wireSeeds();
Texts wireWords();
// files.cpp
void readPage(Input input);
void readTrace(Input input);
void readJournal(Input input);
Texts pageSeeds();
Texts traceSeeds();
Texts journalSeeds();
Texts jsonWords();

}  // namespace passbook::fuzz
