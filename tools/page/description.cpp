#include "tools/page/description.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <map>

#include "api/passbook.h"
#include "tools/printer.h"

namespace passbook::tool {

namespace {

using nlohmann::json;

/// What a position command can say, in dots.
constexpr int maxXDots = 1499, maxYDots = 7499;
constexpr double maxXMm = 211, maxYMm = 1057;
constexpr int longestWaitSeconds = 3600;
constexpr double mostLineSpaceMm = 10.58;
constexpr std::size_t longestStripe = 256;

constexpr const char* ofOliOnly = "printers of the family oki cannot do this";

std::string shorten(const std::string& text) {
    constexpr glong most = 80;
    if (g_utf8_strlen(text.c_str(), -1) <= most)
        return text;
    return text.substr(0, static_cast<std::size_t>(g_utf8_offset_to_pointer(text.c_str(), most) - text.c_str())) + "…";
}

std::string atPlace(double xMm, double yMm) {
    std::array<char, 64> place{};
    (void)std::snprintf(place.data(), place.size(), " at %.1f, %.1f mm", xMm, yMm);
    return place.data();
}

/// Goes through a description once and gathers steps and problems.
class Reader {
 public:
    Reader(const LocatedJson& document, const std::string& fileName, double offsetXMm, double offsetYMm,
           std::vector<std::string>& problems)
        : document_(document), fileName_(fileName), offsetXMm_(offsetXMm), offsetYMm_(offsetYMm), problems_(problems) {}

    void readAll(std::optional<Family> family, Description& description) {
        Fields top(document_, "", fileName_, "the description", problems_);
        readFamily(top, family);
        description.family = family_;
        if (isOli())
            format_.pitch = 15;
        else
            format_.pitch = 10;
        if (top.has("paper"))
            readPaper(top.object("paper"));
        readBeginning(top);
        readSteps(top);
        readEject(top);
        top.refuseOthers();
        if (!isOli())
            sortDownwards();
        description.steps = std::move(steps_);
    }

 private:
    struct Placed {
        Box box;
        std::string path;
    };

    [[nodiscard]] bool isOli() const { return family_ == Family::oli; }

    void readFamily(Fields& top, std::optional<Family> asked) {
        const bool told = top.has("family");
        const int family = top.choice("family", {{"oli", 0}, {"oki", 1}}, asked == Family::oki ? 1 : 0);
        family_ = family == 1 ? Family::oki : Family::oli;
        if (const Family wanted = asked.value_or(family_); told && wanted != family_)
            top.complain("family", std::string("differs from --family ") + nameOf(wanted));
    }

    void readPaper(Fields paper) {
        widthDots_ = dotsFrom(paper.number("width", 10, maxXMm, maxXMm));
        heightDots_ = dotsFrom(paper.number("height", 10, maxYMm, maxYMm));
        if (paper.has("fold"))
            foldDots_ = dotsFrom(paper.needed("fold", 1, maxYMm));
        paper.refuseOthers();
    }

    void readBeginning(Fields& top) {
        for (const char* const key : {"initialise", "insert"})
            if (!isOli() && top.has(key))
                top.complain(key, std::string("is wrong: ") + ofOliOnly);
        step::Initialise initialise{PASSBOOK_RESET_ERROR, 10};
        if (top.find("initialise") != nullptr) {
            Fields fields = top.object("initialise");
            initialise.reset = fields.choice(
                "reset",
                {{"error", PASSBOOK_RESET_ERROR}, {"all", PASSBOOK_RESET_ALL}, {"form-feed", PASSBOOK_RESET_FORM_FEED}},
                initialise.reset);
            initialise.waitSeconds = fields.whole("wait", 0, longestWaitSeconds, initialise.waitSeconds);
            fields.refuseOthers();
        }
        step::Insert insert{60};
        if (top.find("insert") != nullptr) {
            Fields fields = top.object("insert");
            insert.waitSeconds = fields.whole("wait", 0, longestWaitSeconds, insert.waitSeconds);
            fields.refuseOthers();
        }
        if (isOli()) {
            steps_.push_back({initialise, "initialise the printer"});
            steps_.push_back({insert, "draw the document in"});
        }
    }

