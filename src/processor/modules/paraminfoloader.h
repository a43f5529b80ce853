#pragma once
// Reads the engine description and expands it into the ordered parameter list.
#include <vantor/host.h>

#include <map>
#include <rapidxml/rapidxml.hpp>
#include <string>
#include <vector>

namespace Norvell::Processor {

using ParamInfo = VantorParamInfo;

// Largest value a parameter may hold, in bytes; the loader refuses larger
// and negative data sizes.
inline constexpr int64_t kMaxParamDataSize = 1024;
// Most parameters a description may expand to, and so most repetitions of a block.
inline constexpr size_t kMaxParamCount = 1 << 20;

// Module instance name and module parameter name a parameter is bound to.
struct ParamSource {
    std::string instance;
    std::string param;
};

using VariableSet = std::map<std::string, std::string>;

class ParamInfoLoader {
public:
    using Node = rapidxml::xml_node<char>;

    bool LoadEngineDescription(const std::string& path);

    const std::vector<ParamInfo>& ParamInfos() const { return paramInfos; }
    const std::vector<ParamSource>& ParamSources() const { return paramSources; }
    const VariableSet& Constants() const { return constants; }

    static bool ParseXmlFile(const std::string& fullPath, rapidxml::xml_document<char>& document,
                             std::string& buffer);
    void ReadParams(Node* params);
    static size_t CountParams(Node* element);
    void ReadBlock(Node* element, const VariableSet& variables, const std::string& prefix,
                   uint32_t index);
    static void ReadParam(Node* element, const VariableSet& variables, const std::string& prefix,
                          uint32_t index, ParamInfo& info, ParamSource& source);
    static std::string ResolveConstants(const std::string& text, const VariableSet& variables);

    static constexpr uint32_t kNoIndex = 0xFFFFFFFFu;

private:
    VariableSet constants;
    std::vector<ParamInfo> paramInfos;
    std::vector<ParamSource> paramSources;
};

} // namespace Norvell::Processor
