#include "output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "errors.h"
#include "io_module.h"

namespace nerva_blobs {
namespace {

// write(2) until everything is out; false with errno set on the first failure.
bool write_all(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = ENOSPC;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

JsonLinesWriter::JsonLinesWriter(const std::string& path) : name_(path.empty() ? "standard output" : path)
{
    if (path.empty()) {
        fd_ = STDOUT_FILENO;
        return;
    }
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd_ < 0) throw RuntimeError("cannot write '" + path + "': " + std::strerror(errno));
    owned_ = true;
}

JsonLinesWriter::~JsonLinesWriter()
{
    if (owned_) ::close(fd_);
}

const std::string& JsonLinesWriter::write(long frame, const std::vector<Blob>& blobs, const LineExtras& extras)
{
    std::string& text = line_;
    nerva_pipeline::json_line(text, frame, blobs, extras);

    // One write per line, unbuffered: a line is either whole on disk or cut
    // back below, never left half-written behind a later one.
    const off_t start = ::lseek(fd_, 0, SEEK_CUR);
    if (write_all(fd_, text.data(), text.size())) {
        text.pop_back();
        return text;
    }
    const int error = errno;
    if (start >= 0) (void)::ftruncate(fd_, start);  // only regular files can be cut back
    throw RuntimeError("cannot write to " + name_ + ": " + std::strerror(error));
}

void write_image_file(const std::string& path, const cv::Mat& picture)
{
    std::vector<unsigned char> bytes;
    const auto dot = path.find_last_of('.');
    if (dot == std::string::npos || !io_module().encode(path.substr(dot), picture, bytes))
        throw RuntimeError("cannot encode '" + path + "'");
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) throw RuntimeError("cannot write '" + path + "': " + std::strerror(errno));
    const bool written = write_all(fd, reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const int error = errno;
    if (::close(fd) != 0 || !written) {
        std::remove(path.c_str());
        throw RuntimeError("cannot write '" + path + "': " + std::strerror(written ? errno : error));
    }
}

}  // namespace nerva_blobs
