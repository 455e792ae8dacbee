#ifndef VEL_INFRA_ERROR_ANI_ERROR_BASE_H
#define VEL_INFRA_ERROR_ANI_ERROR_BASE_H

/* The calling thread's error stack: raising, reading, composing.
 *
 * A failing function raises one error and returns COD_ERROR; its callers return COD_ERROR in turn, so that the outermost one reads
 * code and message. The stack keeps four entries; a fifth error takes the place of the fourth, so the first causes survive.
 *
 * 1. No function here fails, allocates or takes a lock. Everything belongs to the calling thread.
 * 2. A returned text stands in a buffer of the calling thread and is valid until the next call that writes the same buffer; two
 *    results of codErrT2S cannot be arguments of one message, which is why codErrT2SEx has a buffer of its own.
 * 3. Texts are cut at the size of their buffer and always terminated. */

#include <vel_infra/base/cod_types.h>
#include <vel_infra/error/ani_error_code.h>

COD_BEGIN_DECLS

enum {
    COD_ERROR_STACK_DEPTH = 4,        /* entries of the stack */
    COD_ERROR_STACK_TEXT_SIZE = 8192, /* bytes of all entries' texts, and of the composed message */
    COD_ERROR_MESSAGE_SIZE = 1024,    /* bytes of a carried message, and of a codErrT2S buffer */
    COD_ERROR_TRACE_DEPTH = 16,       /* places that the trace keeps */
};

/* Which operand of a binary operator an error is put down to. */
typedef enum CodOperErrorTag COD_ENUM_BASE {
    OPER_ERROR_LEFT = 1,
    OPER_ERROR_MIDDLE = 2,
    OPER_ERROR_RIGHT = 3,
} CodOperErrorTag;

/* Eight bytes that travel with an error for its user; the error functions leave them alone. */
typedef union CodErrorExtra {
    CodUint64 intValue;
    void *ptrValue;
} CodErrorExtra;

/* An error carried between threads or processes. */
typedef struct CodErrorMsg {
    CodUint32 code;
    CodUint32 depth;
    CodErrorExtra extra;
    CodUint32 sysErr;
    CodUint32 unused;
    CodChar message[COD_ERROR_MESSAGE_SIZE]; /* terminated */
} CodErrorMsg;
COD_STATIC_ASSERT(sizeof(CodErrorMsg) == 1048, "layout is fixed");

/* One entry of the stack. */
typedef struct CodErrorMsg2 {
    CodUint32 code;
    CodUint32 depth;
    CodErrorExtra extra;
    CodUint32 sysErr; /* errno when the entry was raised by codSetError */
    CodUint32 offset; /* where its text starts in the stack's text buffer; 8192 reads as 8191 */
    CodBool soRaised; /* set by codSetErrorSoRaised */
} CodErrorMsg2;
COD_STATIC_ASSERT(sizeof(CodErrorMsg2) == 32, "layout is fixed");

/* Raises an error: pushes code with the text that fmt makes of the arguments, and records the place and errno. file and funcName
 * are kept as pointers, not copied. At a log level of DEBUG or TRACE the text also goes to the logger. Prefer codRaise. */
COD_API void codSetError(const char *file, CodUint32 line, const char *funcName, CodError code, const char *fmt, ...) COD_PRINTF(5, 6)
    __attribute__((cold));

/* Pushes a carried error. The last byte of msg->message is set to zero first. A null msg is ignored. */
COD_API void codSetErrorMsg(CodErrorMsg *msg);
/* Pushes a code with an empty text. */
COD_API void codSetErrorCode(CodError code);
/* Marks the newest entry; nothing without one. */
COD_API void codSetErrorSoRaised(void);

/* return codRaise(ERR_CMM_OUT_OF_INDEX, index, 0, count);
 * Raises with the place of the call and the code's own template, and is COD_ERROR. The code must be written by its name; the
 * arguments (at most eight) are checked against the template. */
#define codRaise(...)                                                                                                           \
    COD_RAISE_PICK(__VA_ARGS__, COD_RAISE_ARGS, COD_RAISE_ARGS, COD_RAISE_ARGS, COD_RAISE_ARGS, COD_RAISE_ARGS, COD_RAISE_ARGS, \
                   COD_RAISE_ARGS, COD_RAISE_ARGS, COD_RAISE_PLAIN, 0)                                                          \
    (__VA_ARGS__)
#define COD_RAISE_PICK(a0, a1, a2, a3, a4, a5, a6, a7, a8, macro, ...) macro
#define COD_RAISE_PLAIN(code) (codSetError(__FILE__, __LINE__, __func__, (code), code##_FMT), COD_ERROR)
#define COD_RAISE_ARGS(code, ...) (codSetError(__FILE__, __LINE__, __func__, (code), code##_FMT, __VA_ARGS__), COD_ERROR)

/* The newest error's code; 0: none. */
COD_API CodError codGetErrorCode(void);
/* Entry 0's code, the first error raised. Meaningful while codGetErrorStackDepth is not 0: clearing leaves it as it was. */
COD_API CodError codGetBottomError(void);
COD_API CodUint32 codGetErrorStackDepth(void);
/* Entry `depth`, 0 the oldest; null when there is none. Valid until the stack changes. */
COD_API const CodErrorMsg2 *codGetSpecifiedError(CodUint32 depth);
/* errno at the newest codSetError. */
COD_API CodError codGetSysErr(void);
/* Where the newest codSetError stood. The file is its name behind the last "/"; "" when none was recorded. */
COD_API CodUint32 codGetErrorLine(void);
COD_API const char *codGetErrorFile(void);

