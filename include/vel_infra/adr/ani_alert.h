#ifndef VEL_INFRA_ADR_ANI_ALERT_H
#define VEL_INFRA_ADR_ANI_ALERT_H

/* Alerts: conditions that an operator should know of, raised once and cleared when they are over. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

enum {
    ALERT_MEMORY_POOL = 8, /* a memory pool is exhausted */
};

/* Receives an alert: its kind, its text (borrowed for the call) and whether it is raised (true) or cleared (false). Called on the
 * thread that met the condition, with no lock of the library held. */
typedef void (*AniAlertCallback)(CodUint32 kind, const char *text, CodBool isRaise);

/* Installs the receiver, at start-up; null: alerts go to the logger at level WARN. */
COD_API void aniSetAlertCallback(AniAlertCallback callback);

/* Sends an alert. A text of 256 bytes or more is cut. Any thread. */
COD_API void aniSendAlert(CodUint32 kind, CodBool isRaise, const char *fmt, ...) COD_PRINTF(3, 4);

COD_END_DECLS

#endif
