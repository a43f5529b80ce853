/* Host-level torture of the engine through its C interface only. Each row
 * prints one line with its figure; the exit status counts the failed rows.
 *
 *   vantor_torture ENGINE.so [ROW...]     rows 1 to 10, all when none given
 *   vantor_torture ENGINE.so --soak SECONDS
 *
 * Row 5 needs rtcount.so preloaded (LD_PRELOAD) and skips otherwise. */
#define _GNU_SOURCE
#include "rtcount.h"

#include <vantor/host.h>

#include <dlfcn.h>
#include <locale.h>
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#define CALL(p, slot, type, ...) VANTOR_SLOT(p, slot, type)(p, __VA_ARGS__)
#define CALL0(p, slot, type) VANTOR_SLOT(p, slot, type)(p)
#define MAX_PARAMS 8192
#define LIMIT 6.0f

static VantorFactory* factory;
static uint32_t paramCount;
static char names[MAX_PARAMS][64];
static int32_t steps[MAX_PARAMS];

/* ---- engine access ---- */

static VantorProcessor* NewProcessor(float rate) {
    VantorProcessor* p =
        VANTOR_SLOT(factory, VANTOR_FACTORY_CREATE_PROCESSOR, VantorFactoryCreateFn)(factory);
    CALL(p, VANTOR_SLOT_INITIALIZE, VantorInitializeFn, 0);
    CALL(p, VANTOR_SLOT_SET_SAMPLE_RATE, VantorSetSampleRateFn, &rate);
    return p;
}

static void Free(VantorProcessor* p) {
    CALL(p, VANTOR_SLOT_RELEASE, VantorReleaseFn, VANTOR_RELEASE_FREE);
}

static void ReadNames(VantorProcessor* p) {
    paramCount = (uint32_t)CALL0(p, VANTOR_SLOT_GET_PARAM_COUNT, VantorGetParamCountFn);
    if (paramCount > MAX_PARAMS) paramCount = MAX_PARAMS;
    for (uint32_t id = 0; id < paramCount; ++id) {
        VantorParamInfo info;
        CALL(p, VANTOR_SLOT_GET_PARAM_INFO, VantorGetParamInfoFn, id, &info);
        snprintf(names[id], sizeof names[id], "%.*s", (int)strnlen(info.name, 256), info.name);
        steps[id] = info.nbValues;
    }
}

static uint32_t Id(const char* name) {
    for (uint32_t id = 0; id < paramCount; ++id)
        if (strcmp(names[id], name) == 0) return id;
    fprintf(stderr, "unknown parameter %s\n", name);
    exit(3);
}

static bool Set(VantorProcessor* p, uint32_t id, float value) {
    return CALL(p, VANTOR_SLOT_SET_PARAM, VantorSetParamFn, id, value);
}

static void SetName(VantorProcessor* p, const char* name, float value) {
    Set(p, Id(name), value);
}

static float Get(VantorProcessor* p, uint32_t id) {
    float value = 0.0f;
    CALL(p, VANTOR_SLOT_GET_PARAM, VantorGetParamFn, id, &value);
    return value;
}

static bool Midi(VantorProcessor* p, uint32_t message) {
    const VantorMidiEvent event = {message, 0, 0};
    return CALL(p, VANTOR_SLOT_PROCESS_MIDI_MESSAGE, VantorProcessMidiFn, &event);
}

static uint32_t Note(int on, int channel, int key, int velocity) {
    return (on ? 0x90u : 0x80u) | (uint32_t)(channel & 15) | (uint32_t)(key & 127) << 8 |
           (uint32_t)(velocity & 127) << 16;
}

static bool RenderFrames(VantorProcessor* p, float* left, float* right, uint32_t frames,
                         float rate) {
    float* outputs[2] = {left, right};
    VantorRenderContext ctx;
    memset(&ctx, 0, sizeof ctx);
    ctx.outputs = outputs;
    ctx.frameCount = frames;
    ctx.sampleRate = rate;
    ctx.tempo = 120.0f;
    return CALL(p, VANTOR_SLOT_RENDER, VantorRenderFn, &ctx);
}

/* One host block: voice setup, then render. MIDI is sent by the caller in between. */
static void Block(VantorProcessor* p, float* left, float* right, float rate) {
    RenderFrames(p, left, right, 32, rate);
}

static void Changes(VantorProcessor* p, const VantorValueChange** list, int32_t* count) {
    CALL(p, VANTOR_SLOT_GET_CHANGED_VALUES, VantorGetChangedValuesFn, list, count);
}

