// Softimage PIC pictures.
// (Not implemented yet: the registry row only.)
#include "imgkit/internal.h"

namespace imk {

const Codec kSoftCodec = {"soft",
                          "Softimage PIC",
                          {"pic", "si"},
                          IMK_CAN_READ | IMK_CAN_WRITE,
                          {{IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize}, kEndKinds},
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

}  // namespace imk
