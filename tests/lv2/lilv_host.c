/* A small LV2 host on lilv that plays the Vantor plugin like a DAW does.
 * usage: lilv_host TEST RENDERER WORKDIR
 *   blocks   any block size and rate plays; at 48 kHz equal to the renderer's output
 *   rt       run() neither allocates nor locks (needs the rtcount LD_PRELOAD)
 *   state    a saved state restores into a second instance: equal state, same audio
 *   presets  every shipped preset applies and plays
 *   installed the plugin on LV2_PATH loads its presets and plays
 *   twice    two instances, one created and freed while the other runs on another thread
 *   notify   parameter values and voice feedback reach the notify port
 *   cpu      prints the CPU of one idle and one playing instance */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <lilv/lilv.h>
#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/midi/midi.h>
#include <lv2/patch/patch.h>
#include <lv2/presets/presets.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <math.h>
#include <pthread.h>
#include <sndfile.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "rtcount.h"

#define PLUGIN_URI "urn:norvell:vantor"
#define PARAM(name) PLUGIN_URI ":param:" name
#define SEQ_BYTES 65536
#define MAX_BLOCK 4096

static int failures;
#define CHECK(cond, ...)                                                                           \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            __atomic_add_fetch(&failures, 1, __ATOMIC_RELAXED);                                    \
            fprintf(stderr, "FAIL %s:%d: ", __FILE__, __LINE__);                                   \
            fprintf(stderr, __VA_ARGS__);                                                          \
            fprintf(stderr, "\n");                                                                 \
        }                                                                                          \
    } while (0)

/* URID map: a plain table, filled outside run(). */
static char* uris[16384];
static uint32_t nUris;
static pthread_mutex_t mapLock = PTHREAD_MUTEX_INITIALIZER;

static LV2_URID Map(LV2_URID_Map_Handle h, const char* uri) {
    (void)h;
    pthread_mutex_lock(&mapLock);
    for (uint32_t i = 0; i < nUris; ++i)
        if (strcmp(uris[i], uri) == 0) {
            pthread_mutex_unlock(&mapLock);
            return i + 1;
        }
    uris[nUris] = strdup(uri);
    const LV2_URID id = ++nUris;
    pthread_mutex_unlock(&mapLock);
    return id;
}

static const char* Unmap(LV2_URID_Unmap_Handle h, LV2_URID id) {
    (void)h;
    return id >= 1 && id <= nUris ? uris[id - 1] : NULL;
}

static LV2_URID_Map map = {NULL, Map};
static LV2_URID_Unmap unmap = {NULL, Unmap};
static LV2_Feature mapFeature = {LV2_URID__map, &map};
static LV2_Feature unmapFeature = {LV2_URID__unmap, &unmap};
static const LV2_Feature* features[] = {&mapFeature, &unmapFeature, NULL};

static LilvWorld* world;
static const LilvPlugin* plugin;

/* One timed event of a performance: a MIDI message or a parameter value. */
typedef struct {
    int64_t frame;
    uint8_t midi[3];
    const char* param; /* patch:Set when not NULL */
    float value;
} Event;

typedef struct {
    LilvInstance* instance;
    LV2_Atom_Sequence* control;
    LV2_Atom_Sequence* notify;
    float left[MAX_BLOCK], right[MAX_BLOCK];
    LV2_Atom_Forge forge;
    int64_t frame;
} Host;

static Host* Open(double rate) {
    Host* h = calloc(1, sizeof *h);
    h->instance = lilv_plugin_instantiate(plugin, rate, features);
    if (!h->instance) {
        fprintf(stderr, "cannot instantiate the plugin at %g Hz\n", rate);
        exit(1);
    }
    h->control = aligned_alloc(64, SEQ_BYTES);
    h->notify = aligned_alloc(64, SEQ_BYTES);
    lv2_atom_forge_init(&h->forge, &map);
    lilv_instance_connect_port(h->instance, 0, h->control);
    lilv_instance_connect_port(h->instance, 1, h->notify);
    lilv_instance_connect_port(h->instance, 2, h->left);
    lilv_instance_connect_port(h->instance, 3, h->right);
    lilv_instance_activate(h->instance);
    return h;
}

