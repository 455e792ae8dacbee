// The run log. A line is composed without a lock; writing it, looking at the file's size and rotating happen under the run log's own one,
// and removing old files behind it.

#include <vel_infra/adr/ani_log.h>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_clock.h>
#include <vel_infra/utils/ani_datetime.h>

#include "base/cod_ascii.h"
#include "base/cod_fork_lock.h"
#include "base/cod_relaxed.h"
#include "base/cod_thread.h"
#include "error/ani_error_format_internal.h"
#include "utils/ani_field_text_internal.h"

using cod::loadRelaxed;
using cod::storeRelaxed;

namespace {

constexpr CodUint32 kPathSize = 256;
constexpr char kNeedsPath[] = "the run log needs a path\n";
// What the path of a rotated file takes behind the directory: "/run-YYYYMMDDhhmmss.log".
constexpr CodUint32 kRotatedNameLength = 23;
constexpr CodInt64 kBlockTime = 100000;  // microseconds
constexpr CodUint32 kMostNames = 86400;  // seconds to try for a distinct name
constexpr CodUint32 kNoteSize = 128;     // of the line that tells of dropped ones

struct StLogFile {
    CodInt32 handle;    // -1: closed
    CodBool isRegular;  // else a device or a pipe, which has no size and no name to lose
    cod::ForkLock lock;
    char curNameFmt[kPathSize];
    char rotateNameFmt[kPathSize];
    CodBool rotateFail;    // a failed rename was printed, and none has succeeded since
    CodDate lastDistinct;  // the time in the last distinct name given
    char logPath[kPathSize];
};

constinit StLogFile logFile = {
    .handle = -1,
    .isRegular = false,
    .lock = {},
    .curNameFmt = "%s/run.log",
    .rotateNameFmt = "%s/run-%04u%02u%02u%02u%02u%02u.log",
    .rotateFail = false,
    .lastDistinct = 0,
    .logPath = "",
};

// Set at start-up, read by every thread.
constinit CodUint64 logSize = COD_RUN_LOG_SIZE;
constinit CodUint32 logCount = COD_RUN_LOG_COUNT;
constinit const CodTimer *logTimer = nullptr;
constinit CodBool isLogOff = false;
constinit CodBool hasDistinctNames = false;
constinit CodUint64 droppedLines = 0;
constinit pthread_once_t forkHandlersOnce = PTHREAD_ONCE_INIT;

struct ThreadState {
    CodInt64 id;
    CodBool logBlockTime;
};
COD_THREAD_LOCAL(ThreadState, threadState, {});

CodInt64 threadId() {
    ThreadState &state = threadState();
    if (COD_UNLIKELY(state.id == 0)) {
        state.id = codSimpleThreadId();
    }
    return state.id;
}

CodDate localTime() {
    const CodDate cached = codTimerLocalTime(loadRelaxed(&logTimer));
    return cached > 0 ? cached : codSysdate();
}

// ---- Lines ----

// A line is full one byte before its buffer is: that byte is the line feed's.
struct Line {
    CodDate time;
    CodUint32 length = 0;
    char text[COD_RUN_LOG_LINE_SIZE];

