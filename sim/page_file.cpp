#include "sim/page_file.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "sim/port.h"

namespace passbook::sim {

namespace {

// A new file beside the one meant, so that renaming it doesn't leave the file system.
Descriptor makeBeside(const std::string& path, std::string& name) {
    name = path + ".XXXXXX";
    return Descriptor(mkstemp(name.data()));
}

bool writeAll(int descriptor, const std::vector<std::uint8_t>& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        done += written < 0 ? 0 : static_cast<std::size_t>(written);
    }
    return true;
}

// mkstemp() makes files for our eyes only; a picture gets what any new file would.
bool openToOthers(int descriptor) {
    const mode_t mask = umask(0);
    umask(mask);
    return fchmod(descriptor, 0666 & ~mask) == 0;
}

}  // namespace

bool PageFile::canBeWritten(std::string& error) const {
    // The picture takes the place of what is there. That must not be a device, or a link to another file.
    struct stat there {};
    if (lstat(path_.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) {
        error = path_ + ": " + (S_ISDIR(there.st_mode) ? std::strerror(EISDIR) : "not a regular file");
        return false;
    }
    std::string name;
    const Descriptor file = makeBeside(path_, name);
    if (!file.valid()) {
        error = path_ + ": " + std::strerror(errno);
        return false;
    }
    unlink(name.c_str());
    return true;
}

bool PageFile::write(const Page& page, std::string& error) {
    if (page.blank() && holdsInk_) {
        return true;
    }
    const std::vector<std::uint8_t> picture = page.png();
    if (picture.empty()) {
        error = path_ + ": no memory for the picture";
        return false;
    }
    std::string name;
    const Descriptor file = makeBeside(path_, name);
    if (!file.valid() || !writeAll(file.get(), picture) || !openToOthers(file.get()) ||
        rename(name.c_str(), path_.c_str()) != 0) {
        error = path_ + ": " + std::strerror(errno);
        if (file.valid()) {
            unlink(name.c_str());
        }
        return false;
    }
    holdsInk_ = !page.blank();
    return true;
}

}  // namespace passbook::sim
