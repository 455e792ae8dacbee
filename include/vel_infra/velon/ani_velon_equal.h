#ifndef VEL_INFRA_VELON_ANI_VELON_EQUAL_H
#define VEL_INFRA_VELON_ANI_VELON_EQUAL_H

/* Equality and hashes of values, whatever bytes they are stored in.
 *
 * Numbers of all types are equal when they are the same number, exactly: TINYINT 1, DOUBLE 1.0 and NUMBER 1, but not DOUBLE 0.1 and NUMBER
 * 0.1. NaN equals NaN; zeros of both signs are equal. Values of other types are equal to none of a different type. Strings and binaries
 * are equal byte by byte; arrays by their elements in order; objects when they have the same keys with equal values, in whatever order
 * they were written. Meant for documents that pass velonCheckData; objects whose key tables are not in order are compared as they are. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

/* Errors: the readers'; ERR_CMM_VELON_NESTING_TOO_DEEPLY below VELON_MAX_DEPTH containers or for too much work. */
COD_NODISCARD COD_API CodResult velonEqual(const Velon *left, const Velon *right, CodBool *isEqual);
/* Equal values have equal hashes, on every machine; not for storing. Errors: as velonEqual. */
COD_NODISCARD COD_API CodResult velonHash(const Velon *velon, CodUint64 *hash);

COD_END_DECLS

#endif
