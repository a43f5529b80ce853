// Real-time audit by LD_PRELOAD: counts heap and mutex calls made by the
// calling thread while counting is on. A host preloads this library, looks up
// rtcount_begin / rtcount_end with dlsym(RTLD_DEFAULT, ...) and brackets the
// calls it audits; without the preload the lookups fail and the host skips.
// RTCOUNT_TRACE=1 prints the call stack of every counted call, to find it.
//
// The malloc family goes straight to glibc's __libc_* entry points and the
// mutex calls to the __pthread_* ones, so no lookup ever runs inside an
// interposed call.
#include "rtcount.h"

#include <cstddef>
#include <cstdlib>
#include <execinfo.h>
#include <new>
#include <pthread.h>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
int __pthread_mutex_lock(pthread_mutex_t*);
int __pthread_mutex_trylock(pthread_mutex_t*);
int __pthread_mutex_unlock(pthread_mutex_t*);
}

namespace {

thread_local bool counting = false;
thread_local RtCounts counts;

void Count(long& field) {
    if (!counting) return;
    ++field;
    if (getenv("RTCOUNT_TRACE") == nullptr) return;
    counting = false; // backtrace may allocate
    void* frames[24];
    backtrace_symbols_fd(frames, backtrace(frames, 24), 2);
    counting = true;
}

void* Aligned(size_t alignment, size_t size) {
    return __libc_memalign(alignment < sizeof(void*) ? sizeof(void*) : alignment, size ? size : 1);
}

void* NewOrThrow(size_t size, size_t alignment) {
    Count(counts.news);
    void* p = alignment ? Aligned(alignment, size) : __libc_malloc(size ? size : 1);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

void* NewNoThrow(size_t size, size_t alignment) noexcept {
    Count(counts.news);
    return alignment ? Aligned(alignment, size) : __libc_malloc(size ? size : 1);
}

void Delete(void* p) noexcept {
    if (p != nullptr) Count(counts.deletes);
    __libc_free(p);
}

} // namespace

extern "C" {

void rtcount_begin(void) {
    counts = RtCounts{};
    counting = true;
}

RtCounts rtcount_end(void) {
    counting = false;
    return counts;
}

void* malloc(size_t size) {
    Count(counts.mallocs);
    return __libc_malloc(size);
}
void* calloc(size_t n, size_t size) {
    Count(counts.mallocs);
    return __libc_calloc(n, size);
}
void* realloc(void* p, size_t size) {
    Count(counts.mallocs);
    return __libc_realloc(p, size);
}
void free(void* p) {
    if (p != nullptr) Count(counts.frees);
    __libc_free(p);
}
void* memalign(size_t alignment, size_t size) {
    Count(counts.mallocs);
    return __libc_memalign(alignment, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    Count(counts.mallocs);
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size) {
    Count(counts.mallocs);
    *out = __libc_memalign(alignment, size);
    return *out == nullptr ? 12 /* ENOMEM */ : 0;
}

int pthread_mutex_lock(pthread_mutex_t* m) {
    Count(counts.locks);
    return __pthread_mutex_lock(m);
}
int pthread_mutex_trylock(pthread_mutex_t* m) {
    Count(counts.locks);
    return __pthread_mutex_trylock(m);
}
int pthread_mutex_unlock(pthread_mutex_t* m) {
    Count(counts.unlocks);
    return __pthread_mutex_unlock(m);
}

} // extern "C"

// clang-format off
void* operator new(size_t n) { return NewOrThrow(n, 0); }
void* operator new[](size_t n) { return NewOrThrow(n, 0); }
void* operator new(size_t n, std::align_val_t a) { return NewOrThrow(n, size_t(a)); }
void* operator new[](size_t n, std::align_val_t a) { return NewOrThrow(n, size_t(a)); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return NewNoThrow(n, 0); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return NewNoThrow(n, 0); }
void* operator new(size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return NewNoThrow(n, size_t(a)); }
void* operator new[](size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return NewNoThrow(n, size_t(a)); }
void operator delete(void* p) noexcept { Delete(p); }
void operator delete[](void* p) noexcept { Delete(p); }
void operator delete(void* p, size_t) noexcept { Delete(p); }
void operator delete[](void* p, size_t) noexcept { Delete(p); }
void operator delete(void* p, std::align_val_t) noexcept { Delete(p); }
void operator delete[](void* p, std::align_val_t) noexcept { Delete(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { Delete(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { Delete(p); }
// clang-format on
