#include "basictools/platform.h"
#include "basictools/resources.h"
#include "log_capture.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <filesystem>

using Norvell::GetParentFolder;
using Norvell::Resources;

namespace {

TEST(PathTest, ParentFolderAndSearchFoldersOfAnInjectedLibrary) {
    EXPECT_EQ(GetParentFolder("a/b/"), "a");
    EXPECT_EQ(GetParentFolder("a\\b\\\\"), "a");
    EXPECT_EQ(GetParentFolder("engine.dll"), "");
    EXPECT_EQ(GetParentFolder("/work/x.so"), "\\work");
    EXPECT_EQ(GetParentFolder("///"), "");
    EXPECT_EQ(
        Resources::BuildSearchFolders("C:\\x\\y\\bin\\engine.dll", "C:\\ProgramData", "engine"),
        (std::vector<std::string>{"C:\\x\\y\\bin\\", "C:\\x\\y\\bin\\resources\\",
                                  "C:\\x\\y\\resources\\", "C:\\x\\y\\", "",
                                  "C:\\x\\data\\resources\\", "C:\\ProgramData\\Norvell\\engine\\",
                                  "C:\\ProgramData\\Norvell\\engine\\resources\\"}));
}

TEST(ResourcesTest, FindsTheFilesBesideTheProgramOrListsEveryMiss) {
    LogCapture log;
    Resources* resources = Resources::GetInstance();
    std::string folder = "unchanged";
    EXPECT_FALSE(resources->FindFile("absent.h1", folder));
    EXPECT_EQ(folder, "unchanged");
    std::string misses = "[CONF] File not found on ";
    for (const std::string& candidate : Resources::BuildSearchFolders(
             Norvell::GetDyLibFullPath(), resources->ProgramDataPath(), resources->ProductName()))
        misses += candidate + "absent.h1\n";
    EXPECT_EQ(log.Texts("description").back(), misses); // every folder, in order
    // Away from the program's folder, so that the bare name (tried first) is not found there.
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path("/");
    EXPECT_TRUE(resources->FindFile("vantorengine.xml", folder));
    std::filesystem::current_path(previous);
    EXPECT_EQ(folder, Norvell::Platform::ToBackslashPath(VantorTest::TestFolder()));
}

} // namespace
