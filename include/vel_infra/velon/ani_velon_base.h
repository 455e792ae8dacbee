#ifndef VEL_INFRA_VELON_ANI_VELON_BASE_H
#define VEL_INFRA_VELON_ANI_VELON_BASE_H

/* Velon, binary JSON: types, limits and records of all its modules. The format byte by byte: docs/velon.md.
 *
 * A document is one encoded value, read in place. For every operation on documents:
 *
 * 1. Records are views: they borrow the document's bytes, which nothing changes while they are in use. Any number of threads may read.
 * 2. Bytes may come from anywhere: every read is checked against the view first. Errors of all readers:
 *    ERR_CMM_VELON_INDEX_OUT_OF_BOUNDS, ERR_CMM_VELON_INVALID_TYPE, ERR_CMM_VELON_INVALID_VARINT, ERR_CMM_VELON_INVALID_NUMBER (a NUMBER's
 *    length above 20), ERR_CMM_BYTES_ERROR (its bytes are no NUMBER) and ERR_CMM_POINTER_NULL; further ones stand beside the function.
 *    What velonCheckData accepts, every reader reads without an error.
 * 3. A failed read leaves its outputs untouched. Readers do not allocate.
 * 4. A container may not reach beyond the one it lies in, nor a value beyond its container.
 * 5. Texts are not terminated, and are UTF-8 only where velonCheckData has seen them. */

#include <vel_infra/base/cod_types.h>
#include <vel_infra/memory/ani_allocator.h>
#include <vel_infra/number/ani_number.h>
#include <vel_infra/utils/ani_datetime.h>

COD_BEGIN_DECLS

/* The first byte of every value. Persisted: never renumber. */
typedef enum VelonType COD_ENUM_BASE {
    VELON_TYPE_INVALID = 0,
    VELON_TYPE_OBJECT = 1,
    VELON_TYPE_ARRAY = 2,
    VELON_TYPE_STRING = 3,
    VELON_TYPE_NUMBER = 4,
    VELON_TYPE_BOOL = 5,
    VELON_TYPE_NULL = 6,
    VELON_TYPE_TINYINT = 7,
    VELON_TYPE_SMALLINT = 8,
    VELON_TYPE_INTEGER = 9,
    VELON_TYPE_BIGINT = 10,
    VELON_TYPE_FLOAT = 11,
    VELON_TYPE_DOUBLE = 12,
    VELON_TYPE_BINARY = 13,
    VELON_TYPE_TIMESTAMP = 14,
    VELON_TYPE_DATE = 15,
    VELON_TYPE_TIME = 16,
    _VELON_TYPE_COUNT_ = 17
} VelonType;

enum {
    VELON_MAX_SIZE = 0x2000000,    /* bytes of a document that is built here */
    VELON_MAX_LENGTH = 0x0FFFFFFF, /* bytes of a string or binary: what four varint bytes hold */
    VELON_MAX_ELEMENTS = 65535,    /* members of an object, elements of an array */
    VELON_MAX_KEY_LENGTH = 65535,  /* bytes */
    VELON_MAX_DEPTH = 100,         /* containers open at once in a builder, and around each that validation accepts */
    VELON_WORK_FACTOR = 128,       /* bytes visited for each byte of a document, before it counts as nested too deeply */
};

/* A piece of a document: a value, or from there to the end of what it lies in. */
typedef struct VelonData {
    const CodUint8 *ptr; /* the type byte */
    CodUint32 len;       /* bytes that may be read */
    CodUint32 aux;       /* members of an object or array; the capacity of the buffer that the bytes were built in */
} VelonData;
COD_STATIC_ASSERT(sizeof(VelonData) == 16 && offsetof(VelonData, len) == 8 && offsetof(VelonData, aux) == 12, "layout is fixed");

/* A document's handle. */
typedef struct Velon {
    CodMemAlloc *owner; /* frees the bytes; null: they belong to someone else */
    VelonData data;
} Velon;
COD_STATIC_ASSERT(sizeof(Velon) == 24, "layout is fixed");

typedef struct VelonObject {
    VelonData data;             /* the whole object: len is 5 + size, aux the member count */
    const CodUint8 *keyOffsets; /* u32 each, unaligned, in key order */
} VelonObject;
COD_STATIC_ASSERT(sizeof(VelonObject) == 24, "layout is fixed");

typedef struct VelonArray {
    VelonData data;             /* as of an object */
    const CodUint8 *valueEntry; /* five bytes each: type, u32 */
} VelonArray;
COD_STATIC_ASSERT(sizeof(VelonArray) == 24 && offsetof(VelonArray, valueEntry) == 16, "layout is fixed");

/* A decoded value. NULL has none. */
typedef struct VelonValue {
    VelonType type;
    union {
        VelonObject object;
        VelonArray array;
        CodText text;     /* STRING */
        CodBytes bytes;   /* BINARY; read only */
        CodNumber number; /* NUMBER */
        CodBool boolean;
        CodInt8 tinyint;
        CodInt16 smallint;
        CodInt32 integer;
        CodInt64 bigint;
        CodFloat float32;
        CodDouble float64;
        CodInt64 datetime; /* TIMESTAMP and DATE: a CodDate; TIME: a CodShortTime */
    } u;
} VelonValue;
COD_STATIC_ASSERT(sizeof(VelonType) == 4 && offsetof(VelonValue, u) == 8, "layout is fixed");

/* A value found, not decoded yet. */
typedef struct VelonLazyValue {
    VelonData data;        /* not isArrayMember: from the value's type byte to the end of what it lies in; else the array's view */
    CodUint32 valuePos;    /* isArrayMember: the entry's u32, the inline value or the offset */
    VelonType type;        /* the value's type byte; isArrayMember: the entry's */
    CodBool isArrayMember; /* the value stands in, or is reached by, an array's entry */
} VelonLazyValue;

/* A growing output buffer. */
typedef struct VelonBuf {
    CodMemAlloc *owner;
    CodUint8 *ptr; /* the owner's memory, this record's until it is moved or freed */
    CodUint32 capacity;
    CodUint32 len;
} VelonBuf;
COD_STATIC_ASSERT(sizeof(VelonBuf) == 24, "layout is fixed");

/* A builder's place among the open ones. Zeroed: there is none yet. */
typedef struct VelonDepth {
    CodUint32 current; /* nesting level, 1 for the outermost builder */
    union {
        CodUint32 count;      /* current is 0 or 1: builders open */
        CodUint32 *outermost; /* else: that builder's count */
    } total;
} VelonDepth;

/* The name of a type, "object" to "time"; null for what is no type. */
COD_API const char *velonTypeName(VelonType type);
/* The same as a text. */
COD_API const CodText *velonTypeNameText(VelonType type);
/* Whether a byte is a type code: 1 to 16. */
COD_API CodBool velonTypeIsValid(CodUint32 type);

COD_END_DECLS

#endif
