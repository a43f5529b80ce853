/*
 * Vantor engine host contract.
 *
 * A host loads vantorengine.so, calls GetProcessorFactory and then drives the
 * factory and its processors only through their tables of virtual operations:
 * the first member of both objects is a pointer to that table, and the host
 * calls a slot by index with the object as the first argument.
 *
 * Call order for every block: parameter changes (SetParam), UpdateVoiceSetup,
 * MIDI messages (ProcessMidiMessage), Render, then GetChangedValues.
 * UpdateVoiceSetup clears the trigger bits of the voices, so calling it after
 * the notes of a block would erase them.
 *
 * Threads. The engine starts no thread and takes no lock of its own, so the
 * operations of one processor must never run concurrently; different
 * processors may run on different threads. Each slot below carries its class:
 *   [rt]   real-time safe: no allocation, lock, wait, log or file access;
 *          callable from the audio thread once per block.
 *   [ctl]  control thread only: may allocate, read files, log (the logger has
 *          its own lock) or take time proportional to the engine's size.
 * SetParam is [rt] for every parameter; presetmode only repoints bindings
 * resolved at construction. allnotesoff, panic and presetloading also clear
 * the effect delay memories: each clear zeroes only what the effects wrote
 * since the previous one: nothing after a quiet stretch, but up to about
 * 38 MB once every effect type has played long enough in both slots. A host
 * on a tight period sends them from the control thread or in a block it can
 * afford to stretch.
 *
 * This header is plain C so that hosts in C and C++ share it.
 */
#ifndef VANTOR_HOST_H
#define VANTOR_HOST_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VANTOR_BLOCK_SIZE 32
#define VANTOR_FACTORY_VERSION 2
#define VANTOR_INTERFACE_VERSION 3
#define VANTOR_TEXT_FIELD 256
#define VANTOR_PARAM_NAME 256
#define VANTOR_RELEASE_FREE 1u /* flag bit 0 of the release slots: free the memory */

/* Record at the head of a processor, directly after its table pointer. */
typedef struct VantorProcessorInfo {
    uint32_t paramCount;  /* set by Initialize */
    uint32_t outputCount; /* 2 */
    uint32_t inputCount;  /* 0 */
    uint32_t reserved0;
    uint32_t blockSize; /* 32 */
    uint32_t reserved1; /* 3 */
    uint64_t hostValue; /* value passed to Initialize */
} VantorProcessorInfo;

/* Record passed to Render. Only the named fields are read; the gaps belong to
 * the host. */
typedef struct VantorRenderContext {
    uint8_t hostReserved0[16];
    float** outputs; /* offset 16: outputs[0] left, outputs[1] right */
    uint8_t hostReserved1[16];
    uint32_t frameCount; /* offset 40: at most 32 */
    uint8_t hostReserved2[120];
    float sampleRate; /* offset 164 */
    float tempo;      /* offset 168, beats per minute */
    uint32_t hostReserved3;
} VantorRenderContext;

/* One packed MIDI channel message: byte 0 status, byte 1 key, byte 2 value. */
typedef struct VantorMidiEvent {
    uint32_t message;
    uint32_t reserved;
    uint64_t extra;
} VantorMidiEvent;

/* One entry of the changed-value list of GetChangedValues. */
typedef struct VantorValueChange {
    uint32_t id;
    uint32_t reserved;
    float value;
} VantorValueChange;

/* Parameter description, 288 bytes. */
typedef struct VantorParamInfo {
    char name[VANTOR_PARAM_NAME]; /* not terminated when 256 bytes long */
    uint32_t aux0;                /* 0 */
    float aux1;                   /* 1.0 */
    int32_t nbValues;             /* steps of a stepped parameter, 0 when continuous */
    uint32_t aux2;                /* 0 */
    uint32_t aux3;                /* 1 */
    uint32_t reserved;
    int64_t dataSize; /* bytes of the value; 4 for a float */
} VantorParamInfo;

/* An entry of a table of virtual operations; cast to the slot's own type. */
typedef void (*VantorSlotFn)(void);

