#include "replacement.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "failure.h"
#include "paths.h"

namespace {

/// A new file beside another, removed unless it takes its place.
class Neighbour {
public:
    explicit Neighbour(const std::string& file) : file_(file), name_(file + ".XXXXXX"), fd_(mkstemp(name_.data())) {}
    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;
    ~Neighbour()
    {
        if (fd_ >= 0)
            close(fd_);
        if (is_made_)
            unlink(name_.c_str());
    }

    bool IsMade() const { return is_made_; }
    bool Write(std::string_view content) const
    {
        while (!content.empty()) {
            const ssize_t written = write(fd_, content.data(), content.size());
            if (written < 0)
                return false;
            content.remove_prefix(static_cast<size_t>(written));
        }
        return true;
    }
    /// Takes over the mode of the old file, and its owner where that is allowed.
    bool TakeMode() const
    {
        struct stat status;
        if (stat(file_.c_str(), &status) != 0) {
            const mode_t mask = umask(0);
            umask(mask);
            return fchmod(fd_, 0666 & ~mask) == 0;
        }
        if (fchown(fd_, status.st_uid, status.st_gid) != 0 && errno != EPERM)
            return false;
        return fchmod(fd_, status.st_mode & 07777) == 0;
    }
    bool TakePlace()
    {
        if (fsync(fd_) != 0 || close(std::exchange(fd_, -1)) != 0 || rename(name_.c_str(), file_.c_str()) != 0)
            return false;
        is_made_ = false;
        return true;
    }

private:
    std::string file_;
    std::string name_;
    int fd_;
    bool is_made_ = fd_ >= 0;
};

} // namespace

void ReplaceFile(const std::string& file, std::string_view content)
{
    struct stat status;
    const std::string place = stat(file.c_str(), &status) == 0 ? Resolved(file) : file;
    Neighbour neighbour(place);
    if (!neighbour.IsMade() || !neighbour.Write(content) || !neighbour.TakeMode() || !neighbour.TakePlace())
        throw SystemFailure("cannot write " + file, errno);
}
