#include "render/arguments.h"

#include <charconv>
#include <filesystem>
#include <set>
#include <string_view>

namespace Norvell::Render {

namespace fs = std::filesystem;

namespace {

int ParseChannel(std::string_view text, const std::string& list) {
    int channel = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), channel);
    if (ec != std::errc() || end != text.data() + text.size() || channel < 1 || channel > 16)
        throw UsageError("--channels " + list + ": '" + std::string(text) +
                         "' is not a MIDI channel from 1 to 16");
    return channel;
}

constexpr std::string_view kName = "{name}";

std::string InputName(const std::string& input) {
    return input == "-" ? "stdin" : fs::path(input).stem().string();
}

} // namespace

uint16_t ParseChannels(const std::string& list) {
    uint16_t mask = 0;
    std::string_view rest(list);
    while (true) {
        const size_t comma = rest.find(',');
        const std::string_view item = rest.substr(0, comma);
        const size_t dash = item.find('-');
        const int first = ParseChannel(item.substr(0, dash), list);
        const int last =
            dash == std::string_view::npos ? first : ParseChannel(item.substr(dash + 1), list);
        if (last < first)
            throw UsageError("--channels " + list + ": the range " + std::string(item) +
                             " runs backwards");
        for (int c = first; c <= last; ++c) mask = uint16_t(mask | 1u << (c - 1));
        if (comma == std::string_view::npos) return mask;
        rest.remove_prefix(comma + 1);
    }
}

std::vector<OutputTarget> PlanOutputs(const std::vector<std::string>& inputs,
                                      const std::string& output, std::optional<FileType> type,
                                      SampleFormat sample) {
    if (inputs.empty()) throw UsageError("no MIDI file given (see --help)");
    const bool several = inputs.size() > 1;
    std::error_code ec;
    const bool toStdout = output == "-";
    const bool folder = !output.empty() && (output.back() == '/' || fs::is_directory(output, ec));
    const bool pattern = output.find(kName) != std::string::npos;
    if (several && toStdout) throw UsageError("several inputs cannot all go to standard output");
    if (several && !output.empty() && !folder && !pattern)
        throw UsageError("several inputs need -o FOLDER or a pattern with {name} (-o '" + output +
                         "' names one file)");

    std::vector<OutputTarget> targets;
    std::set<std::string> seen;
    bool stdinUsed = false;
    for (const auto& input : inputs) {
        if (input == "-") {
            if (stdinUsed) throw UsageError("standard input can be read only once");
            stdinUsed = true;
            if (output.empty())
                throw UsageError("reading MIDI from standard input: name the output with -o");
        }
        OutputTarget target{input, output, {type.value_or(FileType::Wav), sample}};
        if (toStdout) {
            targets.push_back(target);
            continue;
        }
        if (output.empty()) {
            target.path =
                fs::path(input).replace_extension(FileTypeExtension(target.format.type)).string();
        } else if (folder) {
            target.path =
                (fs::path(output) / (InputName(input) + FileTypeExtension(target.format.type)))
                    .string();
        } else {
            // The type from the output as given, so that a dot in an input's name does not count.
            const bool hasExtension = fs::path(output).has_extension();
            if (!type && hasExtension) {
                const auto fromName = FileTypeOfPath(output);
                if (!fromName)
                    throw UsageError("cannot tell the file type of '" + output +
                                     "' from its extension; use .wav, .flac, .ogg, .opus, .aiff "
                                     "or .raw, or choose one with --type");
                target.format.type = *fromName;
            }
            if (pattern) {
                target.path.replace(target.path.find(kName), kName.size(), InputName(input));
                if (!hasExtension) target.path += FileTypeExtension(target.format.type);
            } // a single file keeps the name it was given
        }
        if (!seen.insert(fs::path(target.path).lexically_normal().string()).second)
            throw UsageError("two inputs would both be written to '" + target.path + "'");
        targets.push_back(target);
    }
    return targets;
}

} // namespace Norvell::Render
