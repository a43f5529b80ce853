#include "basictools/exception.h"

namespace Norvell {

CException::CException(const std::string& message, const char* source, int line)
    : std::runtime_error(Compose(message, source, line)) {}

std::string CException::Compose(const std::string& message, const char* source, int line) {
    // No blank before "(": messages that want one end in it themselves.
    return message + "(" + (source != nullptr ? source : "") + "::Line " + std::to_string(line) +
           ")";
}

} // namespace Norvell
