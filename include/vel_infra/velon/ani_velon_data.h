#ifndef VEL_INFRA_VELON_ANI_VELON_DATA_H
#define VEL_INFRA_VELON_ANI_VELON_DATA_H

/* Single encodings, read at a position of a view. Positions count from the view's first byte; nothing behind data->len is read. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

COD_API VelonData velonDataNew(const CodUint8 *ptr, CodUint32 len, CodUint32 aux);

/* pos is the position behind the type byte, at least 1: the views begin at the type byte. */
COD_NODISCARD COD_API CodResult velonDataReadObject(const VelonData *data, CodUint32 pos, VelonObject *object);
COD_NODISCARD COD_API CodResult velonDataReadArray(const VelonData *data, CodUint32 pos, VelonArray *array);
/* pos is that of the varint, whose bytes *headerLen tells. */
COD_NODISCARD COD_API CodResult velonDataReadString(const VelonData *data, CodUint32 pos, CodText *text, CodUint32 *headerLen);
COD_NODISCARD COD_API CodResult velonDataReadBinary(const VelonData *data, CodUint32 pos, CodBytes *bytes, CodUint32 *headerLen);

/* pos is that of the type byte. */
COD_NODISCARD COD_API CodResult velonDataReadValue(const VelonData *data, CodUint32 pos, VelonValue *value);
COD_NODISCARD COD_API CodResult velonDataReadLazyValue(const VelonData *data, CodUint32 pos, VelonLazyValue *lazy);

COD_END_DECLS

#endif
