#pragma once
// Setting up an engine from a host program's command line: finding the engine
// and presets in the installed layout, state files, and the order in which a
// preset or a state and the --set values are applied.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "hostcore/engine.h"
#include "hostcore/paramdirectory.h"
#include "hostcore/preset.h"

namespace Norvell::Render {

// Failures with a message for the user; the message is the whole report.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// vantorengine.so in the layout around the program. Throws Failure listing the folders.
std::string FindEngine();
// A preset by name (from the preset folders) or by file, laid over the shipped init
// preset. Throws Failure or PresetError.
HostCore::Preset LoadPreset(const std::string& preset);
std::vector<uint8_t> ReadBlob(const std::string& path);
// Writes under a temporary name and renames, so a failure leaves no partial file.
void WriteBlob(const std::string& path, const std::vector<uint8_t>& blob);

struct SetupOptions {
    std::string preset = "init";
    std::string loadState; // used instead of the preset when given
    std::vector<std::string> sets;
};

// Performance defaults, then the preset or the state blob, then the --set values.
void ApplySetup(HostCore::Engine& engine, const HostCore::ParamDirectory& params,
                const SetupOptions& options);

// Every parameter's current value, in id order.
HostCore::PresetValues ReadValues(const HostCore::Engine& engine,
                                  const HostCore::ParamDirectory& params);
// The values a fresh engine holds after the performance defaults and init: what a saved
// preset is compared against. Leaves the engine in that state.
HostCore::PresetValues InitValues(HostCore::Engine& engine, const HostCore::ParamDirectory& params);
// Writes the values that differ from initValues as a preset file named after the file.
void SavePreset(const std::string& path, const HostCore::PresetValues& initValues,
                const HostCore::PresetValues& current);

} // namespace Norvell::Render
