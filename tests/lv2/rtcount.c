/* LD_PRELOAD counter of allocations and locks, per thread, while switched on.
 * The test host finds rtcount_start/rtcount_stop with dlsym. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>

extern void* __libc_malloc(size_t);
extern void* __libc_calloc(size_t, size_t);
extern void* __libc_realloc(void*, size_t);
extern void* __libc_memalign(size_t, size_t);
extern void __libc_free(void*);

static __thread int counting;
static __thread long count;

__attribute__((visibility("default"))) void rtcount_start(void) {
    count = 0;
    counting = 1;
}

__attribute__((visibility("default"))) long rtcount_stop(void) {
    counting = 0;
    return count;
}

/* RTCOUNT_TRACE=1 prints the call stack of every counted call. */
static void Counted(void) {
    ++count;
    if (getenv("RTCOUNT_TRACE")) {
        void* frames[24];
        counting = 0;
        const int n = backtrace(frames, 24);
        backtrace_symbols_fd(frames, n, 2);
        counting = 1;
    }
}

#define COUNT()                                                                                    \
    do {                                                                                           \
        if (counting) Counted();                                                                   \
    } while (0)

__attribute__((visibility("default"))) void* malloc(size_t n) {
    COUNT();
    return __libc_malloc(n);
}
__attribute__((visibility("default"))) void* calloc(size_t a, size_t b) {
    COUNT();
    return __libc_calloc(a, b);
}
__attribute__((visibility("default"))) void* realloc(void* p, size_t n) {
    COUNT();
    return __libc_realloc(p, n);
}
__attribute__((visibility("default"))) void* memalign(size_t a, size_t n) {
    COUNT();
    return __libc_memalign(a, n);
}
__attribute__((visibility("default"))) void* aligned_alloc(size_t a, size_t n) {
    COUNT();
    return __libc_memalign(a, n);
}
__attribute__((visibility("default"))) int posix_memalign(void** p, size_t a, size_t n) {
    COUNT();
    *p = __libc_memalign(a, n);
    return *p ? 0 : 12;
}
__attribute__((visibility("default"))) void free(void* p) {
    COUNT();
    __libc_free(p);
}

typedef int (*LockFn)(pthread_mutex_t*);
__attribute__((visibility("default"))) int pthread_mutex_lock(pthread_mutex_t* m) {
    static LockFn next;
    if (!next) next = (LockFn)dlsym(RTLD_NEXT, "pthread_mutex_lock");
    COUNT();
    return next(m);
}
__attribute__((visibility("default"))) int pthread_mutex_trylock(pthread_mutex_t* m) {
    static LockFn next;
    if (!next) next = (LockFn)dlsym(RTLD_NEXT, "pthread_mutex_trylock");
    COUNT();
    return next(m);
}
