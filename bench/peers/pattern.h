/* The reference pattern shared by the peer hosts: 48 kHz, 32-frame blocks,
 * NOTES notes on keys 48 + 3n held 0.9 s and released 0.1 s, repeated; the
 * CPU time of the run(s) is reported as a real-time factor. */
#pragma once
#include <stdio.h>
#include <time.h>

#define PATTERN_RATE 48000
#define PATTERN_BLOCK 32
#define PATTERN_SECONDS 20

static double pattern_cpu_seconds(void) {
    struct timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

/* Calls note(key, on, user) at the block boundaries and render(user) for every
 * block, then prints one line for the case. */
static void pattern_run(const char* peer, const char* label, int notes,
                        void (*note)(int key, int on, void* user), void (*render)(void* user),
                        void* user) {
    const int held = (int)(0.9 * PATTERN_RATE) / PATTERN_BLOCK;
    const int cycle = PATTERN_RATE / PATTERN_BLOCK;
    const int blocks = PATTERN_SECONDS * cycle;
    const double start = pattern_cpu_seconds();
    for (int b = 0; b < blocks; ++b) {
        const int at = b % cycle;
        for (int n = 0; n < notes; ++n) {
            if (at == 0) note(48 + 3 * n, 1, user);
            if (at == held) note(48 + 3 * n, 0, user);
        }
        render(user);
    }
    const double cpu = pattern_cpu_seconds() - start;
    printf("%-8s %-10s %9.1fx real time  %8.3f %% of a core  %7.2f us per block\n", peer, label,
           PATTERN_SECONDS / cpu, 100.0 * cpu / PATTERN_SECONDS, 1e6 * cpu / blocks);
}
