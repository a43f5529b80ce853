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

struct ModuleTypeInfo {
    std::string type;
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
