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

using namespace Norvell;

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s BEFORE.so AFTER.so PRESET_FOLDER [CASE_FILTER]\n", argv[0]);
        return 2;
    }
    const std::string before = argv[1], after = argv[2], folder = argv[3];
    const std::string filter = argc > 4 ? argv[4] : "";
    try {
        HostCore::Engine probe(after);
        setenv("VANTOR_SEED", Compare::kSeed, 1);
        probe.Start(48000.0f);
        const auto cases = Compare::BuildCases(folder, probe.ReadParams());
        int differing = 0;
        std::printf("%-44s %8s %10s %10s %12s\n", "case", "peak", "samples", "differ", "max diff");
        for (const auto& c : cases) {
            if (!filter.empty() && c.name.find(filter) == std::string::npos) continue;
            const auto a = Compare::RenderCase(before, c);
            const auto b = Compare::RenderCase(after, c);
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