static void Close(Host* h) {
    lilv_instance_deactivate(h->instance);
    lilv_instance_free(h->instance);
    free(h->control);
    free(h->notify);
    free(h);
}

/* Writes the events due in [frame, frame + n) into the control port. */
static void Fill(Host* h, const Event* events, size_t count, size_t* next, uint32_t n) {
    LV2_Atom_Forge* f = &h->forge;
    LV2_Atom_Forge_Frame seq;
    lv2_atom_forge_set_buffer(f, (uint8_t*)h->control, SEQ_BYTES);
    lv2_atom_forge_sequence_head(f, &seq, 0);
    for (; events && *next < count && events[*next].frame < h->frame + n; ++*next) {
        const Event* e = &events[*next];
        lv2_atom_forge_frame_time(f, e->frame - h->frame);
        if (e->param) {
            LV2_Atom_Forge_Frame obj;
            lv2_atom_forge_object(f, &obj, 0, Map(NULL, LV2_PATCH__Set));
            lv2_atom_forge_key(f, Map(NULL, LV2_PATCH__property));
            lv2_atom_forge_urid(f, Map(NULL, e->param));
            lv2_atom_forge_key(f, Map(NULL, LV2_PATCH__value));
            lv2_atom_forge_float(f, e->value);
            lv2_atom_forge_pop(f, &obj);
        } else {
            lv2_atom_forge_atom(f, 3, Map(NULL, LV2_MIDI__MidiEvent));
            lv2_atom_forge_write(f, e->midi, 3);
        }
    }
    lv2_atom_forge_pop(f, &seq);
    h->notify->atom.type = 0;
    h->notify->atom.size = SEQ_BYTES - sizeof(LV2_Atom);
}

/* Plays `frames` frames in blocks of `block`; appends interleaved output to out. */
static void Play(Host* h, const Event* events, size_t count, int64_t frames, uint32_t block,
                 float* out) {
    size_t next = 0;
    const int64_t end = h->frame + frames;
    while (h->frame < end) {
        const uint32_t n = (uint32_t)(end - h->frame < block ? end - h->frame : block);
        Fill(h, events, count, &next, n);
        lilv_instance_run(h->instance, n);
        for (uint32_t i = 0; out && i < n; ++i) {
            *out++ = h->left[i];
            *out++ = h->right[i];
        }
        h->frame += n;
    }
}

static double Peak(const float* data, size_t count, int* finite) {
    double peak = 0;
    *finite = 1;
    for (size_t i = 0; i < count; ++i) {
        if (!isfinite(data[i])) *finite = 0;
        if (fabs(data[i]) > peak) peak = fabs(data[i]);
    }
    return peak;
}

/* At 48 kHz, 120 bpm and 750 ticks per quarter note one tick is 32 frames. */
static const Event song[] = {
    {0, {0x90, 60, 100}, NULL, 0},     {0, {0}, PARAM("voice1_osc1_noise-on"), 1.0f},
    {320, {0x90, 64, 90}, NULL, 0},    {1600, {0xB0, 1, 90}, NULL, 0},
    {2560, {0xE0, 0, 0x50}, NULL, 0},  {12800, {0x80, 60, 0}, NULL, 0},
    {16000, {0x90, 67, 110}, NULL, 0}, {22400, {0x80, 64, 0}, NULL, 0},
    {28800, {0xB0, 123, 0}, NULL, 0},  {32000, {0x80, 67, 0}, NULL, 0},
};
#define SONG_FRAMES 32000
#define SONG_COUNT (sizeof song / sizeof song[0])

static void WriteVarLen(FILE* f, uint32_t v) {
    uint8_t bytes[4];
    int n = 0;
    do {
        bytes[n++] = v & 0x7F;
        v >>= 7;
    } while (v);
    while (n--) fputc(bytes[n] | (n ? 0x80 : 0), f);
}

