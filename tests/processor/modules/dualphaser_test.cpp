#include "effecttest.h"
#include "processor/modules/dualphaser.h"

// m = 0.5: dry 1 - m^2 = 0.75, wet ((2 - 2m) m + 1)(2m - m^2) = 1.125. Each all-pass stage turns
// DC over: parallel phases each side through five (-1), dual passes the sum L + R through ten.
TEST(DualPhaser, DualAndParallelMixesAtHalf) {
    const float l = 1.0f, r = 0.5f;
    for (auto [dual, wetL, wetR] : {std::tuple{0.0f, -l, -r}, {1.0f, l + r, l + r}}) {
        Fx<DualPhaserState> p({0.5f, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 0, dual}, 0.5f);
        const Signal out =
            p.Run({std::vector<float>(32 * 500, l), std::vector<float>(32 * 500, r)});
        EXPECT_NEAR(out.left.back(), 0.75f * l + 1.125f * wetL, 1e-4f) << dual;
        EXPECT_NEAR(out.right.back(), 0.75f * r + 1.125f * wetR, 1e-4f) << dual;
    }
}
