#pragma once
// Where a host program finds the engine and the presets: relative to the
// program's own folder, in the layout shared by the build folder and every
// installed prefix (bin/, lib/vantor/, share/vantor/presets/).
#include <filesystem>
#include <system_error>

namespace Vantor::Layout {

// Folder of the running program (the current folder if the kernel does not say).
inline std::filesystem::path ProgramDir() {
    std::error_code ec;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::current_path() : exe.parent_path();
}

// The engine library, its description and log.conf.
inline std::filesystem::path EngineDir(const std::filesystem::path& programDir) {
    return (programDir / VANTOR_ENGINE_FROM_BIN).lexically_normal();
}

inline std::filesystem::path PresetDir(const std::filesystem::path& programDir) {
    return (programDir / VANTOR_PRESETS_FROM_BIN).lexically_normal();
}

} // namespace Vantor::Layout
