// decode: a trace in words.

#include <glib.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "api/passbook.h"
#include "tools/tool.h"
#include "tools/verbs.h"
#include "wire/mask.h"
#include "wire/trace.h"

namespace passbook::tool {

namespace {

using wire::Command;
using wire::CommandId;
using wire::TraceKind;
using wire::TraceLine;

/// What a person wants to see of many bytes.
constexpr std::size_t mostShown = 24;

/// The memory for what is shown has a bound, whatever the file holds.
constexpr std::size_t mostLines = 2'000'000;

struct Given {
    std::string file;
    bool unmasked = false;
};

std::string hexOf(std::span<const std::uint8_t> bytes, const char* between) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += text.empty() ? "" : between;
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string shown(std::span<const std::uint8_t> bytes) {
    std::string text = hexOf(bytes.first(std::min(bytes.size(), mostShown)), " ");
    if (bytes.size() > mostShown)
        return text + " ... (" + std::to_string(bytes.size()) + " bytes)";
    text += "  |";
    for (const std::uint8_t byte : bytes)
        text += byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
    return text + '|';
}

std::string utf8Of(const std::vector<std::uint8_t>& bytes) {
    gsize length = 0;
    gchar* const converted =
        g_convert_with_fallback(reinterpret_cast<const gchar*>(bytes.data()), static_cast<gssize>(bytes.size()),
                                "UTF-8", "GB18030", "?", nullptr, &length, nullptr);
    std::string text = converted != nullptr ? std::string(converted, length) : hexOf(bytes, "");
    g_free(converted);
    return text;
}

bool isData(CommandId id) {
    return id == CommandId::text || id == CommandId::stripeWrite || id == CommandId::malformedStripe;
}

class Decoding {
 public:
    Decoding(Tool& tool, bool unmasked) : tool_(tool), unmasked_(unmasked) {}

    void add(TraceLine& line) {
        if (line.kind == TraceKind::start) {
            start(line);
            return;
        }
        if (!first_)
            first_ = line.microseconds;
        ++lines_;
        nlohmann::ordered_json event = {{"us", line.microseconds - *first_},
                                        {"kind", wire::traceKindNames[static_cast<std::size_t>(line.kind)]},
                                        {"function", line.function}};
        switch (line.kind) {
            case TraceKind::call:
                tell(line, line.function);
                break;
            case TraceKind::result:
                finishCall(line, event);
                break;
            case TraceKind::write:
                write(line, event);
                break;
            case TraceKind::read:
                if (!unmasked_)
                    masker_->answer(line.bytes);
                event["bytes"] = hexOf(line.bytes, "");
                tell(line, "  < " + shown(line.bytes));
                break;
            case TraceKind::open:
                event["port"] = line.text;
                result(line, event, "  open \"" + line.text + "\"");
                break;
            default:
                result(line, event, "  close");
        }
        events_.push_back(std::move(event));
    }

    void finish() {
        if (decoder_ != nullptr)
            decoder_->finish([this](const Command& command) { note(command); });
        TraceLine end;
        end.microseconds = last_;
        nlohmann::ordered_json rest;
        tellCommands(end, rest);
        tool_.report.brought["trace"] = std::move(events_);
    }

    [[nodiscard]] bool isFull() const { return lines_ >= mostLines; }

 private:
    void start(const TraceLine& line) {
        finishDecoder(line);
        decoder_ = wire::makeDecoder(line.family);
        masker_ = std::make_unique<wire::Masker>(line.family);
        whole_ = true;
        const auto family = std::string(wire::familyNames[static_cast<std::size_t>(line.family)]);
        tool_.report.say("trace of " + line.text + ", family " + family + (line.masked ? ", masked" : ", not masked"));
        events_.push_back({{"kind", "trace"}, {"time", line.text}, {"family", family}, {"masked", line.masked}});
        first_.reset();
    }

    void finishDecoder(const TraceLine& line) {
        if (decoder_ == nullptr)
            return;
        decoder_->finish([this](const Command& command) { note(command); });
        nlohmann::ordered_json rest;
        tellCommands(line, rest);
    }

    void write(TraceLine& line, nlohmann::ordered_json& event) {
        const std::size_t taken = line.taken();
        whole_ = whole_ && line.result >= 0 && taken == line.bytes.size();
        if (!unmasked_)
            masker_->send(line.bytes);
        decoder_->feed(std::span(line.bytes).first(taken), [this](const Command& command) { note(command); });
        event["result"] = line.result;
        event["length"] = line.bytes.size();
        if (line.systemError != 0)
            event["error"] = line.systemError;
        tellCommands(line, event);
        if (line.result < 0)
            tell(line,
                 "  ! nobody knows how many of " + std::to_string(line.bytes.size()) + " bytes were taken" + why(line));
        else if (taken < line.bytes.size())
            tell(line, "  ! only " + std::to_string(taken) + " of " + std::to_string(line.bytes.size()) +
                           " bytes were taken" + why(line));
    }

