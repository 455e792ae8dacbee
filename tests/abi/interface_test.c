/* The interface as a C program meets it through the shared library: every facility once, and the functions that the headers give
 * inline also through their exported names. Prints what failed; the status is the number of failures. */

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <vel_infra/vel_infra.h>

static int failures;
#define CHECK(condition)                                                    \
    do {                                                                    \
        if (!(condition)) {                                                 \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
            failures++;                                                     \
        }                                                                   \
    } while (0)

static CodResult raiseIndex(CodUint32 index) {
    return codRaise(ERR_CMM_OUT_OF_INDEX, index, 0u, 3u);
}

static CodResult passOn(CodUint32 index) {
    COD_TRY(raiseIndex(index));
    return COD_SUCCESS;
}

static void checkErrors(void) {
    CHECK(passOn(7) == COD_ERROR);
    CHECK(codGetErrorCode() == ERR_CMM_OUT_OF_INDEX);
    CHECK(strcmp(codGetErrorMsg2(), "VEL-00212 index 7 is out of [0, 3]") == 0);
    CHECK(strcmp(codGetErrorFile(), "interface_test.c") == 0);
    CodErrorPlace place;
    CHECK(codGetErrorTrace(&place, 1) == 1 && strcmp(place.funcName, "passOn") == 0);
    codCleanError();
    CHECK(codRaise(ERR_CMM_POINTER_NULL) == COD_ERROR && strcmp(codGetLastErrorMsg(), "null pointer") == 0);
    codCleanError();
    CHECK(codRegErrModCMM() == COD_SUCCESS && codRegErrModANS() == COD_SUCCESS);
    CHECK(codFindErrorDef(ERR_ANS_VALUE_ERROR) != NULL && strcmp(codFindErrorDef(103)->name, "ERR_CMM_ALLOC_MPOOL_BLOCK") == 0);
    codUnRegErrorDef();
}

/* Inline and exported allocation must place the same requests at the same positions. */
static void checkMemory(CodResult (*exportedAlloc)(MemoryContext *, CodUint32, void **)) {
    MemoryPool pool;
    MemoryContext *left = NULL;
    MemoryContext *right = NULL;
    CHECK(mpoolCreate(8, 256, MEM_RSRC_APP_POOL, "interface", &pool) == COD_SUCCESS);
    CHECK(mctxCreate(&pool, &left) == COD_SUCCESS && mctxCreate(&pool, &right) == COD_SUCCESS);
    static const CodUint32 kSizes[] = {0, 1, 8, 100, 33, 200, 256, 8, 257, 0xFFFFFFFFu};
    for (size_t i = 0; i < sizeof kSizes / sizeof *kSizes; i++) {
        void *one = NULL;
        void *other = NULL;
        const CodResult result = mctxAlloc(left, kSizes[i], &one);
        CHECK(result == exportedAlloc(right, kSizes[i], &other));
        CHECK(left->currPos == right->currPos && left->blocks.count == right->blocks.count);
        CHECK((result == COD_SUCCESS) == (kSizes[i] <= 256) && (one != NULL) == (other != NULL));
    }
    mctxDestroy(left);
    mctxDestroy(right);
    CHECK(pool.freeBlocks.count == 8 && mpoolVerify(&pool) == COD_SUCCESS);
    mpoolDestroy(&pool);
    codCleanError();
}

static void checkContainers(CodResult (*exportedPush)(CodDArray *, const void *)) {
    CodDArray array;
    codDArrayInit(&array, sizeof(CodUint64), codMemGetSystemAlloc(), 0);
    for (CodUint64 i = 0; i < 100; i++) {
        CHECK((i % 2 == 0 ? codDArrayPushBackItem(&array, &i) : exportedPush(&array, &i)) == COD_SUCCESS);
        CHECK(*(CodUint64 *)codDArrayAt(&array, (CodUint32)i) == i);
    }
    codDArrayRelease(&array);

    CodHashMap map;
    memset(&map, 0, sizeof map);
    StHmapInitCallbackSet callbacks = {
        .keyCompare = codHashCompareUint64, .hashCalc = codHashCalcUint64, .hashAlloc = hashMapMalloc, .hashFree = hashMapFree};
    CHECK(codHMapInit(&map, &callbacks, 0) == COD_SUCCESS);
    for (CodUint64 i = 0; i < 100; i++) {
        CodHashEntry *entry = hashMapMalloc(sizeof *entry, NULL);
        entry->key.intValue = i;
        entry->value.intValue = i * i;
        CHECK(codHMapAdd(&map, entry) == COD_SUCCESS);
    }
    CHECK(codHMapFind(&map, (CodHashPointer){.intValue = 9})->value.intValue == 81);
    codHMapRelease(&map);
}

static void checkEstimate(void) {
    CodUint8 registers[64];
    codHllInit(registers, 64);
    CodUint8 byte = 1;
    const CodBytes value = {.data = &byte, .size = 1, .reserved = 0};
    codHllAdd(registers, 64, &value);
    CHECK(codHllCalculate(registers, 64) == 1);
}

int main(void) {
    /* Function pointers of another type are what dlsym gives; POSIX promises that the conversion works. */
    CodResult (*exportedAlloc)(MemoryContext *, CodUint32, void **);
    CodResult (*exportedPush)(CodDArray *, const void *);
    *(void **)&exportedAlloc = dlsym(RTLD_DEFAULT, "mctxAlloc");
    *(void **)&exportedPush = dlsym(RTLD_DEFAULT, "codDArrayPushBackItem");
    CHECK(exportedAlloc != NULL && exportedPush != NULL);
    if (failures == 0) {
        checkErrors();
        checkMemory(exportedAlloc);
        checkContainers(exportedPush);
        checkEstimate();
    }
    return failures;
}
