// grid: a labelled grid of millimetres, for finding a printer's offset.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <memory>

#include "tools/printer.h"
#include "tools/values.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

struct Given {
    double widthMm = 150, heightMm = 200;
};

/// The printer's own rounding moves what stands by itself; one run of a strip stays together. So there is a mark in
/// every half of a square: the driver cuts a strip at gaps of more than 60 dots.
constexpr int lineMm = 10, halfMm = 5;
constexpr double labelMm = 0.8;  // to the right of a line, and below one

/// Marks along one axis: where each millimetre falls, in dots.
class Axis {
 public:
    explicit Axis(double lengthMm) : marks_(static_cast<std::size_t>(dotsFrom(lengthMm)), none) {
        for (int mm = 0; dotsFrom(mm) < dots(); ++mm)
            marks_[static_cast<std::size_t>(dotsFrom(mm))] = mm;
    }
    [[nodiscard]] int dots() const { return static_cast<int>(marks_.size()); }
    [[nodiscard]] bool isLine(int dot) const { return mm(dot) != none && mm(dot) % lineMm == 0; }
    [[nodiscard]] bool isMillimetre(int dot) const { return mm(dot) != none; }
    [[nodiscard]] bool isHalf(int dot) const { return mm(dot) != none && mm(dot) % lineMm == halfMm; }
    /// How far a dot is from the line that is nearest.
    [[nodiscard]] int fromLine(int dot) const {
        const double off = std::fmod(millimetresFrom(dot) + halfMm, lineMm) - halfMm;
        return dotsFrom(std::abs(off));
    }

 private:
    static constexpr int none = -1;
    [[nodiscard]] int mm(int dot) const { return marks_[static_cast<std::size_t>(dot)]; }
    std::vector<int> marks_;
};

/// Lines each 10 mm, on them ticks each millimetre and longer ones each 5 mm, and between them a point for each
/// millimetre, in the middle of the squares.
bool isInk(const Axis& across, const Axis& down, int x, int y) {
    constexpr int tick = 3, longTick = 7;
    const auto ticked = [](const Axis& along, int at, int off) {
        return along.isMillimetre(at) && off <= (along.isHalf(at) ? longTick : tick);
    };
    return across.isLine(x) || down.isLine(y) || ticked(across, x, down.fromLine(y)) ||
           ticked(down, y, across.fromLine(x)) || (across.isHalf(x) && down.isMillimetre(y)) ||
           (down.isHalf(y) && across.isMillimetre(x));
}

/// The rows from `top` to before `bottom`, from the column `left` on.
Picture band(const Axis& across, const Axis& down, int left, int top, int bottom) {
    Picture picture;
    picture.width = across.dots() - left;
    picture.height = bottom - top;
    for (int y = top; y < bottom; ++y)
        for (int x = left; x < across.dots(); ++x)
            picture.ink.push_back(isInk(across, down, x, y) ? 1 : 0);
    return picture;
}

void grid(Tool& tool, const Given& given) {
    const Axis across(given.widthMm), down(given.heightMm);
    // With a negative offset the first marks would lie outside the page; they are left out.
    const int left = std::max(0, -dotsFrom(tool.setting.offsetXMm));
    int top = std::max(0, -dotsFrom(tool.setting.offsetYMm));
    if (left >= across.dots() || top >= down.dots()) {
        (void)tool.report.fail(Exit::badInput, "the offset is larger than the paper");
        return;
    }
    if (const std::string problem = band(across, down, left, top, down.dots())
                                        .problemAt(tool.setting.family, left + dotsFrom(tool.setting.offsetXMm),
                                                   top + dotsFrom(tool.setting.offsetYMm));
        !problem.empty()) {
        (void)tool.report.fail(Exit::badInput, problem);
        return;
    }
    Printer printer(tool);
    if (!printer.open() || !printer.canPrint())
        return;
    const auto print = [&](int bottom) {
        const bool good = bottom <= top || printer.image(millimetresFrom(left), millimetresFrom(top),
                                                         band(across, down, left, top, bottom));
        top = std::max(top, bottom);
        return good;
    };
    // The labels stand in the first squares that are on the page.
    const auto first = [](int dots) { return static_cast<int>(std::ceil(millimetresFrom(dots) / lineMm)) * lineMm; };
    const int firstX = first(left), firstY = first(top);
    // Paper in OKI printers only moves down. So labels and the rows between them are printed in this order.
    for (int yMm = firstY; dotsFrom(yMm + lineMm) < down.dots(); yMm += lineMm) {
        const int row = dotsFrom(yMm + labelMm);
        if (!print(row))
            return;
        for (int xMm = firstX; dotsFrom(xMm + lineMm) < across.dots() && (xMm == firstX || yMm == firstY);
             xMm += lineMm)
            if (!printer.text(xMm + labelMm, millimetresFrom(row), std::to_string(xMm == firstX ? yMm : xMm)))
                return;
    }
    if (print(down.dots()) && printer.hasPrinted())
        tool.report.say("the grid was handed over: measure where its lines are, see --help");
}

}  // namespace

void addGrid(CLI::App& parent, Tool& tool) {
    CLI::App* const app =
        parent.add_subcommand("grid", "Prints a grid of millimetres, for finding a printer's offset.");
    app->footer(
        "Measure on the paper where the line 50 is, from the left edge and from the top. Where it is at 51.5,\n"
        "1.5 mm too far, the offset is -15. Set PASSBOOK_OFFSET=X,Y to both. On OLI printers the grid of a\n"
        "whole page takes a minute.\n"
        "Example:\n  passbook --port ttyS0 grid --width 105 --height 148");
    const auto given = std::make_shared<Given>();
    app->add_option("--width", given->widthMm, "millimetres of the paper; else 150")->check(millimetres(20.0, 211.0));
    app->add_option("--height", given->heightMm, "millimetres of the paper; else 200")
        ->check(millimetres(20.0, 1058.0));
    app->callback([&tool, given] { tool.job = [given](Tool& with) { grid(with, *given); }; });
}

}  // namespace passbook::tool
