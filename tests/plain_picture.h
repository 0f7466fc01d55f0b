// What a correct print of a picture shows, worked out dot by dot.
#pragma once

#include "sim/family.h"
#include "sim/page.h"
#include "tests/support.h"

namespace passbook::tests {

/// The dots that a correct print of the picture shows: those below 200, but for rows that have ink only in their last
/// partial byte and lie in no strip, and, on OLI, the upper dot of a group that would be an escape character.
inline Picture expectedDots(Picture picture, sim::Family family) {
    Picture dots(picture.width, picture.height);
    const auto inked = [&](int x, int y) { return y < picture.height && picture.at(x, y) < 200; };
    int blank = 0;
    for (int y = 0; y < picture.height;) {
        bool ink = false;
        for (int x = 0; x < picture.width / 8 * 8; ++x)
            ink = ink || inked(x, y);
        if (!ink) {
            ++blank;
            ++y;
            continue;
        }
        y -= blank % 3;
        blank = 0;
        for (int i = 0; i < picture.width * 24; ++i) {
            const int x = i / 24, row = y + i % 24, group = row - i % 8;
            int byte = 0;
            for (int bit = 0; bit < 8; ++bit)
                byte |= inked(x, group + bit) ? 1 << bit : 0;
            const bool escape = family == sim::Family::oli && byte == 0x1B && row == group;
            if (inked(x, row) && !escape)
                dots.at(x, row) = 0;
        }
        y += 24;
    }
    return dots;
}

/// How many dots of the page are not what was expected there, and none around it.
inline int differences(const sim::Page& page, Picture dots, int xDots, int yDots) {
    constexpr int around = 30;
    int count = 0;
    for (int y = -around; y < dots.height + around; ++y) {
        for (int x = -around; x < dots.width + around; ++x) {
            const bool inside = y >= 0 && y < dots.height && x >= 0 && x < dots.width;
            if (page.dot(xDots + x, yDots + y) != (inside && dots.at(x, y) == 0))
                ++count;
        }
    }
    return count;
}

/// A clockwise quarter turn.
inline Picture turnedOnce(Picture picture) {
    Picture turned(picture.height, picture.width);
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x)
            turned.at(picture.height - 1 - y, x) = picture.at(x, y);
    return turned;
}

}  // namespace passbook::tests
