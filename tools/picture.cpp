#include "tools/picture.h"

namespace passbook::tool {

std::optional<Picture> Picture::load(const std::string& /*path*/, const PictureWish& /*wish*/,
                                     std::string& /*problem*/) {
    return {};
}

std::string Picture::save(const std::string& /*path*/, int /*left*/, int /*top*/) const {
    return "not yet";
}

}  // namespace passbook::tool
