#pragma once
// The JACK side of the live instrument: a client with a MIDI input and a stereo
// output whose process callback drives the engine through the block processor.
// Control threads reach the callback only through a lock-free ring buffer and
// atomics; the callback never allocates, locks, logs or waits.
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include <jack/jack.h>
#include <jack/ringbuffer.h>

#include "hostcore/blockprocessor.h"
#include "hostcore/engine.h"
#include "hostcore/midimap.h"

namespace Norvell::Live {

// One command for the process callback: a parameter value (Param), or a value
// that acts at once in order with the notes (Immediate: all notes off).
struct Command {
    HostCore::HostAction::Kind kind;
    uint32_t id;
    float value;
};

struct Autoconnect {
    bool audio = true;
    bool midi = true;
};

struct LiveStatus {
    float dspLoad; // percent, JACK's figure
    uint32_t xruns;
    int voices;
    bool freewheel;
};

class LiveHost {
public:
    // Opens the client (without starting a server) and registers its ports.
    // Throws std::runtime_error when no server runs or the name is taken.
    LiveHost(const std::string& clientName, int channel, float fallbackTempo);
    ~LiveHost();
    LiveHost(const LiveHost&) = delete;
    LiveHost& operator=(const LiveHost&) = delete;

    uint32_t SampleRate() const { return sampleRate_.load(); }
    uint32_t BufferSize() const;
    std::string Name() const;

    // The engine to play, started at SampleRate(); before Activate.
    void Attach(HostCore::Engine& engine, const HostCore::ControlIds& controls);

    // Called on JACK shutdown from JACK's thread; set before Activate.
    void OnShutdown(void (*callback)(void*), void* data);
    void Activate(const Autoconnect& connect);
    void Deactivate();

    // Blocks (sleeping) while the ring buffer is full. Control thread only.
    void Send(const Command& command);

    // Stops the engine between two cycles so a control thread may read its state,
    // once every command sent so far has reached the engine. Returns false when
    // the callback did not stop in time (server gone or not running).
    bool Pause();
    void Resume();

    LiveStatus Status() const;

private:
    static int ProcessThunk(jack_nframes_t frames, void* self);
    int Process(jack_nframes_t frames);
    void DrainCommands();
    void ReadMidi(void* buffer);
    void FollowTransport();

    HostCore::Engine* engine_ = nullptr;
    std::optional<HostCore::BlockProcessor> blocks_;
    HostCore::ControlIds controls_;
    const int channel_; // 1..16, or 0 for every channel
    const float fallbackTempo_;
    uint32_t engineBlock_ = 0;

    jack_client_t* client_ = nullptr;
    jack_port_t* midiIn_ = nullptr;
    jack_port_t* outLeft_ = nullptr;
    jack_port_t* outRight_ = nullptr;
    jack_ringbuffer_t* commands_ = nullptr;
    bool active_ = false;

    std::atomic<uint32_t> sampleRate_{0};
    std::atomic<uint32_t> xruns_{0};
    std::atomic<int> voices_{0};
    std::atomic<bool> freewheel_{false};
    std::atomic<bool> pauseRequest_{false};
    std::atomic<bool> paused_{false};

    // Owned by the process callback.
    uint32_t appliedRate_ = 0;
    int64_t framesSinceCommand_ = 0;
};

} // namespace Norvell::Live
