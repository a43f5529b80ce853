#pragma once
// Drives one module directly: its state with every parameter bound to a
// value the test sets, the voice state and a block's call context.
#include "processor/modules/voices.h"
#include "processor/paramrecord.h"
#include "processor/processcontext.h"

#include <cstddef>

namespace VantorTest {

// Binds slot i of the record to values[i], for every slot of the record.
template <size_t N> void BindAll(Norvell::Vantor::ParamRecord<N>& record, const float* values) {
    for (size_t i = 0; i < N; ++i) record.bound[i] = &values[i];
}

// A module after Init(s, initArgs...), its parameters bound to `values` (all
// 0 until the test sets them), voice 0's state in `voices` and a 32-sample
// 44.1 kHz context pointing at it.
template <typename State> struct ModuleRig {
    static constexpr size_t kParamCount = sizeof(State::params.values) / sizeof(float);

    template <typename... InitArgs> explicit ModuleRig(InitArgs... initArgs) {
        Init(s, initArgs...);
        BindAll(s.params, values);
    }
    ModuleRig(const ModuleRig&) = delete; // the bindings point into the rig
    ModuleRig& operator=(const ModuleRig&) = delete;

    State s{};
    float values[kParamCount] = {};
    Norvell::Vantor::VoiceState voices{};
    Norvell::Vantor::ProcessContext ctx{120.0f, 44100.0f, Norvell::Vantor::kBlockSize, &voices};
};

} // namespace VantorTest
