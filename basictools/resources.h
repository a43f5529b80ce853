#pragma once
// Resource lookup: a fixed list of candidate folders derived from the
// library's own location and the machine-wide data folder. Paths are kept as
// backslash strings; platform.h turns them into native paths where a file is
// touched.
#include "basictools/singleton.h"

#include <string>
#include <vector>

namespace Norvell {

enum class KnownFolder { ProgramData, Desktop };

// Full path of the library file itself (backslash form).
std::string GetDyLibFullPath();
// Backslash form of a native library path, with an upper-case drive letter.
std::string NormalizeLibraryPath(const std::string& nativePath);
// File name of a backslash path without folder and without extension.
std::string ProductNameOf(const std::string& libraryPath);
// Folder part of a path, never ending in a separator.
std::string GetParentFolder(const std::string& path);
bool GetKnownFolderPath(KnownFolder id, std::string& out);

class Resources : public CSingleton<Resources> {
    friend class CSingleton<Resources>;

public:
    // On success outFolder is the folder holding name (possibly empty).
    bool FindFile(const std::string& name, std::string& outFolder);

    // The eight candidate folders for a library at libraryPath.
    static std::vector<std::string> BuildSearchFolders(const std::string& libraryPath,
                                                       const std::string& programDataPath,
                                                       const std::string& productName);

    const std::string& ProgramDataPath() const { return programDataPath; }
    const std::string& ProductName() const { return productName; }

private:
    Resources();
    std::string programDataPath;
    std::string productName;
    std::vector<std::string> searchFolders;
};

} // namespace Norvell