    CodUint32 room() const {
        return sizeof(text) - length;
    }
    // What vsnprintf gave back.
    void grow(int written) {
        length += written > 0 ? std::min(static_cast<CodUint32>(written), room() - 1) : 0;
    }
    COD_PRINTF(2, 3) void add(const char *fmt, ...) {
        va_list args;
        va_start(args, fmt);
        addList(fmt, args);
        va_end(args);
    }
    COD_PRINTF(2, 0) void addList(const char *fmt, va_list args) {
        grow(cod::formatText(text + length, room(), fmt, args));
    }
    void close() {
        text[length++] = '\n';
    }
};

void beginLine(Line *line, CodLogLevel level, CodInt32 errcode) {
    CodDateStruct ds;
    line->time = localTime();
    codGetDateStruct(line->time, &ds);
    char *end = cod::putDate(line->text, ds.year, ds.month, ds.day);
    end = cod::putTime(cod::putChar(end, ' '), ds.hour, ds.minute, ds.second);
    end = cod::putThree(cod::putChar(end, '.'), ds.fraction / 1000);
    line->length = static_cast<CodUint32>(end - line->text);
    line->add(" %ld [%s]", threadId(), codGetLogLevelDesc(level));
    if (errcode != 0) {
        line->add("[errno=%05d]:", errcode);
    }
    line->add(" ");
}

void endMessage(Line *line, CodUint32 begin) {
    while (line->length > begin && line->text[line->length - 1] == '\n') {
        line->length--;
    }
}

void addBlockTime(Line *line) {
    const CodDate now = codTimerLocalTime(loadRelaxed(&logTimer));
    if (threadState().logBlockTime && line->time > 0 && now > 0 && now - line->time > kBlockTime) {
        line->add("(block time: %lu ms)", static_cast<unsigned long>(now - line->time) / 1000);
    }
}

// ---- The file. All under the lock. ----

bool formatCurrentPath(char (&path)[kPathSize]) {
    const int length = snprintf(path, sizeof(path), logFile.curNameFmt, logFile.logPath);
    return length >= 0 && static_cast<CodUint32>(length) < sizeof(path);
}

bool formatRotatedPath(CodDate time, char (&path)[kPathSize]) {
    CodDateStruct ds;
    codGetDateStruct(time, &ds);
    const int length = snprintf(path, sizeof(path), logFile.rotateNameFmt, logFile.logPath, unsigned{ds.year}, unsigned{ds.month},
                                unsigned{ds.day}, unsigned{ds.hour}, unsigned{ds.minute}, unsigned{ds.second});
    return length >= 0 && static_cast<CodUint32>(length) < sizeof(path);
}

bool exists(const char *path) {
    struct stat status;
    return lstat(path, &status) == 0;
}

int openFile(const char *path, int flags) {
    int handle;
    do {
        // Not blocking: a pipe that nobody reads must not stop the threads that log.
        handle = open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK | flags, 0640);
    } while (handle < 0 && errno == EINTR);
    return handle;
}

// A file that another process made in between is as good as ours.
bool createFile(const char *path) {
    const int handle = openFile(path, O_CREAT | O_EXCL);
    if (handle < 0) {
        return errno == EEXIST;
    }
    close(handle);
    return true;
}

// The system's text of errno. The error stack's own is not used: the caller may hold a text from it.
struct SystemError {
    char buffer[128];
    const char *text = strerror_r(errno, buffer, sizeof(buffer));
};

bool createLogFile() {
    char path[kPathSize];
    if (!formatCurrentPath(path)) {
        printf("log with the path %s is too long\n", logFile.logPath);
        return false;
    }
    if (!exists(path) && !createFile(path)) {
        printf("create file %s failed, %s\n", path, SystemError().text);
        return false;
    }
    logFile.handle = openFile(path, O_APPEND | O_SYNC);
    if (logFile.handle < 0) {
        printf("open file %s failed, %s", path, SystemError().text);
    }
    return logFile.handle >= 0;
}

void closeLogFile() {
    if (logFile.handle >= 0) {
        close(logFile.handle);
        logFile.handle = -1;
    }
}

bool openLogFile(struct stat *status) {
    // A path that is not set belongs to a run log that could not be opened.
    if (logFile.logPath[0] == '\0' || !createLogFile() || fstat(logFile.handle, status) != 0) {
        return false;
    }
    logFile.isRegular = S_ISREG(status->st_mode);
    return true;
}

// Opens the file unless it is open; one that was removed meanwhile is opened anew. *status tells of a regular file.
bool ensureOpen(struct stat *status) {
    if (logFile.handle >= 0 && !logFile.isRegular) {
        return true;
    }
    if (logFile.handle >= 0 && fstat(logFile.handle, status) == 0 && status->st_nlink != 0) {
        return true;
    }
    closeLogFile();
    return openLogFile(status);
}

// What was written of a line that could not be finished is taken back, unless others have written behind it.
void takeBack(off_t sizeBefore, CodUint32 written) {
    struct stat status;
    if (written > 0 && fstat(logFile.handle, &status) == 0 && status.st_size == sizeBefore + written) {
        (void)!ftruncate(logFile.handle, sizeBefore);
    }
}

