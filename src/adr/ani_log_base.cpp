#include <vel_infra/adr/ani_log_base.h>

#include <stdarg.h>
#include <stdio.h>

#include <iterator>

// Level and callback are read by every thread while a program may change them: relaxed atomics on the fields of the public record.
constinit Logger codProcessLogger = {COD_LOG_LEVEL_ERROR, log2Stdout};

Logger *codGetLogger(void) {
    return &codProcessLogger;
}

void codSetLogLevel(CodLogLevel level) {
    __atomic_store_n(&codProcessLogger.level, level, __ATOMIC_RELAXED);
}

CodLogLevel codGetLogLevel(void) {
    return __atomic_load_n(&codProcessLogger.level, __ATOMIC_RELAXED);
}

void codSetLogCallback(CodLogCallback callback) {
    __atomic_store_n(&codProcessLogger.log, callback != nullptr ? callback : log2Stdout, __ATOMIC_RELAXED);
}

void codResetLogCallback(void) {
    codSetLogCallback(nullptr);
}

CodLogCallback codGetLogCallback(void) {
    return __atomic_load_n(&codProcessLogger.log, __ATOMIC_RELAXED);
}

const char *codGetLogLevelDesc(CodLogLevel level) {
    static constexpr const char *kNames[] = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "OFF"};
    const unsigned row = static_cast<unsigned>(level) - COD_LOG_LEVEL_TRACE;
    return row < std::size(kNames) ? kNames[row] : "UNKNOWN";
}

void log2Stdout(CodLogLevel level, CodInt32 errcode, const char *, const char *, CodInt32, const char *fmt, ...) {
    if (level < codGetLogLevel() || fmt == nullptr) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    // One message stays in one piece between the messages of other threads.
    flockfile(stdout);
    printf("[%5s]", codGetLogLevelDesc(level));
    if (errcode != 0) {
        printf("[errno=%05d]", errcode);
    }
    fputs(": ", stdout);
    vprintf(fmt, args);
    funlockfile(stdout);
    va_end(args);
}
