#include <stdio.h>
#include <vel_infra/vel_infra.h>

static CodResult greet(MemoryContext *context, const char *name, void **greeting) {
    if (name[0] == '\0') return codRaise(ERR_CMM_INVALID_PARAMETER, "the name is empty");
    COD_TRY(mctxAlloc(context, 64, greeting)); /* passes a failure on, and notes this line */
    snprintf((char *)*greeting, 64, "hello, %.50s", name);
    return COD_SUCCESS;
}

int main(void) {
    MemoryPool pool;
    MemoryContext *context;
    void *greeting;
    if (mpoolCreate(16, 8192, MEM_RSRC_APP_POOL, "first steps", &pool) != COD_SUCCESS) return 1;
    if (mctxCreate(&pool, &context) != COD_SUCCESS) return 1;
    if (greet(context, "database", &greeting) == COD_SUCCESS) puts((char *)greeting);
    if (greet(context, "", &greeting) != COD_SUCCESS) puts(codGetErrorMsg2());
    mctxDestroy(context); /* and everything allocated from it */
    mpoolDestroy(&pool);
    return 0;
}