static uint64_t StateSize(VantorProcessor* p) {
    uint64_t size = 0;
    CALL(p, VANTOR_SLOT_GET_STATE, VantorGetStateFn, NULL, &size);
    return size;
}

static unsigned char* GetState(VantorProcessor* p, uint64_t* size) {
    *size = StateSize(p);
    unsigned char* blob = malloc(*size ? *size : 1);
    CALL(p, VANTOR_SLOT_GET_STATE, VantorGetStateFn, blob, size);
    return blob;
}

static bool SetState(VantorProcessor* p, const void* blob, uint64_t size) {
    return CALL(p, VANTOR_SLOT_SET_STATE, VantorSetStateFn, blob, size);
}

/* Every voice playing voice 1's parameters in zone 1: a modulated sawtooth
 * through the filter, envelope 1 on the VCA, both effect slots on. */
static void Patch(VantorProcessor* p, int effect0, int effect1) {
    char name[64];
    SetName(p, "master_volume", 0.5f);
    SetName(p, "master_fine_tune", 0.5f);
    SetName(p, "pitchbend", 0.5f);
    for (int v = 1; v <= 12; ++v) {
        const char* fields[] = {"isenable", "volume",    "pan",       "detune",      "transpose",
                                "zone",     "vca1_gain", "vca2_gain", "osc1_detune", "osc2_detune"};
        const float values[] = {1.0f, 1.0f, 0.5f, 0.5f, 0.6f, 0.0f, 0.0f, 1.0f, 0.5f, 0.5f};
        for (int k = 0; k < 10; ++k) {
            snprintf(name, sizeof name, "voice%d_%s", v, fields[k]);
            SetName(p, name, values[k]);
        }
    }
    SetName(p, "zone1_min_note", 0.0f);
    SetName(p, "zone1_max_note", 1.0f);
    SetName(p, "zone1_channel_selector", 0.0f);
    SetName(p, "zone1_playmode", 2.5f / 6.0f);
    SetName(p, "presetmode", 0.0f);
    SetName(p, "voice1_osc1_saw-on", 1.0f);
    SetName(p, "voice1_osc1_keyboard_follow", 1.0f);
    SetName(p, "voice1_osc1_freq", 12.0f / 63.0f);
    SetName(p, "voice1_osc1_volume", 0.5f);
    SetName(p, "voice1_vcf_cutoff", 0.8f);
    SetName(p, "voice1_env1_sustain", 0.7f);
    SetName(p, "voice1_env1_amp", 1.0f);
    SetName(p, "voice1_env1_release", 0.3f);
    /* envelope 1 on VCA 1, LFO 1 on the cutoff */
    SetName(p, "voice1_matrix1_src", 11.5f / 28.0f);
    SetName(p, "voice1_matrix1_dest", 9.5f / 48.0f);
    SetName(p, "voice1_matrix1_amount", 1.0f);
    SetName(p, "voice1_matrix2_src", 16.5f / 28.0f);
    SetName(p, "voice1_matrix2_dest", 7.5f / 48.0f);
    SetName(p, "voice1_matrix2_amount", 0.6f);
    SetName(p, "voice1_lfo1_speed", 0.4f);
    SetName(p, "effect0_selector", (effect0 + 0.5f) / 7.0f);
    SetName(p, "effect0_active", effect0 > 0 ? 1.0f : 0.0f);
    SetName(p, "effect1_selector", (effect1 + 0.5f) / 7.0f);
    SetName(p, "effect1_active", effect1 > 0 ? 1.0f : 0.0f);
    CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
}

static void Chord(VantorProcessor* p, int on) {
    const int keys[] = {48, 55, 60, 64, 67};
    for (int k = 0; k < 5; ++k) Midi(p, Note(on, 0, keys[k], 100));
}

/* Output statistics over written frames. */
typedef struct Stats {
    double peak;
    double maxStep;
    long nonFinite;
    long subnormal;
    long samples;
    float last[2];
} Stats;

static void Measure(Stats* s, const float* left, const float* right, uint32_t frames) {
    const float* ch[2] = {left, right};
    for (int c = 0; c < 2; ++c) {
        for (uint32_t n = 0; n < frames; ++n) {
            const float x = ch[c][n];
            ++s->samples;
            if (!isfinite(x)) {
                ++s->nonFinite;
                continue;
            }
            if (fpclassify(x) == FP_SUBNORMAL) ++s->subnormal;
            if (fabsf(x) > s->peak) s->peak = fabsf(x);
            const double step = fabs((double)x - s->last[c]);
            if (s->samples > 2 && step > s->maxStep) s->maxStep = step;
            s->last[c] = x;
        }
    }
}