static void WriteSong(const char* path) {
    FILE* f = fopen(path, "wb");
    uint8_t track[1024];
    FILE* t = fmemopen(track, sizeof track, "wb");
    int64_t tick = 0;
    for (size_t i = 0; i < SONG_COUNT; ++i) {
        if (song[i].param) continue;
        WriteVarLen(t, (uint32_t)(song[i].frame / 32 - tick));
        tick = song[i].frame / 32;
        fwrite(song[i].midi, 1, (song[i].midi[0] & 0xF0) == 0xD0 ? 2 : 3, t);
    }
    fwrite("\x00\xFF\x2F\x00", 1, 4, t);
    const long size = ftell(t);
    fclose(t);
    fwrite("MThd\0\0\0\6\0\0\0\1\x02\xEE", 1, 14, f);
    fwrite("MTrk", 1, 4, f);
    const uint8_t len[4] = {0, 0, (uint8_t)(size >> 8), (uint8_t)size};
    fwrite(len, 1, 4, f);
    fwrite(track, 1, (size_t)size, f);
    fclose(f);
}

static float* Alloc(int64_t frames) {
    return calloc((size_t)frames * 2, sizeof(float));
}

static void TestBlocks(const char* renderer, const char* dir) {
    char mid[1024], wav[1024], cmd[4096];
    snprintf(mid, sizeof mid, "%s/song.mid", dir);
    snprintf(wav, sizeof wav, "%s/song.wav", dir);
    WriteSong(mid);
    snprintf(cmd, sizeof cmd,
             "'%s' '%s' -o '%s' -q --seed 3 --tail 0 --rate 48000 --format float "
             "--set voice1_osc1_noise-on=1",
             renderer, mid, wav);
    CHECK(system(cmd) == 0, "renderer failed: %s", cmd);
    SF_INFO info = {0};
    SNDFILE* snd = sf_open(wav, SFM_READ, &info);
    CHECK(snd && info.frames == SONG_FRAMES && info.channels == 2, "renderer output %s", wav);
    if (!snd) return;
    float* expected = Alloc(SONG_FRAMES);
    sf_readf_float(snd, expected, SONG_FRAMES);
    sf_close(snd);

    const uint32_t sizes[] = {1, 17, 32, 256, 1000, 4096};
    for (size_t s = 0; s < sizeof sizes / sizeof sizes[0]; ++s) {
        Host* h = Open(48000);
        float* out = Alloc(SONG_FRAMES);
        Play(h, song, SONG_COUNT, SONG_FRAMES, sizes[s], out);
        int finite;
        const double peak = Peak(out, SONG_FRAMES * 2, &finite);
        CHECK(finite && peak > 0.01, "block %u: finite %d, peak %g", sizes[s], finite, peak);
        CHECK(memcmp(out, expected, SONG_FRAMES * 2 * sizeof(float)) == 0,
              "block %u: output differs from the renderer's", sizes[s]);
        free(out);
        Close(h);
    }
    free(expected);

    const double rates[] = {22050, 44100, 88200, 96000, 192000};
    for (size_t r = 0; r < sizeof rates / sizeof rates[0]; ++r) {
        Host* h = Open(rates[r]);
        const int64_t frames = (int64_t)rates[r];
        float* out = Alloc(frames);
        Play(h, song, SONG_COUNT, frames, 1000, out);
        int finite;
        const double peak = Peak(out, (size_t)frames * 2, &finite);
        CHECK(finite && peak > 0.01 && peak < 4, "rate %g: finite %d, peak %g", rates[r], finite,
              peak);
        free(out);
        Close(h);
    }
}

static void TestRealTime(void) {
    RtCountBeginFn begin = (RtCountBeginFn)dlsym(RTLD_DEFAULT, "rtcount_begin");
    RtCountEndFn end = (RtCountEndFn)dlsym(RTLD_DEFAULT, "rtcount_end");
    CHECK(begin && end, "run under LD_PRELOAD of the rtcount library");
    if (!begin || !end) return;
    /* RTCOUNT_KNOWN: calls per engine block made by the engine itself, not by the
     * plugin (its changed-values list sorts with a temporary buffer); the plugin
     * must add none. A negative total means the engine improved: lower the figure. */
    const char* knownText = getenv("RTCOUNT_KNOWN");
    const long known = knownText ? atol(knownText) : 0;
    Host* h = Open(44100);
    size_t next = 0;
    long total = 0;
    const uint32_t sizes[] = {17, 256, 1000, 4096, 1};
    for (int round = 0; round < 40; ++round) {
        const uint32_t n = sizes[round % 5];
        Event moved[SONG_COUNT];
        memcpy(moved, song, sizeof song);
        for (size_t i = 0; i < SONG_COUNT; ++i)
            moved[i].frame = h->frame + (int64_t)(i * n / SONG_COUNT);
        next = 0;
        Fill(h, moved, SONG_COUNT, &next, n);
        begin();
        lilv_instance_run(h->instance, n);
        const RtCounts c = end();
        const long counted = c.mallocs + c.frees + c.news + c.deletes + c.locks + c.unlocks;
        /* Engine blocks rendered in this call, each with its own calls into the engine. */
        const int64_t blocks = (h->frame + n + 31) / 32 - (h->frame + 31) / 32;
        total += counted - known * blocks;
        h->frame += n;
    }
    CHECK(total == 0, "%ld allocations or locks in run() beyond the engine's known %ld per block",
          total, known);
    Close(h);
}

