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
    int good;               // its result on a good line
    std::set<int> failing;  // the header's other results
    int result = 0;         // what became of it
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
        // A relative place counts from where the call before has ended, early if it failed.
        const std::string function = outcome.function;
        const bool relative = function.starts_with("PT_") || function == "passbook_oki_print_text";
        if (!relative || function == "PT_Eject")
            shifted_ = false;
        if (std::exchange(shifted_, shifted_ || (relative && outcome.result < 0)))
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
        return std::any_of(
            good.begin(), good.end(),
            [&](const nlohmann::json& whole) {
                const bool text = part.contains("text") && whole.contains("text");
                return part.at("xDots") == whole.at("xDots") && part.at("yDots") == whole.at("yDots") &&
                       (!text || std::string(whole.at("text")).starts_with(std::string(part.at("text"))));
            });
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
        EXPECT_EQ(convertBMPtoJPG("a.bmp", "a.jpg", 90), 0);
        writePng(picture, "a.png");
        const std::string png = readFile("a.png");
        gchar* const base64 = g_base64_encode(octets(png.data()), png.size());
        base64_ = base64;
        g_free(base64);
        writeFile("a.txt", "第一行\nA\n");
    }
    void TearDown() override {
        std::filesystem::current_path("/");
        EXPECT_EQ(protocol, nullptr);
    }

    std::vector<Step> steps(sim::Family family, const std::string& portName) {
        static char stripe0[64], stripe1[64];
        static unsigned char identifier[13];
        const auto bound = [portName](auto function, auto... arguments) {
            return [=] { return function(portName.c_str(), arguments...); };
        };
        if (family == sim::Family::oki)
            return {
                {"text", bound(PT_PrintTxtStream, 0, 1, 10, 10, "对账单\n100.00", -1), 0, {-3}},
                {"text file", bound(PT_PrintTxtFile, 1, 1, 10, 10, "a.txt"), 0, {-3}},
                {"placed text", bound(passbook_oki_print_text, 1, 71, 60, "对账单\n100.00", -1), 0, {-3}},
                {"picture", bound(PT_PrintImageFileRevolve, 0, 1, 20, 20, 0, "a.bmp", 1), 0, {-3}},
                {"photo", bound(PT_PrintImageFile, 0, 1, 0, 0, 0, "a.jpg"), 0, {-3}},
                {"drawing",
                 bound(PT_PrintImageStreamRevolve, 0, 1, 20, 20, 0, octets(base64_.data()), int(base64_.size()), 3),
                 0,
                 {-3}},
                {"scan",
                 call(YARDO_ScantoFileOKI, "f.bmp", "b.jpg", 2, 0, 0, 0, false, 2, 200, 1),
                 0,
                 {-3, -20, -21, -4, -40, -31}},
                {"eject", bound(PT_Eject, 0), 0, {-3}},
            };
        return {
            {"init", call(YARDO_PR2_InitPrinter, 2, 3), 0, {-30}},
            {"insert", YARDO_PR2_InsertPaper, 0, {-3}},
            {"paper", YARDO_PR2_GetPaperStatus, 4, {1, 2, 3, -3, -20}},
            {"format", call(YARDO_PR2_SetFormat, 12, 1, 1, 1), 0, {-3}},
            {"space", call(YARDO_PR2_SetLineSpace, 0, 4.2), 0, {-3}},
            {"text", call(YARDO_PR2_PrintData, 0, 10, 10, "存款 100.00", -1), 0, {-3}},
            {"line", YARDO_PR2_LR, 0, {-3}},
            {"placed text", call(passbook_print_text, 100, 200, "存款 100.00", -1), 0, {-3}},
            {"picture", call(YARDO_PrintBmpOLI, "a.bmp", false, 20, 20), 0, {-3}},
            {"printer", YARDO_PR2_GetPrinterStatus, 1, {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, -3, -22}},
            {"stripe write", call(YARDO_PR2_MSW, 0, "12=34", 5), 0, {-3}},
            {"stripes", call(YARDO_PR2_MSRALL, stripe0, 64, stripe1, 64), 0, {-3, -4}},
            {"identifier", call(YARDO_PR2_GetFWID, identifier), 0, {-4}},
            {"scan", call(YARDO_ScantoFileOLI, "f.bmp", "b.bmp", 2, 0, 0, false, 2, 200, 1), 0, {2, -40, -31}},
            {"removal", call(YARDO_PR2_SPB, 4), 0, {-3, -20}},
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

    /// Does the day. `open` opens the port in front of the first step and of any that finds it closed. True when every
    /// step went well. Without memory, a step may also end with any code that the header has for that.
    static bool spend(std::vector<Step> steps, const std::function<void()>& open,
                      const std::function<void(const Step&)>& over = {}) {
        virtualClock = {};
        open();
        bool good = YARDO_PR2_OpenPort("what is open") == 0;
        testing::internal::CaptureStdout();  // scans tell their progress
        for (Step& step : steps) {
            if (protocol == nullptr)
                open();
            const bool memoryIsShort = AnyAllocation::untilFailure > 0;
            const int result = step.result = [&] {
                const Spared spared(!memoryIsShort);
                return step.call();
            }();
            if (over)
                over(step);
            good = good && result == step.good;
            static const std::set<int> withoutMemory = {-1, -3, -6, -11, -12, -13, -31, -60};
            EXPECT_TRUE(result == step.good || step.failing.contains(result) || result == PASSBOOK_CANCELLED ||
                        (memoryIsShort && withoutMemory.contains(result)))
                << step.name << " gave " << result;
        }
        const std::string told = testing::internal::GetCapturedStdout();
        std::fputs(HasFailure() ? told.c_str() : "", stdout);
        EXPECT_LT(virtualClock.microseconds - VirtualClock{}.microseconds, 250'000'000);
        EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
        // Of a scan that failed, a private temporary file may be there; nothing else is left.
        for (const auto& entry : std::filesystem::directory_iterator(".")) {
            if (entry.path().filename().string().starts_with(".tmp_")) {
                EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0600));
                std::filesystem::remove(entry);
            }
        }
        return good;
    }

 private:
    TemporaryDirectory directory_;
    std::string base64_;
};

}  // namespace passbook::tests
