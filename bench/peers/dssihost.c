/* Plays the reference pattern through a DSSI instrument, its controls at the
 * defaults their hints give:  dssihost PLUGIN.so [INDEX] */
#include <dlfcn.h>
#include <dssi.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "pattern.h"

typedef struct {
    const DSSI_Descriptor* dssi;
    LADSPA_Handle handle;
    snd_seq_event_t events[32];
    unsigned long count;
} Host;

static LADSPA_Data default_value(const LADSPA_PortRangeHint* hint) {
    const LADSPA_PortRangeHintDescriptor d = hint->HintDescriptor;
    const float lo = hint->LowerBound, hi = hint->UpperBound;
    const int log = LADSPA_IS_HINT_LOGARITHMIC(d) && lo > 0.0f;
    if (LADSPA_IS_HINT_DEFAULT_MINIMUM(d)) return lo;
    if (LADSPA_IS_HINT_DEFAULT_LOW(d))
        return log ? expf(0.75f * logf(lo) + 0.25f * logf(hi)) : 0.75f * lo + 0.25f * hi;
    if (LADSPA_IS_HINT_DEFAULT_MIDDLE(d)) return log ? sqrtf(lo * hi) : 0.5f * (lo + hi);
    if (LADSPA_IS_HINT_DEFAULT_HIGH(d))
        return log ? expf(0.25f * logf(lo) + 0.75f * logf(hi)) : 0.25f * lo + 0.75f * hi;
    if (LADSPA_IS_HINT_DEFAULT_MAXIMUM(d)) return hi;
    if (LADSPA_IS_HINT_DEFAULT_0(d)) return 0.0f;
    if (LADSPA_IS_HINT_DEFAULT_1(d)) return 1.0f;
    if (LADSPA_IS_HINT_DEFAULT_100(d)) return 100.0f;
    if (LADSPA_IS_HINT_DEFAULT_440(d)) return 440.0f;
    return LADSPA_IS_HINT_BOUNDED_BELOW(d) ? lo : 0.0f;
}

static void note(int key, int on, void* user) {
    Host* h = user;
    snd_seq_event_t* ev = &h->events[h->count++];
    memset(ev, 0, sizeof *ev);
    ev->type = on ? SND_SEQ_EVENT_NOTEON : SND_SEQ_EVENT_NOTEOFF;
    ev->time.tick = 0;
    ev->data.note.channel = 0;
    ev->data.note.note = (unsigned char)key;
    ev->data.note.velocity = on ? 100 : 0;
}

static void render(void* user) {
    Host* h = user;
    h->dssi->run_synth(h->handle, PATTERN_BLOCK, h->events, h->count);
    h->count = 0;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s PLUGIN.so [INDEX]\n", argv[0]);
        return 2;
    }
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    DSSI_Descriptor_Function entry =
        library ? (DSSI_Descriptor_Function)dlsym(library, "dssi_descriptor") : NULL;
    if (!entry) {
        fprintf(stderr, "%s is not a DSSI plugin: %s\n", argv[1], dlerror());
        return 1;
    }
    static Host host;
    host.dssi = entry(argc > 2 ? strtoul(argv[2], NULL, 10) : 0);
    if (!host.dssi || !host.dssi->run_synth) {
        fprintf(stderr, "no DSSI instrument in %s\n", argv[1]);
        return 1;
    }
    const LADSPA_Descriptor* ladspa = host.dssi->LADSPA_Plugin;
    const char* labels[] = {"12 notes", "1 note", "idle"};
    const int notes[] = {12, 1, 0};
    for (int c = 0; c < 3; ++c) {
        host.handle = ladspa->instantiate(ladspa, PATTERN_RATE);
        LADSPA_Data* controls = calloc(ladspa->PortCount, sizeof(LADSPA_Data));
        for (unsigned long p = 0; p < ladspa->PortCount; ++p) {
            if (LADSPA_IS_PORT_AUDIO(ladspa->PortDescriptors[p])) {
                ladspa->connect_port(host.handle, p, calloc(PATTERN_BLOCK, sizeof(LADSPA_Data)));
            } else {
                controls[p] = default_value(&ladspa->PortRangeHints[p]);
                ladspa->connect_port(host.handle, p, &controls[p]);
            }
        }
        if (ladspa->activate) ladspa->activate(host.handle);
        pattern_run("amsynth", labels[c], notes[c], note, render, &host);
        if (ladspa->deactivate) ladspa->deactivate(host.handle);
        ladspa->cleanup(host.handle);
    }
    return 0;
}
