#pragma once
// Shared helpers for engine tests.
#include <string>

namespace VantorTest {

// Absolute path of a file in the repository.
std::string SourcePath(const std::string& relative);

} // namespace VantorTest
