#pragma once
// Shared by the fuzz targets: a processor driven like a host, and a trap on
// any output that is not finite, so that libFuzzer keeps the input.
#include "processor/vantorprocessor.h"

#include <cmath>
#include <cstdlib>
#include <vector>

namespace VantorFuzz {

using Engine = Norvell::Vantor::VantorProcessor;

inline Engine* NewProcessor() {
    auto* p = new Engine();
    p->Initialize(0);
    const float rate = 48000.0f;
    p->SetSampleRate(&rate);
    return p;
}

inline void Free(Engine* p) {
    p->Release(VANTOR_RELEASE_FREE);
}

// One processor for the whole run (construction is slow under the
// sanitizers), brought back to its first state before every input: the
// state it had after construction, then all notes off, which clears every
// voice chain, effect and controller.
inline Engine* SharedProcessor() {
    static Engine* p = NewProcessor();
    static std::vector<uint8_t> initial = [] {
        uint64_t size = 0;
        p->GetState(nullptr, &size);
        std::vector<uint8_t> blob(size);
        p->GetState(blob.data(), &size);
        return blob;
    }();
    p->SetState(initial.data(), initial.size());
    p->SetParam(p->FindParamId("presetmode"), 1.0f);
    p->SetParam(p->FindParamId("allnotesoff"), 1.0f);
    p->UpdateVoiceSetup();
    return p;
}

// One block at 48 kHz; aborts when a sample is not finite.
inline void RenderChecked(Engine* p) {
    float left[32];
    float right[32];
    float* outputs[2] = {left, right};
    VantorRenderContext ctx{};
    ctx.outputs = outputs;
    ctx.frameCount = 32;
    ctx.sampleRate = 48000.0f;
    ctx.tempo = 120.0f;
    p->Render(&ctx);
    for (int n = 0; n < 32; ++n)
        if (!std::isfinite(left[n]) || !std::isfinite(right[n])) std::abort();
    const VantorValueChange* list = nullptr;
    int32_t count = 0;
    p->GetChangedValues(&list, &count);
}

inline void Midi(Engine* p, uint32_t message) {
    const VantorMidiEvent event{message, 0, 0};
    p->ProcessMidiMessage(&event);
}

} // namespace VantorFuzz
