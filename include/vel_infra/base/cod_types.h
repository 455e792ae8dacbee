#ifndef VEL_INFRA_BASE_COD_TYPES_H
#define VEL_INFRA_BASE_COD_TYPES_H

/* Scalar types and the small records that every module passes around. */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include <vel_infra/base/cod_export.h>

typedef int8_t CodInt8;
typedef uint8_t CodUint8;
typedef int16_t CodInt16;
typedef uint16_t CodUint16;
typedef int32_t CodInt32;
typedef uint32_t CodUint32;
typedef int64_t CodInt64;
typedef uint64_t CodUint64;
typedef float CodFloat;
typedef double CodDouble;
typedef char CodChar;
typedef bool CodBool;
COD_STATIC_ASSERT(sizeof(CodBool) == 1, "a boolean is one byte");

/* Status of every fallible function. A function that returns COD_ERROR has left the reason on the calling thread's error stack
 * (error/ani_error_base.h), except where its comment says otherwise. */
typedef enum CodResult COD_ENUM_BASE {
    COD_ERROR = -1,
    COD_SUCCESS = 0,
    COD_SUCCESS_WITH_INFO = 1,
} CodResult;

/* An error code; 0: no error. Names and templates: error/ani_error_code.h. */
typedef CodUint32 CodError;

/* A position in a statement's text, as the caller counts it. The one record that is passed and returned by value. */
typedef struct CodTextPos {
    CodUint32 line;
    CodUint32 column;
    CodUint32 offset;
} CodTextPos;
COD_STATIC_ASSERT(sizeof(CodTextPos) == 12, "layout is fixed");

/* A text: bytes with a length. Borrowed, never owned, not terminated. */
typedef struct CodText {
    CodChar *str;
    CodUint32 len; /* bytes */
    CodUint8 aux;  /* the user's tag; text operations leave it alone unless they say otherwise */
} CodText;
COD_STATIC_ASSERT(sizeof(CodText) == 16, "layout is fixed");

/* A byte string. Borrowed, never owned. */
typedef struct CodBytes {
    CodUint8 *data;
    CodUint32 size; /* bytes */
    CodUint32 reserved;
} CodBytes;
COD_STATIC_ASSERT(sizeof(CodBytes) == 16, "layout is fixed");

/* A date and time: microseconds since 1970-01-01 00:00:00. */
typedef CodInt64 CodDate;

/* A point on the monotonic clock: nanoseconds since an unspecified start. */
typedef CodInt64 CodInstant;

#endif
