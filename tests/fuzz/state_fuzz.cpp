// State blob followed by renders: the input is laid over a good state (and
// offered raw as well), then a chord plays for a few blocks.
#include "fuzz_common.h"

#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto* p = VantorFuzz::SharedProcessor();
    p->SetState(data, size);
    uint64_t stateSize = 0;
    p->GetState(nullptr, &stateSize);
    std::vector<uint8_t> blob(stateSize);
    p->GetState(blob.data(), &stateSize);
    // The input's bytes cycle over the whole store, so short inputs reach every parameter.
    if (size > 0)
        for (size_t i = 0; i < blob.size(); ++i) blob[i] = data[i % size];
    p->SetState(blob.data(), blob.size());
    p->SetParam(p->FindParamId("presetmode"), 0.0f);
    for (int block = 0; block < 8; ++block) {
        p->UpdateVoiceSetup();
        if (block == 0)
            for (uint32_t key : {48u, 55u, 60u, 64u})
                VantorFuzz::Midi(p, 0x90u | key << 8 | 100u << 16);
        VantorFuzz::RenderChecked(p);
    }
    return 0;
}