    void readEject(Fields& top) {
        step::Eject eject;
        const json* const value = top.find("eject");
        if (value != nullptr && value->is_boolean()) {
            if (!value->get<bool>())
                return;
        } else if (value != nullptr) {
            Fields fields = top.object("eject");
            eject.waitSeconds = fields.whole("wait", 0, longestWaitSeconds, 0);
            if (eject.waitSeconds > 0 && !isOli())
                fields.complain("wait", std::string("is wrong: ") + ofOliOnly);
            fields.refuseOthers();
        }
        steps_.push_back({eject, "eject the document"});
    }

    void readSteps(Fields& top) {
        const json* const list = top.find("steps");
        if (list == nullptr || !list->is_array() || list->empty()) {
            top.complain(list != nullptr ? "steps" : "",
                         list != nullptr ? "must be a list with at least one step" : "has no \"steps\"");
            return;
        }
        for (std::size_t i = 0; i < list->size(); ++i)
            readStep("/steps/" + std::to_string(i));
    }

    void readStep(const std::string& path) {
        struct Kind {
            const char* key;
            void (Reader::*read)(Fields&);
            bool oliOnly;
        };
        constexpr std::array kinds = {
            Kind{"text", &Reader::readText, false},          Kind{"lines", &Reader::readLines, false},
            Kind{"image", &Reader::readImage, false},        Kind{"format", &Reader::readFormat, true},
            Kind{"lineSpace", &Reader::readLineSpace, true}, Kind{"underline", &Reader::readUnderline, true},
            Kind{"stripe", &Reader::readStripe, true},
        };
        Fields fields(document_, path, fileName_, "the description", problems_);
        path_ = path;
        const auto kind =
            std::find_if(kinds.begin(), kinds.end(), [&](const Kind& each) { return fields.has(each.key); });
        if (kind == kinds.end()) {
            fields.complain("",
                            "is no step: a step has \"text\", \"lines\", \"image\", \"format\", \"lineSpace\", "
                            "\"underline\" or \"stripe\"");
            return;
        }
        if (kind->oliOnly && !isOli())
            fields.complain(kind->key, std::string("is wrong: ") + ofOliOnly);
        const std::size_t before = steps_.size();
        (this->*kind->read)(fields);
        fields.refuseOthers();
        for (std::size_t i = before; i < steps_.size(); ++i)
            steps_[i].where = fileName_ + ":" + std::to_string(document_.lineOf(path)) + ": " + path;
    }

    void addLine(Fields& fields, const std::string& utf8, double xMm, double yMm, bool mayOverlap) {
        const auto missing = missingCharacters(utf8);
        if (!missing)
            fields.complain("", "is not UTF-8");
        else if (!missing->empty())
            fields.complain("", "has a character that the printer has not: " + named(missing->front()));
        else if (utf8.empty())
            fields.complain("", "has no text");
        else
            place(fields, boxOf(utf8, format_, dotsFrom(xMm + offsetXMm_), dotsFrom(yMm + offsetYMm_)), mayOverlap);
        steps_.push_back({step::Text{xMm, yMm, utf8}, "text \"" + shorten(utf8) + "\"" + atPlace(xMm, yMm)});
    }

    static std::string named(const std::string& character) {
        std::array<char, 32> code{};
        (void)std::snprintf(code.data(), code.size(), "U+%04X", g_utf8_get_char(character.c_str()));
        return g_unichar_isgraph(g_utf8_get_char(character.c_str())) != FALSE ? code.data() + (" " + character)
                                                                              : code.data();
    }

    void readText(Fields& fields) {
        const std::string utf8 = fields.text("text");
        const double xMm = fields.needed("x", 0, maxXMm), yMm = fields.needed("y", 0, maxYMm);
        addLine(fields, utf8, xMm, yMm, fields.flag("mayOverlap"));
    }

    void readLines(Fields& fields) {
        const double xMm = fields.needed("x", 0, maxXMm), yMm = fields.needed("y", 0, maxYMm);
        const double spacingMm = fields.needed("spacing", 0.5, 100);
        const bool mayOverlap = fields.flag("mayOverlap");
        const json* const list = fields.find("lines");
        const bool texts = list->is_array() &&
                           std::all_of(list->begin(), list->end(), [](const json& each) { return each.is_string(); });
        if (!texts) {
            fields.complain("lines", "must be a list of texts");
            return;
        }
        for (std::size_t i = 0; i < list->size(); ++i)
            if (const std::string line = list->at(i).get<std::string>(); !line.empty())
                addLine(fields, line, xMm, yMm + static_cast<double>(i) * spacingMm, mayOverlap);
    }

