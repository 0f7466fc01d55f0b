// A day at the counter: jobs of both families one after another, on any port, with the results that each may have.
#pragma once

#include <glib.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "api/passbook.h"
#include "image/convert.h"
#include "sim/event_json.h"
#include "sim/printer.h"
#include "tests/support.h"

namespace passbook::tests {

struct Step {
    const char* name;
    Call call;
    int good = 0;                            // its result on a good line
    int seconds = 0, reads = 0, drains = 0;  // what it may wait for, besides its writes, as the header has it
    int result = 0;                          // what became of it
};

inline struct passbook_outcome outcomeNow() {
    struct passbook_outcome outcome {};
    outcome.size = sizeof outcome;
    EXPECT_EQ(passbook_outcome(&outcome), 0);
    return outcome;
}

/// What happened to a printer, as its log has it.
using Events = std::vector<nlohmann::json>;
inline Events shown(const std::vector<sim::Event>& events) {
    Events all;
    std::transform(events.begin(), events.end(), std::back_inserter(all), sim::toJson);
    return all;
}

/// Holds what passbook_outcome says of each step against what the printer saw. The first day, on which nothing fails, is
/// what the others are compared with.
class Truth {
 public:
    /// The step is over; `seen` is what has come of it, with text that has not ended.
    void hold(const Step& step, const Events& seen) {
        const struct passbook_outcome outcome = outcomeNow();
        SCOPED_TRACE(std::string(step.name) + ": ink " + std::to_string(outcome.ink) + ", in place " +
                     std::to_string(outcome.in_place) + ", " + outcome.message);
        EXPECT_EQ(outcome.result, step.result);
        Events ink;
        for (const nlohmann::json& each : seen) {
            const std::string kind = each.at("event");
            // What a run has that was broken off is printed when the next command comes.
            if (kind == "text" || kind == "bitmap" || (kind == "malformed" && each.value("columns", 0) > 0 && !before_))
                ink.push_back(placeOf(each));
        }
        before_ = outcome.ink == PASSBOOK_INK_POSSIBLE;
        EXPECT_TRUE(ink.empty() || outcome.ink != PASSBOOK_INK_NONE) << ink.front();
        const auto& [first, isNew] = good_.try_emplace(outcome.function + std::string(step.name), ink);
        const bool lostNothing = outcome.failed_transfers == 0 && outcome.missing_answers == 0;
        EXPECT_TRUE(!isNew || (lostNothing && outcome.message[0] == 0));
        EXPECT_TRUE(!isNew || (outcome.in_place == 1 && outcome.ink == (ink.empty() ? 0 : PASSBOOK_INK_SENT)));
        // A relative place counts from where the call before has ended, early if it failed; and the host's own bytes.
        const std::string function = outcome.function;
        const bool relative = function.starts_with("PT_") || function == "passbook_oki_print_text";
        if (!relative || function == "PT_Eject")
            shifted_ = false;
        if (std::exchange(shifted_, shifted_ || (relative && outcome.result < 0)) || function == "YARDO_PR2_Command")
            return;
        EXPECT_TRUE(outcome.ink != PASSBOOK_INK_SENT || outcome.in_place == 0 || ink == first->second) << ink;
        for (const nlohmann::json& each : ink)
            EXPECT_TRUE(outcome.in_place == 0 || standsIn(first->second, each)) << each;
    }

 private:
    /// What is printed, and where. How it looks is not what the outcome tells of.
    static nlohmann::json placeOf(nlohmann::json event) {
        for (const char* const key :
             {"bold", "chineseWidth", "extent", "height", "page", "pitch", "underline", "width"})
            event.erase(key);
        return event;
    }
    /// Whether ink that may be only a part stands where it stood on the good day.
    static bool standsIn(const Events& good, const nlohmann::json& part) {
        const auto begins = [&](const nlohmann::json& whole) {
            const bool text = part.contains("text") && whole.contains("text");
            return part.at("xDots") == whole.at("xDots") && part.at("yDots") == whole.at("yDots") &&
                   (!text || std::string(whole.at("text")).starts_with(std::string(part.at("text"))));
        };
        return std::any_of(good.begin(), good.end(), begins);
    }

