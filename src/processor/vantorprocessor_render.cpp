// Block rendering: controllers, the per-voice chain, mix, DC removal, effect
// slots and master volume.
#include "processor/modules.h"
#include "processor/routing.h"
#include "processor/signalbank.h"
#include "processor/vantorprocessor.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Norvell::Vantor {

namespace {

void Fill(float* buffer, float value, int count) {
    std::fill(buffer, buffer + count, value);
}

// Straight line from current towards target in 32 steps; the sample written
// is the value before each step, and current lands on target.
void RampBuffer(float* buffer, float& current, float target, float scale, float offset) {
    const float start = current;
    const float step = (target - start) / static_cast<float>(kBlockSize);
    for (int n = 0; n < kBlockSize; ++n)
        buffer[n] = (start + step * static_cast<float>(n)) * scale + offset;
    current = target;
}

// One accumulated test per block: a NaN or an infinity anywhere makes the sum
// non-finite.
bool IsFinite(const float* buffer) {
    float sum = 0.0f;
    for (int n = 0; n < kBlockSize; ++n) sum += buffer[n];
    return std::isfinite(sum);
}

} // namespace

bool VantorProcessor::Render(const Processor::RenderContext* ctx) {
    if (ctx == nullptr) return false;
    const int32_t frames = static_cast<int32_t>(std::min<uint32_t>(ctx->frameCount, kBlockSize));
    processContext.frameCount = frames;
    // A refused rate keeps the previous one; the block is still rendered.
    const bool rateAccepted = AcceptedRate(ctx->sampleRate);
    if (rateAccepted) processContext.sampleRate = ctx->sampleRate;
    if (std::isfinite(ctx->tempo)) processContext.tempo = ctx->tempo;

    const bool canRender =
        modules && signals && signals->Complete() && processContext.voiceState != nullptr;
    if (canRender && modules->master[kMasterPresetLoading] == 0.0f) {
        RenderBlock();
    } else if (signals && signals->Complete()) {
        Fill(signals->finalLeft, 0.0f, frames);
        Fill(signals->finalRight, 0.0f, frames);
    }

    float* const* outputs = ctx->outputs;
    if (outputs == nullptr) return rateAccepted;
    const bool haveFinal = signals && signals->Complete();
    for (int channel = 0; channel < 2; ++channel) {
        float* out = outputs[channel];
        if (out == nullptr) continue;
        if (haveFinal)
            std::memcpy(out, channel == 0 ? signals->finalLeft : signals->finalRight,
                        sizeof(float) * static_cast<size_t>(frames));
        else
            Fill(out, 0.0f, frames);
    }
    return rateAccepted;
}