    void finishCall(const TraceLine& line, nlohmann::ordered_json& event) {
        decoder_->handOnText([this](const Command& command) { note(command); });
        tellCommands(line, event);
        masker_->endCall(whole_, line.result >= 0);
        whole_ = true;
        const std::string name = nameOfResult(line);
        if (!name.empty())
            event["name"] = name;
        result(line, event, line.function, name.empty() ? name : ' ' + name);
    }

    /// What a result is called: a status in words.
    [[nodiscard]] static std::string nameOfResult(const TraceLine& line) {
        const passbook_meaning* const meaning = passbook_explain(line.function.c_str(), line.result);
        const char* const name = meaning != nullptr                              ? meaning->name
                                 : line.function == "YARDO_PR2_GetPrinterStatus" ? passbook_status_text(line.result)
                                 : line.function == "YARDO_PR2_GetPaperStatus"   ? passbook_paper_text(line.result)
                                                                                 : nullptr;
        return name != nullptr ? name : "";
    }

    void result(const TraceLine& line, nlohmann::ordered_json& event, const std::string& what,
                const std::string& name = {}) {
        event["result"] = line.result;
        if (line.systemError != 0)
            event["error"] = line.systemError;
        tell(line, what + " = " + std::to_string(line.result) + name + why(line));
    }

    [[nodiscard]] static std::string why(const TraceLine& line) {
        return line.systemError > 0   ? std::string(": ") + std::strerror(line.systemError)
               : line.systemError < 0 ? ": code " + std::to_string(line.systemError) + " of libusb"
                                      : std::string();
    }

    void note(const Command& command) { commands_.push_back(command); }

    void tellCommands(const TraceLine& line, nlohmann::ordered_json& event) {
        for (const Command& command : commands_) {
            nlohmann::ordered_json object = {{"name", command.name}};
            std::string text = "  > " + std::string(command.name);
            for (const int number : command.numbers)
                text += ' ' + std::to_string(number);
            if (!command.numbers.empty())
                object["numbers"] = command.numbers;
            if (isData(command.id)) {
                object["text"] = utf8Of(command.bytes);
                text += " \"" + object["text"].get<std::string>() + '"';
            } else if (command.id == CommandId::bitmapRun || command.id == CommandId::malformedBitmap) {
                object["columns"] = command.bytes.size() / wire::columnBytes;
                text += ' ' + std::to_string(command.bytes.size() / wire::columnBytes) + " columns";
            } else if (!command.bytes.empty()) {
                object["bytes"] = hexOf(command.bytes, "");
                text += ' ' + shown(command.bytes);
            }
            if (!command.note.empty()) {
                object["note"] = command.note;
                text += ": " + std::string(command.note);
            }
            event["commands"].push_back(std::move(object));
            tell(line, text);
        }
        commands_.clear();
    }

    void tell(const TraceLine& line, const std::string& text) {
        last_ = line.microseconds;
        ++lines_;
        std::array<char, 32> when{};
        (void)std::snprintf(when.data(), when.size(), "%12.6f  ",
                            static_cast<double>(line.microseconds - first_.value_or(line.microseconds)) / 1e6);
        if (!tool_.setting.json)
            tool_.report.say(when.data() + text);
    }

    Tool& tool_;
    bool unmasked_;
    std::unique_ptr<wire::Decoder> decoder_;
    std::unique_ptr<wire::Masker> masker_;
    std::vector<Command> commands_;  // decoded, and not yet told
    nlohmann::ordered_json events_ = nlohmann::ordered_json::array();
    std::optional<std::int64_t> first_;
    std::int64_t last_ = 0;
    std::size_t lines_ = 0;
    bool whole_ = true;  // the line took all that this call wrote
};

void decode(Tool& tool, const Given& given) {
    wire::TraceReader reader(given.file);
    Decoding decoding(tool, given.unmasked);
    wire::TraceLine line;
    while (reader.next(line) && !stopAsked()) {
        if (decoding.isFull()) {
            tool.report.warn(given.file + ": line " + std::to_string(line.number) + ": the rest is too much to show");
            break;
        }
        decoding.add(line);
    }
    decoding.finish();
    if (!reader.problem().empty())
        (void)tool.report.fail(Exit::badInput, reader.problem());
}

}  // namespace

void addDecode(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("decode", "Shows a trace: calls, commands by name, answers, results.");
    app->footer("Example:\n  passbook decode today.trace");
    const auto given = std::make_shared<Given>();
    app->add_option("FILE", given->file, "a file of --trace")->required();
    app->add_flag("--unmasked", given->unmasked, "show texts and stripe data, if the trace has them");
    app->callback([&tool, given] { tool.job = [given](Tool& with) { decode(with, *given); }; });
}

}  // namespace passbook::tool
