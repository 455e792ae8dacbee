#ifndef VEL_INFRA_ADR_ANI_LOG_BASE_H
#define VEL_INFRA_ADR_ANI_LOG_BASE_H

/* The process-wide logger: a level and a callback. Until a caller installs another callback, messages go to standard output.
 *
 * Threads: the logger is set up before threads log; reading the level and logging are safe from any thread. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

typedef enum CodLogLevel COD_ENUM_BASE {
    COD_LOG_ALL = 1,
    COD_LOG_LEVEL_TRACE = 1,
    COD_LOG_LEVEL_DEBUG = 2,
    COD_LOG_LEVEL_INFO = 3,
    COD_LOG_LEVEL_WARN = 4,
    COD_LOG_LEVEL_ERROR = 5,
    COD_LOG_LEVEL_FATAL = 6,
    COD_LOG_OFF = 7,
} CodLogLevel;

/* Writes one message. errcode 0: the message belongs to no error. Texts are borrowed for the call. Must not raise errors: at level DEBUG
 * every raised error is logged. */
typedef void (*CodLogCallback)(CodLogLevel level, CodInt32 errcode, const char *fileName, const char *funcName, CodInt32 lineNo,
                               const char *fmt, ...) COD_PRINTF(6, 7);

typedef struct Logger {
    CodLogLevel level;
    CodLogCallback log;
} Logger;
COD_STATIC_ASSERT(offsetof(Logger, level) == 0 && sizeof(CodLogLevel) == sizeof(int), "layout is fixed");

/* The one logger of the process; never null. It starts at COD_LOG_LEVEL_ERROR with log2Stdout. */
COD_API Logger *codGetLogger(void);

COD_API void codSetLogLevel(CodLogLevel level);
COD_API CodLogLevel codGetLogLevel(void);

/* Installs a callback; null is taken as log2Stdout. */
COD_API void codSetLogCallback(CodLogCallback callback);
/* Back to log2Stdout. */
COD_API void codResetLogCallback(void);
COD_API CodLogCallback codGetLogCallback(void);

/* "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "OFF"; "UNKNOWN" for any other value. A constant text. */
COD_API const char *codGetLogLevelDesc(CodLogLevel level);

/* Writes a message of the logger's level or above to standard output: "[ERROR]: " or "[ERROR][errno=00301]: ", the level
 * right-aligned in five characters, then the message. No line feed is added: one belongs into fmt. */
COD_API void log2Stdout(CodLogLevel level, CodInt32 errcode, const char *fileName, const char *funcName, CodInt32 lineNo, const char *fmt,
                        ...) COD_PRINTF(6, 7);

/* ---- Logging ---- */

/* COD_LOG_WARN("%u sessions left", count);
 * Passes a message to the logger when its level is the logger's or above; otherwise the arguments are not evaluated. COD_LOG also names an
 * error code. */
#define COD_LOG_TRACE(...) COD_LOG(COD_LOG_LEVEL_TRACE, 0, __VA_ARGS__)
#define COD_LOG_DEBUG(...) COD_LOG(COD_LOG_LEVEL_DEBUG, 0, __VA_ARGS__)
#define COD_LOG_INFO(...) COD_LOG(COD_LOG_LEVEL_INFO, 0, __VA_ARGS__)
#define COD_LOG_WARN(...) COD_LOG(COD_LOG_LEVEL_WARN, 0, __VA_ARGS__)
#define COD_LOG_ERROR(...) COD_LOG(COD_LOG_LEVEL_ERROR, 0, __VA_ARGS__)
#define COD_LOG_FATAL(...) COD_LOG(COD_LOG_LEVEL_FATAL, 0, __VA_ARGS__)

#define COD_LOG(messageLevel, errcode, ...)                                                                                \
    do {                                                                                                                   \
        if (COD_UNLIKELY((messageLevel) >= __atomic_load_n(&codProcessLogger.level, __ATOMIC_RELAXED))) {                  \
            codGetLogCallback()((messageLevel), (CodInt32)(errcode), __FILE__, __func__, (CodInt32)__LINE__, __VA_ARGS__); \
        }                                                                                                                  \
    } while (0)

/* What codGetLogger returns, for the comparison above. */
COD_API extern Logger codProcessLogger;

COD_END_DECLS

#endif