void VantorProcessor::RenderBlock() {
    SignalBank& bank = *signals;
    Modules& m = *modules;
    const ParamRecord<16>& master = m.master;

    // Sustain: replay held note-offs when the pedal has just been released.
    const bool sustainOn = master[kMasterSustainHold] > 0.5f && master[kMasterPedalSustain] > 0.5f;
    if (!sustainOn && sustainWasOn) FlushDeferredNoteOffs();
    sustainWasOn = sustainOn;

    // Key, velocity and release velocity of every voice.
    for (int v = 0; v < kVoiceCount; ++v) {
        VoiceBuffers& vb = bank.voices[v];
        Fill(vb.key, bank.keyValue[v], kBlockSize);
        RampBuffer(vb.velocity, bank.velocityCurrent[v], bank.velocityTarget[v], 1.0f, 0.0f);
        RampBuffer(vb.releaseVelocity, bank.releaseVelocityCurrent[v],
                   bank.releaseVelocityTarget[v], 1.0f, 0.0f);
    }

    // Performance controllers.
    ControllerValues& c = bank.controllers;
    RampBuffer(bank.modwheel, c.modwheel, master[kMasterModwheel], 0.5f, 0.0f);
    RampBuffer(bank.pitchbend, c.pitchbend, master[kMasterPitchbend], 1.0f, -0.5f);
    RampBuffer(bank.aftertouch, c.aftertouch, master[kMasterAftertouch], 0.5f, 0.0f);
    RampBuffer(bank.sustain, c.sustain, master[kMasterPedalSustain], 0.5f, 0.0f);
    RampBuffer(bank.expression, c.expression, master[kMasterPedalExpression], 1.0f, 0.0f);

    // Clear the mix and the final pair.
    Fill(bank.mixLeft, 0.0f, kBufferLength);
    Fill(bank.mixRight, 0.0f, kBufferLength);
    Fill(bank.finalLeft, 0.0f, kBufferLength);
    Fill(bank.finalRight, 0.0f, kBufferLength);

    // Vibrato and ambient noise.
    RefreshParams(m.vibrato);
    {
        float* in[3] = {bank.modwheel, bank.sustain, bank.aftertouch};
        float* out[2] = {bank.vibratoOut, bank.vibratoTrigger};
        Process(m.vibrato, in, 0, out, 2, processContext);
    }
    {
        float* out[1] = {bank.ambientNoise};
        Process(m.ambientNoise, nullptr, 0, out, 1, processContext);
    }

    // Every enabled voice.
    RenderVoices();

    // Ambient noise into the mix.
    for (int n = 0; n < kBlockSize; ++n) {
        bank.mixLeft[n] += bank.ambientNoise[n];
        bank.mixRight[n] += bank.ambientNoise[n];
    }

    // DC removal with a 27.5 Hz corner.
    if (processContext.sampleRate != dcRate) {
        dcRate = processContext.sampleRate;
        dcCoefficient = 1.0f - std::exp(-172.7876f / dcRate);
    }
    float* mix[2] = {bank.mixLeft, bank.mixRight};
    for (int ch = 0; ch < 2; ++ch) {
        float y = dcState[ch];
        for (int n = 0; n < processContext.frameCount; ++n) {
            y += (mix[ch][n] - y) * dcCoefficient;
            mix[ch][n] -= y;
        }
        dcState[ch] = std::isfinite(y) ? y : 0.0f;
    }

    // Effect slots in series.
    float* pair[2] = {bank.mixLeft, bank.mixRight};
    for (int s = 0; s < 2; ++s) {
        const float selector = master[s == 0 ? kMasterEffect0Selector : kMasterEffect1Selector];
        const float active = master[s == 0 ? kMasterEffect0Active : kMasterEffect1Active];
        const int32_t type = active == 0.0f ? 0 : StepIndex(selector, 7.0f, 6);
        if (type == 0) continue;
        float* out[2] = {bank.slotLeft[s], bank.slotRight[s]};
        auto run = [&](auto& instances) {
            Process(instances[s], pair, 2, out, 2, processContext);
            if (IsFinite(out[0]) && IsFinite(out[1])) return;
            Reset(instances[s]);
            Fill(out[0], 0.0f, kBlockSize);
            Fill(out[1], 0.0f, kBlockSize);
            ++healedBlocks;
        };
        switch (type) {
        case 1: run(m.delays); break;
        case 2: run(m.phasers); break;
        case 3: run(m.dubDelays); break;
        case 4: run(m.flangers); break;
        case 5: run(m.choruses); break;
        default: run(m.reverbs); break;
        }
        pair[0] = out[0];
        pair[1] = out[1];
    }

    // Master volume (the cached value, not smoothed).
    const float volume = std::clamp(master[kMasterVolume], 0.0f, 1.0f);
    for (int n = 0; n < kBlockSize; ++n) {
        bank.finalLeft[n] = pair[0][n] * volume;
        bank.finalRight[n] = pair[1][n] * volume;
    }
}

void VantorProcessor::HealVoice(int v) {
    modules->ResetVoiceChain(v);
    Fill(signals->voices[v].vca[1], 0.0f, kBlockSize);
    ++healedBlocks;
}

