// vantor-listparams [description.xml]
// Prints one line per parameter: id, name, nbValues and the module binding
// ("instance:parameter", or "-" when the parameter drives nothing).
// Without an argument it reads the description beside the installed engine
// (found relative to this program), else looks it up like the engine does.
// Warnings and errors of the lookup and the loader go to standard error.
#include "basictools/logger/log.h"
#include "basictools/platform.h"
#include "basictools/resources.h"
#include "processor/modules/paraminfoloader.h"
#include "vantor/layout.h"

#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
    if (argc > 2 ||
        (argc == 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0))) {
        std::fprintf(stderr, "usage: %s [description.xml]\n", argv[0]);
        return 2;
    }

    Norvell::CLog::GetInstance()->SetLineSink(
        [](const std::string& line) { std::fputs(line.c_str(), stderr); });

    std::string path;
    if (argc == 2) {
        path = argv[1];
    } else {
        const auto beside =
            Vantor::Layout::EngineDir(Vantor::Layout::ProgramDir()) / "vantorengine.xml";
        std::string folder;
        std::error_code ec;
        if (std::filesystem::is_regular_file(beside, ec))
            path = beside.string();
        else if (Norvell::Resources::GetInstance()->FindFile("vantorengine.xml", folder))
            path = Norvell::Platform::ToNativePath(folder + "vantorengine.xml");
    }

    Norvell::Processor::ParamInfoLoader loader;
    const bool loaded = !path.empty() && loader.LoadEngineDescription(path);

    const auto& infos = loader.ParamInfos();
    const auto& sources = loader.ParamSources();
    for (size_t id = 0; id < infos.size(); ++id) {
        const std::string name(infos[id].name, strnlen(infos[id].name, sizeof infos[id].name));
        const std::string binding = sources[id].instance.empty() && sources[id].param.empty()
                                        ? std::string("-")
                                        : sources[id].instance + ":" + sources[id].param;
        std::printf("%zu\t%s\t%d\t%s\n", id, name.c_str(), infos[id].nbValues, binding.c_str());
    }

    if (!loaded)
        std::fprintf(stderr, "%s: cannot read the description %s\n", argv[0],
                     path.empty() ? "vantorengine.xml" : path.c_str());
    Norvell::CLog::DestroyInstance();
    return loaded ? 0 : 1;
}
