// vantor-render: renders a MIDI file through the Vantor engine into a WAV file.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include "render/engine.h"
#include "render/midifile.h"
#include "render/paths.h"
#include "render/preset.h"
#include "render/progress.h"
#include "render/renderloop.h"
#include "render/timeline.h"
#include "render/wavwriter.h"

namespace fs = std::filesystem;
using namespace Norvell::Render;

namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnSignal(int) {
    interrupted = 1;
}

struct Options {
    std::string input;
    std::string output;
    std::string preset = "init";
    std::vector<std::string> sets;
    uint32_t rate = 44100;
    std::string format = "24";
    double tail = 30.0;
    std::optional<uint32_t> seed;
    std::string engine;
    std::string loadState;
    std::string saveState;
    bool listParams = false;
    bool listPresets = false;
    bool quiet = false;
};

// Plain failures with a message for the user; the message is the whole report.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The renderer's own output goes to a copy of the original standard output;
// whatever the engine prints there (its logger may even redirect it into a log
// file) goes to standard error instead, so that piped output stays clean.
FILE* OpenUserOutput() {
    const int fd = dup(STDOUT_FILENO);
    FILE* out = fd >= 0 ? fdopen(fd, "w") : nullptr;
    if (!out) return stdout;
    std::fflush(stdout);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    return out;
}

std::string FindEngine(const Options& options) {
    if (!options.engine.empty()) return options.engine;
    const auto candidates = EngineCandidates(ExecutableDir());
    for (const auto& candidate : candidates) {
        std::error_code ec;
        if (fs::is_regular_file(candidate, ec)) return candidate.lexically_normal().string();
    }
    throw Failure("cannot find vantorengine.so; looked in:" + FolderList(candidates) +
                  "\nchoose one with --engine PATH");
}

Preset LoadPreset(const std::string& preset) {
    if (LooksLikeFile(preset)) return ReadPreset(preset);
    const auto folders = PresetFolders(ExecutableDir());
    if (auto path = FindPreset(preset, folders)) return ReadPreset(path->string());
    std::string text = "unknown preset '" + preset + "'";
    const auto names = ListPresets(folders);
    if (!names.empty()) {
        text += "; available presets:";
        for (const auto& n : names) text += " " + n;
    }
    throw Failure(text + "\nlooked in:" + FolderList(folders));
}

std::vector<uint8_t> ReadBlob(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Failure(path + ": cannot open state file: " + std::strerror(errno));
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBlob(const std::string& path, const std::vector<uint8_t>& blob) {
    const std::string temp = path + ".part";
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(blob.data()), std::streamsize(blob.size()));
        if (!out.flush()) {
            std::remove(temp.c_str());
            throw Failure("cannot write state file '" + path + "': " + std::strerror(errno));
        }
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        std::remove(temp.c_str());
        throw Failure("cannot write state file '" + path + "': " + why);
    }
}

void SetIfPresent(Engine& engine, const ParamDirectory& params, const char* name, float value) {
    if (auto id = params.Find(name)) engine.SetParam(*id, value);
}

// Performance defaults, then the preset or the state blob, then --set.
void ApplySetup(Engine& engine, const ParamDirectory& params, const Options& options) {
    // The stored zero of pitchbend would mean a full bend down.
    SetIfPresent(engine, params, "pitchbend", 0.5f);
    SetIfPresent(engine, params, "sustain-hold", 1.0f);

    if (options.loadState.empty())
        for (const auto& v : ResolvePreset(LoadPreset(options.preset), params))
            engine.SetParam(v.id, v.value);

    if (!options.loadState.empty()) {
        const auto blob = ReadBlob(options.loadState);
        const size_t expected = engine.GetState().size();
        if (blob.size() != expected)
            throw Failure(options.loadState + ": state of " + std::to_string(blob.size()) +
                          " bytes, this engine's state has " + std::to_string(expected) + " bytes");
        engine.SetState(blob);
        // SetState runs no side effects: re-send the preset mode so the voices follow it.
        if (auto id = params.Find("presetmode")) {
            float mode = 0.0f;
            if (engine.GetParam(*id, mode)) engine.SetParam(*id, mode);
        }
    }

    Preset overrides{"--set", "--set", {}};
    for (const auto& text : options.sets) overrides.values.push_back(ParseAssignment(text));
    for (const auto& v : ResolvePreset(overrides, params)) engine.SetParam(v.id, v.value);
}