bool writeAll(const char *bytes, CodUint32 size, off_t sizeBefore) {
    CodUint32 written = 0;
    while (written < size) {
        const ssize_t count = write(logFile.handle, bytes + written, size - written);
        if (count > 0) {
            written += static_cast<CodUint32>(count);
        } else if (count == 0 || errno != EINTR) {
            printf("failed to write log file, errno %d\n", errno);
            takeBack(sizeBefore, written);
            return false;
        }
    }
    return true;
}

void dropLine() {
    __atomic_fetch_add(&droppedLines, 1, __ATOMIC_RELAXED);
}

// The line, and before it, when some were dropped, the line that tells how many. Both or none: a disk that is nearly full is not filled
// with the latter. Returns the bytes written, 0 on failure.
CodUint32 writeWithNote(const Line &line, off_t sizeBefore) {
    const CodUint64 dropped = loadRelaxed(&droppedLines);
    if (COD_LIKELY(dropped == 0)) {
        return writeAll(line.text, line.length, sizeBefore) ? line.length : 0;
    }
    Line note;
    beginLine(&note, COD_LOG_LEVEL_WARN, 0);
    note.add("%lu log messages were dropped", dropped);
    note.close();
    char both[kNoteSize + COD_RUN_LOG_LINE_SIZE];
    memcpy(both, note.text, note.length);
    memcpy(both + note.length, line.text, line.length);
    if (!writeAll(both, note.length + line.length, sizeBefore)) {
        return 0;
    }
    __atomic_fetch_sub(&droppedLines, dropped, __ATOMIC_RELAXED);
    return note.length + line.length;
}

// ---- Rotation ----

// Behind all names given so far, even when old files with earlier ones are gone: the newest file must not look like the oldest. A format
// that tells no seconds gives fewer names, and one that tells no time none.
bool chooseDistinctPath(char (&path)[kPathSize]) {
    CodDate time = std::max(localTime(), logFile.lastDistinct + COD_USECS_PER_SECOND);
    bool isFormatted = formatRotatedPath(time, path);
    for (CodUint32 i = 0; i < kMostNames && isFormatted && exists(path); i++) {
        time += COD_USECS_PER_SECOND;
        isFormatted = formatRotatedPath(time, path);
    }
    logFile.lastDistinct = time;
    return isFormatted;
}

bool chooseRotatedPath(char (&path)[kPathSize]) {
    return loadRelaxed(&hasDistinctNames) ? chooseDistinctPath(path) : formatRotatedPath(localTime(), path);
}

// Processes that write one file, as after a fork, rotate it one after another: the lock is the process's, on the file itself, and goes with
// the handle. Where it cannot be had, each does as well as it can alone.
void waitForOtherProcesses(int handle) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    while (fcntl(handle, F_SETLKW, &lock) != 0 && errno == EINTR) {
    }
}

// The name still leads to the open file. If it does not, another process has rotated it, whose new file must not be renamed by us.
bool isCurrentFile(const char *path, const struct stat &status) {
    struct stat named;
    return stat(path, &named) == 0 && named.st_dev == status.st_dev && named.st_ino == status.st_ino;
}

bool renameFile(const char *path, const char *rotated) {
    if (rename(path, rotated) == 0) {
        logFile.rotateFail = false;
        return true;
    }
    if (!logFile.rotateFail) {
        printf("rename log file %s to %s failed, errno %d\n", path, rotated, errno);
        logFile.rotateFail = true;
    }
    return false;
}

// True: the file was rotated.
bool rotate(const struct stat &status) {
    char path[kPathSize];
    char rotated[kPathSize];
    if (!formatCurrentPath(path)) {
        printf("log with the path %s is too long", logFile.logPath);
        return false;
    }
    if (!chooseRotatedPath(rotated)) {
        printf("rotate log with the path %s is too long", logFile.logPath);
        return false;
    }
    const int rotatedHandle = logFile.handle;
    waitForOtherProcesses(rotatedHandle);
    logFile.handle = -1;
    const bool isRotated = isCurrentFile(path, status) && renameFile(path, rotated);
    struct stat begun;
    openLogFile(&begun);
    close(rotatedHandle);
    return isRotated;
}

// True: the file was rotated.
bool writeUnderLock(Line *line) {
    struct stat status = {};
    if (!ensureOpen(&status)) {
        dropLine();
        return false;
    }
    addBlockTime(line);
    line->close();
    const CodUint32 written = writeWithNote(*line, status.st_size);
    if (written == 0) {
        dropLine();
        return false;
    }
    const CodUint64 size = static_cast<CodUint64>(status.st_size) + written;
    return logFile.isRegular && size > loadRelaxed(&logSize) && rotate(status);
}

