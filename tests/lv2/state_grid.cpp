// The plugin's state grid against the serd library hosts write and read state
// with: every grid value survives the text round trip as the same float, and the
// text the generator writes for presets is the text hosts write.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include <serd/serd.h>

#include "paramset.h"

namespace {

using Norvell::Lv2::OnStateGrid;
using Norvell::Lv2::StateText;

float FromBits(uint32_t bits) {
    float v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

// A float through the host's writer (eight decimals) and reader.
std::string HostText(float value) {
    SerdNode node = serd_node_new_decimal(value, 8);
    std::string text(reinterpret_cast<const char*>(node.buf));
    serd_node_free(&node);
    return text;
}

float HostRead(const std::string& text) {
    return float(serd_strtod(text.c_str(), nullptr));
}

void ExpectOnGrid(float v) {
    const float kept = OnStateGrid(v);
    const std::string text = HostText(kept);
    EXPECT_EQ(HostRead(text), kept) << v << " kept as " << kept << " written " << text;
    EXPECT_EQ(StateText(kept), text) << v;
    // Half a grid step, plus the rounding of the grid decimal to a float below 0.125.
    EXPECT_LE(std::fabs(double(kept) - double(v)), 5e-9 + 0x1p-28) << v;
    if (v >= 0.125f) {
        EXPECT_EQ(kept, v);
    }
}

TEST(StateGrid, EveryKeptValueReadsBackAsTheSameFloat) {
    // Every 997th float from 0 to 1, and the awkward ones: ties of the eighth
    // decimal, the last float below 1 and below 0.125, the smallest values.
    for (uint32_t bits = 0; bits <= 0x3F800000u; bits += 997) ExpectOnGrid(FromBits(bits));
    for (float v : {0.0f, 1.0f, 0.501953125f, 0.001953125f, 0.99999994f, 0.12499999f, 0.125f, 5e-9f,
                    4.9e-9f, 5.1e-9f, 1e-30f, FromBits(1)})
        ExpectOnGrid(v);
}

TEST(StateGrid, ShortDecimalsStayAsWritten) {
    // Preset files hold values with eight decimals or fewer: the plugin keeps them.
    for (int n = 0; n <= 100000; ++n) {
        const float v = float(n / 100000.0);
        EXPECT_EQ(OnStateGrid(v), v) << n;
    }
    EXPECT_EQ(OnStateGrid(0.0371f), 0.0371f);
    EXPECT_EQ(OnStateGrid(0.01234568f), 0.01234568f);
}

} // namespace