static uint32_t randomState = 1;
static uint32_t Random(void) {
    randomState ^= randomState << 13;
    randomState ^= randomState >> 17;
    randomState ^= randomState << 5;
    return randomState;
}
static float Uniform(void) {
    return (float)(Random() % 1000001) / 1000000.0f;
}

static double Now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec * 1e-9;
}

static int Report(int row, int ok, const char* text) {
    printf("row %d: %s %s\n", row, ok ? "ok  " : "FAIL", text);
    fflush(stdout);
    return ok ? 0 : 1;
}

/* ---- rows ---- */

static int Row1Rates(void) {
    const float rates[] = {22050.0f, 44100.0f, 44100.5f,  48000.0f,
                           88200.0f, 96000.0f, 176400.0f, 192000.0f};
    const uint32_t frames[] = {0, 1, 7, 31, 32, 33};
    Stats s = {0};
    int refused = 0;
    for (int r = 0; r < 8; ++r) {
        for (int f = 0; f < 6; ++f) {
            VantorProcessor* p = NewProcessor(rates[r]);
            Patch(p, 1 + (r + f) % 6, 1 + (r + f + 3) % 6);
            Chord(p, 1);
            float left[64], right[64];
            for (int b = 0; b < 400; ++b) {
                CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
                if (b == 200) Chord(p, 0);
                if (!RenderFrames(p, left, right, frames[f], rates[r])) ++refused;
                Measure(&s, left, right, frames[f] < 32 ? frames[f] : 32);
            }
            Free(p);
        }
    }
    char text[200];
    snprintf(text, sizeof text,
             "8 rates x 6 frame counts: peak %.3f, %ld non-finite of %ld, %d renders refused",
             s.peak, s.nonFinite, s.samples, refused);
    return Report(1, s.peak < LIMIT && s.nonFinite == 0 && refused == 0, text);
}

static int Row2ParamFuzz(void) {
    VantorProcessor* p = NewProcessor(48000.0f);
    Patch(p, 2, 6);
    Chord(p, 1);
    float left[32], right[32];
    Stats during = {0}, after = {0};
    const float bad[] = {NAN, INFINITY, -INFINITY, -1.0f, 2.0f, 1e30f, -1e30f, 1e-40f};
    long calls = 0, refused = 0, nonFiniteRefused = 0;
    for (uint32_t id = 0; id < paramCount + 3; ++id) {
        const uint32_t target = id < paramCount ? id : (id == paramCount + 2 ? 0xFFFFFFFFu : id);
        const float old = id < paramCount ? Get(p, target) : 0.0f;
        for (int k = 0; k < 8; ++k) {
            ++calls;
            if (!Set(p, target, bad[k])) {
                ++refused;
                if (k < 3) ++nonFiniteRefused;
            }
            CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
            Block(p, left, right, 48000.0f);
            Measure(&during, left, right, 32);
        }
        if (id < paramCount) Set(p, target, old);
        CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
        if (id % 97 == 0) Chord(p, 1);
        Block(p, left, right, 48000.0f);
        Measure(&after, left, right, 32);
    }
    Free(p);
    char text[300];
    snprintf(text, sizeof text,
             "%ld SetParam calls, %ld refused (%ld non-finite of %ld), %ld non-finite samples, "
             "peak %.3g while bad, first block after restore: %ld non-finite, peak %.3g",
             calls, refused, nonFiniteRefused, 3L * (paramCount + 3), during.nonFinite, during.peak,
             after.nonFinite, after.peak);
    return Report(2,
                  during.nonFinite == 0 && after.nonFinite == 0 &&
                      nonFiniteRefused == 3L * (paramCount + 3),
                  text);
}

