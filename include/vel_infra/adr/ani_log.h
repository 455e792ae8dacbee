#ifndef VEL_INFRA_ADR_ANI_LOG_H
#define VEL_INFRA_ADR_ANI_LOG_H

/* The run log: the logger's messages in a text file "run.log" that is rotated by size into time-stamped files, of which a bounded number
 * is kept.
 *
 *   2026-11-21 09:05:07.123 4711 [ERROR][errno=00301]: file operation ...
 *
 * A line holds the local time, the thread's id, the level, the error code when there is one, and the message. It is at most 2000 bytes
 * long; a longer message is cut. Line feeds at a message's end are dropped: a line ends with exactly one.
 *
 * 1. Nothing here raises errors on the error stack, which may itself be what is being logged, and no failure reaches the code that logs:
 *    what goes wrong with a file is printed to standard output, and the message is dropped. Dropped messages are counted, and when writing
 *    succeeds again one line at level WARN tells how many there were.
 * 2. Each line is written by itself and is on the disk when the call returns (O_SYNC). A line that could only be written in part, because
 *    the disk is full, is taken back.
 * 3. Threads may log at once, and so may a child after fork. Settings, opening and closing are for start-up and shut-down; settings made
 *    before aniInitRunLog stay.
 * 4. After a rotation the oldest files are removed so that at most count - 1 rotated ones remain. Files whose name is not
 *    "run-", 14 digits, ".log" are never counted or removed.
 * 5. When "run.log" was removed or its directory was made anew, the next line makes it again. A device or a pipe of that name is written to
 *    as it is and never rotated; what a pipe does not take at once is dropped. */

#include <stdarg.h>

#include <vel_infra/adr/ani_log_base.h>
#include <vel_infra/utils/ani_timer.h>

COD_BEGIN_DECLS

#define COD_RUN_LOG_SIZE ((CodUint64)20971520) /* bytes beyond which the file is rotated, unless set */
#define COD_RUN_LOG_COUNT 10u                  /* files kept, run.log included, unless set */
#define COD_RUN_LOG_LINE_SIZE 2000             /* bytes of the longest line, its line feed included */

/* Opens run.log in the directory `path`, which exists, and makes it the logger's target. A path has at most 232 characters; one "/" at its
 * end is not counted. Message times are read from timer, which must outlive the run log; from the system's clock while it holds no time, or
 * when timer is null. Called again, it moves the run log to the new path. On failure the reason is printed, the run log is closed,
 * COD_ERROR returned, and the logger left as it is. */
COD_API CodResult aniInitRunLog(const char *path, const CodTimer *timer);
/* Closes the current file. The logger still writes to the run log, and its next message opens the file again: set another callback first
 * to end it. */
COD_API void aniCloseRunLog(void);
/* Closes the current file and opens it by its name, after a tool from outside has moved it away. Failures are printed. */
COD_API CodResult aniReopenRunLog(void);

/* The file is rotated once it is larger than `size` bytes. */
COD_API void aniSetRunLogSize(CodUint64 size);
/* How many files are kept, run.log included; 0 and 1 keep no rotated one. */
COD_API void aniSetRunLogCount(CodUint32 count);
/* The paths as printf formats: of the current file, from the directory (a %s), and of a rotated one, from the directory, year, month, day,
 * hour, minute and second (a %s and up to six of %u or %d, flags and widths allowed). Copied. COD_ERROR, and no change, when one is null,
 * has other conversions or is longer than 255 characters. */
COD_API CodResult aniSetRunLogNameFmt(const char *curNameFmt, const char *rotateNameFmt);
/* When set, each rotation has a name of its own: its second, or the first free one behind that and behind the names given since
 * aniInitRunLog. Otherwise, as at first, the second of two rotations within one second takes the place of the first one's file. */
COD_API void aniSetRunLogDistinctNames(CodBool flag);

/* Sets the logger's level by its name in any case: those of codGetLogLevelDesc, TRACE to OFF, and "ALL". COD_ERROR, without an error raised
 * and without a change, for another one or null. */
COD_API CodResult aniSetRunLogLevel(const char *levelName);
COD_API CodBool aniIsRunLogLevelValid(const char *levelName);
/* While set, nothing is written, and nothing counted as dropped. */
COD_API void aniSetLogOff(CodBool flag);
/* From now on the calling thread's lines tell when they waited for the file for more than 100 milliseconds: "(block time: 250 ms)". Needs a
 * timer that runs. */
COD_API void aniEnableLogBlockTime(void);

/* Messages dropped since the last line that told of them. */
COD_API CodUint64 aniGetRunLogDropped(void);

/* Writes one message, whatever the logger's level; args as for vprintf. */
COD_API void aniRunLogBase(CodLogLevel level, CodInt32 errcode, const char *fileName, const char *funcName, CodInt32 lineNo,
                           const char *fmt, va_list args) COD_PRINTF(6, 0);
/* The same as a CodLogCallback. */
COD_API void runLogCallback(CodLogLevel level, CodInt32 errcode, const char *fileName, const char *funcName, CodInt32 lineNo,
                            const char *fmt, ...) COD_PRINTF(6, 7);

/* The calling thread's id, as the system numbers it. */
COD_API CodInt64 codSimpleThreadId(void);

COD_END_DECLS

#endif
