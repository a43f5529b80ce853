#pragma once
// The six play-mode routines that assign a zone's notes to its voices.
#include "processor/modules/voices.h"

namespace Norvell::Vantor {

void CommitVoiceEvent(VoiceState& state, bool isNoteOn, int32_t voice, uint32_t message);
int32_t FindRotationStart(const VoiceState& state, int zone);

void PlayRotate(VoiceState& state, int zone, uint32_t message);
void PlayReassign(VoiceState& state, int zone, uint32_t message);
void PlayLowestFree(VoiceState& state, int zone, uint32_t message);
void PlayUnisonLow(VoiceState& state, int zone, uint32_t message);
void PlayUnisonHigh(VoiceState& state, int zone, uint32_t message);
void PlayUnisonLast(VoiceState& state, int zone, uint32_t message);

} // namespace Norvell::Vantor
