#include "tools/common/outfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

bool write_all(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        data.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

// Writes through path as it is: an existing file that is not a regular one
// (non-blocking open, so that a FIFO without a reader fails at once instead
// of hanging), or with O_CREAT the file a dangling link names.
bool write_in_place(const std::string& path, std::string_view data, std::string* error, int more = 0) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC | more, 0666);
    if (fd < 0) {
        *error = errno == ENXIO ? "no reader on the other end" : std::strerror(errno);
        return false;
    }
    const int flags = fcntl(fd, F_GETFL);
    bool ok = flags >= 0 && fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0 && write_all(fd, data);
    if (!ok) *error = std::strerror(errno);
    if (::close(fd) != 0 && ok) {
        ok = false;
        *error = std::strerror(errno);
    }
    return ok;
}

}  // namespace

bool write_output_file(const std::string& given, std::string_view data, std::string* error) {
    std::string path = given;
    struct stat st;
    if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        // The file the link names is replaced; the link stays.
        char target[PATH_MAX];
        if (!realpath(given.c_str(), target)) return write_in_place(given, data, error, O_CREAT | O_TRUNC);
        path = target;
    }
    const bool exists = stat(path.c_str(), &st) == 0;
    if (exists && !S_ISREG(st.st_mode)) {
        if (S_ISDIR(st.st_mode)) {
            *error = "is a directory";
            return false;
        }
        return write_in_place(path, data, error);
    }
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string temp = dir + "." + base + ".XXXXXX";
    const int fd = mkstemp(temp.data());
    if (fd < 0) {
        *error = std::strerror(errno);
        return false;
    }
    // The mode an existing file has, else what a new file would get.
    mode_t mode = st.st_mode & 07777;
    if (!exists) {
        const mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    bool ok = fchmod(fd, mode) == 0 && write_all(fd, data);
    if (!ok) *error = std::strerror(errno);
    if (::close(fd) != 0 && ok) {
        ok = false;
        *error = std::strerror(errno);
    }
    if (ok && std::rename(temp.c_str(), path.c_str()) != 0) {
        ok = false;
        *error = std::strerror(errno);
    }
    if (!ok) ::unlink(temp.c_str());  // the temporary file is ours
    return ok;
}

bool same_file(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

bool read_input_file(const std::string& path, std::string* data, std::string* error) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        *error = std::strerror(errno);
        return false;
    }
    struct stat st;
    bool ok = fstat(fd, &st) == 0;
    if (!ok) {
        *error = std::strerror(errno);
    } else if (!S_ISREG(st.st_mode)) {
        *error = S_ISDIR(st.st_mode) ? "is a directory" : "not a regular file";
        ok = false;
    }
    data->clear();
    char buf[65536];
    while (ok) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            *error = std::strerror(errno);
            ok = false;
        }
        if (n <= 0) break;
        data->append(buf, static_cast<size_t>(n));
    }
    ::close(fd);
    return ok;
}