static int Row3Automation(void) {
    VantorProcessor* p = NewProcessor(48000.0f);
    Patch(p, 5, 6);
    uint32_t ids[MAX_PARAMS];
    float values[MAX_PARAMS];
    int count = 0;
    for (uint32_t id = 0; id < paramCount; ++id) {
        if (strncmp(names[id], "voice1_", 7) != 0 || steps[id] != 0) continue;
        if (strstr(names[id], "isenable") || strstr(names[id], "ison") || strstr(names[id], "zone"))
            continue;
        ids[count] = id;
        values[count++] = Get(p, id);
    }
    float left[32], right[32];
    Stats s = {0};
    for (int b = 0; b < 6000; ++b) {
        for (int k = 0; k < count; ++k) {
            float v = values[k] + (Uniform() - 0.5f) * 0.04f;
            values[k] = v < 0.0f ? 0.0f : v > 1.0f ? 1.0f : v;
            Set(p, ids[k], values[k]);
        }
        CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
        if (b % 50 == 0) Midi(p, Note(1, 0, 36 + (int)(Random() % 48), 100));
        if (b % 50 == 25) Midi(p, Note(0, 0, 36 + (int)(Random() % 48), 0));
        Block(p, left, right, 48000.0f);
        Measure(&s, left, right, 32);
    }
    Free(p);
    char text[200];
    snprintf(text, sizeof text,
             "%d parameters walked for 6000 blocks: peak %.3f, largest step %.3f, %ld subnormal, "
             "%ld non-finite",
             count, s.peak, s.maxStep, s.subnormal, s.nonFinite);
    return Report(3, s.peak < LIMIT && s.subnormal == 0 && s.nonFinite == 0, text);
}

static double Rms(VantorProcessor* p, int blocks) {
    float left[32], right[32];
    double sum = 0.0;
    for (int b = 0; b < blocks; ++b) {
        CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
        Block(p, left, right, 48000.0f);
        for (int n = 0; n < 32; ++n) sum += (double)left[n] * left[n] + (double)right[n] * right[n];
    }
    return sqrt(sum / (64.0 * blocks));
}

static int Row4MidiAbuse(void) {
    VantorProcessor* floorProcessor = NewProcessor(48000.0f);
    Patch(floorProcessor, 1, 6);
    Rms(floorProcessor, 1500);
    const double floorRms = Rms(floorProcessor, 1500);
    Free(floorProcessor);

    VantorProcessor* p = NewProcessor(48000.0f);
    Patch(p, 1, 6);
    float left[32], right[32];
    Stats s = {0};
    int on[12] = {0};
    uint32_t isOn[12];
    char name[32];
    for (int v = 0; v < 12; ++v) {
        snprintf(name, sizeof name, "voice%d_ison", v + 1);
        isOn[v] = Id(name);
    }
    for (int b = 0; b < 400; ++b) {
        CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
        switch (b % 8) {
        case 0:
            for (int k = 0; k < 128; ++k) Midi(p, Note(0, b % 16, k, 64));
            break; /* orphans */
        case 1:
            for (int k = 0; k < 4; ++k) Midi(p, Note(1, 0, 60, 100));
            break; /* duplicates */
        case 2:
            for (int k = 0; k < 10000; ++k)
                Midi(p, Note(Random() & 1, (int)(Random() % 16), (int)(Random() % 128),
                             1 + (int)(Random() % 127)));
            break;
        case 3:
            for (int c = 0; c < 16; ++c) Midi(p, Note(1, c, 40 + c, 90));
            break;
        case 4:
            Midi(p, 0x90u | 200u << 8 | 100u << 16);
            Midi(p, 0x90u | 60u << 8 | 255u << 16);
            break;
        case 5:
            for (int k = 0; k < 64; ++k) Midi(p, Random());
            break; /* running garbage */
        default: break;
        }
        Block(p, left, right, 48000.0f);
        Measure(&s, left, right, 32);
    }
    SetName(p, "allnotesoff", 1.0f);
    SetName(p, "allnotesoff", 0.0f);
    for (int b = 0; b < 20; ++b) {
        CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
        Block(p, left, right, 48000.0f);
        const VantorValueChange* list;
        int32_t count;
        Changes(p, &list, &count);
        for (int32_t i = 0; i < count; ++i)
            for (int v = 0; v < 12; ++v)
                if (list[i].id == isOn[v]) on[v] = list[i].value != 0.0f;
    }
    int sounding = 0;
    for (int v = 0; v < 12; ++v) sounding += on[v];
    Rms(p, 1500 * 5); /* 5 s of tails */
    const double endRms = Rms(p, 1500);
    Free(p);
    char text[240];
    snprintf(
        text, sizeof text,
        "abuse peak %.3f, %ld non-finite; after all-notes-off %d voices on, last second %.1f dBFS "
        "against a floor of %.1f dBFS",
        s.peak, s.nonFinite, sounding, 20.0 * log10(endRms + 1e-30),
        20.0 * log10(floorRms + 1e-30));
    return Report(
        4, s.nonFinite == 0 && s.peak < LIMIT && sounding == 0 && endRms <= floorRms * 2.0 + 1e-7,
        text);
}

