// image: prints a picture.

#include <CLI/CLI.hpp>
#include <memory>

#include "tools/printer.h"
#include "tools/values.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

struct Given {
    std::string path, fit;
    double xMm = 0, yMm = 0;
    PictureWish wish{};
};

void image(Tool& tool, const Given& given) {
    PictureWish wish = given.wish;
    if (!given.fit.empty()) {
        const auto size = sizeFrom(given.fit);
        if (!size) {
            (void)tool.report.fail(Exit::badInput, "--fit: \"" + given.fit + "\" is not WxH in millimetres, as 105x74");
            return;
        }
        wish.fitWidthMm = size->first;
        wish.fitHeightMm = size->second;
    }
    std::string problem;
    const std::optional<Picture> picture = Picture::load(given.path, wish, problem);
    if (picture)
        problem = picture->problemAt(tool.setting.family, dotsFrom(given.xMm + tool.setting.offsetXMm),
                                     dotsFrom(given.yMm + tool.setting.offsetYMm));
    if (!problem.empty()) {
        (void)tool.report.fail(Exit::badInput, problem);
        return;
    }
    tool.report.brought["width"] = picture->width;
    tool.report.brought["height"] = picture->height;
    if (picture->blank())
        tool.report.warn("no dot of the picture is ink: it is lighter than the threshold everywhere");
    Printer printer(tool);
    if (printer.open() && printer.canPrint() && printer.image(given.xMm, given.yMm, *picture) && printer.hasPrinted())
        tool.report.say("the picture was handed over");
}

}  // namespace

void addImage(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("image", "Prints a picture at a place on the document.");
    app->footer(
        "A pixel is a dot of 1/180 inch, unless --width or --fit say otherwise. Transparent is white.\n"
        "Example:\n  passbook --port ttyS0 image --x 20 --y 35 --fit 60x40 --dither photo.jpg");
    const auto given = std::make_shared<Given>();
    app->add_option("FILE", given->path, "PNG, JPEG, BMP, GIF, TIFF, or what else gdk-pixbuf reads")->required();
    app->add_option("--x", given->xMm, "millimetres from the left edge, decimals too; else 0")
        ->check(millimetres(0.0, 211.0));
    app->add_option("--y", given->yMm, "millimetres from the top; OKI: from where the paper is; else 0")
        ->check(millimetres(0.0, 1057.0));
    app->add_option("--width", given->wish.widthMm, "make it so many millimetres wide")->check(millimetres(0.1, 211.0));
    app->add_option("--fit", given->fit, "make it smaller, if need be, to fit into these millimetres")
        ->type_name("WxH");
    app->add_option("--turn", given->wish.turnDegrees, "turn it clockwise, after what EXIF says")
        ->check(CLI::IsMember({0, 90, 180, 270}));
    CLI::Option* const dither = app->add_flag("--dither", given->wish.dither, "greys as patterns of dots, for photos");
    app->add_option("--threshold", given->wish.threshold, "a grey value below it is ink, 1 to 255; else 200")
        ->check(CLI::Range(1, 255))
        ->excludes(dither);
    app->callback([&tool, given] { tool.job = [given](Tool& with) { image(with, *given); }; });
}

}  // namespace passbook::tool
