/* A host written in plain C: loads the engine library with dlopen and calls
 * every factory and processor slot by index through the table pointer. */
#include <vantor/host.h>

#include <dlfcn.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;

#define CHECK(cond)                                                                                \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);               \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

#define CALL(obj, slot, type, ...) VANTOR_SLOT(obj, slot, type)(__VA_ARGS__)

static void CheckFactoryTexts(const VantorFactory* f) {
    CHECK(strcmp(f->version, "1.0.0") == 0);
    CHECK(strcmp(f->name, "Vantor") == 0);
    CHECK(strcmp(f->description, "Vantor engine") == 0);
}

static void CheckConstantAnswers(VantorProcessor* p) {
    CHECK(!CALL(p, VANTOR_SLOT_OPTIONAL_QUERY_A, VantorBoolFn, p));
    CHECK(!CALL(p, VANTOR_SLOT_OPTIONAL_QUERY_B, VantorBoolFn, p));
    CHECK(!CALL(p, VANTOR_SLOT_OPTIONAL_QUERY_C, VantorBoolFn, p));
    CHECK(!CALL(p, VANTOR_SLOT_OPTIONAL_QUERY_D, VantorBoolFn, p));
    CHECK(!CALL(p, VANTOR_SLOT_OPTIONAL_QUERY_E, VantorBoolFn, p));
    CHECK(CALL(p, VANTOR_SLOT_OPTIONAL_HOOK_F, VantorBoolFn, p));
    CHECK(CALL(p, VANTOR_SLOT_ON_INITIALIZE, VantorBoolFn, p));
    CHECK(CALL(p, VANTOR_SLOT_ON_TERMINATE, VantorBoolFn, p));
    CHECK(CALL(p, VANTOR_SLOT_TERMINATE, VantorBoolFn, p));
    CHECK(CALL(p, VANTOR_SLOT_GET_INTERFACE_VERSION, VantorU32Fn, p) == VANTOR_INTERFACE_VERSION);
    CHECK(CALL(p, VANTOR_SLOT_GET_BLOCK_SIZE, VantorU32Fn, p) == 32);
    for (int slot = VANTOR_SLOT_GET_OPTIONAL_DATA_A; slot <= VANTOR_SLOT_GET_OPTIONAL_DATA_B;
         ++slot) {
        uint64_t pointer = 99;
        uint32_t size = 99;
        CHECK(CALL(p, slot, VantorGetOptionalDataFn, p, &pointer, &size));
        CHECK(pointer == 0 && size == 0);
    }
}

static void CheckParameters(VantorProcessor* p, uint64_t count) {
    VantorParamInfo info;
    CHECK(CALL(p, VANTOR_SLOT_GET_PARAM_INFO, VantorGetParamInfoFn, p, 0, &info));
    CHECK(strcmp(info.name, "master_volume") == 0);
    CHECK(info.dataSize == 4 && info.aux3 == 1 && info.aux1 == 1.0f);

    memset(&info, 0xAB, sizeof info);
    CHECK(!CALL(p, VANTOR_SLOT_GET_PARAM_INFO, VantorGetParamInfoFn, p, (uint32_t)count, &info));
    CHECK((unsigned char)info.name[0] == 0xAB && (unsigned char)info.name[287 - 256] == 0xAB);

    uint32_t index = 12345;
    CHECK(CALL(p, VANTOR_SLOT_FIND_PARAM_INFO, VantorFindParamInfoFn, p, 5, &index, &info));
    CHECK(index == 5);
    index = 12345;
    CHECK(!CALL(p, VANTOR_SLOT_FIND_PARAM_INFO, VantorFindParamInfoFn, p, (uint32_t)count, &index,
                &info));
    CHECK(index == 12345);

    float value = -1.0f;
    CHECK(!CALL(p, VANTOR_SLOT_GET_PARAM, VantorGetParamFn, p, (uint32_t)count, &value));
    CHECK(!CALL(p, VANTOR_SLOT_SET_PARAM, VantorSetParamFn, p, (uint32_t)count, 1.0f));
    CHECK(CALL(p, VANTOR_SLOT_SET_PARAM, VantorSetParamFn, p, 0, 0.25f));
    CHECK(CALL(p, VANTOR_SLOT_GET_PARAM, VantorGetParamFn, p, 0, &value));
    CHECK(value == 0.25f);

    uint64_t size = 0;
    CHECK(CALL(p, VANTOR_SLOT_GET_STATE, VantorGetStateFn, p, NULL, &size));
    CHECK(size == count * 4);
    unsigned char* blob = malloc(size);
    CHECK(CALL(p, VANTOR_SLOT_GET_STATE, VantorGetStateFn, p, blob, &size));
    float stored;
    memcpy(&stored, blob, 4);
    CHECK(stored == 0.25f);
    stored = 0.75f;
    memcpy(blob, &stored, 4);
    CHECK(!CALL(p, VANTOR_SLOT_SET_STATE, VantorSetStateFn, p, blob, 4)); /* short blob */
    CHECK(CALL(p, VANTOR_SLOT_GET_PARAM, VantorGetParamFn, p, 0, &value));
    CHECK(value == 0.25f);
    CHECK(CALL(p, VANTOR_SLOT_SET_STATE, VantorSetStateFn, p, blob, size));
    CHECK(CALL(p, VANTOR_SLOT_GET_PARAM, VantorGetParamFn, p, 0, &value));
    CHECK(value == 0.75f);
    free(blob);
}

