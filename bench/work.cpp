// What bench/jobs.py measures beside a host: work pages DIRECTORY | jpg FROM.bmp TO | bmp FROM.jpg TO | png FROM.png TO

#include <algorithm>
#include <iterator>
#include <string>

#include "bench/pages.h"
#include "image/convert.h"

int main(int argc, char** argv) {
    using namespace passbook;
    const std::string verb = argc > 1 ? argv[1] : "";
    if (verb == "pages" && argc == 3)
        return std::all_of(std::begin(bench::sizes), std::end(bench::sizes),
                           [&](const bench::Size& size) { return bench::writePages(size, argv[2]); })
                   ? 0
                   : 1;
    if (argc != 4)
        return 2;
    return verb == "jpg"   ? convertBMPtoJPG(argv[2], argv[3], 20)
           : verb == "bmp" ? convertJPGtoBMP(argv[2], argv[3])
                           : convertPNGtoBMP(argv[2], argv[3]);
}
