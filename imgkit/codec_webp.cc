// WebP pictures and animations.
// (Not implemented yet: the registry row only.)
#include "imgkit/internal.h"

namespace imk {

const Codec kWebpCodec = {"webp",
                          "WebP",
                          {"webp"},
                          IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                          {{IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize}, kEndKinds},
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

}  // namespace imk
