#pragma once
// The engine's pseudo-random generator: one linear congruential generator,
// state * 214013 + 2531011 (mod 2^32), value = (state >> 16) & 0x7FFF.
// The state is per thread, so rendering threads never race on it.
#include <cstdint>

namespace Norvell::dsp {

void SeedRandom(uint32_t seed);
// Next value, 0 to 32767.
int32_t NextRandom();
// Seed taken at construction: the current time in seconds, or the value of
// the environment variable VANTOR_SEED when it is set (reproducible renders).
uint32_t ConstructionSeed();

} // namespace Norvell::dsp
