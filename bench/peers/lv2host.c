/* Plays the reference pattern through an LV2 instrument with lilv, its
 * controls at their defaults:  lv2host PLUGIN_URI */
#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/atom/util.h>
#include <lv2/midi/midi.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "pattern.h"

#define MAX_URIS 256
#define SEQ_BYTES 8192

static char* uris[MAX_URIS];
static uint32_t uri_count;

static LV2_URID map_uri(LV2_URID_Map_Handle handle, const char* uri) {
    (void)handle;
    for (uint32_t i = 0; i < uri_count; ++i)
        if (!strcmp(uris[i], uri)) return i + 1;
    if (uri_count == MAX_URIS) return 0;
    uris[uri_count] = strdup(uri);
    return ++uri_count;
}

typedef struct {
    LilvInstance* instance;
    const LV2_Worker_Interface* worker;
    LV2_Atom_Sequence* in;
    LV2_Atom_Sequence* notify;
    LV2_URID midi_event, sequence, chunk;
    float* audio[8];
} Host;

static LV2_Worker_Status respond(LV2_Worker_Respond_Handle handle, uint32_t size,
                                 const void* data) {
    Host* host = handle;
    return host->worker->work_response(lilv_instance_get_handle(host->instance), size, data);
}

/* Runs scheduled work at once: the benchmark has no worker thread. */
static LV2_Worker_Status schedule(LV2_Worker_Schedule_Handle handle, uint32_t size,
                                  const void* data) {
    Host* host = handle;
    if (!host->worker) return LV2_WORKER_ERR_UNKNOWN;
    return host->worker->work(lilv_instance_get_handle(host->instance), respond, host, size, data);
}

static void seq_clear(Host* h) {
    h->in->atom.type = h->sequence;
    h->in->atom.size = sizeof(LV2_Atom_Sequence_Body);
    h->in->body.unit = 0;
    h->in->body.pad = 0;
}

static void note(int key, int on, void* user) {
    Host* h = user;
    struct {
        LV2_Atom_Event event;
        uint8_t msg[3];
    } ev;
    ev.event.time.frames = 0;
    ev.event.body.type = h->midi_event;
    ev.event.body.size = 3;
    ev.msg[0] = on ? 0x90 : 0x80;
    ev.msg[1] = (uint8_t)key;
    ev.msg[2] = on ? 100 : 0;
    lv2_atom_sequence_append_event(h->in, SEQ_BYTES, &ev.event);
}

static void render(void* user) {
    Host* h = user;
    h->notify->atom.type = h->chunk;
    h->notify->atom.size = SEQ_BYTES - sizeof(LV2_Atom);
    lilv_instance_run(h->instance, PATTERN_BLOCK);
    seq_clear(h);
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s PLUGIN_URI\n", argv[0]);
        return 2;
    }
    LilvWorld* world = lilv_world_new();
    lilv_world_load_all(world);
    LilvNode* uri = lilv_new_uri(world, argv[1]);
    const LilvPlugin* plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), uri);
    if (!plugin) {
        fprintf(stderr, "no plugin %s\n", argv[1]);
        return 1;
    }
    static Host host;
    LV2_URID_Map map = {NULL, map_uri};
    LV2_Worker_Schedule sched = {&host, schedule};
    LV2_Feature map_feature = {LV2_URID__map, &map};
    LV2_Feature sched_feature = {LV2_WORKER__schedule, &sched};
    const LV2_Feature* features[] = {&map_feature, &sched_feature, NULL};
    host.midi_event = map_uri(NULL, LV2_MIDI__MidiEvent);
    host.sequence = map_uri(NULL, LV2_ATOM__Sequence);
    host.chunk = map_uri(NULL, LV2_ATOM__Chunk);

    const char* labels[] = {"12 notes", "1 note", "idle"};
    const int notes[] = {12, 1, 0};
    for (int c = 0; c < 3; ++c) {
        host.instance = lilv_plugin_instantiate(plugin, PATTERN_RATE, features);
        if (!host.instance) {
            fprintf(stderr, "cannot instantiate %s\n", argv[1]);
            return 1;
        }
        host.worker = lilv_instance_get_extension_data(host.instance, LV2_WORKER__interface);
        LilvNode* audio = lilv_new_uri(world, LV2_CORE__AudioPort);
        LilvNode* control = lilv_new_uri(world, LV2_CORE__ControlPort);
        LilvNode* atom = lilv_new_uri(world, LV2_ATOM__AtomPort);
        LilvNode* input = lilv_new_uri(world, LV2_CORE__InputPort);
        const uint32_t ports = lilv_plugin_get_num_ports(plugin);
        float* defaults = calloc(ports, sizeof(float));
        lilv_plugin_get_port_ranges_float(plugin, NULL, NULL, defaults);
        host.in = aligned_alloc(16, SEQ_BYTES);
        host.notify = aligned_alloc(16, SEQ_BYTES);
        seq_clear(&host);
        for (uint32_t p = 0; p < ports; ++p) {
            const LilvPort* port = lilv_plugin_get_port_by_index(plugin, p);
            if (lilv_port_is_a(plugin, port, audio)) {
                float* buffer = calloc(PATTERN_BLOCK, sizeof(float));
                lilv_instance_connect_port(host.instance, p, buffer);
            } else if (lilv_port_is_a(plugin, port, control)) {
                if (defaults[p] != defaults[p]) defaults[p] = 0.0f;
                lilv_instance_connect_port(host.instance, p, &defaults[p]);
            } else if (lilv_port_is_a(plugin, port, atom)) {
                lilv_instance_connect_port(
                    host.instance, p,
                    lilv_port_is_a(plugin, port, input) ? (void*)host.in : (void*)host.notify);
            } else {
                lilv_instance_connect_port(host.instance, p, NULL);
            }
        }
        lilv_instance_activate(host.instance);
        pattern_run("synthv1", labels[c], notes[c], note, render, &host);
        lilv_instance_deactivate(host.instance);
        lilv_instance_free(host.instance);
    }
    lilv_node_free(uri);
    lilv_world_free(world);
    return 0;
}