static const void* GetValue(const char* port, void* data, uint32_t* size, uint32_t* type) {
    (void)port;
    (void)data;
    *size = 0;
    *type = 0;
    return NULL;
}

static LilvState* Save(Host* h) {
    return lilv_state_new_from_instance(plugin, h->instance, &map, NULL, NULL, NULL, NULL, GetValue,
                                        NULL, 0, NULL);
}

typedef struct {
    LV2_URID key;
    float value;
    int found;
} Lookup;

static LV2_State_Status Store(LV2_State_Handle handle, uint32_t key, const void* value, size_t size,
                              uint32_t type, uint32_t flags) {
    (void)flags;
    Lookup* l = handle;
    if (key == l->key && size == sizeof(float) && type == Map(NULL, LV2_ATOM__Float)) {
        memcpy(&l->value, value, sizeof(float));
        l->found = 1;
    }
    return LV2_STATE_SUCCESS;
}

/* A parameter's value as the plugin saves it, through its own state interface. */
static float Saved(Host* h, const char* param) {
    const LV2_State_Interface* state =
        lilv_instance_get_extension_data(h->instance, LV2_STATE__interface);
    Lookup l = {Map(NULL, param), 0.0f, 0};
    state->save(lilv_instance_get_handle(h->instance), Store, &l, 0, features);
    CHECK(l.found, "%s is not in the state", param);
    return l.value;
}

/* A state from an older or newer build: an unknown key is skipped, a missing one
 * keeps its init value, a known one applies. */
static void TestForeignState(void) {
    Host* fresh = Open(48000);
    const float initVolume = Saved(fresh, PARAM("master_volume"));
    Close(fresh);
    const char* text = "@prefix pset: <http://lv2plug.in/ns/ext/presets#> .\n"
                       "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
                       "@prefix state: <http://lv2plug.in/ns/ext/state#> .\n"
                       "@prefix xsd: <http://www.w3.org/2001/XMLSchema#> .\n"
                       "<urn:test:state> a pset:Preset ; lv2:appliesTo <" PLUGIN_URI "> ;\n"
                       "  state:state [ <" PARAM(
                           "no_such_knob") "> \"0.25\"^^xsd:float ;\n"
                                           "                <" PARAM(
                                               "voice1_vcf_cutoff") "> \"0.125\"^^xsd:float ] .\n";
    LilvState* foreign = lilv_state_new_from_string(world, &map, text);
    CHECK(foreign != NULL, "the foreign state does not parse");
    if (!foreign) return;
    Host* h = Open(48000);
    lilv_state_restore(foreign, h->instance, NULL, NULL, 0, features);
    CHECK(Saved(h, PARAM("voice1_vcf_cutoff")) == 0.125f, "a known key was not applied");
    CHECK(Saved(h, PARAM("master_volume")) == initVolume, "a missing key lost its init value");
    Close(h);
    lilv_state_free(foreign);
}