static void Add(RtCounts* total, RtCounts c) {
    total->mallocs += c.mallocs;
    total->frees += c.frees;
    total->news += c.news;
    total->deletes += c.deletes;
    total->locks += c.locks;
    total->unlocks += c.unlocks;
}

static long Heap(RtCounts c) {
    return c.mallocs + c.frees + c.news + c.deletes;
}

static int Row5RealTime(void) {
    RtCountBeginFn begin = NULL;
    RtCountEndFn end = NULL;
    void* beginSymbol = dlsym(RTLD_DEFAULT, "rtcount_begin");
    void* endSymbol = dlsym(RTLD_DEFAULT, "rtcount_end");
    memcpy(&begin, &beginSymbol, sizeof begin);
    memcpy(&end, &endSymbol, sizeof end);
    if (begin == NULL || end == NULL) {
        printf("row 5: skip run with LD_PRELOAD=rtcount.so to count heap and lock calls\n");
        return 0;
    }
    VantorProcessor* p = NewProcessor(48000.0f);
    Patch(p, 2, 6);
    SetName(p, "sustain-hold", 1.0f);
    float left[32], right[32];
    enum { SET, MIDI, SETUP, RENDER, CHANGES, PANIC, PRESETMODE, GETPARAM, UNKNOWN, OPS };
    const char* labels[OPS] = {"SetParam",
                               "ProcessMidiMessage",
                               "UpdateVoiceSetup",
                               "Render",
                               "GetChangedValues",
                               "SetParam(panic)",
                               "SetParam(presetmode)",
                               "GetParam",
                               "SetParam(unknown id)"};
    RtCounts totals[OPS];
    memset(totals, 0, sizeof totals);
    const uint32_t cutoff = Id("voice1_vcf_cutoff"), sustain = Id("pedal-sustain");
    const uint32_t fx = Id("effect0_selector"), panic = Id("panic"), mode = Id("presetmode");
    for (int b = 0; b < 3000; ++b) {
        begin();
        Set(p, cutoff, Uniform());
        if (b % 50 == 0) Set(p, sustain, (b / 50) % 2 ? 1.0f : 0.0f);
        if (b % 100 == 0) Set(p, fx, ((b / 100) % 7 + 0.5f) / 7.0f);
        Add(&totals[SET], end());
        begin();
        CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
        Add(&totals[SETUP], end());
        begin();
        if (b % 7 == 0) Midi(p, Note(1, 0, 36 + b % 48, 100));
        if (b % 11 == 0) Midi(p, Note(0, 0, 36 + (b + 30) % 48, 0));
        Midi(p, 0xA0u | (uint32_t)(60 + b % 5) << 8 | (uint32_t)(b % 128) << 16);
        Add(&totals[MIDI], end());
        begin();
        RenderFrames(p, left, right, 32, 48000.0f);
        Add(&totals[RENDER], end());
        begin();
        const VantorValueChange* list;
        int32_t count;
        Changes(p, &list, &count);
        Add(&totals[CHANGES], end());
        if (b % 500 == 250) {
            begin();
            Set(p, panic, 1.0f);
            Set(p, panic, 0.0f);
            Add(&totals[PANIC], end());
            begin();
            Set(p, mode, (b / 500) % 2 ? 1.0f : 0.0f);
            Add(&totals[PRESETMODE], end());
        }
        begin();
        Get(p, cutoff);
        Add(&totals[GETPARAM], end());
        if (b % 500 == 0) {
            begin();
            Set(p, paramCount + 7, 0.5f);
            Get(p, paramCount + 7);
            Add(&totals[UNKNOWN], end());
        }
    }
    Free(p);
    long required = 0;
    char text[1400] = "over 3000 blocks, heap/lock calls:";
    for (int k = 0; k < OPS; ++k) {
        char part[160];
        snprintf(part, sizeof part, " %s %ld/%ld;", labels[k], Heap(totals[k]),
                 totals[k].locks + totals[k].unlocks);
        strncat(text, part, sizeof text - strlen(text) - 1);
        if (k <= CHANGES) required += Heap(totals[k]) + totals[k].locks + totals[k].unlocks;
    }
    return Report(5, required == 0, text);
}

