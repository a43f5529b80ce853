#include "basictools/logger/log.h"
#include "basictools/platform.h"
#include "basictools/resources.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>
#include <vector>

using Norvell::CLog;
using Norvell::Resources;

namespace {

// Message texts of the "description" lines written while the fixture lives.
class ResourcesTest : public ::testing::Test {
protected:
    void SetUp() override {
        CLog::DestroyInstance();
        CLog::GetInstance()->SetThreshold("description", Norvell::LOG_DEBUG);
        CLog::GetInstance()->SetLineSink([this](const std::string& line) {
            if (line.find("| description ") != std::string::npos)
                texts.push_back(line.substr(line.rfind(" | ") + 3));
        });
    }
    void TearDown() override { CLog::DestroyInstance(); }
    size_t Count(const std::string& start) const {
        size_t n = 0;
        for (const std::string& text : texts) n += text.rfind(start, 0) == 0 ? 1 : 0;
        return n;
    }
    std::vector<std::string> texts;
};

TEST(PathTest, ParentFolder) {
    EXPECT_EQ(Norvell::GetParentFolder("a/b/"), "a");
    EXPECT_EQ(Norvell::GetParentFolder("a\\b\\\\"), "a");
    EXPECT_EQ(Norvell::GetParentFolder("engine.dll"), "");
    EXPECT_EQ(Norvell::GetParentFolder("/work/x.so"), "\\work");
    EXPECT_EQ(Norvell::GetParentFolder("///"), "");
}

TEST(PathTest, LibraryPathFormsAndProductName) {
    EXPECT_EQ(Norvell::NormalizeLibraryPath("c:/x/engine.dll"), "C:\\x\\engine.dll");
    EXPECT_EQ(Norvell::NormalizeLibraryPath("/work/main/build/lib/vantorengine.so"),
              "\\work\\main\\build\\lib\\vantorengine.so");
    EXPECT_EQ(Norvell::ProductNameOf("C:\\x\\engine.v2.dll"), "engine.v2");
    EXPECT_EQ(Norvell::ProductNameOf("\\x\\engine"), "engine");
    EXPECT_EQ(Norvell::Platform::ToNativePath("\\a\\b/c"), "/a/b/c");

    // The test program itself stands in for the library.
    const std::string path = Norvell::GetDyLibFullPath();
    EXPECT_EQ(path.front(), '\\');
    EXPECT_EQ(Norvell::ProductNameOf(path), "basictools_resources_test");
}

TEST(PathTest, SearchFoldersForAnInjectedLibrary) {
    EXPECT_EQ(
        Resources::BuildSearchFolders("C:\\x\\y\\bin\\engine.dll", "C:\\ProgramData", "engine"),
        (std::vector<std::string>{"C:\\x\\y\\bin\\", "C:\\x\\y\\bin\\resources\\",
                                  "C:\\x\\y\\resources\\", "C:\\x\\y\\", "",
                                  "C:\\x\\data\\resources\\", "C:\\ProgramData\\Norvell\\engine\\",
                                  "C:\\ProgramData\\Norvell\\engine\\resources\\"}));
    const auto folders = Resources::BuildSearchFolders("\\work\\main\\build\\lib\\vantorengine.so",
                                                       "", "vantorengine");
    EXPECT_EQ(folders[5], "\\work\\main\\data\\resources\\");
    EXPECT_EQ(folders[6], "\\Norvell\\vantorengine\\");
}

TEST(PathTest, ProgramDataFolderIsTheFirstXdgDataDir) {
    const char* old = std::getenv("XDG_DATA_DIRS");
    const std::string saved = old != nullptr ? old : "";
    setenv("XDG_DATA_DIRS", "/opt/share:/usr/share", 1);
    EXPECT_EQ(Norvell::Platform::ProgramDataFolder(), "/opt/share");
    unsetenv("XDG_DATA_DIRS");
    EXPECT_EQ(Norvell::Platform::ProgramDataFolder(), "/usr/local/share");
    std::string known;
    EXPECT_TRUE(Norvell::GetKnownFolderPath(Norvell::KnownFolder::ProgramData, known));
    EXPECT_EQ(known, "\\usr\\local\\share");
    if (old != nullptr) setenv("XDG_DATA_DIRS", saved.c_str(), 1);
}

TEST_F(ResourcesTest, FindsTheWorkingCopyResources) {
    std::string folder = "unchanged";
    ASSERT_TRUE(Resources::GetInstance()->FindFile("vantorengine.xml", folder));
    EXPECT_EQ(folder,
              Norvell::Platform::ToBackslashPath(VantorTest::SourcePath("data/resources/")));

    // A path built from a found folder is found again as the bare name.
    const std::string full = folder + "log.conf";
    ASSERT_TRUE(Resources::GetInstance()->FindFile(full, folder));
    EXPECT_EQ(folder, "");
    EXPECT_EQ(texts.back(), "[CONF] File found on " + full + "\n");

    // The current directory is tried before every library folder.
    const std::filesystem::path cwd = std::filesystem::current_path();
    const std::filesystem::path tmp =
        std::filesystem::temp_directory_path() / ("vantor_cwd_" + std::to_string(getpid()));
    std::filesystem::create_directories(tmp);
    std::filesystem::current_path(tmp);
    std::ofstream("log.conf") << "timing info\n";
    EXPECT_TRUE(Resources::GetInstance()->FindFile("log.conf", folder));
    EXPECT_EQ(folder, "");
    std::filesystem::current_path(cwd);
    std::filesystem::remove_all(tmp);
}

TEST_F(ResourcesTest, MissListsEveryCandidate) {
    Resources* resources = Resources::GetInstance();
    std::string folder = "unchanged";
    EXPECT_FALSE(resources->FindFile("absent.h1", folder));
    EXPECT_EQ(folder, "unchanged");

    const std::string library = Norvell::GetParentFolder(Norvell::GetDyLibFullPath());
    const std::string parent = Norvell::GetParentFolder(library);
    const std::string product =
        resources->ProgramDataPath() + "\\Norvell\\" + resources->ProductName() + "\\";
    EXPECT_EQ(texts.back(), "[CONF] File not found on " + library + "\\absent.h1\n" + library +
                                "\\resources\\absent.h1\n" + parent + "\\resources\\absent.h1\n" +
                                parent + "\\absent.h1\n" + "absent.h1\n" +
                                Norvell::GetParentFolder(parent) +
                                "\\data\\resources\\absent.h1\n" + product + "absent.h1\n" +
                                product + "resources\\absent.h1\n\n");
}

TEST_F(ResourcesTest, SearchListIsBuiltOnceAcrossThreads) {
    Resources::DestroyInstance();
    Resources* resources = Resources::GetInstance();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([resources] {
            std::string folder;
            resources->FindFile("log.conf", folder);
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(Count("[CONF] Get Current Binary Folder absolute path:"), 1u);
    EXPECT_EQ(Count("[CONF] File found on "), 4u);
}

} // namespace
