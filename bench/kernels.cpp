// The kernels on the way of a picture, against memcpy of the pixels that they work on.
//
// "from memory": every round works on another copy, and there are more of them than any cache holds, for in a job pixels are
// used once. "from cache": the same copy again and again, as far as it fits.

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/pages.h"
#include "image/bmp.h"
#include "image/convert.h"
#include "image/file.h"
#include "image/turn.h"
#include "print/raster.h"
#include "print/threshold.h"

namespace passbook::bench {

namespace {

using Bytes = std::vector<unsigned char>;

/// A page's pixels, once or as often as it takes to fill the caches with others, and room for as much.
struct Copies {
    explicit Copies(Bytes page, bool fromMemory) : pageBytes(page.size()) {
        constexpr std::size_t enough = std::size_t{160} * 1024 * 1024;
        count = fromMemory ? std::max<std::size_t>(1, enough / pageBytes) : 1;
        all.reserve(count * pageBytes + Turn::bytesBehind);
        for (std::size_t i = 0; i < count; ++i)
            all.insert(all.end(), page.begin(), page.end());
        room.resize(all.size());
        all.resize(all.size() + Turn::bytesBehind);
    }
    unsigned char* next() { return all.data() + (at = (at + 1) % count) * pageBytes; }
    unsigned char* nextRoom() { return room.data() + at * pageBytes; }

    std::size_t pageBytes, count = 1, at = 0;
    Bytes all, room;
};

void copyPixels(benchmark::State& state, Copies& copies) {
    for (auto _ : state) {
        const unsigned char* const page = copies.next();
        std::memcpy(copies.nextRoom(), page, copies.pageBytes);
        benchmark::ClobberMemory();
    }
}

void threshold(benchmark::State& state, Copies& copies, const Size& size, int bits) {
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(size.width, bits));
    const std::size_t bitStride = oneBitStrideBytes(size.width);
    Bytes image(bitStride * static_cast<std::size_t>(size.height));
    for (auto _ : state) {
        const unsigned char* const page = copies.next();
        for (std::size_t y = 0; y < static_cast<std::size_t>(size.height); ++y)
            thresholdRow(page + y * stride, bits, image.data() + y * bitStride, size.width, inkThreshold);
        benchmark::ClobberMemory();
    }
}

using Pack = void (*)(int, int, const unsigned char*, unsigned char*);

void pack(benchmark::State& state, Copies& copies, const Size& size, Pack packStrip) {
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(size.width, 24));
    const std::size_t bitStride = oneBitStrideBytes(size.width);
    Bytes image(bitStride * static_cast<std::size_t>(size.height)), columns(static_cast<std::size_t>(size.width) * 3);
    for (std::size_t y = 0; y < static_cast<std::size_t>(size.height); ++y)
        thresholdRow(copies.all.data() + y * stride, 24, image.data() + y * bitStride, size.width, inkThreshold);
    for (auto _ : state) {
        for (int row = 0; row < size.height; row += stripRows)
            packStrip(size.width, size.height - row, image.data() + static_cast<std::size_t>(row) * bitStride,
                      columns.data());
        benchmark::ClobberMemory();
    }
}

void turn(benchmark::State& state, Copies& copies, const Size& size) {
    constexpr int bandRows = 64;
    Turn each;
    each.strideBytes = static_cast<std::ptrdiff_t>(bmpStrideBytes(size.width, 24));
    each.pixelBytes = 3;
    calcRorateRange(size.width, size.height, 90, each.matrix, &each.newWidth, &each.newHeight, &each.xOffset,
                    &each.yOffset);
    const auto rowBytes = static_cast<std::size_t>(bmpStrideBytes(each.newWidth, 24));
    Bytes band(bandRows * rowBytes);
    for (auto _ : state) {
        each.pixels = copies.next();
        for (int first = 0; first < each.newHeight; first += bandRows)
            each.rows(first, std::min(bandRows, each.newHeight - first), band.data(), rowBytes);
        benchmark::ClobberMemory();
    }
}

/// A page of 24 bits in base64.
struct Base64 {
    std::unique_ptr<gchar, decltype(&g_free)> text{nullptr, g_free};
    Bytes out;