static void CheckRender(VantorProcessor* p) {
    float rate = 48000.0f;
    CHECK(CALL(p, VANTOR_SLOT_SET_SAMPLE_RATE, VantorSetSampleRateFn, p, &rate));
    CHECK(CALL(p, VANTOR_SLOT_UPDATE_VOICE_SETUP, VantorBoolFn, p));
    VantorMidiEvent noteOn = {0x90u | 60u << 8 | 100u << 16, 0, 0};
    VantorMidiEvent pressure = {0xA0u | 60u << 8 | 50u << 16, 0, 0};
    CHECK(CALL(p, VANTOR_SLOT_PROCESS_MIDI_MESSAGE, VantorProcessMidiFn, p, &noteOn));
    CHECK(!CALL(p, VANTOR_SLOT_PROCESS_MIDI_MESSAGE, VantorProcessMidiFn, p, &pressure));

    float left[64];
    float right[64];
    for (int i = 0; i < 64; ++i) left[i] = right[i] = NAN;
    float* outputs[2] = {left, right};
    VantorRenderContext ctx;
    memset(&ctx, 0, sizeof ctx);
    ctx.outputs = outputs;
    ctx.frameCount = 16;
    ctx.sampleRate = 48000.0f;
    ctx.tempo = 120.0f;
    CHECK(CALL(p, VANTOR_SLOT_RENDER, VantorRenderFn, p, &ctx));
    for (int i = 0; i < 16; ++i) CHECK(isfinite(left[i]) && isfinite(right[i]));
    for (int i = 16; i < 64; ++i) CHECK(isnan(left[i]) && isnan(right[i]));

    ctx.frameCount = 1000; /* more than a block: only 32 frames are written */
    CHECK(CALL(p, VANTOR_SLOT_RENDER, VantorRenderFn, p, &ctx));
    for (int i = 32; i < 64; ++i) CHECK(isnan(left[i]) && isnan(right[i]));

    const VantorValueChange* list = NULL;
    int32_t changed = -1;
    CALL(p, VANTOR_SLOT_GET_CHANGED_VALUES, VantorGetChangedValuesFn, p, &list, &changed);
    CHECK(list != NULL && changed >= 0 && changed <= 140);
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s path/to/vantorengine.so\n", argv[0]);
        return 2;
    }
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "dlopen failed: %s\n", dlerror());
        return 1;
    }
    /* dlsym answers an object pointer; copy its bits into the function pointer. */
    void* symbol = dlsym(library, VANTOR_FACTORY_SYMBOL);
    VantorGetProcessorFactoryFn get = NULL;
    memcpy(&get, &symbol, sizeof get);
    CHECK(get != NULL);
    if (get == NULL) return 1;

    VantorFactory* factory = get();
    VantorFactory* second = get();
    CHECK(factory != second);
    CheckFactoryTexts(factory);
    CheckFactoryTexts(second);
    CHECK(CALL(factory, VANTOR_FACTORY_GET_VERSION, VantorFactoryGetVersionFn, factory) == 2);

    VantorProcessor* p =
        CALL(factory, VANTOR_FACTORY_CREATE_PROCESSOR, VantorFactoryCreateFn, factory);
    CHECK(p != NULL);
    VantorProcessorInfo* info =
        CALL(p, VANTOR_SLOT_GET_PROCESSOR_INFO, VantorGetProcessorInfoFn, p);
    CHECK(info == &p->info);
    CHECK(info->paramCount == 0 && info->outputCount == 2 && info->inputCount == 0);
    CHECK(info->blockSize == 32 && info->reserved1 == 3 && info->hostValue == 0);
    CHECK(CALL(p, VANTOR_SLOT_GET_BLOCK_SIZE, VantorU32Fn, p) == 32);

    const uint64_t count = CALL(p, VANTOR_SLOT_GET_PARAM_COUNT, VantorGetParamCountFn, p);
    CHECK(count == 4806);
    CHECK(CALL(p, VANTOR_SLOT_INITIALIZE, VantorInitializeFn, p, 77));
    CHECK(info->paramCount == count && info->hostValue == 77);

    CheckConstantAnswers(p);
    CheckParameters(p, count);
    CheckRender(p);

    CHECK(CALL(p, VANTOR_SLOT_RELEASE, VantorReleaseFn, p, VANTOR_RELEASE_FREE) == p);
    CHECK(CALL(factory, VANTOR_FACTORY_RELEASE, VantorReleaseFn, factory, VANTOR_RELEASE_FREE) ==
          factory);
    CALL(second, VANTOR_FACTORY_RELEASE, VantorReleaseFn, second, VANTOR_RELEASE_FREE);
    dlclose(library);

    printf("%d passed, %d failed\n", failures == 0 ? 1 : 0, failures == 0 ? 0 : 1);
    return failures == 0 ? 0 : 1;
}
