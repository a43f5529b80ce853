#pragma once
// The engine's module types: instance counts, instances per voice and the
// parameter names each instance binds, in binding order.
#include <string>
#include <string_view>
#include <vector>

namespace Norvell::Vantor {

struct ModuleTypeInfo {
    std::string type;
    int instances;
    int perVoice; // 0 for types that are not per voice
    // Parameter names in binding order; an empty name is a slot nothing can bind.
    std::vector<std::string> params;
};

const std::vector<ModuleTypeInfo>& ModuleTypes();
// nullptr when the type is unknown (exact comparison).
const ModuleTypeInfo* FindModuleType(std::string_view type);
// Index of name in the type's parameter list, -1 when absent.
int FindModuleParam(const ModuleTypeInfo& info, std::string_view name);

} // namespace Norvell::Vantor
