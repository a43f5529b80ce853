#pragma once
// Program changes mapped to presets by a table, a text file with one entry a line:
//   PROGRAM PRESET   or   FIRST-LAST PRESET
// Programs are numbered 1 to 128 as in the General MIDI list (the byte in the file
// plus one). PRESET is a preset name or a JSON file, relative to the table's folder.
// '#' starts a comment; blank lines are skipped.
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "hostcore/engine.h"
#include "hostcore/midimap.h"
#include "hostcore/paramdirectory.h"
#include "render/setup.h"

namespace Norvell::Render {

// Program as sent (0..127) to the preset argument. Throws Failure naming the line.
std::map<uint8_t, std::string> ParseProgramTable(std::string_view text, const std::string& source);
std::map<uint8_t, std::string> ReadProgramTable(const std::string& path);

// Every parameter's value before any preset: the engine's start values with the
// performance defaults. Leaves the engine in that state.
std::vector<float> StartValues(HostCore::Engine& engine, const HostCore::ParamDirectory& params);

// What a program change sets: every parameter to the value a fresh engine given
// `options` (with the preset in place of options.preset) would have, except the
// performance controls, which keep what the player is doing. `baseline` holds each
// parameter's value before any preset (start values and performance defaults).
std::vector<HostCore::ParamValue> ProgramChange(const HostCore::ParamDirectory& params,
                                                const std::vector<float>& baseline,
                                                const std::string& preset,
                                                const SetupOptions& options,
                                                const HostCore::ControlIds& controls);

} // namespace Norvell::Render
