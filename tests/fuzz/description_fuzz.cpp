// Engine description: the input is the vantorengine.xml the processor finds
// in the current folder. Construction must survive it; a failed load leaves a
// processor that answers false and renders silence.
#include "fuzz_common.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char folder[] = "/tmp/vantor-fuzz-XXXXXX";
    if (mkdtemp(folder) == nullptr || chdir(folder) != 0) std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* file = std::fopen("vantorengine.xml", "wb");
    if (file == nullptr) std::abort();
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    auto* p = VantorFuzz::NewProcessor();
    const uint64_t count = p->GetParamCount();
    for (uint32_t id = 0; id < count + 1; ++id) {
        VantorParamInfo info;
        float value = 0.0f;
        p->GetParamInfo(id, &info);
        p->GetParam(id, &value);
        p->SetParam(id, 0.5f);
    }
    uint64_t stateSize = 0;
    p->GetState(nullptr, &stateSize);
    std::string blob(stateSize, '\0');
    p->GetState(blob.data(), &stateSize);
    p->SetState(blob.data(), blob.size());
    p->UpdateVoiceSetup();
    VantorFuzz::Midi(p, 0x90u | 60u << 8 | 100u << 16);
    VantorFuzz::RenderChecked(p);
    VantorFuzz::Free(p);
    return 0;
}
