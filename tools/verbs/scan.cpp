// scan: the document becomes image files.

#include <glib/gstdio.h>

#include <CLI/CLI.hpp>
#include <array>
#include <memory>

#include "api/passbook.h"
#include "tools/pixels.h"
#include "tools/printer.h"
#include "tools/values.h"
#include "tools/verbs.h"
#include "tools/whole_file.h"

namespace passbook::tool {

namespace {

enum class Form { png, jpeg, bmp };

struct Side {
    const char* name;    // "front"
    std::string path{};  // empty: not wanted
    Form form = Form::bmp;
    std::string temporary{};  // what the driver writes
};

struct Given {
    std::array<Side, 2> sides{Side{"front"}, Side{"back"}};
    int type = PASSBOOK_IMAGE_GREY_256;
    int dpi = 200;
    int parameter1 = 0, backParameter1 = -1, parameter2 = 0;
    bool option = false, direction = false;
};

constexpr std::size_t bmpHeaderBytes = 54;

/// A directory for what the driver writes, which only the user can look into. It goes with its owner.
class PrivateDirectory {
 public:
    PrivateDirectory() {
        GError* reason = nullptr;
        if (gchar* const made = g_dir_make_tmp("passbook-XXXXXX", &reason); made != nullptr) {
            path_ = made;
            g_free(made);
        } else {
            problem_ = reason != nullptr ? reason->message : "no temporary directory";
        }
        g_clear_error(&reason);
    }
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;
    ~PrivateDirectory() {
        if (path_.empty())
            return;
        if (GDir* const directory = g_dir_open(path_.c_str(), 0, nullptr); directory != nullptr) {
            while (const gchar* const name = g_dir_read_name(directory))
                (void)g_unlink((path_ + "/" + name).c_str());
            g_dir_close(directory);
        }
        (void)g_rmdir(path_.c_str());
    }
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const std::string& problem() const { return problem_; }

