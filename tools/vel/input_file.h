#ifndef VEL_INPUT_FILE_H
#define VEL_INPUT_FILE_H

#include "printable.h"

namespace vel {

// Receives the bytes of an input in pieces that may end anywhere.
class PieceSink {
public:
    virtual CodResult feed(const char *bytes, CodUint64 size) = 0;  // the bytes are valid for the call
    virtual CodResult finish() = 0;                                 // nothing more will be fed
    virtual CodUint64 rows() const = 0;                             // finished so far

protected:
    ~PieceSink() = default;
};

// The file that a command reads from its beginning to its end.
class InputFile {
public:
    // "-" is standard input. path must outlive the file.
    explicit InputFile(const char *path);
    ~InputFile();
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    // Errors: ERR_CMM_OPEN_FILE, also for a folder.
    CodResult openForReading();
    // Feeds the whole file to the sink, which is finished then. unit is what its rows are called where the progress is shown: "row";
    // null shows none.
    // Errors: the sink's; ERR_CMM_READ_FILE, below an ERR_CMM_PARSER_ERROR that tells the row; those of codSysAlloc.
    CodResult readAll(PieceSink *sink, const char *unit) const;
    // For messages.
    const char *name() const {
        return name_.str();
    }

private:
    CodResult raiseOpenError(int systemError) const;
    CodResult raiseReadError(int systemError, CodUint64 row) const;

    const char *path_;
    bool isStandard_;
    PrintableName name_;
    int fd_ = -1;
};

}  // namespace vel

#endif