/* With preset mode on each voice has its own sound, and the state carries it. */
static void TestPresetModeState(void) {
    LilvNode* uri = lilv_new_uri(world, PLUGIN_URI ":preset:fm_layers");
    lilv_world_load_resource(world, uri);
    LilvState* preset = lilv_state_new_from_world(world, &map, uri);
    CHECK(preset != NULL, "no fm_layers preset");
    if (!preset) return;
    Host* a = Open(48000);
    lilv_state_restore(preset, a->instance, NULL, NULL, 0, features);
    CHECK(Saved(a, PARAM("presetmode")) == 1.0f, "preset mode is not on");
    const float voice2 = Saved(a, PARAM("voice2_vcf_cutoff"));
    LilvState* saved = Save(a);
    Host* b = Open(48000);
    lilv_state_restore(saved, b->instance, NULL, NULL, 0, features);
    LilvState* again = Save(b);
    CHECK(lilv_state_equals(saved, again), "preset-mode state differs after restoring");
    CHECK(Saved(b, PARAM("voice2_vcf_cutoff")) == voice2, "voice 2's own sound was lost");
    lilv_state_free(again);
    lilv_state_free(saved);
    lilv_state_free(preset);
    lilv_node_free(uri);
    Close(a);
    Close(b);
}

/* Every writable parameter set to an awkward value (tiny, ties of the eight-decimal
 * text, the last float below 1, random bits) and saved to a file: what a second
 * instance restores from the file is the first one's state bit for bit. */
static void TestStatePrecision(const char* dir) {
    LilvNode* writable = lilv_new_uri(world, LV2_PATCH__writable);
    LilvNodes* params = lilv_world_find_nodes(world, lilv_plugin_get_uri(plugin), writable, NULL);
    const float edges[] = {0.501953125f, 0.99999994f,  0.12499999f,   0.125f, 1e-9f, 4.9e-9f,
                           5.1e-9f,      0.001953125f, 0.0123456789f, 1.0f,   0.0f};
    const size_t nEdges = sizeof edges / sizeof edges[0];
    Event* events = calloc((size_t)lilv_nodes_size(params), sizeof *events);
    uint32_t seed = 12345;
    size_t n = 0;
    LILV_FOREACH(nodes, i, params) {
        seed = seed * 1664525u + 1013904223u;
        const float random = ldexpf((float)(seed >> 8) / 16777216.0f, -(int)(n % 30));
        events[n] = (Event){
            0, {0}, lilv_node_as_uri(lilv_nodes_get(params, i)), n < nEdges ? edges[n] : random};
        ++n;
    }
    Host* a = Open(48000);
    Play(a, events, n, 64, 64, NULL);
    /* Plain knobs, which the engine keeps as sent: exact from 0.125 up, within 1e-8 below. */
    const char* knobs[] = {PARAM("voice1_env1_attack"),  PARAM("voice1_env1_decay"),
                           PARAM("voice1_env1_release"), PARAM("voice1_env1_sustain"),
                           PARAM("voice1_env2_attack"),  PARAM("voice1_env2_decay"),
                           PARAM("voice1_env2_release"), PARAM("voice1_env2_sustain")};
    const float sent[] = {0.501953125f, 0.99999994f,   0.12500001f,  0.33333334f,
                          0.12499999f,  0.0123456789f, 0.001953125f, 7.4505806e-9f};
    Event knobEvents[8];
    for (int i = 0; i < 8; ++i) knobEvents[i] = (Event){a->frame, {0}, knobs[i], sent[i]};
    Play(a, knobEvents, 8, 64, 64, NULL);
    for (int i = 0; i < 8; ++i) {
        const float kept = Saved(a, knobs[i]);
        CHECK(sent[i] >= 0.125f ? kept == sent[i] : fabsf(kept - sent[i]) < 1e-8f,
              "%s: %.9g kept as %.9g", knobs[i], sent[i], kept);
    }

    LilvState* saved = Save(a);
    char path[1024], file[1100];
    snprintf(path, sizeof path, "%s/precision", dir);
    snprintf(file, sizeof file, "%s/state.ttl", path);
    CHECK(lilv_state_save(world, &map, &unmap, saved, NULL, path, "state.ttl") == 0,
          "cannot write the state to %s", path);
    LilvState* loaded = lilv_state_new_from_file(world, &map, NULL, file);
    CHECK(loaded && lilv_state_equals(saved, loaded), "awkward values changed through the file");
    Host* b = Open(48000);
    if (loaded) lilv_state_restore(loaded, b->instance, NULL, NULL, 0, features);
    int differ = 0;
    for (size_t i = 0; i < n; ++i) {
        const float x = Saved(a, events[i].param), y = Saved(b, events[i].param);
        if (memcmp(&x, &y, sizeof x) != 0 && differ++ < 5)
            CHECK(0, "%s: %.9g came back as %.9g", events[i].param, x, y);
    }
    CHECK(differ == 0, "%d values not restored bit for bit", differ);
    lilv_state_free(loaded);
    lilv_state_free(saved);
    Close(a);
    Close(b);
    free(events);
    lilv_nodes_free(params);
    lilv_node_free(writable);
}

