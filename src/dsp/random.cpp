#include "dsp/random.h"

#include <cstdlib>
#include <ctime>

namespace Norvell::dsp {
namespace {
// The C runtime's initial state, used until a thread seeds its generator.
thread_local uint32_t randomState = 1;
} // namespace

void SeedRandom(uint32_t seed) {
    randomState = seed;
}

int32_t NextRandom() {
    randomState = randomState * 214013u + 2531011u;
    return static_cast<int32_t>((randomState >> 16) & 0x7FFFu);
}

uint32_t ConstructionSeed() {
    if (const char* text = std::getenv("VANTOR_SEED"); text != nullptr && *text != '\0')
        return static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
    return static_cast<uint32_t>(std::time(nullptr));
}

} // namespace Norvell::dsp
