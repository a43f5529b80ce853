#include "basictools/platform.h"

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <link.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Norvell::Platform {

namespace {

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::string(value) : std::string();
}

std::string RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) return {};
    return resolved;
}

// Path of the file mapped at address, from the kernel's list of mappings.
std::string MappedFileAt(const void* address) {
    const auto target = reinterpret_cast<uintptr_t>(address);
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        uintptr_t begin = 0;
        uintptr_t end = 0;
        if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR, &begin, &end) != 2) continue;
        const size_t slash = line.find('/');
        if (target >= begin && target < end && slash != std::string::npos)
            return line.substr(slash);
    }
    return {};
}

bool IsDirectory(const std::string& path) {
    struct stat info {};
    return !path.empty() && stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string StripTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// $HOME without trailing slashes; empty when unset or the root folder.
std::string Home() {
    std::string home = StripTrailingSlashes(Env("HOME"));
    return home == "/" ? std::string() : home;
}

// XDG_DESKTOP_DIR of user-dirs.dirs, with $HOME expanded; empty when absent.
std::string XdgDesktopDir(const std::string& home) {
    std::string configHome = Env("XDG_CONFIG_HOME");
    if (configHome.empty()) {
        if (home.empty()) return {};
        configHome = home + "/.config";
    }
    std::ifstream file(configHome + "/user-dirs.dirs");
    std::string line;
    const std::string key = "XDG_DESKTOP_DIR=";
    while (std::getline(file, line)) {
        const size_t begin = line.find_first_not_of(" \t");
        if (begin == std::string::npos || line.compare(begin, key.size(), key) != 0) continue;
        std::string value = line.substr(begin + key.size());
        while (!value.empty() && (value.back() == '\r' || value.back() == ' ')) value.pop_back();
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        for (const std::string var : {"${HOME}", "$HOME"}) {
            const size_t at = value.find(var);
            if (at != std::string::npos) value.replace(at, var.size(), home);
        }
        return StripTrailingSlashes(value);
    }
    return {};
}

} // namespace

std::string LibraryPath() {
    // Any address inside this object identifies it; a static of this file will do.
    static const char anchor = 0;
    Dl_info info{};
    link_map* object = nullptr;
    if (dladdr1(&anchor, &info, reinterpret_cast<void**>(&object), RTLD_DL_LINKMAP) == 0 ||
        info.dli_fname == nullptr) {
        std::fprintf(stderr, "dladdr found no object for this code\n");
        return {};
    }
    // The main program has an empty link-map name and is reported by its
    // argv[0], which may be relative to a directory since left.
    if (object != nullptr && object->l_name[0] == '\0') return RealPath("/proc/self/exe");
    std::string path = RealPath(info.dli_fname);
    if (path.empty()) path = MappedFileAt(&anchor); // loaded by a relative path
    if (path.empty()) std::fprintf(stderr, "no full path for %s\n", info.dli_fname);
    return path;
}

std::string ProgramDataFolder() {
    const std::string dirs = Env("XDG_DATA_DIRS");
    const std::string first = dirs.substr(0, dirs.find(':'));
    return first.empty() ? std::string("/usr/local/share") : first;
}

std::string DesktopFolder() {
    const std::string home = Home();
    const std::string xdg = XdgDesktopDir(home);
    if (xdg != "/" && IsDirectory(xdg)) return xdg;
    if (home.empty()) return {};
    if (IsDirectory(home + "/Desktop")) return home + "/Desktop";
    return IsDirectory(home) ? home : std::string();
}

uint64_t ThreadId() {
    return static_cast<uint64_t>(syscall(SYS_gettid));
}

std::string ToBackslashPath(const std::string& path) {
    std::string out = path;
    std::replace(out.begin(), out.end(), '/', '\\');
    return out;
}

std::string ToNativePath(const std::string& path) {
    std::string out = path;
    std::replace(out.begin(), out.end(), '\\', '/');
    return out;
}

bool PathExists(const std::string& path) {
    struct stat info {};
    return stat(ToNativePath(path).c_str(), &info) == 0;
}

} // namespace Norvell::Platform
