// vantor-render: renders a MIDI file through the Vantor engine into a WAV file.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
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

#include "hostcore/engine.h"
#include "hostcore/preset.h"
#include "render/midifile.h"
#include "render/paths.h"
#include "render/progress.h"
#include "render/renderloop.h"
#include "render/setup.h"
#include "render/timeline.h"
#include "render/wavwriter.h"

namespace fs = std::filesystem;
using namespace Norvell::HostCore;
using namespace Norvell::Render;

namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnSignal(int) {
    interrupted = 1;
}

struct Options : SetupOptions {
    std::string input;
    std::string output;
    uint32_t rate = 44100;
    std::string format = "24";
    double tail = 30.0;
    double maxLength = 7200.0;
    std::optional<uint32_t> seed;
    std::string engine;
    std::string saveState;
    bool listParams = false;
    bool listPresets = false;
    std::string savePreset;
    bool quiet = false;
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
    if (options.input.empty() && !options.listParams && options.saveState.empty() &&
        options.savePreset.empty())
        throw Failure("no MIDI file given (see --help)");

    std::optional<SmfFile> midi;
    if (!options.input.empty()) midi = ReadSmf(options.input);

    if (options.seed) setenv("VANTOR_SEED", std::to_string(*options.seed).c_str(), 1);
    Engine engine(options.engine.empty() ? FindEngine() : options.engine);
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
        if (options.input.empty() && options.saveState.empty() && options.savePreset.empty())
            return 0;
    }

    // A saved preset holds what differs from init, so read init's values first.
    PresetValues initValues;
    if (!options.savePreset.empty()) initValues = InitValues(engine, params);
    ApplySetup(engine, params, options);
    if (!options.saveState.empty()) WriteBlob(options.saveState, engine.GetState());
    if (!options.savePreset.empty())
        SavePreset(options.savePreset, initValues, ReadValues(engine, params));
    if (!midi) return 0;

    std::vector<uint32_t> voiceIds;
    for (int v = 1; v <= 12; ++v)
        if (auto id = params.Find("voice" + std::to_string(v) + "_ison")) voiceIds.push_back(*id);
    engine.WatchVoices(voiceIds);

    const Timeline timeline = BuildTimeline(*midi, options.rate, ControlIds::From(params));
    const double fileSeconds = double(timeline.endFrame) / options.rate;
    if (fileSeconds > options.maxLength) {
        char text[256];
        std::snprintf(text, sizeof text,
                      "the MIDI file lasts %.0f s (%.1f hours), longer than --max-length %.0f s; "
                      "pass --max-length %.0f or more to render it",
                      fileSeconds, fileSeconds / 3600.0, options.maxLength, std::ceil(fileSeconds));
        throw Failure(text);
    }
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
    app.add_option("-r,--rate", options.rate, "sample rate in Hz, 8000 to 768000 (default 44100)")
        ->check(CLI::Range(8000u, 768000u));
    app.add_option("-f,--format", options.format, "sample format: 16, 24 or float (default 24)")
        ->check(CLI::IsMember({"16", "24", "float"}));
    app.add_option("-t,--tail", options.tail,
                   "longest release tail after the last event, in seconds (default 30); the tail "
                   "ends earlier once the output has been silent for a second")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--max-length", options.maxLength,
                   "longest MIDI file to render, in seconds of audio (default 7200, 2 hours)")
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
    app.add_option("--save-preset", options.savePreset,
                   "save the values after preset and --set as a preset file: the changes over "
                   "init (no MIDI file needed)");
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