    std::map<std::string, Events> good_;
    bool before_ = false, shifted_ = false;
};

/// Runs in a directory of its own, where the files to be printed lie and scans are put.
class Day : public ::testing::Test {
 protected:
    void SetUp() override {
        virtualClock = {};
        std::filesystem::current_path(directory_.file(""));
        Picture picture(40, 60);
        for (int y = 0; y < picture.height; ++y)
            picture.at(y % picture.width, y) = picture.at(0, y) = 0;
        writeFile("a.bmp", picture.bmp(24, true));
        writeFile("1.bmp", picture.bmp(1, true));
        EXPECT_EQ(convertBMPtoJPG("a.bmp", "a.jpg", 90), 0);
        writePng(picture, "a.png");
        const std::string png = readFile("a.png");
        gchar* const base64 = g_base64_encode(octets(png.data()), png.size());
        base64_ = untouched_ = base64;
        g_free(base64);
        writeFile("a.txt", "第一行\nA\n");
    }
    void TearDown() override {
        std::filesystem::current_path("/");
        EXPECT_EQ(protocol, nullptr);
    }

    std::vector<Step> steps(sim::Family family, const std::string& portName) {
        buffers_.resize(5 * (room + guard));
        const auto buffer = [this](std::size_t nth) { return buffers_.data() + nth * (room + guard); };
        auto* const identifier = reinterpret_cast<unsigned char*>(buffer(4));
        paper_.size = sizeof paper_;
        const auto bound = [portName](auto function, auto... arguments) {
            return [=] { return function(portName.c_str(), arguments...); };
        };
        const Step open{"open", bound(YARDO_PR2_OpenPort)}, close{"close", YARDO_PR2_ClosePort};
        if (family == sim::Family::oki)
            return {
                {"text", bound(PT_PrintTxtStream, 0, 1, 10, 10, "对账单\n100.00", -1)},
                {"text file", bound(PT_PrintTxtFile, 1, 1, 10, 10, "a.txt")},
                {"placed text", bound(passbook_oki_print_text, 1, 71, 60, "对账单\n100.00", -1)},
                {"picture", bound(PT_PrintImageFileRevolve, 0, 1, 20, 20, 0, "a.bmp", 1)},
                {"photo", bound(PT_PrintImageFile, 0, 1, 0, 0, 0, "a.jpg")},
                {"drawing", bound(PT_PrintImageStream, 0, 1, 20, 20, 0, octets(base64_.data()), int(base64_.size())), 0,
                 1},
                {"turned drawing",
                 bound(PT_PrintImageStreamRevolve, 0, 1, 20, 20, 0, octets(base64_.data()), int(base64_.size()), 3), 0,
                 2},
                {"paper", bound(passbook_oki_paper, &paper_), 0, 0, 3},
                open,
                {"scan", call(YARDO_ScantoFileOKI, "f.jpg", "b.bmp", 2, 0, 0, 0, false, 2, 200, 1), 0, 0, 8, 2},
                close,
                {"eject", bound(PT_Eject, 0)},
            };
        return {
            open,
            {"init", call(YARDO_PR2_InitPrinter, 2, 3), 0, 4, 1},
            {"error", YARDO_PR2_ClearError},
            {"all", YARDO_PR2_CLearAll},
            {"insert", YARDO_PR2_InsertPaper},
            {"paper", YARDO_PR2_GetPaperStatus, 4, 0, 3, 1},
            {"format", call(YARDO_PR2_SetFormat, 12, 1, 1, 1)},
            {"space", call(YARDO_PR2_SetLineSpace, 0, 4.2)},
            {"underline", call(YARDO_PR2_SetUnderLine, 1)},
            {"text", call(YARDO_PR2_PrintData, 0, 10, 10, "存款 100.00", -1)},
            {"line", YARDO_PR2_LR},
            {"placed text", call(passbook_print_text, 100, 200, "存款 100.00", -1)},
            {"command", call(YARDO_PR2_Command, octets("A\r\n"), 3)},
            {"picture", call(YARDO_PrintBmpOLI, "1.bmp", false, 20, 20), 0, 3, 20, 5},
            {"printer", YARDO_PR2_GetPrinterStatus, 1, 0, 4, 1},
            {"stripe write", call(YARDO_PR2_MSW, 0, "12=34", 5)},
            {"stripe", call(YARDO_PR2_MSR, 0, buffer(1), int{room}), 0, 15, 15},
            {"stripes", call(YARDO_PR2_MSRALL, buffer(2), int{room}, buffer(3), int{room}), 0, 30, 30},
            {"identifier", call(YARDO_PR2_GetFWID, identifier), 0, 0, 6},
            {"scan", call(YARDO_ScantoFileOLI, "f.bmp", "b.bmp", 2, 0, 0, false, 2, 200, 1), 0, 60, 60, 6},
            {"ejection", YARDO_PR2_EjectPaper},
            {"next", YARDO_PR2_InsertPaper},
            {"removal", call(YARDO_PR2_SPB, 4), 0, 4, 6, 2},
            close,
        };
    }