bool isRotatedName(const char *name) {
    if (strlen(name) != kRotatedNameLength - 1 || memcmp(name, "run-", 4) != 0 || strcmp(name + 18, ".log") != 0) {
        return false;
    }
    return std::all_of(name + 4, name + 18, [](char c) { return c >= '0' && c <= '9'; });
}

bool isDirectory(int directory, const dirent &entry) {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    struct stat status;
    return fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

// Counts the rotated files; *oldest becomes the smallest name.
CodUint32 countRotated(const char *path, char (&oldest)[kRotatedNameLength]) {
    CodUint32 count = 0;
    DIR *directory = opendir(path);
    if (directory == nullptr) {
        return 0;
    }
    while (const dirent *entry = readdir(directory)) {
        if (isRotatedName(entry->d_name) && !isDirectory(dirfd(directory), *entry)) {
            if (count == 0 || strcmp(entry->d_name, oldest) < 0) {
                memcpy(oldest, entry->d_name, sizeof(oldest));
            }
            count++;
        }
    }
    closedir(directory);
    return count;
}

// Two threads may do this at once: one whose file the other has removed stops.
void removeOldFiles(const char *directory) {
    char oldest[kRotatedNameLength];
    const CodUint32 kept = std::max(loadRelaxed(&logCount), CodUint32{1});
    while (countRotated(directory, oldest) >= kept) {
        char path[kPathSize + kRotatedNameLength];
        snprintf(path, sizeof(path), "%s/%s", directory, oldest);
        if (remove(path) != 0) {
            printf("failed to remove log file %s, errno %d\n", path, errno);
            return;
        }
    }
}

void writeLine(Line *line) {
    char directory[kPathSize];
    if (logFile.lock.lock() != 0) {
        printf("run log lock failed");
        return dropLine();
    }
    const bool isRotated = writeUnderLock(line);
    if (isRotated) {
        memcpy(directory, logFile.logPath, sizeof(directory));
    }
    logFile.lock.unlock();
    if (isRotated) {
        removeOldFiles(directory);
    }
}

// ---- Forks ----

void lockBeforeFork(void) {
    logFile.lock.beforeFork();
}

void unlockAfterFork(void) {
    logFile.lock.afterFork();
}

void unlockInChild(void) {
    threadState().id = 0;
    unlockAfterFork();
}

// Handlers run backwards before a fork: the run log's lock is taken before the clock's, as it is in a rotation.
void registerForkHandlers(void) {
    (void)codGetTimeZoneBias();
    pthread_atfork(lockBeforeFork, unlockAfterFork, unlockInChild);
}

// ---- Settings ----

// At most `numbers` conversions of integers behind one of a text.
bool isPathFormat(const char *fmt, CodUint32 numbers) {
    CodUint32 conversions = 0;
    if (fmt == nullptr || strlen(fmt) >= kPathSize) {
        return false;
    }
    while ((fmt = strchr(fmt, '%')) != nullptr) {
        fmt++;
        if (*fmt == '%') {
            fmt++;
            continue;
        }
        fmt += strspn(fmt, "-+ #0");
        fmt += strspn(fmt, "0123456789.");
        const char *allowed = conversions == 0 ? "s" : "ud";
        if (*fmt == '\0' || strchr(allowed, *fmt) == nullptr || conversions++ > numbers) {
            return false;
        }
    }
    return true;
}

// 0: there is none of this name.
int levelOfName(const char *name) {
    for (int level = COD_LOG_LEVEL_TRACE; name != nullptr && level <= COD_LOG_OFF; level++) {
        if (cod::equalsIgnoringCase(name, strlen(name), codGetLogLevelDesc(static_cast<CodLogLevel>(level)))) {
            return level;
        }
    }
    return name != nullptr && cod::equalsIgnoringCase(name, strlen(name), "ALL") ? COD_LOG_ALL : 0;
}

// The length of the path without a "/" at its end; 0: it cannot be used.
CodUint32 usableLength(const char *path) {
    const size_t length = path != nullptr ? strlen(path) : 0;
    if (length == 0 || length >= kPathSize) {
        return 0;
    }
    const size_t kept = length - (path[length - 1] == '/');
    return kept + kRotatedNameLength < kPathSize ? static_cast<CodUint32>(std::max(kept, size_t{1})) : 0;
}

}  // namespace

