#ifndef VEL_INFRA_ADR_ANI_BLACKBOX_H
#define VEL_INFRA_ADR_ANI_BLACKBOX_H

/* The black box: what is left behind when the program is at fault. Panic, the dump file, internal-error records, the guard against
 * failures without an error, and fault points for tests.
 *
 * Threads: every function may be called from any thread; settings are made at start-up. No function allocates. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

/* ---- Dump file ---- */

/* Names the dump file; it is created (mode 0640) when first written and appended to. Null: back to standard error.
 * Errors: ERR_CMM_INVALID_FILENAME for an empty path or one of 4096 bytes and more; the setting is unchanged. */
COD_NODISCARD COD_API CodResult bbxSetDumpFile(const char *path);

/* The descriptor to write a dump to: the dump file, opened for appending, or 2 (standard error) when none is set or it cannot be
 * opened. Owned by the black box and open until another file is named. */
COD_API CodInt32 bbxGetDumpFile(void);

/* ---- Panic ---- */

/* codPanic(fmt, ...): stops the process on a programming error, never on bad input. Writes the message, the position and the
 * thread's error stack to the dump file, else to standard error, and aborts. */
#define codPanic(...) codPanicAt(__FILE__, __LINE__, __func__, __VA_ARGS__)
COD_API void codPanicAt(const char *file, CodUint32 line, const char *funcName, const char *fmt, ...) COD_PRINTF(4, 5)
    __attribute__((noreturn, cold));

/* Writes the opening line of a dump: time and process. */
COD_API void bbxPrepare(void);
/* Writes the place of a panic. */
COD_API void bbxPanicLine(const char *file, CodUint32 line);
/* Writes "error msg " and the thread's composed error message, with code prefixes, as one line. */
COD_API void panicDumpErrorcode(void);

/* ---- Internal errors ---- */

/* Whether an internal error shall end the process with a core dump; false unless bbxSetCoredump(true) was called. */
COD_API CodBool bbxInterErrorNeedCoredump(void);
COD_API void bbxSetCoredump(CodBool on);

/* Zero when an internal error shall be recorded: a dump file is set and this thread is not already recording one. Every zero is
 * followed by one bbxInterError. */
COD_API CodInt32 bbxInterErrorPrepare(void);
/* Appends a record of an internal error to the dump file: place, text, error stack. */
COD_API void bbxInterError(const char *file, CodUint32 line, const char *text);

/* What a session's statement trace reports before a missing error code is dealt with; non-zero clears the error. */
typedef CodInt32 (*BbxSqlContextDump)(void);
/* Installs the server's statement trace; null: none. */
COD_API void bbxSetSqlContextDump(BbxSqlContextDump dump);
/* Calls it; 0 without one. */
COD_API CodInt32 trcDumpSqlContext(void);

/* Called where a callee failed: when it left no error code, raises ERR_CMM_INTERNAL_ERROR "internal error: error code unset", after
 * the black box recorded it or, where a core dump is wanted, ended the process. Nothing when a code is set. */
COD_API void guardErrorCode(void);

/* ---- Fault points ---- */

enum {
    FAULT_POINT_SYS_ALLOC = 65, /* one system allocation in a hundred fails */
    FAULT_POINT_COUNT = 256,
};

/* Sets or clears a fault point for the whole process; types from FAULT_POINT_COUNT on do not exist and are ignored. */
COD_API void codSetFaultPoint(CodUint32 type, CodBool on);
COD_API CodBool codIsFaultPointSet(CodUint32 type);

COD_END_DECLS

#endif