void ListParams(FILE* out, const ParamDirectory& params) {
    std::fprintf(out, "%6s  %-40s %s\n", "id", "name", "steps");
    for (uint32_t id = 0; id < params.Size(); ++id) {
        const auto& p = params.At(id);
        if (p.steps > 0)
            std::fprintf(out, "%6u  %-40s %d\n", id, p.name.c_str(), p.steps);
        else
            std::fprintf(out, "%6u  %-40s -\n", id, p.name.c_str());
    }
}

SampleFormat ParseFormat(const std::string& format) {
    if (format == "16") return SampleFormat::Pcm16;
    if (format == "float") return SampleFormat::Float;
    return SampleFormat::Pcm24;
}

int Run(const Options& options) {
    FILE* out = OpenUserOutput();

    if (options.listPresets) {
        const auto folders = PresetFolders(ExecutableDir());
        const auto names = ListPresets(folders);
        if (names.empty()) throw Failure("no presets found; looked in:" + FolderList(folders));
        if (!options.quiet) // the folders on standard error, so that the list alone is piped
            std::fprintf(stderr, "presets from:%s\n", FolderList(folders).c_str());
        for (const auto& name : names) std::fprintf(out, "%s\n", name.c_str());
        std::fflush(out);
        return 0;
    }
    if (options.input.empty() && !options.listParams && options.saveState.empty())
        throw Failure("no MIDI file given (see --help)");

    std::optional<SmfFile> midi;
    if (!options.input.empty()) midi = ReadSmf(options.input);

    if (options.seed) setenv("VANTOR_SEED", std::to_string(*options.seed).c_str(), 1);
    Engine engine(FindEngine(options));
    engine.Start(float(options.rate));
    const uint32_t blockSize = engine.BlockSize();
    if (blockSize == 0 || blockSize > VANTOR_BLOCK_SIZE)
        throw Failure("the engine reports a block size of " + std::to_string(blockSize));
    const ParamDirectory params = engine.ReadParams();
    if (params.Size() == 0)
        throw Failure("the engine reports no parameters (its vantorengine.xml was not found or "
                      "could not be read; see its log)");

    if (options.listParams) {
        ListParams(out, params);
        std::fflush(out);
        if (options.input.empty() && options.saveState.empty()) return 0;
    }

    ApplySetup(engine, params, options);
    if (!options.saveState.empty()) WriteBlob(options.saveState, engine.GetState());
    if (!midi) return 0;

    std::vector<uint32_t> voiceIds;
    for (int v = 1; v <= 12; ++v)
        if (auto id = params.Find("voice" + std::to_string(v) + "_ison")) voiceIds.push_back(*id);
    engine.WatchVoices(voiceIds);

    const Timeline timeline = BuildTimeline(*midi, options.rate, ControlIds::From(params));
    RenderSettings settings;
    settings.sampleRate = options.rate;
    settings.blockSize = blockSize;
    settings.tailSeconds = options.tail;

    std::string output = options.output;
    if (output.empty()) output = fs::path(options.input).replace_extension(".wav").string();
    WavWriter writer(output, options.rate, ParseFormat(options.format));

    const bool showProgress = !options.quiet && isatty(STDERR_FILENO);
    ProgressBar bar(showProgress, options.rate);
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    RenderStats stats;
    try {
        stats = RenderTimeline(engine, timeline, settings, writer, [&](const RenderProgress& p) {
            bar.Update(p, engine.SoundingVoices());
            return interrupted == 0;
        });
    } catch (...) {
        bar.Finish();
        throw;
    }
    bar.Finish();
    writer.Commit();

    const double seconds = double(stats.frames) / options.rate;
    const double elapsed = bar.ElapsedSeconds();
    if (!options.quiet) {
        const char* bits = options.format == "float" ? "32-bit float"
                           : options.format == "16"  ? "16-bit"
                                                     : "24-bit";
        const bool fromState = !options.loadState.empty();
        std::fprintf(out, "Input     %s (%s %s)\n", options.input.c_str(),
                     fromState ? "state" : "preset",
                     fromState ? options.loadState.c_str() : options.preset.c_str());
        std::fprintf(out, "Duration  %.2f s (%lld frames at %u Hz, %s stereo)%s\n", seconds,
                     static_cast<long long>(stats.frames), options.rate, bits,
                     stats.tailCapped ? ", tail cut at --tail" : "");
        std::fprintf(out, "Peak      %s\n", FormatDbfs(stats.peak).c_str());
        std::fprintf(out, "Speed     real-time factor %.3f (%.2f s of rendering)\n",
                     RealTimeFactor(elapsed, stats.frames, options.rate), elapsed);
        std::fprintf(out, "Output    %s\n", output.c_str());
        std::fflush(out);
    }
    if (stats.peak > 1.0f && options.format != "float")
        std::fprintf(stderr,
                     "vantor-render: warning: the output clips (peak %s); lower "
                     "master_volume\n",
                     FormatDbfs(stats.peak).c_str());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"vantor-render: renders a MIDI file through the Vantor engine into a WAV file."};
    app.add_option("input", options.input,
                   "MIDI file to render (Standard MIDI File, format 0 or 1)");
    app.add_option("-o,--output", options.output, "WAV file to write (default: INPUT with .wav)");
    auto* presetOption =
        app.add_option("-p,--preset", options.preset,
                       "preset name (see --list-presets) or JSON file; default: init");
    app.add_option("-s,--set", options.sets,
                   "set a parameter after the preset, value 0..1 (repeatable)")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    app.add_option("-r,--rate", options.rate, "sample rate in Hz (default 44100)")
        ->check(CLI::PositiveNumber);
    app.add_option("-f,--format", options.format, "sample format: 16, 24 or float (default 24)")
        ->check(CLI::IsMember({"16", "24", "float"}));
    app.add_option("-t,--tail", options.tail,
                   "longest release tail after the last event, in seconds (default 30); the tail "
                   "ends earlier once the output has been silent for a second")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--seed", options.seed,
                   "seed of the engine's random generator: same input and seed, same bytes");
    app.add_option("--engine", options.engine,
                   "engine library (default: vantorengine.so next to this program, then "
                   "in " VANTOR_ENGINE_FROM_BIN "/ relative to it)");
    app.add_option("--load-state", options.loadState,
                   "start from a state blob saved by --save-state instead of a preset")
        ->excludes(presetOption);
    app.add_option("--save-state", options.saveState,
                   "save the engine state after preset and --set (no MIDI file needed)");
    app.add_flag("--list-params", options.listParams,
                 "list the engine's parameters: id, name, steps");
    app.add_flag("--list-presets", options.listPresets,
                 "list the named presets (from " VANTOR_PRESETS_FROM_BIN "/ relative to this "
                 "program)");
    app.add_flag("-q,--quiet", options.quiet, "no progress bar and no summary");
    app.footer(R"(Examples:
  vantor-render data/demo/demo.mid -o demo.wav
  vantor-render song.mid -o song.wav --preset pad --format float --rate 48000
  vantor-render song.mid -o dark.wav --set voice1_vcf_cutoff=0.6 --set voice1_vcf_res=0.5
  vantor-render --preset pluck --set master_volume=0.4 --save-state pluck.state
  vantor-render song.mid -o take2.wav --load-state pluck.state --seed 7
  vantor-render --list-params | grep vcf)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2; // --help is a ParseError too
    }

    try {
        return Run(options);
    } catch (const RenderAborted&) {
        std::fprintf(stderr, "vantor-render: interrupted; no file written\n");
        return 130;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vantor-render: error: %s\n", e.what());
        return 1;
    }
}
