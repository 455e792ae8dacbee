#include "output_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include <vel_infra/error/ani_error_base.h>

namespace vel {

namespace {

const char *describe(int systemError) {
    return codSysErrDesc(static_cast<CodUint32>(systemError));
}

}  // namespace

OutputFile::~OutputFile() {
    if (fd_ >= 0) {
        close(fd_);
        unlink(temporaryPath_);
    }
}

// A device or a pipe would be replaced rather than written to.
CodResult OutputFile::create() {
    struct stat status = {};
    if (stat(path_, &status) == 0 && !S_ISREG(status.st_mode)) {
        return codRaise(ERR_CMM_INVALID_FILE, name(), "there is something of that name that is no regular file");
    }
    const int length = snprintf(temporaryPath_, sizeof(temporaryPath_), "%s.%d.tmp", path_, getpid());
    if (length >= static_cast<int>(sizeof(temporaryPath_))) {
        return codRaise(ERR_CMM_CREATE_FILE, name(), describe(ENAMETOOLONG));
    }
    fd_ = open(temporaryPath_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    return fd_ >= 0 ? COD_SUCCESS : codRaise(ERR_CMM_CREATE_FILE, name(), describe(errno));
}

CodResult OutputFile::write(const void *bytes, CodUint64 size, CodUint64 offset) {
    const auto *next = static_cast<const char *>(bytes);
    while (size > 0) {
        const ssize_t written = pwrite(fd_, next, size, static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            return raiseWriteError(name());
        }
        next += written;
        size -= static_cast<CodUint64>(written);
        offset += static_cast<CodUint64>(written);
    }
    return COD_SUCCESS;
}

CodResult OutputFile::append(const void *bytes, CodUint64 size) {
    COD_TRY(write(bytes, size, size_));
    size_ += size;
    return COD_SUCCESS;
}

CodResult OutputFile::overwrite(const void *bytes, CodUint64 size) {
    return write(bytes, size, 0);
}

// The bytes reach the disk before the name does.
CodResult OutputFile::finish() {
    if (fsync(fd_) != 0) {
        return raiseWriteError(name());
    }
    if (rename(temporaryPath_, path_) != 0) {
        return codRaise(ERR_CMM_RENAME_FILE, PrintableName(temporaryPath_).str(), name(), describe(errno));
    }
    const int fd = fd_;
    fd_ = -1;
    return close(fd) == 0 ? COD_SUCCESS : raiseWriteError(name());
}

CodResult raiseWriteError(const char *name) {
    const int systemError = errno;
    char operation[PrintableName::kNameLimit + 16];
    snprintf(operation, sizeof(operation), "write to %s", name);
    return codRaise(ERR_CMM_FILE_OPER, operation, describe(systemError));
}

}  // namespace vel
