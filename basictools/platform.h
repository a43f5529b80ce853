#pragma once
// The few operating-system services the engine needs, in one place.
#include <cstdint>
#include <string>

namespace Norvell::Platform {

// Real path of the shared object (or executable) containing this code, native form.
std::string LibraryPath();
// First entry of $XDG_DATA_DIRS, default /usr/local/share.
std::string ProgramDataFolder();
// XDG desktop folder, then $HOME/Desktop, then $HOME; empty when none exists.
std::string DesktopFolder();
uint64_t ThreadId();
// Backslash form used by the folder logic <-> native form used for file access.
std::string ToBackslashPath(const std::string& path);
std::string ToNativePath(const std::string& path);
// stat() of the native form of path.
bool PathExists(const std::string& path);

} // namespace Norvell::Platform