static int Row6SilentTails(void) {
    char text[600] = "30 s after a long release:";
    int ok = 1;
    for (int fx = 1; fx <= 6; ++fx) {
        VantorProcessor* p = NewProcessor(44100.0f);
        Patch(p, fx, 0);
        SetName(p, "voice1_env1_release", 0.9f);
        float left[32], right[32];
        Stats s = {0};
        Chord(p, 1);
        double active = 0.0, silent = 0.0;
        const int second = 44100 / 32;
        for (int b = 0; b < second * 31; ++b) {
            CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
            if (b == second) Chord(p, 0);
            const double t0 = Now();
            Block(p, left, right, 44100.0f);
            const double t = Now() - t0;
            if (b < second) active += t;
            if (b >= second * 30) silent += t;
            if (b >= second) Measure(&s, left, right, 32);
        }
        Free(p);
        char part[80];
        snprintf(part, sizeof part, " fx%d %ld subnormal, silent/active cost %.2f;", fx,
                 s.subnormal, silent / active);
        strncat(text, part, sizeof text - strlen(text) - 1);
        ok = ok && s.subnormal == 0 && s.nonFinite == 0;
    }
    return Report(6, ok, text);
}

/* A seeded render of a state: fresh processor, state, preset mode re-sent, chord. */
static void RenderState(const unsigned char* blob, uint64_t size, float* out, int blocks,
                        int badStatesEvery) {
    VantorProcessor* p = NewProcessor(48000.0f);
    SetState(p, blob, size);
    SetName(p, "presetmode", Get(p, Id("presetmode")));
    unsigned char* noise = malloc(size + 8);
    for (int b = 0; b < blocks; ++b) {
        if (badStatesEvery > 0 && b % badStatesEvery == 0) {
            const uint64_t sizes[] = {0, 1, size - 4, size + 4, size};
            for (int k = 0; k < 5; ++k) {
                for (uint64_t i = 0; i < size + 8; ++i) noise[i] = (unsigned char)Random();
                const float nan = NAN;
                memcpy(noise + 4 * (Random() % (size / 4)), &nan, 4);
                if (SetState(p, noise, sizes[k]))
                    fprintf(stderr, "bad state of %lu bytes taken\n", (unsigned long)sizes[k]);
            }
        }
        CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
        if (b == 0) Chord(p, 1);
        if (b == blocks / 2) Chord(p, 0);
        RenderFrames(p, out + 64 * b, out + 64 * b + 32, 32, 48000.0f);
    }
    free(noise);
    Free(p);
}

static int Row7StateRoundTrip(void) {
    VantorProcessor* a = NewProcessor(48000.0f);
    Patch(a, 3, 5);
    SetName(a, "voice1_vcf_res", 0.4f);
    uint64_t size;
    unsigned char* blob = GetState(a, &size);
    Free(a);
    VantorProcessor* b = NewProcessor(48000.0f);
    const int taken = SetState(b, blob, size);
    uint64_t backSize;
    unsigned char* back = GetState(b, &backSize);
    Free(b);
    const int same = taken && backSize == size && memcmp(blob, back, size) == 0;
    const int blocks = 3000;
    float* one = malloc(sizeof(float) * 64 * blocks);
    float* two = malloc(sizeof(float) * 64 * blocks);
    RenderState(blob, size, one, blocks, 0);
    RenderState(back, backSize, two, blocks, 0);
    const int identical = memcmp(one, two, sizeof(float) * 64 * blocks) == 0;
    char text[200];
    snprintf(text, sizeof text, "state of %lu bytes: restored copy %s, %d-block seeded renders %s",
             (unsigned long)size, same ? "byte-identical" : "DIFFERS", blocks,
             identical ? "bit-identical" : "DIFFER");
    free(one);
    free(two);
    free(blob);
    free(back);
    return Report(7, same && identical, text);
}

static int Row8BadStates(void) {
    VantorProcessor* a = NewProcessor(48000.0f);
    Patch(a, 6, 2);
    uint64_t size;
    unsigned char* blob = GetState(a, &size);
    int refused = 0, tries = 0;
    const uint64_t sizes[] = {0, 1, size - 4, size + 4, size / 2, size, size};
    unsigned char* bad = malloc(size + 8);
    for (int k = 0; k < 7; ++k) {
        for (uint64_t i = 0; i < size + 8; ++i) bad[i] = (unsigned char)Random();
        if (k == 5) {
            const float inf = INFINITY;
            memcpy(bad, blob, size);
            memcpy(bad + size / 2, &inf, 4);
        }
        if (k == 6)
            for (uint64_t i = 0; i < size; i += 4) {
                const float nan = NAN;
                memcpy(bad + i, &nan, 4);
            }
        ++tries;
        refused += !SetState(a, bad, sizes[k]);
    }
    uint64_t afterSize;
    unsigned char* after = GetState(a, &afterSize);
    const int unchanged = afterSize == size && memcmp(after, blob, size) == 0;
    Free(a);
    const int blocks = 2000;
    float* one = malloc(sizeof(float) * 64 * blocks);
    float* two = malloc(sizeof(float) * 64 * blocks);
    RenderState(blob, size, one, blocks, 0);
    RenderState(blob, size, two, blocks, 100);
    const int identical = memcmp(one, two, sizeof(float) * 64 * blocks) == 0;
    char text[220];
    snprintf(text, sizeof text,
             "%d of %d bad blobs refused, state %s, output with 100 bad blobs thrown in %s",
             refused, tries, unchanged ? "unchanged" : "CHANGED",
             identical ? "bit-identical" : "DIFFERS");
    free(bad);
    free(blob);
    free(after);
    free(one);
    free(two);
    return Report(8, refused == tries && unchanged && identical, text);
}