    void readImage(Fields& fields) {
        const std::string path = fields.text("image");
        const double xMm = fields.needed("x", 0, maxXMm), yMm = fields.needed("y", 0, maxYMm);
        PictureWish wish;
        wish.widthMm = fields.has("width") ? fields.needed("width", 0.2, maxXMm) : 0;
        wish.turnDegrees = fields.whole("turn", 0, 270, 0);
        if (wish.turnDegrees % 90 != 0)
            fields.complain("turn", "must be 0, 90, 180 or 270");
        wish.dither = fields.flag("dither");
        wish.threshold = fields.whole("threshold", 1, 255, wish.threshold);
        for (const char* const key : {"fitWidth", "fitHeight", "width", "turn", "threshold"})
            (void)fields.find(key);
        if (fields.has("fitWidth") || fields.has("fitHeight")) {
            wish.fitWidthMm = fields.needed("fitWidth", 0.2, maxXMm);
            wish.fitHeightMm = fields.needed("fitHeight", 0.2, maxYMm);
        }
        const bool mayOverlap = fields.flag("mayOverlap");
        const std::filesystem::path whole = std::filesystem::path(fileName_).parent_path() / path;
        std::string problem;
        const std::optional<Picture> picture = Picture::load(whole.string(), wish, problem);
        if (!picture) {
            fields.complain("image", "cannot be printed: " + problem);
            return;
        }
        const int left = dotsFrom(xMm + offsetXMm_), top = dotsFrom(yMm + offsetYMm_);
        place(fields, {left, top, left + picture->width, top + picture->height}, mayOverlap);
        steps_.push_back({step::Image{xMm, yMm, whole.string(), *picture}, "image " + path + atPlace(xMm, yMm)});
    }

    void readFormat(Fields& fields) {
        Fields format = fields.object("format");
        TextFormat wanted;
        wanted.pitch = format.whole("pitch", 10, 17, wanted.pitch);
        constexpr std::array pitches = {10, 12, 15, 16, 17};
        if (std::find(pitches.begin(), pitches.end(), wanted.pitch) == pitches.end())
            format.complain("pitch", "must be 10, 12, 15, 16 or 17");
        wanted.bold = format.flag("bold");
        wanted.width = format.whole("width", 0, 2, 0);
        wanted.height = format.whole("height", 0, 2, 0);
        format.refuseOthers();
        format_ = wanted;
        steps_.push_back({step::Format{wanted}, "set the format"});
    }

    void readLineSpace(Fields& fields) {
        steps_.push_back({step::LineSpace{fields.needed("lineSpace", 0, mostLineSpaceMm)}, "set the line space"});
    }

    void readUnderline(Fields& fields) {
        const int mode = fields.choice("underline",
                                       {{"plain", PASSBOOK_UNDERLINE_PLAIN},
                                        {"second", PASSBOOK_UNDERLINE_SECOND},
                                        {"third", PASSBOOK_UNDERLINE_THIRD},
                                        {"off", PASSBOOK_UNDERLINE_OFF}},
                                       PASSBOOK_UNDERLINE_OFF);
        steps_.push_back({step::Underline{mode}, "set the underline"});
    }