static void TestState(const char* dir) {
    TestForeignState();
    TestPresetModeState();
    TestStatePrecision(dir);
    setenv("VANTOR_SEED", "9", 1);
    const Event changes[] = {{0, {0}, PARAM("voice1_vcf_cutoff"), 0.55f},
                             {0, {0}, PARAM("master_volume"), 0.62f},
                             {40, {0}, PARAM("effect0_selector"), 0.93f},
                             {40, {0}, PARAM("effect0_active"), 1.0f},
                             {90, {0}, PARAM("voice1_osc1_noise-on"), 1.0f}};
    Host* a = Open(48000);
    Play(a, changes, 5, 4096, 256, NULL);
    LilvState* saved = Save(a);
    CHECK(saved != NULL, "no state saved");
    if (!saved) return;
    char path[1024];
    snprintf(path, sizeof path, "%s/state", dir);
    CHECK(lilv_state_save(world, &map, &unmap, saved, NULL, path, "state.ttl") == 0,
          "cannot write the state to %s", path);

    /* Restore into a fresh instance; its own state equals the saved one. */
    Host* b = Open(48000);
    lilv_state_restore(saved, b->instance, NULL, NULL, 0, features);
    LilvState* again = Save(b);
    CHECK(lilv_state_equals(saved, again), "restored state differs from the saved one");

    /* The same sound: state restored from the file vs the values set while playing. */
    char file[1100];
    snprintf(file, sizeof file, "%s/state.ttl", path);
    LilvState* loaded = lilv_state_new_from_file(world, &map, NULL, file);
    CHECK(loaded && lilv_state_equals(saved, loaded), "state read back from file differs");
    /* One instance at a time: the engine seeds its random generator at creation. */
    float* fromState = Alloc(SONG_FRAMES);
    float* fromEvents = Alloc(SONG_FRAMES);
    Host* c = Open(48000);
    if (loaded) lilv_state_restore(loaded, c->instance, NULL, NULL, 0, features);
    Play(c, song, SONG_COUNT, SONG_FRAMES, 32, fromState);
    Close(c);
    Host* d = Open(48000);
    Event direct[SONG_COUNT + 5];
    memcpy(direct, changes, sizeof changes);
    for (int i = 0; i < 5; ++i) direct[i].frame = 0;
    memcpy(direct + 5, song, sizeof song);
    Play(d, direct, SONG_COUNT + 5, SONG_FRAMES, 32, fromEvents);
    Close(d);
    CHECK(memcmp(fromState, fromEvents, SONG_FRAMES * 2 * sizeof(float)) == 0,
          "audio after restoring differs from audio with the same values set");
    int finite;
    const double peakState = Peak(fromState, SONG_FRAMES * 2, &finite);
    CHECK(peakState > 0.01 && finite, "restored sound is silent (peak %g, set directly %g)",
          peakState, Peak(fromEvents, SONG_FRAMES * 2, &finite));

    /* Unknown keys are ignored and missing keys keep the init value. */
    lilv_state_free(again);
    lilv_state_free(loaded);
    lilv_state_free(saved);
    free(fromState);
    free(fromEvents);
    Close(a);
    Close(b);
}