/* Factory object: table pointer, then three text fields. */
typedef struct VantorFactory {
    VantorSlotFn* vtable;
    char version[VANTOR_TEXT_FIELD];
    char name[VANTOR_TEXT_FIELD];
    char description[VANTOR_TEXT_FIELD];
} VantorFactory;

/* Processor object as the host sees it: table pointer, then the info record. */
typedef struct VantorProcessor {
    VantorSlotFn* vtable;
    VantorProcessorInfo info;
} VantorProcessor;

/* Factory slots. */
enum VantorFactorySlot {
    VANTOR_FACTORY_GET_VERSION = 0,      /* [rt]  (self) -> uint32_t */
    VANTOR_FACTORY_CREATE_PROCESSOR = 1, /* [ctl] (self) -> VantorProcessor* */
    VANTOR_FACTORY_RELEASE = 2           /* [ctl] (self, uint32_t flags) -> void* */
};

/* Processor slots. */
enum VantorProcessorSlot {
    VANTOR_SLOT_GET_PROCESSOR_INFO = 0, /* [rt]  (self) -> VantorProcessorInfo* */
    VANTOR_SLOT_OPTIONAL_QUERY_A = 1,   /* [rt]  (self) -> bool */
    VANTOR_SLOT_SET_SAMPLE_RATE = 2,    /* [ctl] (self, const float*) -> bool */
    VANTOR_SLOT_INITIALIZE = 3,         /* [ctl] (self, uint64_t) -> bool */
    VANTOR_SLOT_TERMINATE = 4,          /* [ctl] (self) -> bool */
    VANTOR_SLOT_SET_STATE = 5,          /* [ctl] (self, const void*, uint64_t) -> bool */
    VANTOR_SLOT_GET_STATE = 6,          /* [ctl] (self, void*, uint64_t*) -> bool */
    VANTOR_SLOT_GET_PARAM = 7,          /* [rt]  (self, uint32_t, float*) -> bool */
    VANTOR_SLOT_SET_PARAM = 8,          /* [rt]  (self, uint32_t, float) -> bool */
    VANTOR_SLOT_OPTIONAL_QUERY_B = 9,   /* [rt]  (self) -> bool */
    VANTOR_SLOT_OPTIONAL_QUERY_C = 10,  /* [rt]  (self) -> bool */
    VANTOR_SLOT_GET_PARAM_INFO = 11,    /* [ctl] (self, uint32_t, VantorParamInfo*) -> bool */
    VANTOR_SLOT_FIND_PARAM_INFO =
        12,                   /* [ctl] (self, uint32_t, uint32_t*, VantorParamInfo*) -> bool */
    VANTOR_SLOT_RELEASE = 13, /* [ctl] (self, uint32_t flags) -> void* */
    VANTOR_SLOT_GET_INTERFACE_VERSION = 14, /* [rt]  (self) -> uint32_t */
    VANTOR_SLOT_GET_PARAM_COUNT = 15,       /* [rt]  (self) -> uint64_t */
    VANTOR_SLOT_OPTIONAL_QUERY_D = 16,      /* [rt]  (self) -> bool */
    VANTOR_SLOT_PROCESS_MIDI_MESSAGE = 17,  /* [rt]  (self, const VantorMidiEvent*) -> bool */
    VANTOR_SLOT_ON_INITIALIZE = 18,         /* [ctl] (self) -> bool */
    VANTOR_SLOT_ON_TERMINATE = 19,          /* [ctl] (self) -> bool */
    VANTOR_SLOT_OPTIONAL_QUERY_E = 20,      /* [rt]  (self) -> bool */
    VANTOR_SLOT_OPTIONAL_HOOK_F = 21,       /* [rt]  (self) -> bool */
    VANTOR_SLOT_UPDATE_VOICE_SETUP = 22,    /* [rt]  (self) -> bool */
    VANTOR_SLOT_GET_CHANGED_VALUES =
        23, /* [rt]  (self, const VantorValueChange**, int32_t*) -> void */
    VANTOR_SLOT_GET_OPTIONAL_DATA_A = 24, /* [rt]  (self, uint64_t*, uint32_t*) -> bool */
    VANTOR_SLOT_GET_OPTIONAL_DATA_B = 25, /* [rt]  (self, uint64_t*, uint32_t*) -> bool */
    VANTOR_SLOT_GET_BLOCK_SIZE = 26,      /* [rt]  (self) -> uint32_t */
    VANTOR_SLOT_RENDER = 27,              /* [rt]  (self, const VantorRenderContext*) -> bool */
    VANTOR_SLOT_COUNT = 28
};

