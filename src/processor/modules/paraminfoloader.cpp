#include "processor/modules/paraminfoloader.h"

#include "basictools/exception.h"
#include "basictools/logger/log.h"
#include "basictools/platform.h"
#include "basictools/resources.h"
#include "basictools/timing.h"
#include "basictools/xml_tools/xml_tools.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <fstream>
#include <memory>
#include <string_view>

namespace Norvell::Processor {

namespace {

const char* const kCategory = "engine_description";

std::string_view NameOf(const rapidxml::xml_node<char>* node) {
    return {node->name(), node->name_size()};
}

std::string ValueOf(const rapidxml::xml_attribute<char>* attribute) {
    return {attribute->value(), attribute->value_size()};
}

std::string RequiredValue(ParamInfoLoader::Node* node, const char* name) {
    return ValueOf(XmlTools::GetRequiredAttribute(node, name));
}

int32_t ToInt32(long long value) {
    return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

} // namespace

bool ParamInfoLoader::LoadEngineDescription(const std::string& path) {
    CTiming timer("Read Audio Engine XML", LOG_NOTICE, true);

    std::string name = path;
    if (name.empty()) name = ProductNameOf(GetDyLibFullPath()) + ".xml";

    std::string folder;
    if (!Resources::GetInstance()->FindFile(name, folder)) {
        VANTOR_LOG(kCategory, LOG_NOTICE, "[XML] File not found, unlock and exit.");
        return false;
    }
    const std::string fullPath = folder + name;
    VANTOR_LOG(kCategory, LOG_NOTICE, "Parsing processor contents file " << fullPath);

    try {
        // The document keeps pointers into buffer: buffer must outlive it.
        std::string buffer;
        auto document = std::make_unique<rapidxml::xml_document<char>>();
        ParseXmlFile(fullPath, *document, buffer);

        Node* root = XmlTools::GetRequiredNode(document.get(), "rootnode");
        int major = 0;
        int minor = 0;
        int patch = 0;
        XmlTools::GetVersion(root, major, minor, patch);

        if (Node* list = root->first_node("constants")) {
            for (Node* constant = list->first_node(); constant != nullptr;
                 constant = constant->next_sibling()) {
                std::string key = RequiredValue(constant, "name");
                std::string value = RequiredValue(constant, "value");
                constants.emplace(std::move(key), std::move(value)); // the first one wins
            }
        }

        ReadParams(XmlTools::GetRequiredNode(root, "params"));
    } catch (const std::exception& error) {
        VANTOR_LOG(kCategory, LOG_ERROR,
                   "[XML] Error on parse file " << fullPath << " : " << error.what());
        return false;
    } catch (...) {
        VANTOR_LOG(kCategory, LOG_ERROR, "[XML] Error on parse file " << fullPath);
        return false;
    }
    return true;
}

bool ParamInfoLoader::ParseXmlFile(const std::string& fullPath,
                                   rapidxml::xml_document<char>& document, std::string& buffer) {
    std::ifstream file(Platform::ToNativePath(fullPath));
    if (!file.is_open()) return false;

    // Lines are joined without their terminators: a line break is not blank.
    std::string line;
    while (std::getline(file, line)) {
        // The CR of a CR LF pair goes, as a text-mode read would drop it.
        if (!file.eof() && !line.empty() && line.back() == '\r') line.pop_back();
        buffer += line;
    }
    file.close();
    if (buffer.empty()) return false;

    document.parse<0>(buffer.data());
    return true;
}

void ParamInfoLoader::ReadParams(Node* params) {
    paramInfos.clear();
    paramSources.clear();
    const size_t count = CountParams(params);
    paramInfos.reserve(count);
    paramSources.reserve(count);
    ReadBlock(params, constants, std::string(), kNoIndex);
}

size_t ParamInfoLoader::CountParams(Node* element) {
    size_t total = 0;
    for (Node* block = element->first_node("block"); block != nullptr;
         block = block->next_sibling("block")) {
        const long long repeats = XmlTools::LeadingInteger(RequiredValue(block, "nbblock"));
        // Always counted, so a missing nbblock anywhere is found before the walk.
        const size_t inner = CountParams(block);
        // Bounded before any arithmetic: the walk repeats every block this often.
        if (repeats > static_cast<long long>(kMaxParamCount) ||
            (repeats >= 1 && inner > (kMaxParamCount - total) / static_cast<size_t>(repeats)))
            VANTOR_THROW("more than " + std::to_string(kMaxParamCount) + " parameters");
        if (repeats >= 1) total += static_cast<size_t>(repeats) * inner;
    }
    for (Node* param = element->first_node("param"); param != nullptr;
         param = param->next_sibling("param"))
        ++total;
    return total;
}

void ParamInfoLoader::ReadBlock(Node* element, const VariableSet& variables,
                                const std::string& prefix, uint32_t index) {
    for (Node* child = element->first_node(); child != nullptr; child = child->next_sibling()) {
        const std::string_view childName = NameOf(child);
        if (childName == "param") {
            ParamInfo info;
            ParamSource source;
            ReadParam(child, variables, prefix, index, info, source);
            paramInfos.push_back(info);
            paramSources.push_back(std::move(source));
        } else if (childName == "block") {
            VariableSet blockVars = variables;
            const std::string blockName = RequiredValue(child, "name");
            if (child->first_attribute("paramid") != nullptr)
                VANTOR_THROW(
                    "attribute 'paramid' is no longer supported, please remove it. (block " +
                    blockName + ")");
            const long long repeats = XmlTools::LeadingInteger(RequiredValue(child, "nbblock"));
            for (long long i = 0; i < repeats; ++i) {
                const std::string number = std::to_string(i);
                if (index == kNoIndex) blockVars["TOPLEVEL_BLOCK"] = number;
                blockVars["LOWLEVEL_BLOCK"] = number;
                // Repetitions are numbered from 1 in names, from 0 in variables.
                const std::string suffix = repeats == 1 ? std::string() : std::to_string(i + 1);
                const std::string childPrefix =
                    (prefix.empty() ? std::string() : prefix + "_") + blockName + suffix;
                const uint32_t step = static_cast<uint32_t>(i);
                const uint32_t childIndex =
                    index == kNoIndex ? step : index * static_cast<uint32_t>(repeats) + step;
                ReadBlock(child, blockVars, childPrefix, childIndex);
            }
        } else {
            VANTOR_THROW("Node not enabled " + std::string(childName));
        }
    }
}

void ParamInfoLoader::ReadParam(Node* element, const VariableSet& variables,
                                const std::string& prefix, uint32_t index, ParamInfo& info,
                                ParamSource& source) {
    std::memset(&info, 0, sizeof info);
    info.aux1 = 1.0f;
    info.aux3 = 1;
    source = ParamSource{};

    const std::string name = RequiredValue(element, "name");
    if (element->first_attribute("id") != nullptr)
        VANTOR_THROW("attribute 'id' is no longer supported, please remove it. (param " + name +
                     ")");
    if (const auto* nbValues = element->first_attribute("nb_values"))
        info.nbValues =
            ToInt32(XmlTools::LeadingInteger(ResolveConstants(ValueOf(nbValues), variables)));

    std::string fullName = prefix;
    if (!name.empty()) fullName = prefix.empty() ? name : prefix + "_" + name;
    // A name of 256 bytes or more fills the field without a terminator.
    std::memcpy(info.name, fullName.data(), std::min(fullName.size(), sizeof info.name));

    const auto* dataSize = element->first_attribute("datasize");
    info.dataSize = dataSize != nullptr ? XmlTools::LeadingInteger(ValueOf(dataSize)) : 4;
    if (info.dataSize < 0 || info.dataSize > kMaxParamDataSize)
        VANTOR_THROW("datasize " + std::to_string(info.dataSize) + " out of range (param " + name +
                     ")");

    const auto* module = element->first_attribute("module");
    const auto* moduleParam = element->first_attribute("module_param");
    if (module != nullptr && moduleParam != nullptr) {
        VariableSet vars = variables;
        if (index != kNoIndex) vars["IDX"] = std::to_string(index);
        source.instance = ResolveConstants(ValueOf(module), vars);
        source.param = ResolveConstants(ValueOf(moduleParam), vars);
    } else {
        VANTOR_LOG(kCategory, LOG_WARNING,
                   "no assignment for param "
                       << std::string_view(info.name, strnlen(info.name, sizeof info.name)));
    }
}

std::string ParamInfoLoader::ResolveConstants(const std::string& text,
                                              const VariableSet& variables) {
    const auto exact = variables.find(text);
    if (exact != variables.end()) return exact->second;

    std::string work = text;
    bool changed = false;
    for (const auto& [key, value] : variables) {
        if (key.empty()) continue; // would match at every position
        size_t pos = 0;
        while ((pos = work.find(key, pos)) != std::string::npos) {
            work.replace(pos, key.size(), value);
            changed = true;
            pos += value.size(); // an inserted value is not searched again for this key
        }
    }
    if (changed) {
        const auto again = variables.find(work);
        if (again != variables.end()) return again->second;
    }
    return work;
}

} // namespace Norvell::Processor
