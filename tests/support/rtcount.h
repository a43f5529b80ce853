/* Counts of the real-time audit library (rtcount.so), plain C for C hosts. */
#ifndef VANTOR_RTCOUNT_H
#define VANTOR_RTCOUNT_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct RtCounts {
    long mallocs; /* malloc, calloc, realloc and the aligned forms */
    long frees;
    long news; /* every form of operator new */
    long deletes;
    long locks; /* pthread_mutex_lock and trylock */
    long unlocks;
} RtCounts;

/* Starts counting on the calling thread, from zero. */
void rtcount_begin(void);
/* Stops counting and answers the counts since rtcount_begin. */
RtCounts rtcount_end(void);

typedef void (*RtCountBeginFn)(void);
typedef RtCounts (*RtCountEndFn)(void);

#ifdef __cplusplus
}
#endif

#endif