 private:
    std::string path_, problem_;
};

/// What the end of a name stands for.
std::optional<Form> formOf(const std::string& path) {
    const std::unique_ptr<char, decltype(&g_free)> lower(g_ascii_strdown(path.c_str(), -1), g_free);
    const std::string_view name = lower.get();
    for (const auto& [ending, form] : {std::pair<std::string_view, Form>{".png", Form::png},
                                       {".jpg", Form::jpeg},
                                       {".jpeg", Form::jpeg},
                                       {".bmp", Form::bmp}})
        if (name.ends_with(ending))
            return form;
    return {};
}

/// What is wrong with the names; nothing is asked of the printer before.
std::string problemWith(Given& given) {
    for (Side& side : given.sides) {
        if (side.path.empty())
            continue;
        const std::optional<Form> form = formOf(side.path);
        if (!form)
            return side.path + ": the name must end in .png, .jpg, .jpeg or .bmp";
        side.form = *form;
        if (std::string problem = problemWithTarget(side.path); !problem.empty())
            return problem;
    }
    const std::string& front = given.sides[0].path;
    const std::string& back = given.sides[1].path;
    if (front.empty() && back.empty())
        return "no file: give --front FILE, --back FILE, or both";
    const std::unique_ptr<char, decltype(&g_free)> first(g_canonicalize_filename(front.c_str(), nullptr), g_free);
    const std::unique_ptr<char, decltype(&g_free)> second(g_canonicalize_filename(back.c_str(), nullptr), g_free);
    return std::string_view(first.get()) == second.get() ? "both sides would be the same file: " + front : "";
}

std::uint32_t number(const std::string& file, std::size_t at, int bytes) {
    std::uint32_t value = 0;
    for (int i = bytes - 1; i >= 0; --i)
        value = value << 8 | static_cast<unsigned char>(file[at + static_cast<std::size_t>(i)]);
    return value;
}

void setNumber(std::string& file, std::size_t at, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i)
        file[at + i] = static_cast<char>(value >> 8 * i & 0xFF);
}

/// Gives a BMP of few bits a pixel the greys that its values stand for, where it has no colour table: a viewer would
/// show it black, or refuse it.
void addColours(std::string& file) {
    constexpr std::size_t sizeField = 2, offsetField = 10, bitsField = 28, coloursField = 46;
    if (file.size() < bmpHeaderBytes || number(file, offsetField, 4) != bmpHeaderBytes)
        return;
    const std::uint32_t bits = number(file, bitsField, 2);
    if (bits != 1 && bits != 4 && bits != 8)
        return;
    const std::uint32_t colours = 1U << bits;
    std::string table(colours * std::size_t{4}, '\0');
    for (std::uint32_t i = 0; i < colours; ++i)
        setNumber(table, i * std::size_t{4}, i * 255 / (colours - 1) * 0x010101U);
    file.insert(bmpHeaderBytes, table);
    setNumber(file, sizeField, static_cast<std::uint32_t>(file.size()));
    setNumber(file, offsetField, static_cast<std::uint32_t>(bmpHeaderBytes + table.size()));
    setNumber(file, coloursField, colours);
}

/// Makes the wanted file of what the driver has written. Returns what is wrong, or an empty text.
std::string convert(const Side& side, nlohmann::ordered_json& brought) {
    gchar* contents = nullptr;
    gsize length = 0;
    GError* reason = nullptr;
    const auto problem = [&](const char* otherwise) {
        std::string text = reason != nullptr ? reason->message : otherwise;
        g_clear_error(&reason);
        return text;
    };
    if (g_file_get_contents(side.temporary.c_str(), &contents, &length, &reason) == FALSE)
        return problem("it cannot be read");
    std::string file(contents, length);
    g_free(contents);
    addColours(file);
    // It is decoded in any case: what no viewer can show is no image.
    const Pixbuf image = decodeWhole({reinterpret_cast<const std::uint8_t*>(file.data()), file.size()}, "bmp", &reason);
    if (!image)
        return "the image cannot be understood: " + problem("rows are missing");
    if (side.form != Form::bmp) {
        gchar* encoded = nullptr;
        const gboolean good =
            side.form == Form::png
                ? gdk_pixbuf_save_to_buffer(image.get(), &encoded, &length, "png", &reason, nullptr)
                : gdk_pixbuf_save_to_buffer(image.get(), &encoded, &length, "jpeg", &reason, "quality", "90", nullptr);
        if (good == FALSE)
            return problem("the image cannot be converted");
        file.assign(encoded, length);
        g_free(encoded);
    }
    if (std::string text = writeWhole(side.path, file); !text.empty())
        return text;
    brought[side.name] = {{"file", side.path},
                          {"width", gdk_pixbuf_get_width(image.get())},
                          {"height", gdk_pixbuf_get_height(image.get())}};
    return {};
}

int callDriver(Family family, const Given& given) {
    const char* const front = given.sides[0].temporary.c_str();
    const char* const back = given.sides[1].temporary.c_str();
    const int sides = given.sides[1].path.empty()   ? PASSBOOK_SIDES_FRONT
                      : given.sides[0].path.empty() ? PASSBOOK_SIDES_BACK
                                                    : PASSBOOK_SIDES_BOTH;
    const int direction = given.direction ? 1 : 0;
    if (family == Family::oli)
        return YARDO_ScantoFileOLI(front, back, given.type, given.parameter1, given.parameter2, given.option, sides,
                                   given.dpi, direction);
    const int backParameter1 = given.backParameter1 < 0 ? given.parameter1 : given.backParameter1;
    return YARDO_ScantoFileOKI(front, back, given.type, given.parameter1, backParameter1, given.parameter2,
                               given.option, sides, given.dpi, direction);
}

void scan(Tool& tool, Given given) {
    if (const std::string problem = problemWith(given); !problem.empty()) {
        (void)tool.report.fail(Exit::badInput, problem);
        return;
    }
    const PrivateDirectory directory;
    constexpr std::size_t longestPath = 500;
    if (directory.path().empty() || directory.path().size() > longestPath ||
        directory.path().find(".jpg") != std::string::npos) {  // the driver would make JPEGs there
        (void)tool.report.fail(Exit::badInput, directory.path().empty()
                                                   ? directory.problem()
                                                   : "the temporary directory has a long name, or one with .jpg in "
                                                     "it: set TMPDIR to another one");
        return;
    }
    for (Side& side : given.sides)
        side.temporary = directory.path() + "/" + side.name;
    Printer printer(tool);
    if (!printer.open(true))
        return;

    const int result = callDriver(tool.setting.family, given);
    struct passbook_outcome outcome {};
    outcome.size = sizeof outcome;
    (void)passbook_outcome(&outcome);
    (void)tool.report.take(result);
    unsigned bit = 1;
    for (const Side& side : given.sides) {
        const bool there = (outcome.parts & bit) != 0 && g_access(side.temporary.c_str(), R_OK) == 0;
        bit *= 2;
        if (side.path.empty())
            continue;
        if (!there) {
            std::string missing = std::string("there is no whole image of the ") + side.name + " side";
            if (g_access(side.path.c_str(), F_OK) == 0)
                missing += "; " + side.path + " is an older file";
            if (result == 0)
                (void)tool.report.fail(Exit::failed, missing);
            else
                tool.report.warn(missing);
            continue;
        }
        if (const std::string problem = convert(side, tool.report.brought); !problem.empty()) {
            (void)tool.report.fail(Exit::failed, std::string("the ") + side.name + " side: " + problem);
            continue;
        }
        tool.report.say(std::string("the ") + side.name + " side is whole: " + side.path);
    }
    // The printer says so in two cases; an image has begun in one of them.
    if (result == PASSBOOK_SCAN_NOT_READY && outcome.total > 0)
        (void)tool.report.fail(Exit::failed, "the printer told another number of rows than it sent: look at the files");
    else if (result == PASSBOOK_SCAN_NOT_READY)
        (void)tool.report.fail(Exit::refused,
                               "the printer was not ready to scan and was told to eject: lay the document in again");
}

}  // namespace

