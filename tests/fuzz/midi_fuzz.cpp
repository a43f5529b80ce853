// A MIDI message stream with parameter changes. Each record starts with an
// operation byte: MIDI message (3 bytes), parameter change (2-byte id, 4-byte
// float), voice setup, render, or panic.
#include "fuzz_common.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto* p = VantorFuzz::SharedProcessor();
    const uint32_t count = static_cast<uint32_t>(p->GetParamCount());
    size_t at = 0;
    auto take = [&](size_t n) { return at + n <= size ? data + (at += n) - n : nullptr; };
    int blocks = 0;
    while (at < size && blocks < 64) {
        const uint8_t op = data[at++];
        switch (op % 5) {
        case 0:
            if (const uint8_t* m = take(3))
                VantorFuzz::Midi(p, uint32_t(m[0]) | uint32_t(m[1]) << 8 | uint32_t(m[2]) << 16);
            break;
        case 1:
            if (const uint8_t* m = take(6)) {
                uint32_t id = uint32_t(m[0]) | uint32_t(m[1]) << 8;
                if (op & 0x80) id %= count + 1;
                float value;
                std::memcpy(&value, m + 2, sizeof value);
                p->SetParam(id, value);
            }
            break;
        case 2: p->UpdateVoiceSetup(); break;
        case 3:
            VantorFuzz::RenderChecked(p);
            ++blocks;
            break;
        default: p->SetParam(p->FindParamId(op & 0x80 ? "panic" : "allnotesoff"), 1.0f); break;
        }
    }
    VantorFuzz::RenderChecked(p);
    return 0;
}