// Sources of voice v that something reads: a matrix routing, the lag, an
// LFO or a tracking generator selects them. Taken once per block after the
// voice's matrix has run, when every selection of the block is known.
uint32_t VantorProcessor::SourcesInUse(int v) const {
    const Modules::VoiceView vm = modules->Voice(v);
    uint32_t mask = 0;
    const auto add = [&mask](int32_t source) {
        if (source >= 0 && source < kSourceCount) mask |= 1u << source;
    };
    for (int source = 0; source < kSourceCount; ++source)
        if (vm.matrix.sourceUseCount[source] > 0) add(source);
    add(vm.lag.inputIndex);
    for (int k = 0; k < 5; ++k) add(vm.lfo[k].inputIndex);
    for (int t = 0; t < 3; ++t) add(vm.tracker[t].inputIndex);
    return mask;
}

bool VantorProcessor::SourceInUse(int v, int source) const {
    return ((sourcesInUse[v] >> source) & 1u) != 0;
}

// The voices are rendered in three passes: the front half of every voice
// (matrix, ramps, lag, trackers, oscillators, FM) in voice order, the filters
// of all voices together, then the back half of every voice (VCAs, LFOs,
// envelopes, mix, end of sound) in voice order. This gives the bytes of plain
// voice order because nothing a voice computes after its filter feeds the
// front half of another voice: each voice reads only its own buffers and
// states, the shared ones (controllers, vibrato, ambient noise) are written
// before the voices, and the mix is written by back halves only. The one
// exception is the shared random generator: when a back half that draws from
// it (an LFO on a random wave) comes before a later voice whose front half
// draws (oscillator noise), the draws would change order, so that block keeps
// plain voice order.
void VantorProcessor::RenderVoices() {
    Modules& m = *modules;
    int enabled[kVoiceCount];
    int count = 0;
    for (int v = 0; v < kVoiceCount; ++v)
        if (m.voices[v][kVoiceIsEnable] != 0.0f) enabled[count++] = v;

    // The modules that pick a source refresh their selection first, so that
    // the inputs wired below and the "in use" tests read this block's choice.
    for (int i = 0; i < count; ++i) {
        const int v = enabled[i];
        const Modules::VoiceView vm = modules->Voice(v);
        RefreshParams(vm.lag);
        for (int k = 0; k < 5; ++k) RefreshParams(vm.lfo[k]);
        for (int t = 0; t < 3; ++t) RefreshParams(vm.tracker[t]);
    }

    FilterWiring wiring[kVoiceCount] = {};
    VcfCall calls[kVoiceCount] = {};
    // A resting oscillator's phase is read by nothing but its own next call
    // (or a reset in its voice's back half), so it may move on later, with
    // the other resting oscillators.
    RestingOscillators resting{{}, 0};
    if (RandomDrawsKeepOrder(enabled, count)) {
        for (int i = 0; i < count; ++i) calls[i] = RenderVoiceFront(enabled[i], wiring[i], resting);
        AdvanceResting(resting.states, resting.count);
        ProcessVoices(calls, count, processContext);
        RenderLaneLfos(enabled, count);
        for (int i = 0; i < count; ++i) RenderVoiceBack(enabled[i]);
    } else {
        for (int i = 0; i < count; ++i) {
            resting.count = 0;
            calls[i] = RenderVoiceFront(enabled[i], wiring[i], resting);
            AdvanceResting(resting.states, resting.count);
            ProcessVoices(&calls[i], 1, processContext);
            RenderLaneLfos(&enabled[i], 1);
            RenderVoiceBack(enabled[i]);
        }
    }
}

// True unless a voice's back half draws random numbers before a later
// voice's front half does.
bool VantorProcessor::RandomDrawsKeepOrder(const int* enabled, int count) const {
    bool backDrew = false;
    for (int i = 0; i < count; ++i) {
        const int v = enabled[i];
        const Modules::VoiceView vm = modules->Voice(v);
        if (backDrew) {
            for (int k = 0; k < 2; ++k) {
                // The oscillator reads its switch at its next refresh.
                const auto& p = vm.osc[k].params;
                const float noiseOn =
                    p.bound[kOscNoiseOn] != nullptr ? *p.bound[kOscNoiseOn] : p[kOscNoiseOn];
                if (noiseOn == 1.0f) return false;
            }
        }
        for (int k = 0; k < 5; ++k) {
            const LfoWave wave = vm.lfo[k].wave;
            if (wave == LfoWave::RandomSteps || wave == LfoWave::FastRandomSteps) backDrew = true;
        }
    }
    return true;
}

