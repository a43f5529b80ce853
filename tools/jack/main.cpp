// vantor-jack: plays the Vantor engine live as a JACK instrument.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <optional>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "hostcore/engine.h"
#include "hostcore/preset.h"
#include "jack/commands.h"
#include "jack/livehost.h"
#include "render/programtable.h"

using namespace Norvell::HostCore;
using namespace Norvell::Live;
using namespace Norvell::Render;

namespace {

// Ends the signal wait of the main thread: quit from standard input, and JACK shutdown.
constexpr int kQuitSignal = SIGUSR1;
constexpr int kShutdownSignal = SIGUSR2;

struct Options {
    SetupOptions setup;
    std::string name = "vantor";
    std::string autoconnect = "all";
    int channel = 0;
    float tempo = 120.0f;
    std::optional<uint32_t> seed;
    bool quiet = false;
};

Autoconnect ParseAutoconnect(const std::string& text) {
    return {text == "audio" || text == "all", text == "midi" || text == "all"};
}

sigset_t EndSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int s : {SIGINT, SIGTERM, kQuitSignal, kShutdownSignal}) sigaddset(&set, s);
    return set;
}

// Reads commands until quit or the end of input; the end of input only means
// that no more commands come.
void ReadCommands(CommandReader& reader) {
    std::string line;
    while (std::getline(std::cin, line)) {
        try {
            if (!reader.Execute(line)) {
                kill(getpid(), kQuitSignal);
                return;
            }
        } catch (const std::exception& e) {
            std::fprintf(stderr, "\rvantor-jack: %s\x1b[K\n", e.what());
        }
    }
}

void DrawStatus(const LiveHost& host) {
    const LiveStatus s = host.Status();
    std::fprintf(stderr, "\r[%s] DSP %5.1f %%  xruns %u  voices %2d%s\x1b[K", host.Name().c_str(),
                 double(s.dspLoad), s.xruns, s.voices, s.freewheel ? "  freewheel" : "");
    std::fflush(stderr);
}

int Run(const Options& options) {
    // Every thread started from here on (JACK's too) leaves these signals to the wait below.
    const sigset_t signals = EndSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    if (options.seed) setenv("VANTOR_SEED", std::to_string(*options.seed).c_str(), 1);
    // The engine starts at the server's rate, known once the client is open.
    LiveHost host(options.name, options.channel, options.tempo);
    Engine engine(FindEngine());
    engine.Start(float(host.SampleRate()));
    const uint32_t blockSize = engine.BlockSize();
    if (blockSize == 0 || blockSize > VANTOR_BLOCK_SIZE)
        throw Failure("the engine reports a block size of " + std::to_string(blockSize));
    const ParamDirectory params = engine.ReadParams();
    if (params.Size() == 0) throw Failure("the engine reports no parameters (see its log)");
    const ControlIds controls = ControlIds::From(params);

    host.Attach(engine, controls);
    std::vector<float> baseline = StartValues(engine, params);
    ApplySetup(engine, params, options.setup);
    engine.WatchVoices(params);

    host.OnShutdown([](void*) { kill(getpid(), kShutdownSignal); }, nullptr);
    host.Activate(ParseAutoconnect(options.autoconnect));
    if (!options.quiet)
        std::fprintf(stderr, "vantor-jack: playing as '%s' at %u Hz, period %u\n",
                     host.Name().c_str(), host.SampleRate(), host.BufferSize());

    CommandReader reader(host, engine, params, controls, std::move(baseline));
    std::thread(ReadCommands, std::ref(reader)).detach();

    const bool status = !options.quiet && isatty(STDERR_FILENO);
    int signal = 0;
    while (signal <= 0) {
        if (status) {
            DrawStatus(host);
            const timespec quarter{0, 250'000'000};
            signal = sigtimedwait(&signals, nullptr, &quarter);
        } else {
            signal = sigwaitinfo(&signals, nullptr);
        }
    }
    if (status) std::fprintf(stderr, "\r\x1b[K");
    if (signal == kShutdownSignal) {
        std::fprintf(stderr, "vantor-jack: the JACK server shut down\n");
        std::fflush(stderr);
        _exit(1); // the client is gone; nothing left to close
    }
    host.Deactivate();
    std::fflush(stderr);
    // The command thread may sit in a read of standard input: leave without joining it.
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"vantor-jack: plays the Vantor engine live as a JACK instrument."};
    auto* presetOption =
        app.add_option("-p,--preset", options.setup.preset,
                       "preset name (data/presets/NAME.json) or JSON file; default: init");
    app.add_option("--load-state", options.setup.loadState,
                   "start from a state blob saved by vantor-render --save-state or 'save FILE'")
        ->excludes(presetOption);
    app.add_option("-s,--set", options.setup.sets,
                   "set a parameter after the preset, value 0..1 (repeatable)")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    app.add_option("-n,--name", options.name, "JACK client name (default: vantor)");
    app.add_flag("--autoconnect{all}", options.autoconnect,
                 "connect to the physical ports: audio, midi, all (default) or none")
        ->check(CLI::IsMember({"audio", "midi", "all", "none"}));
    app.add_option("-c,--channel", options.channel, "MIDI channel 1..16 (default: all channels)")
        ->check(CLI::Range(1, 16));
    app.add_option("--tempo", options.tempo,
                   "tempo in BPM when no JACK timebase master gives one (default 120)")
        ->check(CLI::Range(1.0f, 999.0f));
    app.add_option("--seed", options.seed, "seed of the engine's random generator");
    app.add_flag("-q,--quiet", options.quiet, "no status line and no start message");
    app.footer(R"(Commands on standard input (optional):
  set NAME VALUE    preset NAME|FILE    panic    save FILE    quit
Examples:
  vantor-jack --preset pad
  pw-jack vantor-jack --preset lead --channel 2
  vantor-jack --autoconnect=audio --set master_volume=0.4)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    try {
        return Run(options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vantor-jack: error: %s\n", e.what());
        return 1;
    }
}