/* Every preset loads as a state; all of them play, or only the first one. */
static void TestPresets(int playAll) {
    LilvNode* presetClass = lilv_new_uri(world, LV2_PRESETS__Preset);
    LilvNodes* presets = lilv_plugin_get_related(plugin, presetClass);
    int count = 0;
    LILV_FOREACH(nodes, i, presets) {
        const LilvNode* uri = lilv_nodes_get(presets, i);
        lilv_world_load_resource(world, uri);
        LilvState* state = lilv_state_new_from_world(world, &map, uri);
        CHECK(state != NULL, "preset %s does not load", lilv_node_as_uri(uri));
        if (!state) continue;
        if (!playAll && count > 0) {
            lilv_state_free(state);
            ++count;
            continue;
        }
        Host* h = Open(44100);
        lilv_state_restore(state, h->instance, NULL, NULL, 0, features);
        /* Half a second: enough for the slowest attack to be heard. */
        const Event chord[] = {{0, {0x90, 48, 100}, NULL, 0},   {0, {0x90, 55, 100}, NULL, 0},
                               {0, {0x90, 60, 100}, NULL, 0},   {15000, {0x80, 48, 0}, NULL, 0},
                               {15000, {0x80, 55, 0}, NULL, 0}, {15000, {0x80, 60, 0}, NULL, 0}};
        float* out = Alloc(22050);
        Play(h, chord, 6, 22050, 512, out);
        int finite;
        const double peak = Peak(out, 22050 * 2, &finite);
        CHECK(finite && peak > 0.001, "preset %s: finite %d, peak %g", lilv_node_as_uri(uri),
              finite, peak);
        free(out);
        Close(h);
        lilv_state_free(state);
        ++count;
    }
    CHECK(count >= 10, "only %d presets found", count);
    printf("%d presets applied, %s audible\n", count, playAll ? "all" : "the first one");
    lilv_nodes_free(presets);
    lilv_node_free(presetClass);
}

/* The plugin comes from the bundle on LV2_PATH, its presets load and it plays. */
static void TestInstalled(void) {
    const char* path = getenv("LV2_PATH");
    char* bundle = lilv_file_uri_parse(lilv_node_as_uri(lilv_plugin_get_bundle_uri(plugin)), NULL);
    CHECK(path && bundle && strncmp(bundle, path, strlen(path)) == 0,
          "the plugin was found in %s, not below LV2_PATH %s", bundle, path);
    lilv_free(bundle);
    TestPresets(0);
}

static void* PlayLong(void* arg) {
    Host* h = arg;
    float* out = Alloc(96000);
    Play(h, song, SONG_COUNT, 96000, 64, out);
    int finite;
    CHECK(Peak(out, 96000 * 2, &finite) > 0.01 && finite, "the surviving instance went silent");
    free(out);
    return NULL;
}

/* One instance plays on a thread of its own while a second one is created, plays
 * and is freed, and the first one's state is saved meanwhile, as hosts do. */
static void TestTwice(void) {
    Host* a = Open(48000);
    pthread_t thread;
    pthread_create(&thread, NULL, PlayLong, a);
    Host* b = Open(48000);
    Play(b, song, SONG_COUNT, 8000, 64, NULL);
    for (int i = 0; i < 4; ++i) {
        LilvState* state = Save(a);
        CHECK(state != NULL, "no state saved while playing");
        lilv_state_free(state);
    }
    Close(b);
    pthread_join(thread, NULL);
    Close(a);
}

/* patch:Get brings every parameter on the notify port, and a note brings its
 * voice's feedback, without overflowing the port. */
