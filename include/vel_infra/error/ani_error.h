#ifndef VEL_INFRA_ERROR_ANI_ERROR_H
#define VEL_INFRA_ERROR_ANI_ERROR_H

/* The database server's error table (codes 1200 to 9409), carried for the server, and the SQL states. So far the table holds the rows that
 * this library raises itself. */

#include <vel_infra/base/cod_types.h>
#include <vel_infra/error/ani_error_def.h>

COD_BEGIN_DECLS

/* Registers the server's table. Errors: as codRegErrorDef. */
COD_NODISCARD COD_API CodResult codRegErrModANS(void);
/* How many rows the table holds. */
COD_API CodUint32 aniGetErrCount(void);
/* The definition at a position of the table; null behind its end. */
COD_API const CodErrDef *aniGetErrDef(CodUint32 pos);

/* The five-character SQL state of a code; "00000" for 0, "HY000" for a code without one of its own. A constant text. */
COD_API const char *aneGetSqlState(CodError code);

COD_END_DECLS

#endif