void addScan(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("scan", "Scans the document into image files.");
    app->footer(
        "The end of a name says what the file is: .png, .jpg, .jpeg or .bmp. A file that is there whole stays\n"
        "when the other side fails; an old one is only replaced by a whole new one.\n"
        "Example:\n  passbook --port USB --family oki scan --type colour --front page.png --back back.png");
    const auto given = std::make_shared<Given>();
    app->add_option("--front", given->sides[0].path, "the file of the front side")->type_name("FILE");
    app->add_option("--back", given->sides[1].path, "the file of the back side")->type_name("FILE");
    app->add_option("--type", given->type, "black and white, 16 or 256 greys (the default), or colour")
        ->type_name("bw|grey16|grey256|colour")
        ->transform(oneOf({{"bw", PASSBOOK_IMAGE_BLACK_WHITE},
                           {"grey16", PASSBOOK_IMAGE_GREY_16},
                           {"grey256", PASSBOOK_IMAGE_GREY_256},
                           {"colour", PASSBOOK_IMAGE_COLOUR}}));
    app->add_option("--dpi", given->dpi,
                    "dots per inch, of which the printer has three: up to 240 (200 is the default), up to 400, above")
        ->check(CLI::Range(1, 1200));
    app->add_option("--param1", given->parameter1, "goes to the printer, 0 to 255; else 0")->check(CLI::Range(0, 255));
    app->add_option("--back-param1", given->backParameter1, "OKI: the same for the back side; else as --param1")
        ->check(CLI::Range(0, 255));
    app->add_option("--param2", given->parameter2, "goes to the printer, 0 to 255; else 0")->check(CLI::Range(0, 255));
    app->add_flag("--option-flag", given->option, "goes to the printer");
    app->add_flag("--direction", given->direction, "goes to the printer");
    app->callback([&tool, given] { tool.job = [given](Tool& with) { scan(with, *given); }; });
}

}  // namespace passbook::tool
