// raw: sends bytes as they are.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>

#include "api/passbook.h"
#include "tools/printer.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

constexpr std::size_t mostBytes = 16 * 1024 * 1024;

struct Given {
    std::vector<std::string> hex;
    std::string file;
};

/// "1B 6C", "1b6c", "0x1B": pairs of digits, and nothing between the two of a pair.
std::optional<std::string> bytesFrom(const std::vector<std::string>& words, std::string& problem) {
    std::string bytes;
    for (const std::string& word : words) {
        for (std::size_t at = 0; at < word.size();) {
            if (word[at] == ' ' || word[at] == ':' || word[at] == ',') {
                ++at;
                continue;
            }
            if (word.compare(at, 2, "0x") == 0 || word.compare(at, 2, "0X") == 0)
                at += 2;
            unsigned char byte = 0;
            const char* const end = word.data() + std::min(at + 2, word.size());
            if (end - (word.data() + at) != 2 || std::from_chars(word.data() + at, end, byte, 16).ptr != end) {
                problem = "\"" + word + "\" is not bytes in hexadecimal, two digits each";
                return {};
            }
            bytes += static_cast<char>(byte);
            at += 2;
        }
    }
    return bytes;
}

std::optional<std::string> bytesOf(const std::string& path, std::string& problem) {
    std::ifstream file;
    if (path != "-")
        file.open(path, std::ios::binary);
    std::istream& in = path == "-" ? std::cin : file;
    if (path != "-" && !file.is_open()) {
        problem = path + ": " + std::strerror(errno);
        return {};
    }
    std::string bytes;
    std::array<char, 65536> piece{};
    do {
        in.read(piece.data(), piece.size());
        bytes.append(piece.data(), static_cast<std::size_t>(in.gcount()));
    } while (in && bytes.size() <= mostBytes);
    if (in.bad())
        problem = path + " cannot be read";
    else if (bytes.size() > mostBytes)
        problem = path + ": more than 16 MiB";
    return problem.empty() ? std::optional(bytes) : std::nullopt;
}

void send(Tool& tool, const Given& given) {
    std::string problem;
    if (given.hex.empty() == given.file.empty())
        problem = given.hex.empty() ? "there is nothing to send: give bytes, or --file" : "bytes and --file: give one";
    const std::optional<std::string> bytes = !problem.empty()     ? std::nullopt
                                             : given.file.empty() ? bytesFrom(given.hex, problem)
                                                                  : bytesOf(given.file, problem);
    if (problem.empty() && bytes->empty())
        problem = "there is nothing to send: no byte was given";
    if (!problem.empty()) {
        (void)tool.report.fail(Exit::badInput, problem);
        return;
    }
    Printer printer(tool);
    if (!printer.open(true))
        return;
    const auto* const data = reinterpret_cast<const unsigned char*>(bytes->data());
    if (tool.report.take(YARDO_PR2_Command(data, static_cast<int>(bytes->size()))))
        tool.report.say(std::to_string(bytes->size()) + " bytes were handed over");
}

}  // namespace

void addRaw(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("raw", "Sends bytes to the printer as they are. Answers are not read.");
    app->footer("Example:\n  passbook --port ttyS0 raw 1B 6C 1B 4F\n  passbook --port ttyS0 raw --file commands.bin");
    const auto given = std::make_shared<Given>();
    app->add_option("HEX", given->hex, "bytes in hexadecimal, two digits each");
    app->add_option("--file", given->file, "the file with the bytes, at most 16 MiB; - is standard input")
        ->type_name("FILE");
    app->callback([&tool, given] { tool.job = [given](Tool& with) { send(with, *given); }; });
}

}  // namespace passbook::tool
