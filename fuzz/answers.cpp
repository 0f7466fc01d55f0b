// What a printer says: whatever comes, the host gets a documented result in a time that has a bound.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>

#include "api/passbook.h"
#include "fuzz/line.h"
#include "fuzz/target.h"
#include "status/status.h"
#include "wire/oki.h"
#include "wire/oli.h"

namespace passbook::fuzz {

using sim::Family;

namespace {

/// A scan as two bytes of an input ask for it.
struct Scan {
    explicit Scan(Input& input) : first(input.byte()), second(input.byte()) {}
    int first, second;
    [[nodiscard]] bool endless() const { return (first & 64) != 0; }
    [[nodiscard]] bool bottomUp() const { return (first & 128) != 0; }
    [[nodiscard]] int run(Family family) const {
        const std::string front = fileOf((first & 16) != 0 ? "front.jpg" : "front.bmp"),
                          back = fileOf((first & 32) != 0 ? "back.jpg" : "back.bmp");
        const int type = first & 3, sides = first >> 2 & 3, dpi = second % 3 * 200;
        return family == Family::oki ? YARDO_ScantoFileOKI(front.c_str(), back.c_str(), type, 0, 0, 0, false, sides,
                                                           dpi, bottomUp() ? 1 : 0)
                                     : YARDO_ScantoFileOLI(front.c_str(), back.c_str(), type, 0, 0, false, sides, dpi,
                                                           bottomUp() ? 1 : 0);
    }
};

/// The front's and the back's file, where there is one.
Texts scannedFiles() {
    Texts files;
    for (const auto& entry : std::filesystem::directory_iterator(fileOf("")))
        if (const std::string name = entry.path().filename(); name.starts_with("front") || name.starts_with("back"))
            files.push_back(tests::readFile(entry.path()));
    return files;
}

void scan(Family family, Input input, const std::set<int>& results) {
    const Scan wish(input);
    Script script(input.rest(), wish.endless());
    const int result = wish.run(family);
    require(results.contains(result), "a documented result, not " + std::to_string(result));
    // A scan goes on as long as the printer has something to say that belongs to it.
    require(wish.endless() || secondsGone() <= script.patience(),
            "an end in time, not " + std::to_string(secondsGone()) + " s");
    std::size_t most = 64 << 20;
    for (const std::string& file : scannedFiles())
        require(file.size() <= most, "a file of the size of what has come");
    if (family == Family::oli)
        for (const std::string& file : scannedFiles()) {
            tests::writeFile(fileOf("copy"), file);
            int width = 0, height = 0, offset = 0, bits = 0;
            require(getBitmapInfo(fileOf("copy").c_str(), &width, &height, &offset, &bits) == 0, "a file is a BMP");
            const auto size = std::int64_t{54} + (std::int64_t{width} * bits + 31) / 32 * 4 * std::abs(height);
            require(static_cast<std::int64_t>(file.size()) == size, "a file is there whole");
        }
    if (result == 0)
        for (const auto& entry : std::filesystem::directory_iterator(fileOf("")))
            require(!entry.path().filename().string().starts_with(".tmp_"), "no temporary file stays");
}

/// Scans of the virtual printer, as a host reads them.
Texts scanSeeds(Family family) {
    Texts seeds;
    const int small = 20;  // dots of the page, or a seed is larger than what is tried
    for (const int sides : {0, 1, 2})
        for (const int type : {0, 2, 3})
            for (const std::size_t block : {std::size_t{40}, std::size_t{4095}}) {
                const int first = type | sides << 2 | (type == 2 ? 48 : 0) | (type == 3 ? 128 : 0);
                const std::string head = {static_cast<char>(first), static_cast<char>(type)};
                sim::Scenario scenario{.family = family, .pageWidthDots = small, .pageHeightDots = small};
                scenario.scan.block = block;
                scenario.scan.fillers = block == 40 && type == 0;
                Desk desk(scenario);
                Input input(head);
                (void)Scan(input).run(family);
                seeds.push_back(head + spelledPieces(desk.pieces));
            }
    return seeds;
}

struct Range {
    int lowest = 0, highest = lowest;
    [[nodiscard]] constexpr bool has(int result) const { return lowest <= result && result <= highest; }
};

struct Query {
    const char* name;
    int (*call)(Input& input);
    Range good, failed;
    [[nodiscard]] bool isGood(int result) const { return good.has(result) || failed.has(result); }
};

int readOneStripe(Input& input) {
    const int track = input.upTo(1), length = 2 + input.byte();
    const Exact buffer(std::string(static_cast<std::size_t>(length), '#'));
    const int result = YARDO_PR2_MSR(track, buffer.bytes.get(), length);
    require(
        result != 0 || std::find(buffer.bytes.get(), buffer.bytes.get() + length, '\0') != buffer.bytes.get() + length,
        "the data of the stripe have an end");
    return result;
}

int readBothStripes(Input& input) {
    const int length0 = 2 + input.upTo(63), length1 = 2 + input.upTo(63);
    const Exact first(std::string(static_cast<std::size_t>(length0), '#')),
        second(std::string(static_cast<std::size_t>(length1), '#'));
    return YARDO_PR2_MSRALL(first.bytes.get(), length0, second.bytes.get(), length1);
}

int readConfiguration(Input& input) {
    const Exact buffer(std::string(static_cast<std::size_t>(input.byte()), '#'));
    const int count = GetPrinterConfig(reinterpret_cast<unsigned char*>(buffer.bytes.get()), buffer.length);
    require(count >= 0 && count <= buffer.length, "as much as there is room for");
    return 0;
}

int writeConfiguration(Input& input) {
    const Exact block(input.take(static_cast<std::size_t>(input.upTo(63))));
    return SetPrinterConfig(block.octets(), block.length);
}

int readFirmware(Input&) {
    const Exact out(std::string(13, '#'));
    return YARDO_PR2_GetFWID(reinterpret_cast<unsigned char*>(out.bytes.get()));
}

int askOkiPaper(Input&) {
    struct passbook_oki_paper paper {};
    paper.size = sizeof paper;
    const int result = passbook_oki_paper("line", &paper);
    require(result != 0 || paper.status == 1 || paper.status == 2, "a paper status that is known");
    return result;
}

constexpr Query queries[] = {
    {"printer status", [](Input&) { return YARDO_PR2_GetPrinterStatus(); }, {1, 15}, {-22}},
    {"paper status", [](Input&) { return YARDO_PR2_GetPaperStatus(); }, {1, 4}, {-20}},
    {"firmware", readFirmware, {}, {-4}},
    {"initialise", [](Input& input) { return YARDO_PR2_InitPrinter(input.upTo(2), input.upTo(5)); }, {}, {-30}},
    {"stripe", readOneStripe, {}, {-4}},
    {"both stripes", readBothStripes, {}, {-4}},
    {"removal", [](Input& input) { return YARDO_PR2_SPB(input.upTo(60)); }, {}, {-20}},
    {"configuration", readConfiguration, {}, {}},
    {"configuration written", writeConfiguration, {}, {-52, -50}},
    {"OKI paper", askOkiPaper, {}, {-20}},
    {"OKI measures", [](Input&) { return std::max(GetPaperWidth(), GetPaperLength()); }, {-999, 9999}, {}},
};

constexpr std::size_t ofOki = 7;  // from there on

}  // namespace

void scanOki(Input input) {
    scan(Family::oki, input, {0, -3, -20, -21, -4, -40, -31});
}

void scanOli(Input input) {
    scan(Family::oli, input, {0, 2, -40, -31});
}

void hearReplies(Input input) {
    const Query& first = queries[input.upTo(std::size(queries) - 1)];
    const Query& second = queries[input.upTo(std::size(queries) - 1)];
    const bool endless = input.flag();
    Input arguments(input.take(8));
    Script script(input.rest(), endless);
    for (const Query* query : {&first, &second}) {
        const int result = query->call(arguments);
        require(query->isGood(result),
                query->name + std::string(" gives a documented result, not ") + std::to_string(result));
        require(secondsGone() <= script.patience(), std::string("an end in time: ") + query->name);
        if (protocol == nullptr)
            script.connect();
    }
}

Texts okiScanSeeds() {
    return scanSeeds(Family::oki);
}

Texts oliScanSeeds() {
    return scanSeeds(Family::oli);
}

Texts replySeeds() {
    Texts seeds;
    for (std::size_t i = 0; i < std::size(queries); ++i)
        for (const std::size_t split : {std::size_t{0}, std::size_t{2}}) {
            Desk desk({.family = i < ofOki ? Family::oli : Family::oki,
                       .stripes = {"6222020200112233445=4912", "2"},
                       .split = split});
            const std::string arguments(8, static_cast<char>(i == 4 || i == 5 ? 62 : 40));
            Input input(arguments);
            (void)queries[i].call(input);
            seeds.push_back(std::string{static_cast<char>(i), static_cast<char>(i), '\0'} + arguments +
                            spelledPieces(desk.pieces));
        }
    return seeds;
}

Texts replyWords() {
    using namespace std::string_literals;
    Texts words = {"\033rP", "\033rQ", "\033ra", "...C..", "...A..", "\x1C", "\033Z", "\x03"s, "\xF0\0"s, "\0"s, "BM"};
    // Answers begin as commands do.
    for (const auto table : {wire::oliTable(), wire::okiTable()})
        for (const wire::Row& row : table)
            words.emplace_back(row.fixed);
    return words;
}

}  // namespace passbook::fuzz
