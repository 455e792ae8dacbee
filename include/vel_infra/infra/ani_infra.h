#ifndef VEL_INFRA_INFRA_ANI_INFRA_H
#define VEL_INFRA_INFRA_ANI_INFRA_H

/* Start-up of the library in one call, and shut-down. Each step may also be taken by itself, by the functions named below; nothing here is
 * needed by a program that does that. What is in no step works from the beginning: errors and the logger on standard output, memory, locks,
 * containers, numbers, dates, clocks other than the cached one, charsets and collations as far as they need no code pages.
 *
 * Threads: start and stop are for one thread, before others use the library and after they did. */

#include <vel_infra/adr/ani_log_base.h>
#include <vel_infra/utils/ani_timer.h>

COD_BEGIN_DECLS

#define COD_INFRA_CODEPAGES 0x1u /* load the code pages */
#define COD_INFRA_CLOCK 0x2u     /* start the cached clock */

/* Zeroed: error tables and the best bit decoder alone. Texts are borrowed for the call. */
typedef struct CodInfraConfig {
    CodUint32 flags;            /* COD_INFRA_... */
    CodLogLevel logLevel;       /* of the logger; 0: as it is */
    const char *runLogPath;     /* the directory of the run log, as aniInitRunLog takes it; null: none */
    const char *codepageFolder; /* the directory of the code-page files; null: that of codInfraCodepageFolder */
    CodUint64 reserved[4];      /* 0 */
} CodInfraConfig;
COD_STATIC_ASSERT(sizeof(CodInfraConfig) == 56, "layout is fixed");

/* In this order:
 *   error tables    codRegErrModCMM, codRegErrModANS
 *   logger          codSetLogLevel, when a level is given
 *   run log         aniInitRunLog, when a path is given; its times are those of codInfraTimer. Settings made before stay
 *   code pages      aniCodepageInitFrom, with COD_INFRA_CODEPAGES
 *   bit decoder     codBitPackSetSimdType to the best one that the processor has
 *   cached clock    codStartTimer, with COD_INFRA_CLOCK
 * Null is taken as a zeroed config. The first step that fails ends it, and the steps taken are undone as codInfraStop undoes them. A run
 * log that the program opened itself gives way to that of runLogPath for good. Errors: ERR_CMM_INIT_LIB_FAILED, and no change, between a
 * start and its stop; ERR_CMM_INVALID_PARAMETER for other flags and for a level that does not exist; ERR_CMM_INVALID_PATH_ERROR when the
 * run log cannot be opened, with the reason on standard output; those of codInfraCodepageFolder and of the steps. */
COD_NODISCARD COD_API CodResult codInfraStart(const CodInfraConfig *config);
/* Undoes the steps that the start took, the last one first: the logger's level and callback and the bit decoder are what they were before,
 * the run log is closed, all code pages are freed, and the registry of errors is empty; what the program itself added to these goes
 * with them. Another start may follow. Nothing without one. */
COD_API void codInfraStop(void);

/* The cached clock of codInfraStart; it holds no time while it does not run. Never null. */
COD_API const CodTimer *codInfraTimer(void);

/* Where the code-page files are, terminated: the folder admin/codepage of the one that the environment variable VELDB_HOME names; without
 * that variable the install's own, share/vel_infra/admin/codepage in the nearest folder above the shared library that has it, or above
 * the program or library that this one is linked into. One that was loaded by a relative path is found from the directory of that time
 * only. Errors: ERR_CMM_POINTER_NULL; ERR_CMM_ENV_ERROR when there is neither; ERR_CMM_BUFFER_SIZE_TOO_SMALL. */
COD_NODISCARD COD_API CodResult codInfraCodepageFolder(char *buf, CodUint32 bufSize);

COD_END_DECLS

#endif