    /// The printer with a document to be scanned.
    static sim::Scenario scenario(sim::Family family) {
        sim::Scenario scenario{.family = family};
        const auto row = [](int, std::span<std::uint8_t> pixels) {
            std::fill(pixels.begin(), pixels.end(), std::uint8_t{0x30});
        };
        scenario.scan.sides = {sim::Document{40, 16, row}, sim::Document{40, 16, row}};
        scenario.scan.block = 300;
        return scenario;
    }

    /// Does the day. True when every step went well.
    bool spend(std::vector<Step> steps, const std::function<void(const Step&)>& over = {}) {
        g_timeout = 10;
        bool good = true, scanFailed = false;
        testing::internal::CaptureStdout();  // scans tell their progress
        for (Step& step : steps) {
            if (protocol == nullptr && &step != &steps.front() && steps.front().name == std::string("open"))
                (void)steps.front().call();
            std::fill(buffers_.begin(), buffers_.end(), '#');
            for (const char* const file : scans)
                std::filesystem::remove(file);
            const std::int64_t began = virtualClock.microseconds;
            step.result = [&] {
                const Spared driver(false);
                return step.call();
            }();
            checkResult(step);
            checkBuffers(step);
            const std::int64_t longest =
                step.seconds + (step.reads + 2 * step.drains) * readSeconds_ + 5 + (endless_ ? 121 * step.drains : 0);
            EXPECT_LE(virtualClock.microseconds - began, longest * 1'000'000) << step.name;
            if (over)
                over(step);
            good = good && step.result == step.good;
            scanFailed = scanFailed || (step.name == std::string("scan") && step.result != 0);
        }
        (void)YARDO_PR2_ClosePort();  // when a step of the day had to open it
        endFailingCalls();
        const std::string told = testing::internal::GetCapturedStdout();
        std::fputs(HasFailure() ? told.c_str() : "", stdout);
        clean(scanFailed);
        return good;
    }

    /// Of a scan that failed or a host that was killed, private temporary files may be there; nothing else is left.
    static void clean(bool mayBeThere) {
        for (const auto& entry : std::filesystem::directory_iterator(".")) {
            const std::string name = entry.path().filename();
            if (!name.starts_with(".tmp_"))
                continue;
            EXPECT_TRUE(mayBeThere) << name;
            EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0600));
            std::filesystem::remove(entry);
        }
    }

    /// What the latest step gave to the host besides its result.
    [[nodiscard]] std::vector<std::string> outputs() const {
        std::vector<std::string> all = {buffers_};
        for (const char* const file : scans) {
            const std::string content = readFile(file);
            const bool isEmpty = std::filesystem::exists(file) && std::filesystem::file_size(file) == 0;
            all.push_back(content.empty() && !isEmpty ? "none" : content);
        }
        return all;
    }

    int readSeconds_ = 1;     // the longest read
    bool endless_ = false;    // what comes
    bool impatient_ = false;  // the host may end a call

 private:
    static constexpr std::size_t room = 64, guard = 64;  // of a buffer, and behind it
    static constexpr const char* scans[] = {"f.bmp", "f.jpg", "b.bmp"};

    void checkResult(const Step& step) const {
        const std::string function = outcomeNow().function;
        const bool status = step.good > 0 && step.result > 0 &&
                            (function == "YARDO_PR2_GetPaperStatus" ? passbook_paper_text
                                                                    : passbook_status_text)(step.result) != nullptr;
        const bool documented = passbook_explain(function.c_str(), step.result) != nullptr;
        EXPECT_TRUE(status || (documented && (impatient_ || step.result != PASSBOOK_CANCELLED)))
            << step.name << " gave " << step.result;
    }
    void checkBuffers(const Step& step) const {
        EXPECT_EQ(base64_, untouched_) << step.name;
        for (std::size_t i = 0; i < buffers_.size(); ++i) {
            const std::size_t slot = i / (room + guard);
            EXPECT_TRUE(buffers_[i] == '#' || i % (room + guard) < (slot == 4 ? 13 : room)) << step.name << ' ' << i;
        }
    }

    TemporaryDirectory directory_;
    std::string base64_, untouched_, buffers_;
    struct passbook_oki_paper paper_ {};
};

}  // namespace passbook::tests
