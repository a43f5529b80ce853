#pragma once
// Command-line values that need more than a type check: the channel list and
// where each input's audio goes.
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "render/audiofile.h"

namespace Norvell::Render {

// A command line that asks for something impossible; the program exits with status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// "1,2,5-9" (channels 1 to 16) as a bit mask, bit c for channel c + 1. Throws UsageError.
uint16_t ParseChannels(const std::string& list);

struct OutputTarget {
    std::string input; // "-" for standard input
    std::string path;  // "-" for standard output
    OutputFormat format;
};

// Where each input goes. `output` is empty (beside each input), "-" (standard
// output, one input), a folder (an existing one or ending in '/'), a pattern in
// which {name} stands for the input's name without extension, or a file (one
// input). The type comes from `type`, else the output's extension, else WAV.
// Throws UsageError.
std::vector<OutputTarget> PlanOutputs(const std::vector<std::string>& inputs,
                                      const std::string& output, std::optional<FileType> type,
                                      SampleFormat sample);

} // namespace Norvell::Render