static uint64_t Hash(const void* data, size_t size, uint64_t h) {
    const unsigned char* bytes = data;
    for (size_t i = 0; i < size; ++i) h = (h ^ bytes[i]) * 1099511628211ull;
    return h;
}

static uint64_t ListAndAudioHash(uint64_t* listHash) {
    VantorProcessor* p = NewProcessor(48000.0f);
    uint64_t h = 14695981039346656037ull;
    const uint32_t count = (uint32_t)CALL0(p, VANTOR_SLOT_GET_PARAM_COUNT, VantorGetParamCountFn);
    for (uint32_t id = 0; id < count; ++id) {
        VantorParamInfo info;
        CALL(p, VANTOR_SLOT_GET_PARAM_INFO, VantorGetParamInfoFn, id, &info);
        h = Hash(&info, sizeof info, h);
    }
    *listHash = h;
    Patch(p, 6, 5);
    Chord(p, 1);
    float left[32], right[32];
    uint64_t audio = 14695981039346656037ull;
    for (int b = 0; b < 3000; ++b) {
        CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
        RenderFrames(p, left, right, 32, 48000.0f);
        audio = Hash(left, sizeof left, Hash(right, sizeof right, audio));
    }
    Free(p);
    return audio;
}

static int Row9Locale(void) {
    uint64_t listC, listDe;
    const uint64_t audioC = ListAndAudioHash(&listC);
    if (setlocale(LC_ALL, "de_DE.UTF-8") == NULL) {
        printf("row 9: skip locale de_DE.UTF-8 is not installed (scripts/setup.sh generates it)\n");
        return 0;
    }
    const uint64_t audioDe = ListAndAudioHash(&listDe);
    setlocale(LC_ALL, "C");
    char text[200];
    snprintf(text, sizeof text, "de_DE.UTF-8 against C: parameter list %s, 3000-block audio %s",
             listC == listDe ? "identical" : "DIFFERS",
             audioC == audioDe ? "identical" : "DIFFERS");
    return Report(9, listC == listDe && audioC == audioDe, text);
}

static void* RenderThread(void* arg) {
    long* blocks = arg;
    for (int round = 0; round < 3; ++round) {
        VantorProcessor* p = NewProcessor(48000.0f);
        Patch(p, 1 + round, 6 - round);
        Chord(p, 1);
        float left[32], right[32];
        for (int b = 0; b < 300; ++b) {
            CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
            if (b == 150) Chord(p, 0);
            RenderFrames(p, left, right, 32, 48000.0f);
            const VantorValueChange* list;
            int32_t count;
            Changes(p, &list, &count);
            ++*blocks;
        }
        Free(p);
    }
    return NULL;
}

static int Row10Threads(void) {
    /* Logging on: a log.conf in the current folder is found first. */
    char folder[] = "/tmp/vantor-torture-XXXXXX";
    char previous[4096];
    if (mkdtemp(folder) == NULL || getcwd(previous, sizeof previous) == NULL)
        return Report(10, 0, "no temporary folder");
    char path[4200];
    snprintf(path, sizeof path, "%s/log.conf", folder);
    FILE* conf = fopen(path, "w");
    fprintf(conf,
            "OutputFile %s/engine.log\nExtendedFilename 0\naudio_engine debug\nengine debug\n"
            "engine_description debug\ntiming debug\n",
            folder);
    fclose(conf);
    if (chdir(folder) != 0) return Report(10, 0, "chdir failed");
    pthread_t threads[2];
    long blocks[2] = {0, 0};
    for (int t = 0; t < 2; ++t) pthread_create(&threads[t], NULL, RenderThread, &blocks[t]);
    for (int t = 0; t < 2; ++t) pthread_join(threads[t], NULL);
    if (chdir(previous) != 0) return Report(10, 0, "chdir back failed");
    snprintf(path, sizeof path, "rm -rf '%s'", folder);
    if (system(path) != 0) fprintf(stderr, "could not remove %s\n", folder);
    char text[160];
    snprintf(text, sizeof text,
             "two threads, 3 processors each, %ld blocks rendered with logging on "
             "(data races are reported by the ThreadSanitizer build)",
             blocks[0] + blocks[1]);
    return Report(10, blocks[0] == 900 && blocks[1] == 900, text);
}

