#include "basictools/resources.h"

#include "basictools/logger/log.h"
#include "basictools/platform.h"

#include <cctype>
#include <mutex>

namespace Norvell {

namespace {

const char* const kCategory = "description";
const CSingletonRelease<Resources> releaseAtUnload;

std::string StripTrailingSeparators(std::string path) {
    while (!path.empty() && (path.back() == '/' || path.back() == '\\')) path.pop_back();
    return path;
}

} // namespace

std::string NormalizeLibraryPath(const std::string& nativePath) {
    std::string path = Platform::ToBackslashPath(nativePath);
    if (path.size() >= 3 && path[1] == ':' && (path[2] == '\\' || path[2] == '/'))
        path[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(path[0])));
    return path;
}

std::string GetDyLibFullPath() {
    return NormalizeLibraryPath(Platform::LibraryPath());
}

std::string GetParentFolder(const std::string& path) {
    std::string folder = StripTrailingSeparators(path);
    for (char& c : folder)
        if (c == '/') c = '\\';
    const size_t last = folder.rfind('\\');
    return last == std::string::npos ? std::string() : folder.substr(0, last);
}

bool GetKnownFolderPath(KnownFolder id, std::string& out) {
    if (id == KnownFolder::ProgramData) {
        out = Platform::ToBackslashPath(Platform::ProgramDataFolder());
        return !out.empty();
    }
    const std::string desktop = Platform::DesktopFolder();
    if (desktop.empty()) return false;
    out = desktop;
    return true;
}

std::string ProductNameOf(const std::string& libraryPath) {
    const size_t slash = libraryPath.rfind('\\');
    std::string file = slash == std::string::npos ? libraryPath : libraryPath.substr(slash + 1);
    const size_t dot = file.rfind('.');
    if (dot != std::string::npos) file.erase(dot);
    return file;
}

Resources::Resources() {
    const bool found = GetKnownFolderPath(KnownFolder::ProgramData, programDataPath);
    VANTOR_LOG(kCategory, LOG_INFO, "[CONF] ProgramData Path : " << programDataPath);
    if (!found)
        VANTOR_LOG(kCategory, LOG_ERROR,
                   "[CONF] ProgramData not found - Path : " << programDataPath);
    programDataPath = StripTrailingSeparators(programDataPath);

    const std::string path = GetDyLibFullPath();
    VANTOR_LOG(kCategory, LOG_NOTICE, "[CONF] GetDyLibFullPath filename:" << path);
    if (path.empty()) {
        VANTOR_LOG(kCategory, LOG_NOTICE, "[CONF] DyLibFullPath not found - Path : " << path);
        return;
    }
    productName = ProductNameOf(path);
    VANTOR_LOG(kCategory, LOG_NOTICE, "[CONF] productname:" << productName);
}

std::vector<std::string> Resources::BuildSearchFolders(const std::string& libraryPath,
                                                       const std::string& programDataPath,
                                                       const std::string& productName) {
    const std::string library = GetParentFolder(libraryPath);
    const std::string parent = GetParentFolder(library);
    const std::string grandParent = GetParentFolder(parent);
    const std::string productFolder = programDataPath + "\\Norvell\\" + productName + "\\";
    return {
        library + "\\",
        library + "\\resources\\",
        parent + "\\resources\\",
        parent + "\\",
        "",
        grandParent + "\\data\\resources\\",
        productFolder,
        productFolder + "resources\\",
    };
}

bool Resources::FindFile(const std::string& name, std::string& outFolder) {
    {
        // Processors may be built on several threads: build the list once.
        std::lock_guard<std::recursive_mutex> guard(Mutex());
        if (searchFolders.empty()) {
            searchFolders = BuildSearchFolders(GetDyLibFullPath(), programDataPath, productName);
            VANTOR_LOG(kCategory, LOG_NOTICE,
                       "[CONF] Get Current Binary Folder absolute path:" << searchFolders[0]);
            VANTOR_LOG(kCategory, LOG_NOTICE,
                       "[CONF] Get Working copy resources folder:" << searchFolders[5]);
            VANTOR_LOG(kCategory, LOG_NOTICE,
                       "[CONF] Get Program Data Product Absolute path:" << searchFolders[6]);
        }
    }

    if (Platform::PathExists(name)) {
        outFolder.clear();
        VANTOR_LOG(kCategory, LOG_INFO, "[CONF] File found on " << name);
        return true;
    }
    std::string misses;
    for (const std::string& folder : searchFolders) {
        const std::string candidate = folder + name;
        if (Platform::PathExists(candidate)) {
            outFolder = folder;
            VANTOR_LOG(kCategory, LOG_INFO, "[CONF] File found on " << candidate);
            return true;
        }
        misses += candidate + "\n";
    }
    VANTOR_LOG(kCategory, LOG_WARNING, "[CONF] File not found on " << misses);
    return false;
}

} // namespace Norvell
