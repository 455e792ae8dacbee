#include "input_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include <vel_infra/error/ani_error_base.h>

#include "progress.h"
#include "work_memory.h"

namespace vel {

namespace {

constexpr CodUint64 kPieceSize = 262144;

ssize_t readPiece(int fd, char *buffer) {
    ssize_t size;
    do {
        size = read(fd, buffer, kPieceSize);
    } while (size < 0 && errno == EINTR);
    return size;
}

}  // namespace

InputFile::InputFile(const char *path) : path_(path), isStandard_(strcmp(path, "-") == 0), name_(isStandard_ ? "standard input" : path) {}

InputFile::~InputFile() {
    if (fd_ > STDIN_FILENO) {
        close(fd_);
    }
}

CodResult InputFile::openForReading() {
    fd_ = isStandard_ ? STDIN_FILENO : open(path_, O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) {
        return raiseOpenError(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return raiseOpenError(EISDIR);
    }
    posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
    return COD_SUCCESS;
}

CodResult InputFile::readAll(PieceSink *sink, const char *unit) const {
    SystemBuffer buffer;
    Progress progress(unit);
    COD_TRY(buffer.init(kPieceSize));
    CodUint64 bytes = 0;
    for (;;) {
        const ssize_t size = readPiece(fd_, buffer.as<char>());
        if (size < 0) {
            return raiseReadError(errno, sink->rows() + 1);
        }
        if (size == 0) {
            return sink->finish();
        }
        COD_TRY(sink->feed(buffer.as<char>(), static_cast<CodUint64>(size)));
        bytes += static_cast<CodUint64>(size);
        progress.show(bytes, sink->rows());
    }
}

CodResult InputFile::raiseOpenError(int systemError) const {
    return codRaise(ERR_CMM_OPEN_FILE, name(), codSysErrDesc(static_cast<CodUint32>(systemError)));
}

// Two errors, so that the message tells where it happened as well as what.
CodResult InputFile::raiseReadError(int systemError, CodUint64 row) const {
    (void)codRaise(ERR_CMM_READ_FILE);
    return codRaise(ERR_CMM_PARSER_ERROR, name(), row, codSysErrDesc(static_cast<CodUint32>(systemError)));
}

}  // namespace vel
