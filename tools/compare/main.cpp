// vantor-compare: renders the same seeded cases through two engine libraries
// and prints, per case, how many samples differ and by how much at most.
// Exit status 0 when every case is identical, 1 when any differs, 2 on errors.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cases.h"

namespace {

using namespace Norvell;

constexpr const char* kSeed = "20260423";

// Interleaved stereo output of one case.
std::vector<float> RenderCase(const std::string& library, const Compare::Case& c) {
    Render::Engine engine(library);
    // The engine seeds its random generator when the processor is created.
    setenv("VANTOR_SEED", kSeed, 1);
    engine.Start(float(c.sampleRate));
    const auto params = engine.ReadParams();
    if (c.setup) c.setup(engine, params);

    const int64_t total = std::llround(c.seconds * c.sampleRate);
    std::vector<float> out;
    out.reserve(size_t(total) * 2);
    std::vector<float> left(4096), right(4096);
    size_t next = 0, turn = 0;
    for (int64_t done = 0; done < total;) {
        const uint32_t frames = c.frames.empty() ? 32u : c.frames[turn++ % c.frames.size()];
        using Kind = Render::HostAction::Kind;
        // Actions due before the end of this block, parameters first as a host does.
        size_t end = next;
        while (end < c.actions.size() && c.actions[end].frame < done + frames) ++end;
        for (size_t i = next; i < end; ++i)
            if (c.actions[i].kind == Kind::Param)
                engine.SetParam(c.actions[i].id, c.actions[i].value);
        engine.UpdateVoiceSetup();
        for (size_t i = next; i < end; ++i) {
            if (c.actions[i].kind == Kind::Midi) engine.ProcessMidi(c.actions[i].message);
            if (c.actions[i].kind == Kind::Immediate)
                engine.SetParam(c.actions[i].id, c.actions[i].value);
        }
        next = end;
        engine.Render(left.data(), right.data(), frames, float(c.sampleRate), 120.0f);
        engine.CollectChanges();
        for (uint32_t i = 0; i < frames; ++i) {
            out.push_back(left[i]);
            out.push_back(right[i]);
        }
        done += frames;
    }
    return out;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s BEFORE.so AFTER.so PRESET_FOLDER [CASE_FILTER]\n", argv[0]);
        return 2;
    }
    const std::string before = argv[1], after = argv[2], folder = argv[3];
    const std::string filter = argc > 4 ? argv[4] : "";
    try {
        Render::Engine probe(after);
        setenv("VANTOR_SEED", kSeed, 1);
        probe.Start(48000.0f);
        const auto cases = Compare::BuildCases(folder, probe.ReadParams());
        int differing = 0;
        std::printf("%-44s %8s %10s %10s %12s\n", "case", "peak", "samples", "differ", "max diff");
        for (const auto& c : cases) {
            if (!filter.empty() && c.name.find(filter) == std::string::npos) continue;
            const auto a = RenderCase(before, c);
            const auto b = RenderCase(after, c);
            size_t count = 0, first = a.size();
            double largest = 0.0;
            float peak = 0.0f;
            for (float x : a) peak = std::max(peak, std::fabs(x));
            for (size_t i = 0; i < a.size(); ++i) {
                // Bytes, not values: NaN against NaN or -0 against +0 also count.
                if (std::memcmp(&a[i], &b[i], sizeof(float)) == 0) continue;
                ++count;
                first = std::min(first, i);
                largest = std::max(largest, std::fabs(double(a[i]) - double(b[i])));
            }
            std::printf("%-44s %8.3f %10zu %10zu %12.3g", c.name.c_str(), double(peak), a.size(),
                        count, largest);
            if (count) std::printf("  first at frame %zu", first / 2);
            std::printf("\n");
            differing += count > 0;
        }
        std::printf("%d case(s) differ\n", differing);
        return differing ? 1 : 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vantor-compare: %s\n", e.what());
        return 2;
    }
}
