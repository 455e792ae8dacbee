#ifndef VEL_INFRA_VELON_ANI_VELON_PATCH_H
#define VEL_INFRA_VELON_ANI_VELON_PATCH_H

/* Changed copies of documents. Results are owner's memory, to be freed with velonFree; on failure *result is untouched. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

/* A copy in which the scalar that the path leads to (ani_velon_path.h) has the value given, which must be of the same type, one of fixed
 * width: BOOL, TINYINT to BIGINT, FLOAT, DOUBLE, TIMESTAMP, DATE, TIME. Nothing else changes. Dates and times are not checked.
 * Errors: those of velonGetPath; ERR_CMM_VELON_UNEXPECTED_TYPE for a value of another type, ERR_CMM_INVALID_PARAMETER for a type that has
 * no fixed width, ERR_CMM_VELON_EXCEEDS_MAX_SIZE; the owner's. */
COD_NODISCARD COD_API CodResult velonPatchScalar(CodMemAlloc *owner, const Velon *velon, const CodText *path, const VelonValue *value,
                                                 Velon *result);

/* The merge patch of RFC 7396: members of the patch replace or join those of the target, objects member by member; null removes. A patch
 * that is no object is the result. Merged objects have their members in key order. Meant for documents that pass velonCheckData.
 * Errors: the readers'; those of the builders; ERR_CMM_VELON_TOO_MANY_CHILDREN when a merged object has more than VELON_MAX_ELEMENTS. */
COD_NODISCARD COD_API CodResult velonMergePatch(CodMemAlloc *owner, const Velon *target, const Velon *patch, Velon *result);

COD_END_DECLS

#endif
