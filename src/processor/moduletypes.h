#pragma once
// The engine's module types: instance counts, instances per voice and the
// parameter names each instance binds, in binding order.
//
// Every module type follows one life:
//   - Its state is a plain struct whose `params` record holds the raw values
//     (bound to the engine's value store by name); the struct keeps only what
//     is derived from them, never a second copy of a raw value.
//   - Init(state, ...) sets the state up at construction: allocates, builds
//     shared tables, resets. It keeps the parameter bindings.
//   - Reset(state) clears the memories (delay lines, filter and glide states)
//     for all notes off; bindings and parameter values stay.
//   - The private Derive(state) recomputes the derived values, and runs only
//     as `if (s.params.Refresh()) Derive(s);`. A module whose values the
//     block render needs before its Process exposes exactly that line as
//     RefreshParams(state). The effects fold it into EffectCore::Begin,
//     which also derives at a new sample rate.
//   - Process(state, in, count, out, outCount, ctx) renders one call.
#include <string>
#include <string_view>
#include <vector>

namespace Norvell::Vantor {

enum class ModuleKind {
    Voice,
    Zone,
    Master,
    Note,
    Oscillator,
    FmAmount,
    Envelope,
    Vibrato,
    Tracker,
    Lfo,
    Vca,
    Lag,
    Ramp,
    Filter,
    Matrix,
    KeyRange,
    Phaser,
    Reverb,
    StereoDelay,
    DubDelay,
    Flanger,
    Chorus,
};

struct ModuleCount {
    int instances;
    int perVoice; // 0 for types that are not per voice
};

// How many states each module type has: the one place the registry, the state
// arrays and the per-voice views take their sizes from.
inline constexpr ModuleCount kModuleCounts[] = {
    {12, 0},  // Voice
    {23, 0},  // Zone
    {1, 0},   // Master
    {128, 0}, // Note
    {24, 2},  // Oscillator
    {12, 1},  // FmAmount
    {60, 5},  // Envelope
    {1, 0},   // Vibrato
    {36, 3},  // Tracker
    {60, 5},  // Lfo
    {24, 2},  // Vca
    {12, 1},  // Lag
    {48, 4},  // Ramp
    {12, 1},  // Filter
    {12, 1},  // Matrix
    {23, 0},  // KeyRange
    {2, 0},   // Phaser
    {2, 0},   // Reverb
    {2, 0},   // StereoDelay
    {2, 0},   // DubDelay
    {2, 0},   // Flanger
    {2, 0},   // Chorus
};

constexpr int InstancesOf(ModuleKind kind) {
    return kModuleCounts[static_cast<int>(kind)].instances;
}
constexpr int PerVoiceOf(ModuleKind kind) {
    return kModuleCounts[static_cast<int>(kind)].perVoice;
}

struct ModuleTypeInfo {
    std::string type; // the registry name
    ModuleKind kind;
    int instances;
    int perVoice; // 0 for types that are not per voice
    // Parameter names in binding order; an empty name is a slot nothing can bind.
    std::vector<std::string> params;
};

const std::vector<ModuleTypeInfo>& ModuleTypes();
// nullptr when the type is unknown (exact comparison).
const ModuleTypeInfo* FindModuleType(std::string_view type);
// Index of name in the type's parameter list, -1 when absent.
int FindModuleParam(const ModuleTypeInfo& info, std::string_view name);

} // namespace Norvell::Vantor
