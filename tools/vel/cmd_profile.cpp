#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include <vel_infra/error/ani_error_base.h>

#include "commands.h"
#include "csv_reader.h"
#include "printable.h"
#include "progress.h"
#include "report.h"
#include "table_profile.h"
#include "work_memory.h"

namespace vel {

namespace {

class InputFile {
public:
    explicit InputFile(const char *path) : path_(path), isStandard_(strcmp(path, "-") == 0), name_(isStandard_ ? "standard input" : path) {}
    ~InputFile() {
        if (fd_ > STDIN_FILENO) {
            close(fd_);
        }
    }
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    CodResult openForReading() {
        fd_ = isStandard_ ? STDIN_FILENO : open(path_, O_RDONLY | O_CLOEXEC);
        struct stat status = {};
        if (fd_ < 0 || fstat(fd_, &status) != 0) {
            return raise(errno);
        }
        if (S_ISDIR(status.st_mode)) {
            return raise(EISDIR);
        }
        posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
        return COD_SUCCESS;
    }
    int fd() const {
        return fd_;
    }
    const char *name() const {
        return name_.str();
    }

private:
    CodResult raise(int systemError) const {
        return codRaise(ERR_CMM_OPEN_FILE, name(), codSysErrDesc(static_cast<CodUint32>(systemError)));
    }

    const char *path_;
    bool isStandard_;
    PrintableName name_;
    int fd_ = -1;
};

CodResult readTable(const InputFile &input, char delimiter, TableProfile *table) {
    CsvReader reader(input.name(), table);
    Progress progress;
    COD_TRY(reader.init(delimiter));
    COD_TRY(reader.readAll(input.fd(), &progress));
    return table->finish();
}

}  // namespace

CodResult runProfile(const ProfileCommand &command) {
    InputFile input(command.file);
    COD_TRY(input.openForReading());
    WorkMemory memory;
    COD_TRY(memory.init());
    TableProfileOptions options = {};
    options.name = input.name();
    options.hasHeader = command.hasHeader;
    options.columns = command.columns;
    TableProfile table(options);
    COD_TRY(table.init(memory.pool()));
    COD_TRY(readTable(input, command.delimiter, &table));
    writeReport(stdout, table, input.name());
    return COD_SUCCESS;
}

}  // namespace vel
