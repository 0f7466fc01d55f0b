// A fuzz target: what is done with one input, and what inputs begin with. Each source has a table of its targets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
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
    [[nodiscard]] std::string_view view() const { return {bytes.get(), static_cast<std::size_t>(length)}; }
    [[nodiscard]] const unsigned char* octets() const { return reinterpret_cast<const unsigned char*>(bytes.get()); }
};

using Texts = std::vector<std::string>;

/// Inputs begin with the files in seeds/NAME.
struct Target {
    const char* name;
    int longestInput;
    void (*run)(Input input);
    const char* words = "commands";     // the dictionary
    std::ptrdiff_t freeMegabytes = 96;  // that pages and codecs take; beyond that, memory follows the input
};

extern const std::span<const Target> pictureTargets, printerTargets, fileTargets;

/// Ends the run with a find: what the target holds for true is not so.
void require(bool holds, const std::string& what);

/// A file in the folder that belongs to this process, which is empty when a target begins.
[[nodiscard]] std::string fileOf(const std::string& name);

/// The seconds that have gone by, by the virtual clock, since the target began.
[[nodiscard]] long long secondsGone();

}  // namespace passbook::fuzz