static void TestNotify(void) {
    Host* h = Open(48000);
    const LV2_URID set = Map(NULL, LV2_PATCH__Set), property = Map(NULL, LV2_PATCH__property);
    const LV2_URID value = Map(NULL, LV2_PATCH__value);
    const LV2_URID ison = Map(NULL, PARAM("voice1_ison"));
    static char seen[16384];
    int distinct = 0, voiceOn = 0;
    for (int round = 0; round < 200; ++round) {
        LV2_Atom_Forge* f = &h->forge;
        LV2_Atom_Forge_Frame seq, obj;
        lv2_atom_forge_set_buffer(f, (uint8_t*)h->control, SEQ_BYTES);
        lv2_atom_forge_sequence_head(f, &seq, 0);
        if (round == 0) {
            lv2_atom_forge_frame_time(f, 0);
            lv2_atom_forge_object(f, &obj, 0, Map(NULL, LV2_PATCH__Get));
            lv2_atom_forge_pop(f, &obj);
            const uint8_t note[3] = {0x90, 60, 100};
            lv2_atom_forge_frame_time(f, 10);
            lv2_atom_forge_atom(f, 3, Map(NULL, LV2_MIDI__MidiEvent));
            lv2_atom_forge_write(f, note, 3);
        }
        lv2_atom_forge_pop(f, &seq);
        const uint32_t capacity = 4096; /* small: the plugin must spread its messages */
        h->notify->atom.type = 0;
        h->notify->atom.size = capacity - sizeof(LV2_Atom);
        lilv_instance_run(h->instance, 64);
        CHECK(h->notify->atom.size + sizeof(LV2_Atom) <= capacity, "notify overflows");
        LV2_ATOM_SEQUENCE_FOREACH(h->notify, ev) {
            const LV2_Atom_Object* o = (const LV2_Atom_Object*)&ev->body;
            if (ev->body.type != Map(NULL, LV2_ATOM__Object) || o->body.otype != set) continue;
            const LV2_Atom* key = NULL;
            const LV2_Atom* v = NULL;
            lv2_atom_object_get(o, property, &key, value, &v, 0);
            if (!key || !v) continue;
            const LV2_URID id = ((const LV2_Atom_URID*)key)->body;
            if (id < sizeof seen && !seen[id]) seen[id] = 1, ++distinct;
            if (id == ison && ((const LV2_Atom_Float*)v)->body == 1.0f) voiceOn = 1;
        }
    }
    CHECK(distinct >= 700, "patch:Get brought %d parameters", distinct);
    CHECK(voiceOn, "no voice-on feedback after a note");
    Close(h);
}

/* CPU time of the calling thread: other load on the machine does not count. */
static double Seconds(void) {
    struct timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return (double)t.tv_sec + (double)t.tv_nsec * 1e-9;
}

static void MeasureCpu(void) {
    const int64_t frames = 48000 * 10;
    Host* idle = Open(48000);
    double t0 = Seconds();
    Play(idle, NULL, 0, frames, 256, NULL);
    const double idleCpu = (Seconds() - t0) / 10.0 * 100.0;
    Host* busy = Open(48000);
    Event notes[24];
    for (int i = 0; i < 12; ++i) {
        notes[i] = (Event){0, {0x90, (uint8_t)(48 + i * 2), 100}, NULL, 0};
        notes[12 + i] = (Event){frames - 48000, {0x80, (uint8_t)(48 + i * 2), 0}, NULL, 0};
    }
    t0 = Seconds();
    Play(busy, notes, 24, frames, 256, NULL);
    const double busyCpu = (Seconds() - t0) / 10.0 * 100.0;
    printf("CPU at 48 kHz, 256-frame blocks: idle instance %.1f %%, playing twelve voices %.1f %% "
           "of one core\n",
           idleCpu, busyCpu);
    Close(idle);
    Close(busy);
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr,
                "usage: %s blocks|rt|state|presets|installed|twice|notify|cpu [RENDERER WORKDIR]\n",
                argv[0]);
        return 2;
    }
    setenv("VANTOR_SEED", "3", 1);
    world = lilv_world_new();
    lilv_world_load_all(world);
    LilvNode* uri = lilv_new_uri(world, PLUGIN_URI);
    plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), uri);
    if (!plugin) {
        fprintf(stderr, "plugin %s not found on LV2_PATH\n", PLUGIN_URI);
        return 1;
    }
    const char* test = argv[1];
    if (strcmp(test, "blocks") == 0 && argc == 4)
        TestBlocks(argv[2], argv[3]);
    else if (strcmp(test, "rt") == 0)
        TestRealTime();
    else if (strcmp(test, "state") == 0 && argc >= 3)
        TestState(argv[argc - 1]);
    else if (strcmp(test, "presets") == 0)
        TestPresets(1);
    else if (strcmp(test, "installed") == 0)
        TestInstalled();
    else if (strcmp(test, "twice") == 0)
        TestTwice();
    else if (strcmp(test, "notify") == 0)
        TestNotify();
    else if (strcmp(test, "cpu") == 0)
        MeasureCpu();
    else {
        fprintf(stderr, "unknown test or missing arguments: %s\n", test);
        return 2;
    }
    lilv_node_free(uri);
    lilv_world_free(world);
    printf("%s: %s\n", test, failures ? "FAILED" : "passed");
    return failures ? 1 : 0;
}