    Base64() {
        const Bytes page = pixels(sizes[0], Kind::text, false);
        text.reset(g_base64_encode(page.data(), page.size()));
        out.resize(page.size() + 4);
    }
    void ours(benchmark::State& state) {
        int length = 0;
        for (auto _ : state)
            benchmark::DoNotOptimize(base64_decode(reinterpret_cast<unsigned char*>(text.get()),
                                                   static_cast<int>(std::strlen(text.get())), out.data(), &length));
    }
    void glibs(benchmark::State& state) {
        gsize length = 0;
        for (auto _ : state)
            g_free(g_base64_decode(text.get(), &length));
    }
};

/// Pixels are made when the first of a pair's two runs, and kept for the others of the same page.
void add(const std::string& name, const Size& size, Kind kind, bool grey, bool fromMemory,
         const std::function<void(benchmark::State&, Copies&)>& of) {
    static std::map<std::string, std::shared_ptr<Copies>> made;
    const std::string key = size.name + std::string(kind == Kind::text ? "text" : "photo") +
                            (grey ? "grey" : "colour") + (fromMemory ? "memory" : "cache");
    const auto copies = [=]() -> Copies& {
        auto& each = made[key];
        if (each == nullptr)
            each = std::make_shared<Copies>(pixels(size, kind, grey), fromMemory);
        return *each;
    };
    const std::string full = name + ", " + size.name + (fromMemory ? ", from memory" : ", from cache");
    const auto one = [&](const std::string& end, const std::function<void(benchmark::State&, Copies&)>& function) {
        benchmark::RegisterBenchmark((full + end).c_str(), [=](benchmark::State& state) { function(state, copies()); })
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.05);
    };
    one("/of", of);
    one("/against", copyPixels);
}

void registerKernelBenchmarks() {
    for (const Size& size : sizes) {
        for (const bool fromMemory : {true, false}) {
            if (!fromMemory && size.width > 4000)
                continue;  // no cache holds it
            const auto thresholdOf = [&](int bits) {
                return [&size, bits](benchmark::State& state, Copies& copies) { threshold(state, copies, size, bits); };
            };
            add("threshold 24 to 1, text", size, Kind::text, false, fromMemory, thresholdOf(24));
            add("threshold 24 to 1, photo", size, Kind::photo, false, fromMemory, thresholdOf(24));
            add("threshold 8 to 1, text", size, Kind::text, true, fromMemory, thresholdOf(8));
            for (const auto& [family, packStrip] :
                 {std::pair<const char*, Pack>{"OKI", AdjustDataOrder}, {"OLI", AdjustDataOrder_OLI}})
                add(
                    std::string("pack strips, ") + family, size, Kind::text, false, fromMemory,
                    [&size, packStrip = packStrip](benchmark::State& state, Copies& copies) {
                        pack(state, copies, size, packStrip);
                    });
            add("turn by 90", size, Kind::text, false, fromMemory,
                [&size](benchmark::State& state, Copies& copies) { turn(state, copies, size); });
        }
    }
    static Base64 base64;
    benchmark::RegisterBenchmark(
        "base64, against GLib's/of", [](benchmark::State& state) { base64.ours(state); })
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("base64, against GLib's/against", [](benchmark::State& state) {
        base64.glibs(state);
    })->Unit(benchmark::kMillisecond);
}

/// The medians, and the pairs' ratios behind them.
class RatioReporter : public benchmark::BenchmarkReporter {
 public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name != "median")
                continue;
            medians_[run.run_name.function_name] = run.GetAdjustedCPUTime();
            std::printf("median     %-56s %8.2f %s\n", run.run_name.function_name.c_str(), run.GetAdjustedCPUTime(),
                        benchmark::GetTimeUnitString(run.time_unit));
        }
    }
    void printRatios() const {
        for (const auto& [name, time] : medians_) {
            const auto cut = name.rfind("/of");
            if (cut == std::string::npos || cut + 3 != name.size())
                continue;
            const auto against = medians_.find(name.substr(0, cut) + "/against");
            if (against != medians_.end())
                std::printf("ratio      %-56s %8.2f\n", name.substr(0, cut).c_str(), time / against->second);
        }
    }

 private:
    std::map<std::string, double> medians_;
};

}  // namespace

}  // namespace passbook::bench

int main(int argc, char** argv) {
    // In turn rather than one behind the other, for the machine's speed drifts; five times, for the medians.
    std::vector<std::string> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1, {"--benchmark_repetitions=5", "--benchmark_enable_random_interleaving=true",
                                             "--benchmark_report_aggregates_only=true"});
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data()))
        return 2;
    passbook::bench::registerKernelBenchmarks();
    passbook::bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    return 0;
}