    void readStripe(Fields& fields) {
        const std::string data = fields.text("stripe");
        const bool printable = std::all_of(data.begin(), data.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
        if (data.empty() || data.size() > longestStripe || !printable)
            fields.complain("stripe", "must be 1 to 256 characters of ASCII");
        steps_.push_back({step::Stripe{fields.whole("track", 0, 1, 0), data}, "write the stripe"});
    }

    /// Ink at a box: on the paper, not across the fold, and not on other ink.
    void place(Fields& fields, const Box& box, bool mayOverlap) {
        if (box.left < 0 || box.top < 0)
            fields.complain("", "begins outside the paper");
        else if (box.right > std::min(widthDots_, maxXDots + 1))
            fields.complain("", "ends " + tenths(box.right - widthDots_) + " beyond the right edge of the paper");
        else if (box.bottom > std::min(heightDots_, maxYDots + 1))
            fields.complain("", "ends " + tenths(box.bottom - heightDots_) + " below the paper");
        else if (foldDots_ > 0 && box.top < foldDots_ && foldDots_ < box.bottom)
            fields.complain("", "stands across the fold");
        const auto other =
            std::find_if(placed_.begin(), placed_.end(), [&](const Placed& each) { return each.box.meets(box); });
        if (!mayOverlap && other != placed_.end())
            fields.complain("", "overlaps " + other->path + " (line " + std::to_string(document_.lineOf(other->path)) +
                                    "); \"mayOverlap\": true allows that");
        placed_.push_back({box, path_});
    }

    static std::string tenths(int dots) {
        std::array<char, 32> text{};
        (void)std::snprintf(text.data(), text.size(), "%.1f mm", millimetresFrom(std::max(dots, 1)));
        return text.data();
    }

    /// Paper in OKI printers only moves down.
    void sortDownwards() {
        const auto yOf = [](const Step& each) {
            if (const auto* const text = each.as<step::Text>())
                return text->yMm;
            const auto* const image = each.as<step::Image>();
            return image != nullptr ? image->yMm : maxYMm + 1;
        };
        std::stable_sort(steps_.begin(), steps_.end(),
                         [&](const Step& left, const Step& right) { return yOf(left) < yOf(right); });
        int paper = 0;
        for (const Step& each : steps_) {
            if (!each.leavesInk())
                continue;
            const int top = dotsFrom(yOf(each) + offsetYMm_);
            if (top < paper)
                problems_.push_back(each.where + " lies beside a picture that begins above it: paper in OKI printers " +
                                    "only moves down");
            const auto* const image = each.as<step::Image>();
            constexpr int stripRows = 24;
            paper = image == nullptr ? top : top + std::max(0, image->picture.height - 1) / stripRows * stripRows;
        }
    }

    const LocatedJson& document_;
    const std::string& fileName_;
    double offsetXMm_, offsetYMm_;
    std::vector<std::string>& problems_;
    Family family_ = Family::oli;
    int widthDots_ = maxXDots + 1, heightDots_ = maxYDots + 1, foldDots_ = 0;
    TextFormat format_;
    std::string path_;  // of the step that is read
    std::vector<Placed> placed_;
    std::vector<Step> steps_;
};

/// Of all that decides what is sent: the text, the family, the offset, and the dots of the pictures.
std::string digestOf(std::string_view text, const Description& description, double offsetXMm, double offsetYMm) {
    GChecksum* const sum = g_checksum_new(G_CHECKSUM_SHA256);
    const auto add = [sum](const void* data, std::size_t bytes) {
        g_checksum_update(sum, static_cast<const guchar*>(data), static_cast<gssize>(bytes));
    };
    add(text.data(), text.size());
    const std::string around = std::string("\n") + nameOf(description.family) + " " +
                               std::to_string(dotsFrom(offsetXMm)) + " " + std::to_string(dotsFrom(offsetYMm)) + "\n";
    add(around.data(), around.size());
    for (const Step& each : description.steps)
        if (const auto* const image = each.as<step::Image>()) {
            const std::string size = std::to_string(image->picture.width) + "\n";
            add(size.data(), size.size());
            add(image->picture.ink.data(), image->picture.ink.size());
        }
    std::string digest = g_checksum_get_string(sum);
    g_checksum_free(sum);
    return digest;
}

}  // namespace

std::optional<Description> Description::read(std::string_view text, const std::string& fileName,
                                             std::optional<Family> family, double offsetXMm, double offsetYMm,
                                             std::vector<std::string>& problems) {
    LocatedJson document;
    if (const std::string problem = document.read(text); !problem.empty()) {
        problems.push_back(fileName + ": " + problem);
        return {};
    }
    Description description;
    Reader(document, fileName, offsetXMm, offsetYMm, problems).readAll(family, description);
    if (!problems.empty())
        return {};
    description.digest = digestOf(text, description, offsetXMm, offsetYMm);
    return description;
}

}  // namespace passbook::tool
