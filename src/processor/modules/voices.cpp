#include "processor/modules/voices.h"

#include "processor/modules/playmodes.h"

namespace Norvell::Vantor {

PlayModeRoutine PlayModeRoutineFor(uint32_t mode) {
    static constexpr PlayModeRoutine routines[6] = {PlayRotate,    PlayReassign,   PlayLowestFree,
                                                    PlayUnisonLow, PlayUnisonHigh, PlayUnisonLast};
    return routines[mode < 6 ? mode : 2];
}

void ResetVoiceState(VoiceState&) {}
int32_t RefreshKeyRange(ZoneRecord&) {
    return 0;
}
void SetPlayMode(ZoneRecord&, VoiceState&, float) {}
void DispatchNoteToZones(VoiceState&, uint32_t) {}
void RestoreUnisonMessages(VoiceState&, const uint32_t*) {}

} // namespace Norvell::Vantor
