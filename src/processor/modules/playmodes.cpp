#include "processor/modules/playmodes.h"

namespace Norvell::Vantor {

void CommitVoiceEvent(VoiceState&, bool, int32_t, uint32_t) {}
int32_t FindRotationStart(const VoiceState&, int) {
    return -1;
}
void PlayRotate(VoiceState&, int, uint32_t) {}
void PlayReassign(VoiceState&, int, uint32_t) {}
void PlayLowestFree(VoiceState&, int, uint32_t) {}
void PlayUnisonLow(VoiceState&, int, uint32_t) {}
void PlayUnisonHigh(VoiceState&, int, uint32_t) {}
void PlayUnisonLast(VoiceState&, int, uint32_t) {}

} // namespace Norvell::Vantor
