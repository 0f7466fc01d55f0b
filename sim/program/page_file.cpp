#include "sim/program/page_file.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "sim/program/descriptor.h"

namespace passbook::sim {

namespace {

/// A new file beside the one meant, so that renaming it doesn't leave the file system.
Descriptor makeBeside(const std::string& path, std::string& name) {
    name = path + ".XXXXXX";
    return Descriptor(mkstemp(name.data()));
}

/// mkstemp() makes files for our eyes only; a picture gets what any new file would.
bool openToOthers(int descriptor) {
    const mode_t mask = umask(0);
    umask(mask);
    return fchmod(descriptor, 0666 & ~mask) == 0;
}

}  // namespace

bool PageFile::canBeWritten() {
    if (path_.empty())
        return true;
    // The picture takes the place of what is there. That must not be a device, or a link to another file.
    struct stat there {};
    if (lstat(path_.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) {
        problem_ = path_ + ": " + (S_ISDIR(there.st_mode) ? std::strerror(EISDIR) : "not a regular file");
        return false;
    }
    std::string name;
    const Descriptor file = makeBeside(path_, name);
    if (!file.valid()) {
        problem_ = path_ + ": " + std::strerror(errno);
        return false;
    }
    unlink(name.c_str());
    return true;
}

void PageFile::take(std::shared_ptr<const Page> page) {
    if (!path_.empty() && !(page->blank() && ejected_))
        ejected_ = std::move(page);
}

void PageFile::writeEjected() {
    if (ejected_)
        write(*std::exchange(ejected_, nullptr));
}

void PageFile::write(const Page& page) {
    struct stat there {};
    if (!(page.blank() && lstat(path_.c_str(), &there) == 0 && there.st_size > 0))
        writeAnyhow(page);
}

void PageFile::writeAnyhow(const Page& page) {
    if (path_.empty() || !problem_.empty())
        return;
    const std::vector<std::uint8_t> picture = page.png();
    if (picture.empty()) {
        problem_ = path_ + ": no memory for the picture";
        return;
    }
    std::string name;
    const Descriptor file = makeBeside(path_, name);
    if (!file.valid() || !writeAll(file.get(), {reinterpret_cast<const char*>(picture.data()), picture.size()}) ||
        !openToOthers(file.get()) || rename(name.c_str(), path_.c_str()) != 0) {
        problem_ = path_ + ": " + std::strerror(errno);
        if (file.valid())
            unlink(name.c_str());
    }
}

}  // namespace passbook::sim
