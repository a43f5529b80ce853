#include "effecttest.h"
#include "processor/modules/chorus.h"

// 2 x type: 0 gives one voice, exactly 1 two, else three; at amount and width 0 their DC adds up.
TEST(Chorus, VoiceCountFromType) {
    for (auto [type, voices] : {std::pair{0.0f, 1.0f}, {0.5f, 2.0f}, {0.3f, 3.0f}, {1.0f, 3.0f}}) {
        Fx<ChorusState> c({type, 0.7f, 0, 0.4f, 0, 0.5f});
        EXPECT_NEAR(c.Run(Constant(32 * 1500, 1.0f)).left.back(), voices, 1e-4f) << type;
    }
}
