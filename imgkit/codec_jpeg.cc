// JPEG codec (skeleton: functions to be filled in).
#include "imgkit/internal.h"

namespace imk {

const Codec kJpegCodec = {
    "jpeg", "JPEG", {"jpg", "jpeg", "jpe", "jfif"}, IMK_CAN_READ | IMK_CAN_WRITE,
    {{IMK_GREY, 256, kAnySize, kAnySize}, {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize}, kEndKinds},
    nullptr, nullptr, nullptr, nullptr};

}  // namespace imk
