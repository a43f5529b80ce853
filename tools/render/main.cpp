// vantor-render: renders MIDI files through the Vantor engine into audio files.
#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include "hostcore/engine.h"
#include "render/arguments.h"
#include "render/audiofile.h"
#include "render/levels.h"
#include "render/midifile.h"
#include "render/paths.h"
#include "render/presetinfo.h"
#include "render/programtable.h"
#include "render/progress.h"
#include "render/renderloop.h"
#include "render/setup.h"
#include "render/timeline.h"

using namespace Norvell::HostCore;
using namespace Norvell::Render;

namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnSignal(int) {
    interrupted = 1;
}

constexpr double kDefaultNormalizeDb = -1.0;

struct Options : SetupOptions {
    std::vector<std::string> inputs;
    std::string output;
    std::string type;
    uint32_t rate = 44100;
    std::string format = "24";
    double tail = 30.0;
    double maxLength = 7200.0;
    std::optional<uint32_t> seed;
    std::string engine;
    std::string saveState;
    std::string channels;
    std::string programTable;
    std::optional<double> gainDb;
    std::optional<double> normalizeDb;
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

int ListPresetsCommand(FILE* out, const Options& options) {
    const auto folders = PresetFolders(ExecutableDir());
    const auto presets = ListPresetInfo(folders);
    if (presets.empty()) throw Failure("no presets found; looked in:" + FolderList(folders));
    if (!options.quiet) // the folders on standard error, so that the list alone is piped
        std::fprintf(stderr, "presets from:%s\n", FolderList(folders).c_str());
    std::fputs(FormatPresetList(presets).c_str(), out);
    std::fflush(out);
    return 0;
}

SampleFormat ParseFormat(const std::string& format) {
    if (format == "16") return SampleFormat::Pcm16;
    if (format == "float") return SampleFormat::Float;
    return SampleFormat::Pcm24;
}

SmfFile ReadInput(const std::string& input) {
    if (input != "-") return ReadSmf(input);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(std::cin),
                                  std::istreambuf_iterator<char>()};
    try {
        return ParseSmf({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    } catch (const MidiError& e) {
        throw MidiError(std::string("standard input: ") + e.what());
    }
}

// An engine started at the options' rate with its parameters read.
struct LoadedEngine {
    std::unique_ptr<Engine> engine;
    ParamDirectory params;
    uint32_t blockSize = 0;
};

LoadedEngine LoadEngine(const Options& options) {
    LoadedEngine loaded;
    loaded.engine =
        std::make_unique<Engine>(options.engine.empty() ? FindEngine() : options.engine);
    loaded.engine->Start(float(options.rate));
    loaded.blockSize = loaded.engine->BlockSize();
    if (loaded.blockSize == 0 || loaded.blockSize > VANTOR_BLOCK_SIZE)
        throw Failure("the engine reports a block size of " + std::to_string(loaded.blockSize));
    loaded.params = loaded.engine->ReadParams();
    if (loaded.params.Size() == 0)
        throw Failure("the engine reports no parameters (its vantorengine.xml was not found or "
                      "could not be read; see its log)");
    return loaded;
}

// Each program of the table to the values its change sets, each preset resolved once.
std::map<uint8_t, std::vector<ParamValue>>
ProgramValues(const std::map<uint8_t, std::string>& table, const LoadedEngine& loaded,
              const std::vector<float>& baseline, const Options& options) {
    std::map<std::string, std::vector<ParamValue>> byPreset;
    std::map<uint8_t, std::vector<ParamValue>> programs;
    const ControlIds controls = ControlIds::From(loaded.params);
    for (const auto& [program, preset] : table) {
        auto it = byPreset.find(preset);
        if (it == byPreset.end())
            it = byPreset
                     .emplace(preset,
                              ProgramChange(loaded.params, baseline, preset, options, controls))
                     .first;
        programs[program] = it->second;
    }
    return programs;
}

std::string PeakLine(float rendered, float written) {
    if (rendered == written) return FormatDbfs(rendered);
    char gain[32];
    std::snprintf(gain, sizeof gain, "%+.1f dB",
                  rendered > 0.0f ? 20.0 * std::log10(double(written) / double(rendered)) : 0.0);
    return FormatDbfs(rendered) + " rendered, " + FormatDbfs(written) + " written (" + gain + ")";
}

void RenderOne(const Options& options, const OutputTarget& target,
               const std::map<uint8_t, std::string>& programTable, FILE* out) {
    const SmfFile midi = ReadInput(target.input);
    LoadedEngine loaded = LoadEngine(options);
    Engine& engine = *loaded.engine;
    const ParamDirectory& params = loaded.params;

    // What a program change puts back: the values before any preset.
    const std::vector<float> baseline = StartValues(engine, params);
    ApplySetup(engine, params, options);

    engine.WatchVoices(params);

    TimelineOptions timelineOptions;
    if (!options.channels.empty()) timelineOptions.channels = ParseChannels(options.channels);
    timelineOptions.programs = ProgramValues(programTable, loaded, baseline, options);
    timelineOptions.startValues.resize(params.Size());
    for (uint32_t id = 0; id < params.Size(); ++id)
        engine.GetParam(id, timelineOptions.startValues[id]);
    const Timeline timeline =
        BuildTimeline(midi, options.rate, ControlIds::From(params), timelineOptions);
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
    settings.blockSize = loaded.blockSize;
    settings.tailSeconds = options.tail;

    const bool toStdout = target.path == "-";
    AudioFileWriter writer = toStdout ? AudioFileWriter(fileno(out), options.rate, target.format)
                                      : AudioFileWriter(target.path, options.rate, target.format);
    // The level is set after rendering: a fixed gain on the way out, or a
    // normalisation once the whole render and its peak are known.
    std::optional<Spool> spool;
    if (options.normalizeDb) spool.emplace();
    GainSink gained(writer, DbToGain(options.gainDb.value_or(0.0)));
    AudioSink& sink = spool ? static_cast<AudioSink&>(*spool) : gained;

    const bool showProgress = !options.quiet && isatty(STDERR_FILENO);
    ProgressBar bar(showProgress, options.rate);
    RenderStats stats;
    try {
        stats = RenderTimeline(engine, timeline, settings, sink, [&](const RenderProgress& p) {
            bar.Update(p, engine.SoundingVoices());
            return interrupted == 0;
        });
    } catch (...) {
        bar.Finish();
        throw;
    }
    bar.Finish();
    const double elapsed = bar.ElapsedSeconds();
    float written = gained.Peak();
    if (spool) {
        GainSink normalized(writer, NormalizeGain(stats.peak, *options.normalizeDb));
        spool->Replay(normalized);
        written = normalized.Peak();
    }
    writer.Commit();

    // With the audio on standard output the summary goes to standard error.
    FILE* summary = toStdout ? stderr : out;
    if (!options.quiet) {
        const bool fromState = !options.loadState.empty();
        std::fprintf(summary, "Input     %s (%s %s)\n",
                     target.input == "-" ? "standard input" : target.input.c_str(),
                     fromState ? "state" : "preset",
                     fromState ? options.loadState.c_str() : options.preset.c_str());
        std::fprintf(summary, "Duration  %.2f s (%lld frames at %u Hz, %s stereo)%s\n",
                     double(stats.frames) / options.rate, static_cast<long long>(stats.frames),
                     options.rate, DescribeFormat(target.format).c_str(),
                     stats.tailCapped ? ", tail cut at --tail" : "");
        std::fprintf(summary, "Peak      %s\n", PeakLine(stats.peak, written).c_str());
        std::fprintf(summary, "Speed     %s real time (%.2f s of rendering)\n",
                     FormatSpeed(elapsed, stats.frames, options.rate).c_str(), elapsed);
        std::fprintf(summary, "Output    %s\n", toStdout ? "standard output" : target.path.c_str());
        std::fflush(summary);
    }
    if (written > 1.0f &&
        !(target.format.sample == SampleFormat::Float &&
          (target.format.type == FileType::Wav || target.format.type == FileType::Aiff ||
           target.format.type == FileType::Raw)))
        std::fprintf(stderr, "vantor-render: warning: the output clips (peak %s); lower %s\n",
                     FormatDbfs(written).c_str(),
                     options.gainDb ? "--gain" : "master_volume or use --normalize");
}

int Run(const Options& options) {
    FILE* out = OpenUserOutput();

    if (options.listPresets) return ListPresetsCommand(out, options);
    if (options.inputs.empty() && !options.listParams && options.saveState.empty() &&
        options.savePreset.empty())
        throw UsageError("no MIDI file given (see --help)");

    std::optional<FileType> type;
    if (!options.type.empty()) type = FileTypeNamed(options.type);
    std::vector<OutputTarget> targets;
    if (!options.inputs.empty()) {
        targets = PlanOutputs(options.inputs, options.output, type, ParseFormat(options.format));
        for (const auto& target : targets) CheckWritable(target.format, options.rate);
        if (options.output.ends_with('/')) std::filesystem::create_directories(options.output);
    }
    if (!options.channels.empty()) ParseChannels(options.channels); // fail before any render
    const auto programTable = options.programTable.empty() ? std::map<uint8_t, std::string>{}
                                                           : ReadProgramTable(options.programTable);

    if (options.seed) setenv("VANTOR_SEED", std::to_string(*options.seed).c_str(), 1);
    if (options.listParams || !options.saveState.empty() || !options.savePreset.empty()) {
        LoadedEngine loaded = LoadEngine(options);
        if (options.listParams) {
            ListParams(out, loaded.params);
            std::fflush(out);
        }
        if (!options.saveState.empty() || !options.savePreset.empty()) {
            // A saved preset holds what differs from init, so read init's values first.
            PresetValues initValues;
            if (!options.savePreset.empty()) initValues = InitValues(*loaded.engine, loaded.params);
            ApplySetup(*loaded.engine, loaded.params, options);
            if (!options.saveState.empty()) WriteBlob(options.saveState, loaded.engine->GetState());
            if (!options.savePreset.empty())
                SavePreset(options.savePreset, initValues,
                           ReadValues(*loaded.engine, loaded.params));
        }
    }

    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    for (size_t i = 0; i < targets.size(); ++i) {
        if (i > 0 && !options.quiet) std::fputc('\n', targets[i].path == "-" ? stderr : out);
        RenderOne(options, targets[i], programTable, out);
    }
    return 0;
}

// Sample rates the engine accepts; a clear message instead of the type's whole range.
std::string CheckRate(std::string& text) {
    try {
        const double rate = std::stod(text);
        if (rate >= 8000 && rate <= 768000) return {};
    } catch (const std::exception&) {
    }
    return "the sample rate must be from 8000 to 768000 Hz, not " + text;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"vantor-render: renders MIDI files through the Vantor engine into audio files."};
    app.set_version_flag("--version", "vantor-render " VANTOR_VERSION);
    app.add_option("input", options.inputs,
                   "MIDI files to render (Standard MIDI File, format 0 or 1); - reads standard "
                   "input");
    app.add_option("-o,--output", options.output,
                   "file to write, - for standard output, or with several inputs a folder or a "
                   "pattern with {name} (default: each INPUT with the extension of the type)");
    app.add_option("--type", options.type,
                   "file type: wav, flac, ogg, opus, aiff or raw (default: from the output's "
                   "extension, else wav)")
        ->check(CLI::IsMember({"wav", "flac", "ogg", "opus", "aiff", "raw"}));
    auto* presetOption =
        app.add_option("-p,--preset", options.preset,
                       "preset name (see --list-presets) or JSON file; default: init");
    app.add_option("-s,--set", options.sets,
                   "set a parameter after the preset, value 0..1 (repeatable)")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    app.add_option("-r,--rate", options.rate, "sample rate in Hz, 8000 to 768000 (default 44100)")
        ->check(CLI::Validator(CheckRate, "8000..768000"));
    app.add_option("-f,--format", options.format,
                   "sample format: 16, 24 or float (default 24; FLAC 16 or 24; not used by ogg "
                   "and opus)")
        ->check(CLI::IsMember({"16", "24", "float"}));
    app.add_option("-t,--tail", options.tail,
                   "longest release tail after the last event, in seconds (default 30); the tail "
                   "ends earlier once the output has been silent for a second")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--max-length", options.maxLength,
                   "longest MIDI file to render, in seconds of audio (default 7200, 2 hours)")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--channels", options.channels,
                   "MIDI channels to play, such as 1-9,11 (default: all 16)")
        ->type_name("LIST");
    app.add_option("--programs", options.programTable,
                   "table mapping program changes to presets (lines 'PROGRAM PRESET', programs "
                   "1 to 128); without it program changes are ignored")
        ->type_name("FILE");
    auto* gainOption =
        app.add_option("--gain", options.gainDb, "gain in dB applied after rendering (default 0)")
            ->type_name("DB");
    app.add_option_function<std::string>(
           "--normalize",
           [&](const std::string& text) {
               double level = kDefaultNormalizeDb;
               try {
                   if (!text.empty()) level = std::stod(text);
               } catch (const std::exception&) {
                   throw CLI::ValidationError("--normalize",
                                              "'" + text + "' is not a level in dBFS");
               }
               if (!(level <= 0.0))
                   throw CLI::ValidationError("--normalize", "the level must be 0 dBFS or below");
               options.normalizeDb = level;
           },
           "after rendering, scale the output so that its peak is at DBFS (default -1)")
        ->expected(0, 1)
        ->type_name("[=DBFS]")
        ->excludes(gainOption);
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
    app.add_flag(
        "--list-presets", options.listPresets,
        "list the named presets with category and description (from " VANTOR_PRESETS_FROM_BIN
        "/ relative to this program)");
    app.add_option("--save-preset", options.savePreset,
                   "save the values after preset and --set as a preset file: the changes over "
                   "init (no MIDI file needed)");
    app.add_flag("-q,--quiet", options.quiet, "no progress bar and no summary");
    app.footer(R"(Examples:
  vantor-render data/demo/demo.mid -o demo.wav
  vantor-render song.mid -o song.flac --preset pad --rate 48000 --normalize
  vantor-render song.mid -o - | sox -t wav - -d
  vantor-render *.mid -o renders/ --type ogg
  vantor-render song.mid -o lead.wav --channels 1-9,11 --programs gm.txt
  vantor-render song.mid -o dark.wav --set voice1_vcf_cutoff=0.6 --set voice1_vcf_res=0.5
  vantor-render --preset pluck --set master_volume=0.4 --save-state pluck.state
  vantor-render song.mid -o take2.wav --load-state pluck.state --seed 7
  vantor-render --list-params | grep vcf)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2; // --help and --version are ParseErrors too
    }

    try {
        return Run(options);
    } catch (const RenderAborted&) {
        std::fprintf(stderr, "vantor-render: interrupted; no file written\n");
        return 130;
    } catch (const UsageError& e) {
        std::fprintf(stderr, "vantor-render: %s\n", e.what());
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vantor-render: error: %s\n", e.what());
        return 1;
    }
}
