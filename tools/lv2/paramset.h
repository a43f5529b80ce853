#pragma once
// What the plugin shows of the engine's parameters, shared by the Turtle
// generator and the plugin so that both always agree: each parameter's role,
// URI, label and named steps.
#include <cstdint>
#include <string>
#include <vector>

namespace Norvell::Lv2 {

inline constexpr const char* kPluginUri = "urn:norvell:vantor";
inline constexpr const char* kStateVersionUri = "urn:norvell:vantor:state-version";
inline constexpr int32_t kStateVersion = 1;

enum class Role : uint8_t {
    Hidden,    // performance controls (from MIDI) and internal switches
    Writable,  // patch:writable, saved in state
    Readable,  // engine feedback, patch:readable
    StateOnly, // saved in state and presets only (preset mode, other voices' sounds)
};

Role RoleOf(const std::string& name);

// Other voices' sound values are saved only while preset mode gives each voice its own.
bool OtherVoiceSound(const std::string& name);

std::string ParamUri(const std::string& name);
std::string Label(const std::string& name);

// Hosts write state floats as decimals with eight digits after the point. The
// plugin holds every value on that grid, so a saved value reads back as the very
// same float: from 0.125 up every float is on it already; a smaller value moves by
// less than 1e-8. Values are 0..1.
float OnStateGrid(float value);

// A value in 0..1 as hosts write it in state: eight decimals at most, trailing
// zeros dropped ("0.0", "0.30000001", "1.0").
std::string StateText(float value);

struct ScalePoint {
    float value;
    std::string label;
};

// Named steps of a stepped parameter, at the middle of each step (exact ends for
// switches, which some modules read as on only at 1.0).
std::vector<ScalePoint> ScalePoints(const std::string& name, int32_t steps);

} // namespace Norvell::Lv2
