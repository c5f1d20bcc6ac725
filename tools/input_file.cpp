#include "input_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qzrun {
namespace {

const char* KindOf(mode_t mode) {
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a regular file";
}

std::string CannotRead(const std::string& path, const std::string& why) {
    return "cannot read '" + path + "': " + why;
}

std::string NotRegular(const std::string& path, mode_t mode) {
    return CannotRead(path, std::string("it is ") + KindOf(mode) + ", not a regular file");
}

std::string TooLarge(const std::string& path, uint64_t maxBytes) {
    return CannotRead(path, "it is larger than the limit of " + DescribeSize(maxBytes) +
                                " (raise it with --max-file-size)");
}

// Closes the descriptor however reading ends.
struct Descriptor {
    int Fd;
    ~Descriptor() {
        if (Fd >= 0) close(Fd);
    }
};

}  // namespace

std::string DescribeSize(uint64_t bytes) {
    char text[64];
    if (bytes >= (1ull << 20) && bytes % (1ull << 20) == 0)
        std::snprintf(text, sizeof text, "%llu MB", (unsigned long long)(bytes >> 20));
    else if (bytes >= (1ull << 20))
        std::snprintf(text, sizeof text, "%.1f MB", double(bytes) / double(1ull << 20));
    else if (bytes >= 1024 && bytes % 1024 == 0)
        std::snprintf(text, sizeof text, "%llu KB", (unsigned long long)(bytes >> 10));
    else
        std::snprintf(text, sizeof text, "%llu bytes", (unsigned long long)bytes);
    return text;
}

bool ReadInputFile(const std::string& path, uint64_t maxBytes, std::string& bytes, std::string& error) {
    // Asking first gives a clear message without opening anything.
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        error = CannotRead(path, std::strerror(errno));
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        error = NotRegular(path, info.st_mode);
        return false;
    }
    // The path may name something else by the time it is opened: O_NONBLOCK
    // keeps a FIFO put in its place from blocking the open, and the check is
    // repeated on what was opened.
    Descriptor file{open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    if (file.Fd < 0) {
        error = CannotRead(path, std::strerror(errno));
        return false;
    }
    if (fstat(file.Fd, &info) != 0) {
        error = CannotRead(path, std::strerror(errno));
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        error = NotRegular(path, info.st_mode);
        return false;
    }
    if (info.st_size < 0 || uint64_t(info.st_size) > maxBytes) {
        error = TooLarge(path, maxBytes);
        return false;
    }
    // The size is only a hint (the file may be growing): read to the end,
    // but never more than the limit.
    bytes.clear();
    bytes.reserve(size_t(info.st_size));
    char buffer[1 << 16];
    for (;;) {
        const ssize_t got = read(file.Fd, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR) continue;
            error = CannotRead(path, std::strerror(errno));
            return false;
        }
        if (got == 0) return true;
        if (uint64_t(got) > maxBytes - bytes.size()) {
            error = TooLarge(path, maxBytes);
            return false;
        }
        bytes.append(buffer, size_t(got));
    }
}

}  // namespace qzrun
