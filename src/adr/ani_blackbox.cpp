#include <vel_infra/adr/ani_blackbox.h>

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include <vel_infra/error/ani_error_base.h>

namespace {

constexpr CodInt32 kNoFile = -1;

// The settings are made before threads need them; the descriptor is opened by the first thread in need.
constinit char gDumpPath[4096] = "";
constinit std::atomic<CodInt32> gDumpFile{kNoFile};
constinit std::atomic<bool> gCoredump{false};
constinit std::atomic<BbxSqlContextDump> gSqlContextDump{nullptr};
constinit std::atomic<CodUint64> gFaultPoints[FAULT_POINT_COUNT / 64]{};
[[gnu::tls_model("initial-exec")]] constinit thread_local bool gIsRecording = false;

// Writes one line of a dump; what the system does not take is lost, since there is nobody left to tell.
COD_PRINTF(1, 2) void dumpLine(const char *fmt, ...) {
    char line[COD_ERROR_STACK_TEXT_SIZE + 256];
    va_list args;
    va_start(args, fmt);
    const int written = vsnprintf(line, sizeof line, fmt, args);
    va_end(args);
    if (written < 0) {
        return;
    }
    size_t left = static_cast<size_t>(written) < sizeof line ? static_cast<size_t>(written) : sizeof line - 1;
    const char *next = line;
    const CodInt32 file = bbxGetDumpFile();
    while (left > 0) {
        const ssize_t taken = write(file, next, left);
        if (taken <= 0) {
            return;
        }
        next += taken;
        left -= static_cast<size_t>(taken);
    }
}

}  // namespace

// ---- Dump file ----

CodResult bbxSetDumpFile(const char *path) {
    const char *name = path != nullptr ? path : "";
    const size_t length = strlen(name);
    if (path != nullptr && (length == 0 || length >= sizeof gDumpPath)) {
        return codRaise(ERR_CMM_INVALID_FILENAME, name, length == 0 ? "it is empty" : "it is too long");
    }
    memcpy(gDumpPath, name, length + 1);
    const CodInt32 old = gDumpFile.exchange(kNoFile);
    if (old != kNoFile) {
        close(old);
    }
    return COD_SUCCESS;
}

CodInt32 bbxGetDumpFile(void) {
    CodInt32 file = gDumpFile.load();
    if (file != kNoFile) {
        return file;
    }
    if (gDumpPath[0] == '\0') {
        return STDERR_FILENO;
    }
    const CodInt32 opened = open(gDumpPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    if (opened < 0) {
        return STDERR_FILENO;
    }
    if (!gDumpFile.compare_exchange_strong(file, opened)) {
        close(opened);
        return file;
    }
    return opened;
}

// ---- Panic ----

void bbxPrepare(void) {
    const time_t now = time(nullptr);
    tm fields{};
    gmtime_r(&now, &fields);
    dumpLine("---- %04d-%02d-%02d %02d:%02d:%02d UTC, process %d ----\n", fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday,
             fields.tm_hour, fields.tm_min, fields.tm_sec, static_cast<int>(getpid()));
}

void bbxPanicLine(const char *file, CodUint32 line) {
    dumpLine("panic at %s:%u\n", file, line);
}

void panicDumpErrorcode(void) {
    dumpLine("error msg %s\n", codGetErrorMsg2());
}

void codPanicAt(const char *file, CodUint32 line, const char *funcName, const char *fmt, ...) {
    char message[COD_ERROR_MESSAGE_SIZE];
    va_list args;
    va_start(args, fmt);
    vsnprintf(message, sizeof message, fmt, args);
    va_end(args);
    bbxPrepare();
    dumpLine("panic: %s\n", message);
    bbxPanicLine(file, line);
    dumpLine("in %s\n", funcName);
    panicDumpErrorcode();
    abort();
}

// ---- Internal errors ----

CodBool bbxInterErrorNeedCoredump(void) {
    return gCoredump.load(std::memory_order_relaxed);
}

void bbxSetCoredump(CodBool on) {
    gCoredump.store(on, std::memory_order_relaxed);
}

CodInt32 bbxInterErrorPrepare(void) {
    if (gIsRecording || gDumpPath[0] == '\0') {
        return 1;
    }
    gIsRecording = true;
    return 0;
}

void bbxInterError(const char *file, CodUint32 line, const char *text) {
    bbxPrepare();
    dumpLine("internal error at %s:%u: %s\n", file, line, text);
    panicDumpErrorcode();
    gIsRecording = false;
}

void bbxSetSqlContextDump(BbxSqlContextDump dump) {
    gSqlContextDump.store(dump, std::memory_order_relaxed);
}

CodInt32 trcDumpSqlContext(void) {
    const BbxSqlContextDump dump = gSqlContextDump.load(std::memory_order_relaxed);
    return dump != nullptr ? dump() : 0;
}

void guardErrorCode(void) {
    // The line that every dump of this failure shows, whatever becomes of this file: support staff search for it.
    constexpr CodUint32 kGuardLine = 660;
    if (codGetErrorCode() != 0) {
        return;
    }
    if (trcDumpSqlContext() != 0) {
        codCleanError();
    }
    if (bbxInterErrorNeedCoredump()) {
        bbxPrepare();
        bbxPanicLine(__FILE__, kGuardLine);
        abort();
    }
    if (bbxInterErrorPrepare() == 0) {
        bbxInterError(__FILE__, kGuardLine, "error code unset");
    }
    (void)codRaise(ERR_CMM_INTERNAL_ERROR, "error code unset");
}

// ---- Fault points ----

void codSetFaultPoint(CodUint32 type, CodBool on) {
    if (type >= FAULT_POINT_COUNT) {
        return;
    }
    const CodUint64 bit = CodUint64{1} << (type % 64);
    if (on) {
        gFaultPoints[type / 64].fetch_or(bit, std::memory_order_relaxed);
    } else {
        gFaultPoints[type / 64].fetch_and(~bit, std::memory_order_relaxed);
    }
}

CodBool codIsFaultPointSet(CodUint32 type) {
    return type < FAULT_POINT_COUNT && (gFaultPoints[type / 64].load(std::memory_order_relaxed) >> (type % 64) & 1) != 0;
}
