#include "test_support.h"

namespace VantorTest {

std::string SourcePath(const std::string& relative) {
    return std::string(VANTOR_SOURCE_DIR) + "/" + relative;
}

} // namespace VantorTest