CodResult aniInitRunLog(const char *path, const CodTimer *timer) {
    pthread_once(&forkHandlersOnce, registerForkHandlers);
    const CodUint32 length = usableLength(path);
    logFile.lock.lock();
    closeLogFile();
    logFile.logPath[0] = '\0';
    logFile.lastDistinct = 0;
    bool isOpen = false;
    if (path == nullptr || path[0] == '\0') {
        fputs(kNeedsPath, stdout);
    } else if (length == 0) {
        printf("log with the path %s is too long\n", path);
    } else {
        memcpy(logFile.logPath, path, length);
        logFile.logPath[length] = '\0';
        storeRelaxed(&logTimer, timer);
        struct stat status;
        isOpen = openLogFile(&status);
        logFile.logPath[isOpen ? length : 0] = '\0';
    }
    logFile.lock.unlock();
    if (!isOpen) {
        return COD_ERROR;
    }
    codSetLogCallback(runLogCallback);
    return COD_SUCCESS;
}

void aniCloseRunLog(void) {
    logFile.lock.lock();
    closeLogFile();
    logFile.lock.unlock();
}

CodResult aniReopenRunLog(void) {
    struct stat status;
    logFile.lock.lock();
    closeLogFile();
    if (logFile.logPath[0] == '\0') {
        fputs(kNeedsPath, stdout);
    }
    const bool isOpen = openLogFile(&status);
    logFile.lock.unlock();
    return isOpen ? COD_SUCCESS : COD_ERROR;
}

void aniSetRunLogSize(CodUint64 size) {
    storeRelaxed(&logSize, size);
}

void aniSetRunLogCount(CodUint32 count) {
    storeRelaxed(&logCount, count);
}

CodResult aniSetRunLogNameFmt(const char *curNameFmt, const char *rotateNameFmt) {
    if (!isPathFormat(curNameFmt, 0) || !isPathFormat(rotateNameFmt, 6)) {
        return COD_ERROR;
    }
    logFile.lock.lock();
    memcpy(logFile.curNameFmt, curNameFmt, strlen(curNameFmt) + 1);
    memcpy(logFile.rotateNameFmt, rotateNameFmt, strlen(rotateNameFmt) + 1);
    logFile.lock.unlock();
    return COD_SUCCESS;
}

void aniSetRunLogDistinctNames(CodBool flag) {
    storeRelaxed(&hasDistinctNames, flag);
}

CodResult aniSetRunLogLevel(const char *levelName) {
    const int level = levelOfName(levelName);
    if (level == 0) {
        return COD_ERROR;
    }
    codSetLogLevel(static_cast<CodLogLevel>(level));
    return COD_SUCCESS;
}

CodBool aniIsRunLogLevelValid(const char *levelName) {
    return levelOfName(levelName) != 0;
}

void aniSetLogOff(CodBool flag) {
    storeRelaxed(&isLogOff, flag);
}

void aniEnableLogBlockTime(void) {
    threadState().logBlockTime = true;
}

CodUint64 aniGetRunLogDropped(void) {
    return loadRelaxed(&droppedLines);
}

void aniRunLogBase(CodLogLevel level, CodInt32 errcode, const char *, const char *, CodInt32, const char *fmt, va_list args) {
    if (loadRelaxed(&isLogOff) || fmt == nullptr) {
        return;
    }
    const int callersErrno = errno;
    Line line;
    beginLine(&line, level, errcode);
    const CodUint32 begin = line.length;
    errno = callersErrno;  // which a message may name by %m
    line.addList(fmt, args);
    endMessage(&line, begin);
    writeLine(&line);
    errno = callersErrno;
}

void runLogCallback(CodLogLevel level, CodInt32 errcode, const char *fileName, const char *funcName, CodInt32 lineNo, const char *fmt,
                    ...) {
    va_list args;
    va_start(args, fmt);
    aniRunLogBase(level, errcode, fileName, funcName, lineNo, fmt, args);
    va_end(args);
}

CodInt64 codSimpleThreadId(void) {
    return syscall(SYS_gettid);
}