// VCA 1 of an inactive voice outputs zeros for the whole block: its gain is
// exactly 0 and its level input and smoothed level are 0. Valid once the
// voice's matrix has run.
bool VantorProcessor::Vca1Silent(int v) const {
    const Modules::VoiceView vm = modules->Voice(v);
    if (HasVoice(voiceState.activeVoices, v)) return false;
    const VcaState& vca = vm.vca[0];
    const float* gain = vca.params.bound[0];
    if ((gain != nullptr ? *gain : vca.params[0]) != 0.0f) return false;
    if (vca.smoothState != 0.0f) return false;
    const float* level = signals->voices[v].destinations[kDstVca1Level];
    for (int n = 0; n < kBlockSize; ++n)
        if (level[n] != 0.0f) return false;
    return true;
}

VcfCall VantorProcessor::RenderVoiceFront(int v, FilterWiring& wiring,
                                          RestingOscillators& resting) {
    const Modules::VoiceView vm = modules->Voice(v);
    SignalBank& bank = *signals;
    Modules& m = *modules;
    VoiceBuffers& vb = bank.voices[v];
    const ProcessContext& ctx = processContext;
    float** src = vb.sources;
    float** dst = vb.destinations;

    // Routing table of the voice's modulation matrix
    Process(vm.matrix, src, kSourceCount, dst, kDestinationCount, ctx);
    sourcesInUse[v] = SourcesInUse(v);

    // Ramps
    float* triggers[kTriggerInputCount];
    TriggerInputs(v, triggers);
    for (int r = 0; r < 4; ++r) {
        if (!SourceInUse(v, RampSource(r))) continue;
        float* out[1] = {vb.ramp[r]};
        Process(vm.ramp[r], triggers, kTriggerInputCount, out, 1, ctx);
    }

    // Lag
    {
        LagState& lag = vm.lag;
        float* in[kLagInputCount] = {};
        in[kLagInSource] = SelectedSource(v, lag.inputIndex);
        in[kLagInRate] = dst[kDstLagRate];
        float* out[1] = {vb.lag};
        Process(lag, in, 29, out, 1, ctx);
    }

    // Tracking generators
    for (int t = 0; t < 3; ++t) {
        TrackState& tracker = vm.tracker[t];
        tracker.bipolar = IsBipolarSource(tracker.inputIndex) ? 1 : 0;
        if (!SourceInUse(v, TrackSource(t))) continue;
        float* out[1] = {vb.track[t]};
        Process(tracker, src, kSourceCount, out, 1, ctx);
    }

    // Tuning copies
    const VoiceTuning tuning{m.master[kMasterFineTune], m.voices[v][kVoiceDetune],
                             m.voices[v][kVoiceTranspose]};
    vm.osc[0].tuning = tuning;
    vm.osc[1].tuning = tuning;
    VcfState& filter = vm.filter;
    filter.tuning = tuning;

    // FM goes either to oscillator 1 or to the filter; decided before both calls.
    const bool fmToFilter = vm.fm.destination != 0.0f;
    // A VCA 2 gain above 0 keeps an inactive voice's oscillators and filter
    // running, unless VCA 1 passes nothing this block anyway.
    const bool runAnyway = vm.vca[1].gain > 0.0f && !Vca1Silent(v);

    // Oscillators: oscillator 1 drives oscillator 2's sync, oscillator 2 the FM.
    const bool rests = !runAnyway && !HasVoice(voiceState.activeVoices, v);
    for (int k = 0; k < 2; ++k) {
        OscillatorState& osc = vm.osc[k];
        if (rests) {
            Rest(osc, vb.oscAudio[k]);
            resting.states[resting.count++] = &osc;
            continue;
        }
        float* in[kOscInputCount] = {};
        for (int i : {kOscInPitch, kOscInPulseWidth, kOscInVolume}) in[i] = dst[OscDst(k, i)];
        in[kOscInSync] = k == 1 ? vb.oscOut0[0] : nullptr;
        in[kOscInGlide] = vb.lag;
        in[kOscInVibrato] = bank.vibratoOut;
        in[kOscInPitchbend] = bank.pitchbend;
        in[kOscInLinearFm] = k == 0 && !fmToFilter ? vb.fmOut[0] : nullptr;
        in[kOscInJitter] = bank.ambientNoise;
        in[kOscInFmActive] = k == 1 || !fmToFilter ? vb.fmOut[1] : nullptr;
        float* out[2] = {vb.oscOut0[k], vb.oscAudio[k]};
        Process(osc, in, 1, out, 2, ctx, runAnyway);
    }

    // FM amount
    {
        float* in[kFmInputCount] = {};
        in[kFmInSignal] = vb.oscOut0[1];
        in[kFmInAmount] = dst[kDstFmAmount];
        float* out[2] = {vb.fmOut[0], vb.fmOut[1]};
        Process(vm.fm, in, 2, out, 2, ctx);
    }

    // Oscillator sum
    for (int n = 0; n < kBlockSize; ++n) vb.oscSum[n] = vb.oscAudio[0][n] + vb.oscAudio[1][n];

    // The filter call, run later with the other voices' filters.
    wiring.in[kVcfInAudio] = vb.oscSum;
    wiring.in[kVcfInCutoffMod] = dst[kDstVcfCutoff];
    wiring.in[kVcfInResMod] = dst[kDstVcfRes];
    wiring.in[kVcfInVibrato] = bank.vibratoOut;
    wiring.in[kVcfInPitchbend] = bank.pitchbend;
    wiring.in[kVcfInLag] = vb.lag;
    wiring.in[kVcfInFm] = fmToFilter ? vb.fmOut[0] : nullptr;
    wiring.out[0] = vb.filter;
    return {&filter, wiring.in, wiring.out, runAnyway};
}

