/* The library opened late, as foreign-function interfaces and plug-ins do: it must load, and raise errors on any thread.
 *   dlopen_test LIBRARY */

#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>

typedef void (*SetError)(const char *, unsigned, const char *, unsigned, const char *, ...);
typedef const char *(*GetMessage)(void);
static SetError setError;
static GetMessage getMessage;

/* Doubles among the arguments: they travel in vector registers, which setting up the thread's data must not touch. */
static void *raise(void *result) {
    setError("file.c", 1, "raise", 40, "%.1f %.1f %.1f %.1f", 1.5, 2.5, 3.5, 4.5);
    *(int *)result = strcmp(getMessage(), "VEL-00040 1.5 2.5 3.5 4.5") != 0;
    return NULL;
}

int main(int argc, char **argv) {
    void *library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    if (library == NULL) {
        fprintf(stderr, "%s\n", argc == 2 ? dlerror() : "usage: dlopen_test LIBRARY");
        return 1;
    }
    *(void **)&setError = dlsym(library, "codSetError");
    *(void **)&getMessage = dlsym(library, "codGetErrorMsg2");
    int failed[3] = {1, 1, 1};
    pthread_t threads[2];
    raise(&failed[0]);
    for (int i = 0; i < 2; i++) {
        if (pthread_create(&threads[i], NULL, raise, &failed[i + 1]) == 0) {
            pthread_join(threads[i], NULL);
        }
    }
    return failed[0] + failed[1] + failed[2];
}
