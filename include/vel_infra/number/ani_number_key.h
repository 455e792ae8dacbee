#ifndef VEL_INFRA_NUMBER_ANI_NUMBER_KEY_H
#define VEL_INFRA_NUMBER_ANI_NUMBER_KEY_H

/* Sort keys of NUMBER: byte strings whose memcmp order is the numeric order, for indexes and sorts that know nothing of types.
 *
 * Equal values give equal keys, and no key is a prefix of another, so keys may be followed by those of further columns. 1 to 21 bytes: one
 * for zero, else two and one for every two significant digits. The layout (docs/number.md) is persisted: it never changes. */

#include <vel_infra/number/ani_number.h>

COD_BEGIN_DECLS

/* Room for every key. */
#define COD_NUMBER_KEY_SIZE 21

/* The key of n into key->data, a buffer of COD_NUMBER_KEY_SIZE bytes; sets key->size. Errors: ERR_CMM_NUMERIC_OVERFLOW for what no result
 * of an operation is: more than 38 significant digits, 10^126 or more, below 10^-130. */
COD_API CodResult codNumberToSortKey(const CodNumber *n, CodBytes *key);
/* The value of a key, its coefficient without trailing zeros; key->size must be the key's own, as codNumberSortKeySize has it.
 * Errors: ERR_CMM_BYTES_ERROR for bytes that no value gives. */
COD_API CodResult codNumberFromSortKey(const CodBytes *key, CodNumber *n);
/* The size of the key that these bytes begin with; 0 when they begin with none. */
COD_API CodUint32 codNumberSortKeySize(const CodBytes *bytes);

COD_END_DECLS

#endif