// The LFOs on an unsoftened periodic wave run before the back halves, four at a
// time across voices. They read only their voice's matrix destinations and
// note state and draw no random numbers, so running them ahead of the VCAs
// and of the other voices' back halves changes nothing, with one exception:
// a sample and hold of an LFO that comes later in the voice reads that LFO's
// previous block, so such an LFO stays in the back half.
void VantorProcessor::RenderLaneLfos(const int* voices, int count) {
    LfoState* states[5 * kVoiceCount];
    float* out0[5 * kVoiceCount];
    float* out1[5 * kVoiceCount];
    int n = 0;
    for (int i = 0; i < count; ++i) {
        const int v = voices[i];
        const Modules::VoiceView vm = modules->Voice(v);
        VoiceBuffers& vb = signals->voices[v];
        lfosInLanes[v] = 0;
        uint32_t heldBefore = 0; // bit k: an earlier LFO samples LFO k
        for (int j = 0; j < 5; ++j) {
            LfoState& lfo = vm.lfo[j];
            RefreshParams(lfo);
            if (lfo.wave != LfoWave::SampleAndHold) continue;
            for (int k = j + 1; k < 5; ++k)
                if (lfo.inputIndex == LfoSource(k)) heldBefore |= 1u << k;
        }
        for (int k = 0; k < 5; ++k) {
            LfoState& lfo = vm.lfo[k];
            if (!InLanes(lfo) || ((heldBefore >> k) & 1u) != 0) continue;
            Prepare(lfo, vb.destinations[LfoSpeedDst(k)], vb.destinations[LfoAmpDst(k)],
                    processContext);
            lfosInLanes[v] |= 1u << k;
            states[n] = &lfo;
            out0[n] = vb.lfoOut[k];
            out1[n] = vb.lfoTrigger[k];
            ++n;
        }
    }
    ProcessInLanes(states, out0, out1, n);
}

