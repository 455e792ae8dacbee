#ifndef VEL_OUTPUT_FILE_H
#define VEL_OUTPUT_FILE_H

#include <limits.h>

#include "printable.h"

namespace vel {

// A file that appears only when it is whole. Until then it stands beside its place under the name "PATH.process.tmp", and is removed
// when it is not finished; what had its name before stays as it was.
class OutputFile {
public:
    // path must outlive the file.
    explicit OutputFile(const char *path) : path_(path), name_(path) {}
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    // Errors: ERR_CMM_CREATE_FILE; ERR_CMM_INVALID_FILE when the name belongs to something that is no file.
    CodResult create();
    // Errors of the following: ERR_CMM_FILE_OPER; finish: ERR_CMM_RENAME_FILE too.
    CodResult append(const void *bytes, CodUint64 size);
    // Writes over the beginning.
    CodResult overwrite(const void *bytes, CodUint64 size);
    CodResult finish();

    CodUint64 size() const {
        return size_;
    }
    // For messages.
    const char *name() const {
        return name_.str();
    }

private:
    CodResult write(const void *bytes, CodUint64 size, CodUint64 offset);

    const char *path_;
    PrintableName name_;
    char temporaryPath_[PATH_MAX];
    int fd_ = -1;
    CodUint64 size_ = 0;
};

// ERR_CMM_FILE_OPER by errno.
CodResult raiseWriteError(const char *name);

}  // namespace vel

#endif
