#pragma once
// The one exception type thrown by the engine's own code: a message with the
// place of the throw folded into the text returned by what().
#include <stdexcept>
#include <string>

namespace Norvell {

class CException : public std::runtime_error {
public:
    // source: the source file or qualified function name of the throw site.
    CException(const std::string& message, const char* source, int line);

    static std::string Compose(const std::string& message, const char* source, int line);
};

} // namespace Norvell

// Throws a CException carrying the file and line of the throw site.
#define VANTOR_THROW(message) throw ::Norvell::CException((message), __FILE__, __LINE__)
