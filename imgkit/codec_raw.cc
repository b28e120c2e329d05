// Headerless raw codec (skeleton: functions to be filled in).
#include "imgkit/internal.h"

namespace imk {

const Codec kRawCodec = {
    "raw", "Raw", {"raw"}, IMK_CAN_READ | IMK_NO_SNIFF,
    {kEndKinds},
    nullptr, nullptr, nullptr, nullptr};

}  // namespace imk