COD_API CodTextPos codGetErrorPos(void);
COD_API void codSetPos(CodTextPos pos);
COD_API void codSetOperTag(CodOperErrorTag tag);
/* Sets the position by the operand tag: leftPos for LEFT, oprPos for MIDDLE, rightPos for every other value. */
COD_API void codSetOperPos(CodTextPos leftPos, CodTextPos oprPos, CodTextPos rightPos);

/* The composed message, newest entry first, each older one behind endStr with its code as "VEL-%05d ". hasErrorPrefix says whether
 * the newest one has its code too. At depth 0 the message composed before, "" after codCleanError. A null endStr is "".
 * codGetErrorMsg: no prefix, joined by "\n". codGetErrorMsg2: prefix, joined by "; ". */
COD_API const char *codGetErrorMsg(void);
COD_API const char *codGetErrorMsg2(void);
COD_API const char *codGetErrorMsg3(CodBool hasErrorPrefix, const char *endStr);
/* The newest entry's text alone; at depth 0 as codGetErrorMsg. */
COD_API const char *codGetLastErrorMsg(void);
/* Room for the newest entry's text: 8192 below depth 2, else 8192 less the newest entry's offset. */
COD_API CodUint32 codGetCurErrMsgBufSize(void);

/* The stack's text buffer, 8192 bytes. codSetOriginErrMsg copies exactly 8192 bytes from msg (null: ignored). */
COD_API void codSetOriginErrMsg(const char *msg);
COD_API const char *codGetOriginErrMsg(void);
/* Sets code, depth and position to what is passed, unchecked; a depth above 4 counts as 4 wherever entries are read.
 * To keep a whole error over clean-up code, use codSaveError and codRestoreSavedError. */
COD_API void codRestoreError(CodError errCode, CodUint32 depth, CodTextPos pos);

/* Clears the error: code, position and depth. The trace is forgotten as well. */
COD_API void codCleanError(void);
/* Drops the newest entry; the one below becomes the newest. */
COD_API void codCleanCurError(void);
/* While set, raising and clearing do nothing. */
COD_API void codSetIgnoreError(void);
COD_API void codUnsetIgnoreError(void);

/* 'errno 2, error message "No such file or directory"'. Own buffer. */
COD_API const char *codSysErrDesc(CodUint32 err);

/* A terminated copy of at most 1023 bytes of text, for a message argument; "" for an empty or null text. */
COD_API const char *codErrT2S(const CodText *text);
COD_API const char *codErrT2SEx(const CodText *text);
/* The same between double quotes, at most 1021 bytes of it; "" for an empty or null text. Uses the buffer of codErrT2S. */
COD_API const char *codErrT2SWithDoubleQuotes(const CodText *text);
/* The two buffers, 1024 bytes each, for callers that format into them. */
COD_API char *codGetErrT2SBuf(void);
COD_API char *codGetErrT2SExBuf(void);

/* ---- The way of a failure ---- */

/* A place that a failure passed through. Texts are those that the compiler gave. */
typedef struct CodErrorPlace {
    const char *file;
    const char *funcName;
    CodUint32 line;
} CodErrorPlace;

/* COD_TRY(expr): returns from the calling function with expr's result when that is not COD_SUCCESS, and notes the place. */
#define COD_TRY(expr)                                        \
    do {                                                     \
        CodResult codTryResult_ = (expr);                    \
        if (COD_UNLIKELY(codTryResult_ != COD_SUCCESS)) {    \
            codPushErrorTrace(__FILE__, __LINE__, __func__); \
            return codTryResult_;                            \
        }                                                    \
    } while (0)

/* Notes a place that the newest error passes through; the newest 16 are kept. Nothing while errors are ignored. */
COD_API void codPushErrorTrace(const char *file, CodUint32 line, const char *funcName) __attribute__((cold));

/* Copies the places since the trace was last empty into places, first the one nearest to the raiser, at most `capacity` of them.
 * Returns how many are kept (0 to 16). The trace empties when an error is raised at depth 0 and by codCleanError. */
COD_API CodUint32 codGetErrorTrace(CodErrorPlace *places, CodUint32 capacity);

/* ---- Keeping an error over clean-up code ---- */

/* A thread's whole error with its trace, by value. About 9 KiB; only the used part of the texts is copied. */
typedef struct CodErrorSave {
    CodError code;
    CodUint32 line;
    const char *file;
    CodTextPos pos;
    CodUint32 sysErr;
    CodUint32 depth;
    CodErrorMsg2 errors[COD_ERROR_STACK_DEPTH];
    CodChar message[COD_ERROR_STACK_TEXT_SIZE];
    CodErrorPlace trace[COD_ERROR_TRACE_DEPTH];
    CodUint32 traceCount;
} CodErrorSave;

/* Copies the thread's error into *save. Works while errors are ignored too. */
COD_API void codSaveError(CodErrorSave *save);
/* Puts a saved error back; what was raised or cleared since is forgotten. */
COD_API void codRestoreSavedError(const CodErrorSave *save);

COD_END_DECLS

#endif
