#include <vel_infra/adr/ani_blackbox.h>

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_clock.h>

#include "adr/ani_blackbox_internal.h"
#include "base/cod_thread.h"

namespace {

constexpr CodInt32 kNoFile = -1;

// The settings are made before threads need them; the descriptor is opened by the first thread in need.
constinit char gDumpPath[4096] = "";
constinit std::atomic<CodInt32> gDumpFile{kNoFile};
constinit std::atomic<bool> gCoredump{false};
constinit std::atomic<BbxSqlContextDump> gSqlContextDump{nullptr};
constinit std::atomic<CodUint64> gFaultPoints[FAULT_POINT_COUNT / 64]{};
COD_THREAD_LOCAL(bool, isRecording, {false});

// The date of a number of days since 1970-01-01 (H. Hinnant, chrono-compatible low-level date algorithms). The C library's own
// functions take a lock and read files: a panic may come while that lock is held.
struct Day {
    int year;
    unsigned month;
    unsigned day;
};

Day dayOf(CodInt64 daysSinceEpoch) {
    const CodInt64 shifted = daysSinceEpoch + 719468;  // days since 0000-03-01
    const CodInt64 era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(shifted - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned monthFromMarch = (5 * dayOfYear + 2) / 153;
    const unsigned month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    return {static_cast<int>(era * 400) + static_cast<int>(yearOfEra) + (month <= 2), month,
            dayOfYear - (153 * monthFromMarch + 2) / 5 + 1};
}

}  // namespace

// ---- Dump file ----

// What the system does not take is lost, since there is nobody left to tell.
void cod::dumpLine(const char *fmt, ...) {
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
        if (taken < 0 && errno == EINTR) {
            continue;
        }
        if (taken <= 0) {
            return;
        }
        next += taken;
        left -= static_cast<size_t>(taken);
    }
}

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
    const CodInt64 now = codNow() / 1000000;
    const Day today = dayOf(now / 86400);
    const auto second = static_cast<unsigned>(now % 86400);
    cod::dumpLine("---- %04d-%02u-%02u %02u:%02u:%02u UTC, process %d ----\n", today.year, today.month, today.day, second / 3600,
                  second / 60 % 60, second % 60, static_cast<int>(getpid()));
}

void bbxPanicLine(const char *file, CodUint32 line) {
    cod::dumpLine("panic at %s:%u\n", file, line);
}

void panicDumpErrorcode(void) {
    cod::dumpLine("error msg %s\n", codGetErrorMsg2());
}

void codPanicAt(const char *file, CodUint32 line, const char *funcName, const char *fmt, ...) {
    char message[COD_ERROR_MESSAGE_SIZE];
    va_list args;
    va_start(args, fmt);
    vsnprintf(message, sizeof message, fmt, args);
    va_end(args);
    bbxPrepare();
    cod::dumpLine("panic: %s\n", message);
    bbxPanicLine(file, line);
    cod::dumpLine("in %s\n", funcName);
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
    if (isRecording() || gDumpPath[0] == '\0') {
        return 1;
    }
    isRecording() = true;
    return 0;
}

void bbxInterError(const char *file, CodUint32 line, const char *text) {
    bbxPrepare();
    cod::dumpLine("internal error at %s:%u: %s\n", file, line, text);
    panicDumpErrorcode();
    isRecording() = false;
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
