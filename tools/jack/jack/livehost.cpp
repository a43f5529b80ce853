#include "jack/livehost.h"

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include <jack/midiport.h>
#include <jack/transport.h>

namespace Norvell::Live {

using HostCore::HostAction;

namespace {

// Room for a full preset of commands before the sender has to wait.
constexpr size_t kRingBytes = 1 << 18;
// Commands taken per cycle: leaves the block processor's queue room for notes.
constexpr int kCommandsPerCycle = 1024;

} // namespace

LiveHost::LiveHost(const std::string& clientName, int channel, float fallbackTempo)
    : channel_(channel), fallbackTempo_(fallbackTempo) {
    jack_status_t status{};
    client_ = jack_client_open(clientName.c_str(), JackUseExactName, &status);
    if (!client_) {
        if (status & JackNameNotUnique)
            throw std::runtime_error("a JACK client named '" + clientName +
                                     "' exists already; choose another with --name");
        throw std::runtime_error("cannot connect to a JACK server (is jackd or PipeWire's JACK "
                                 "running? under PipeWire start with pw-jack vantor-jack)");
    }
    sampleRate_ = jack_get_sample_rate(client_);

    midiIn_ = jack_port_register(client_, "midi_in", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
    outLeft_ = jack_port_register(client_, "out_L", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    outRight_ = jack_port_register(client_, "out_R", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    commands_ = jack_ringbuffer_create(kRingBytes);
    if (!midiIn_ || !outLeft_ || !outRight_ || !commands_) {
        if (commands_) jack_ringbuffer_free(commands_);
        jack_client_close(client_);
        throw std::runtime_error("cannot register the JACK ports");
    }
    jack_ringbuffer_mlock(commands_);

    jack_set_process_callback(client_, ProcessThunk, this);
    jack_set_sample_rate_callback(
        client_,
        [](jack_nframes_t rate, void* self) {
            static_cast<LiveHost*>(self)->sampleRate_ = rate;
            return 0;
        },
        this);
    // The block processor takes any number of frames per call: a new period
    // size needs nothing but acceptance.
    jack_set_buffer_size_callback(
        client_, [](jack_nframes_t, void*) { return 0; }, this);
    jack_set_xrun_callback(
        client_,
        [](void* self) {
            auto* host = static_cast<LiveHost*>(self);
            if (!host->freewheel_) ++host->xruns_;
            return 0;
        },
        this);
    jack_set_freewheel_callback(
        client_, [](int on, void* self) { static_cast<LiveHost*>(self)->freewheel_ = on != 0; },
        this);
}

LiveHost::~LiveHost() {
    Deactivate();
    jack_client_close(client_);
    jack_ringbuffer_free(commands_);
}

uint32_t LiveHost::BufferSize() const {
    return jack_get_buffer_size(client_);
}

std::string LiveHost::Name() const {
    return jack_get_client_name(client_);
}

void LiveHost::Attach(HostCore::Engine& engine, const HostCore::ControlIds& controls) {
    engine_ = &engine;
    controls_ = controls;
    engineBlock_ = engine.BlockSize();
    appliedRate_ = sampleRate_;
    blocks_.emplace(engine, engineBlock_, float(appliedRate_));
    blocks_->SetTempo(fallbackTempo_);
}

void LiveHost::OnShutdown(void (*callback)(void*), void* data) {
    jack_on_shutdown(client_, callback, data);
}

void LiveHost::Activate(const Autoconnect& connect) {
    if (jack_activate(client_) != 0) throw std::runtime_error("cannot activate the JACK client");
    active_ = true;
    if (connect.audio) {
        if (const char** ports = jack_get_ports(client_, nullptr, JACK_DEFAULT_AUDIO_TYPE,
                                                JackPortIsPhysical | JackPortIsInput)) {
            if (ports[0]) {
                jack_connect(client_, jack_port_name(outLeft_), ports[0]);
                jack_connect(client_, jack_port_name(outRight_), ports[1] ? ports[1] : ports[0]);
            }
            jack_free(ports);
        }
    }
    if (connect.midi) {
        if (const char** ports = jack_get_ports(client_, nullptr, JACK_DEFAULT_MIDI_TYPE,
                                                JackPortIsPhysical | JackPortIsOutput)) {
            for (const char** p = ports; *p; ++p)
                jack_connect(client_, *p, jack_port_name(midiIn_));
            jack_free(ports);
        }
    }
}

void LiveHost::Deactivate() {
    if (!active_) return;
    active_ = false;
    jack_deactivate(client_);
}

void LiveHost::Send(const Command& command) {
    while (jack_ringbuffer_write_space(commands_) < sizeof command)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    jack_ringbuffer_write(commands_, reinterpret_cast<const char*>(&command), sizeof command);
}

bool LiveHost::Pause() {
    pauseRequest_ = true;
    // A few periods at most; a server that stopped calling us gives up after two seconds.
    for (int i = 0; i < 2000 && !paused_; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (paused_) return true;
    pauseRequest_ = false;
    return false;
}

void LiveHost::Resume() {
    pauseRequest_ = false;
}

LiveStatus LiveHost::Status() const {
    return {jack_cpu_load(client_), xruns_.load(), voices_.load(), freewheel_.load()};
}

int LiveHost::ProcessThunk(jack_nframes_t frames, void* self) {
    return static_cast<LiveHost*>(self)->Process(frames);
}

void LiveHost::DrainCommands() {
    Command command;
    for (int i = 0; i < kCommandsPerCycle; ++i) {
        if (jack_ringbuffer_read(commands_, reinterpret_cast<char*>(&command), sizeof command) !=
            sizeof command)
            return;
        HostAction action;
        action.kind = command.kind;
        action.id = command.id;
        action.value = command.value;
        blocks_->Queue(action, 0);
        framesSinceCommand_ = 0;
    }
}

void LiveHost::ReadMidi(void* buffer) {
    const jack_nframes_t count = jack_midi_get_event_count(buffer);
    for (jack_nframes_t i = 0; i < count; ++i) {
        jack_midi_event_t event;
        if (jack_midi_event_get(&event, buffer, i) != 0 || event.size == 0) continue;
        const uint8_t status = event.buffer[0];
        if (status < 0x80 || status >= 0xf0) continue;
        if (channel_ != 0 && (status & 0x0f) != channel_ - 1) continue;
        const uint8_t data1 = event.size > 1 ? event.buffer[1] : 0;
        const uint8_t data2 = event.size > 2 ? event.buffer[2] : 0;
        if (auto action = HostCore::MapMidi(status, data1, data2, controls_))
            blocks_->Queue(*action, event.time);
    }
}

void LiveHost::FollowTransport() {
    jack_position_t position;
    jack_transport_query(client_, &position);
    const bool bbt = (position.valid & JackPositionBBT) && position.beats_per_minute > 0.0;
    const float tempo = bbt ? float(position.beats_per_minute) : fallbackTempo_;
    if (tempo != blocks_->Tempo()) blocks_->SetTempo(tempo);
}

int LiveHost::Process(jack_nframes_t frames) {
    auto* left = static_cast<float*>(jack_port_get_buffer(outLeft_, frames));
    auto* right = static_cast<float*>(jack_port_get_buffer(outRight_, frames));
    void* midi = jack_port_get_buffer(midiIn_, frames);

    if (paused_ || (pauseRequest_ && jack_ringbuffer_read_space(commands_) == 0 &&
                    framesSinceCommand_ >= 2 * int64_t(engineBlock_))) {
        // Every command has reached the engine: hold it still for the reader.
        paused_ = pauseRequest_.load();
        if (paused_) {
            std::memset(left, 0, frames * sizeof(float));
            std::memset(right, 0, frames * sizeof(float));
            return 0;
        }
    }

    const uint32_t rate = sampleRate_;
    if (rate != appliedRate_) {
        appliedRate_ = rate;
        blocks_->SetSampleRate(float(rate));
    }
    FollowTransport();
    DrainCommands();
    ReadMidi(midi);
    blocks_->Process(left, right, frames);
    framesSinceCommand_ += frames;
    voices_.store(engine_->SoundingVoices(), std::memory_order_relaxed);
    return 0;
}

} // namespace Norvell::Live
