#include "daemons/common/atomic_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mcastd
{

AtomicFile::~AtomicFile()
{
    abandon();
}

bool AtomicFile::open(const std::string &path)
{
    abandon();
    path_ = path;
    temporary_ = path + ".XXXXXX";
    file_ = Descriptor(mkostemp(temporary_.data(), O_CLOEXEC));
    if (file_.valid() && fchmod(file_.get(), 0644) != 0) {
        abandon();
    }
    return file_.valid();
}

bool AtomicFile::append(const std::string &text)
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(file_.get(), text.data() + done, text.size() - done);
        if (written <= 0 && errno != EINTR) {
            abandon();
            return false;
        }
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
    return true;
}

bool AtomicFile::commit()
{
    if (rename(temporary_.c_str(), path_.c_str()) != 0) {
        abandon();
        return false;
    }
    file_ = Descriptor();
    return true;
}

void AtomicFile::abandon()
{
    if (file_.valid()) {
        const int cause = errno;
        unlink(temporary_.c_str());
        file_ = Descriptor();
        errno = cause;
    }
}

} // namespace mcastd