void VantorProcessor::RenderVoiceBack(int v) {
    const Modules::VoiceView vm = modules->Voice(v);
    SignalBank& bank = *signals;
    Modules& m = *modules;
    VoiceBuffers& vb = bank.voices[v];
    const ProcessContext& ctx = processContext;
    float** dst = vb.destinations;

    // VCAs: VCA 1 on the filter, VCA 2 on VCA 1.
    for (int k = 0; k < 2; ++k) {
        float* in[kVcaInputCount] = {};
        in[kVcaInSignal] = k == 0 ? vb.filter : vb.vca[0];
        in[kVcaInLevel] = dst[VcaLevelDst(k)];
        float* out[1] = {vb.vca[k]};
        Process(vm.vca[k], in, 2, out, 1, ctx);
    }

    // Sources of the two level destinations, for the end-of-sound test
    uint32_t levelSources[2][6];
    for (int k = 0; k < 2; ++k) {
        for (uint32_t& s : levelSources[k]) s = kNoSource;
        SourcesOfDestination(vm.matrix, levelSources[k], static_cast<uint32_t>(VcaLevelDst(k)));
    }

    // LFOs
    for (int k = 0; k < 5; ++k) {
        if (((lfosInLanes[v] >> k) & 1u) != 0) continue;
        LfoState& lfo = vm.lfo[k];
        float* in[kLfoInputCount] = {};
        in[kLfoInSpeed] = dst[LfoSpeedDst(k)];
        in[kLfoInAmp] = dst[LfoAmpDst(k)];
        in[kLfoInSource] = SelectedSource(v, lfo.inputIndex);
        float* out[2] = {vb.lfoOut[k], vb.lfoTrigger[k]};
        Process(lfo, in, 3, out, 2, ctx);
    }

    // Envelopes
    for (int k = 0; k < 5; ++k) {
        if (!SourceInUse(v, EnvSource(k))) continue;
        float* in[kEnvInputCount] = {};
        for (int i = 0; i < kEnvInFirstTrigger; ++i) in[i] = dst[EnvDst(k, i)];
        TriggerInputs(v, in + kEnvInFirstTrigger);
        float* out[1] = {vb.env[k]};
        Process(vm.env[k], in, kEnvInputCount, out, 1, ctx);
    }

    if (!IsFinite(vb.vca[1])) HealVoice(v);

    // Mix with volume and pan
    const float volume = std::clamp(m.voices[v][kVoiceVolume], 0.0f, 1.0f);
    const float pan = std::clamp(m.voices[v][kVoicePan], 0.0f, 1.0f);
    const float leftGain = (1.0f - pan) * volume;
    const float rightGain = pan * volume;
    for (int n = 0; n < kBlockSize; ++n) {
        bank.mixLeft[n] += leftGain * vb.vca[1][n];
        bank.mixRight[n] += rightGain * vb.vca[1][n];
    }

    // End of sound: an envelope on a level destination has finished
    // while that VCA's own gain is 0.
    for (int k = 0; k < 2; ++k) {
        if (vm.vca[k].gain != 0.0f) continue;
        for (const uint32_t source : levelSources[k]) {
            if (!IsEnvelopeSource(source)) continue;
            EnvelopeState& env = vm.env[source - kSrcEnv1];
            if (env.restartPending == 0 && env.finished != 0) {
                RemoveVoice(voiceState.activeVoices, v);
                env.finished = 0;
                break;
            }
        }
    }

    // The voice's trigger is consumed.
    RemoveVoice(voiceState.triggerVoices, v);
}

// The source a module's selector picks, null outside the table.
float* VantorProcessor::SelectedSource(int v, int32_t index) const {
    return index < 0 || index >= kSourceCount ? nullptr : signals->voices[v].sources[index];
}

// The five LFO triggers of voice v, then the vibrato trigger.
void VantorProcessor::TriggerInputs(int v, float** triggers) const {
    const VoiceBuffers& vb = signals->voices[v];
    for (int k = 0; k < 5; ++k) triggers[k] = vb.lfoTrigger[k];
    triggers[5] = signals->vibratoTrigger;
}

} // namespace Norvell::Vantor