/* Typed slot signatures, for hosts that call through the table. */
typedef uint32_t (*VantorFactoryGetVersionFn)(VantorFactory*);
typedef VantorProcessor* (*VantorFactoryCreateFn)(VantorFactory*);
typedef void* (*VantorReleaseFn)(void*, uint32_t);
typedef VantorProcessorInfo* (*VantorGetProcessorInfoFn)(VantorProcessor*);
typedef bool (*VantorBoolFn)(VantorProcessor*);
typedef bool (*VantorSetSampleRateFn)(VantorProcessor*, const float*);
typedef bool (*VantorInitializeFn)(VantorProcessor*, uint64_t);
typedef bool (*VantorSetStateFn)(VantorProcessor*, const void*, uint64_t);
typedef bool (*VantorGetStateFn)(VantorProcessor*, void*, uint64_t*);
typedef bool (*VantorGetParamFn)(VantorProcessor*, uint32_t, float*);
typedef bool (*VantorSetParamFn)(VantorProcessor*, uint32_t, float);
typedef bool (*VantorGetParamInfoFn)(VantorProcessor*, uint32_t, VantorParamInfo*);
typedef bool (*VantorFindParamInfoFn)(VantorProcessor*, uint32_t, uint32_t*, VantorParamInfo*);
typedef uint32_t (*VantorU32Fn)(VantorProcessor*);
typedef uint64_t (*VantorGetParamCountFn)(VantorProcessor*);
typedef bool (*VantorProcessMidiFn)(VantorProcessor*, const VantorMidiEvent*);
typedef void (*VantorGetChangedValuesFn)(VantorProcessor*, const VantorValueChange**, int32_t*);
typedef bool (*VantorGetOptionalDataFn)(VantorProcessor*, uint64_t*, uint32_t*);
typedef bool (*VantorRenderFn)(VantorProcessor*, const VantorRenderContext*);

/* The library's only export. */
typedef VantorFactory* (*VantorGetProcessorFactoryFn)(void);
#define VANTOR_FACTORY_SYMBOL "GetProcessorFactory"

#define VANTOR_SLOT(obj, slot, type) ((type)((obj)->vtable[(slot)]))

#ifdef __cplusplus
}
#endif

/* Layout checks shared by C and C++ hosts. */
#ifdef __cplusplus
#define VANTOR_STATIC_ASSERT static_assert
#else
#define VANTOR_STATIC_ASSERT _Static_assert
#endif
VANTOR_STATIC_ASSERT(sizeof(VantorProcessorInfo) == 32, "ProcessorInfo is 32 bytes");
VANTOR_STATIC_ASSERT(sizeof(VantorValueChange) == 12, "ValueChange is 12 bytes");
VANTOR_STATIC_ASSERT(sizeof(VantorParamInfo) == 288, "ParamInfo is 288 bytes");
VANTOR_STATIC_ASSERT(sizeof(VantorMidiEvent) == 16, "MidiEvent is 16 bytes");
VANTOR_STATIC_ASSERT(offsetof(VantorParamInfo, nbValues) == 264, "nbValues offset");
VANTOR_STATIC_ASSERT(offsetof(VantorParamInfo, dataSize) == 280, "dataSize offset");
VANTOR_STATIC_ASSERT(offsetof(VantorRenderContext, outputs) == 16, "outputs offset");
VANTOR_STATIC_ASSERT(offsetof(VantorRenderContext, frameCount) == 40, "frameCount offset");
VANTOR_STATIC_ASSERT(offsetof(VantorRenderContext, sampleRate) == 164, "sampleRate offset");
VANTOR_STATIC_ASSERT(offsetof(VantorRenderContext, tempo) == 168, "tempo offset");
VANTOR_STATIC_ASSERT(offsetof(VantorFactory, version) == 8, "factory texts follow the table");
VANTOR_STATIC_ASSERT(offsetof(VantorProcessor, info) == 8, "info follows the table");

#endif