static long RssKiB(void) {
    FILE* f = fopen("/proc/self/statm", "r");
    long pages = 0, resident = 0;
    if (f == NULL) return -1;
    if (fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = -1;
    fclose(f);
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

/* Random MIDI and parameter changes for the given time; RSS at start and end. */
static int Soak(double seconds) {
    VantorProcessor* p = NewProcessor(48000.0f);
    Patch(p, 1, 6);
    float left[32], right[32];
    Stats s = {0};
    long blocks = 0, warm = 0;
    const double start = Now();
    long rssStart = -1;
    double nextReport = 60.0;
    while (Now() - start < seconds) {
        for (int k = 0; k < 4; ++k) {
            const uint32_t id = Random() % paramCount;
            if (strcmp(names[id], "preset_loading") == 0) continue;
            const uint32_t dice = Random() % 100;
            Set(p, id, dice < 2 ? NAN : dice < 4 ? 1e30f : Uniform());
        }
        if (Random() % 64 == 0) Set(p, Id("effect0_selector"), (float)(Random() % 7 + 0.5f) / 7.0f);
        CALL0(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn);
        for (uint32_t k = Random() % 4; k > 0; --k)
            Midi(p, Note(Random() & 1, (int)(Random() % 2), (int)(24 + Random() % 80),
                         (int)(1 + Random() % 127)));
        RenderFrames(p, left, right, 32, 48000.0f);
        const VantorValueChange* list;
        int32_t count;
        Changes(p, &list, &count);
        Measure(&s, left, right, 32);
        ++blocks;
        if (rssStart < 0 && Now() - start > 5.0) {
            rssStart = RssKiB();
            warm = blocks;
        }
        if (Now() - start > nextReport) {
            printf("soak: %.0f s, %ld blocks, RSS %ld KiB\n", Now() - start, blocks, RssKiB());
            fflush(stdout);
            nextReport += 60.0;
        }
    }
    const long rssEnd = RssKiB();
    Free(p);
    printf("soak: %.0f s, %ld blocks (%.1f x real time), %ld non-finite samples, peak %.3g, "
           "RSS %ld KiB after warm-up (%ld blocks), %ld KiB at the end\n",
           seconds, blocks, blocks * 32.0 / 48000.0 / seconds, s.nonFinite, s.peak, rssStart, warm,
           rssEnd);
    return s.nonFinite == 0 && rssEnd <= rssStart + 1024 ? 0 : 1;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s ENGINE.so [ROW...] | --soak SECONDS\n", argv[0]);
        return 2;
    }
    setenv("VANTOR_SEED", "1", 0);
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "dlopen failed: %s\n", dlerror());
        return 2;
    }
    void* symbol = dlsym(library, VANTOR_FACTORY_SYMBOL);
    VantorGetProcessorFactoryFn get = NULL;
    memcpy(&get, &symbol, sizeof get);
    factory = get();
    VantorProcessor* first = NewProcessor(48000.0f);
    ReadNames(first);
    Free(first);

    if (argc == 4 && strcmp(argv[2], "--soak") == 0) return Soak(atof(argv[3]));

    int (*rows[])(void) = {Row1Rates,    Row2ParamFuzz,   Row3Automation,     Row4MidiAbuse,
                           Row5RealTime, Row6SilentTails, Row7StateRoundTrip, Row8BadStates,
                           Row9Locale,   Row10Threads};
    int failed = 0;
    for (int r = 1; r <= 10; ++r) {
        int wanted = argc == 2;
        for (int a = 2; a < argc; ++a) wanted = wanted || atoi(argv[a]) == r;
        if (wanted) failed += rows[r - 1]();
    }
    VANTOR_SLOT(factory, VANTOR_FACTORY_RELEASE, VantorReleaseFn)(factory, 0);
    return failed;
}
