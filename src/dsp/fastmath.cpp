#include "dsp/fastmath.h"

#include <array>
#include <cmath>

namespace Norvell::dsp {

const float* NoteFrequencies() {
    static const std::array<float, 128> table = [] {
        std::array<float, 128> t{};
        for (int m = 0; m < 128; ++m)
            t[m] = static_cast<float>(440.0 * std::pow(2.0, (m - 69) / 12.0));
        return t;
    }();
    return table.data();
}

} // namespace Norvell::dsp
