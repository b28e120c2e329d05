// IFF ILBM and PBM pictures.
// (Not implemented yet: the registry row only.)
#include "imgkit/internal.h"

namespace imk {

const Codec kIffCodec = {"iff",
                         "IFF ILBM",
                         {"iff", "ilbm", "lbm"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         nullptr,
                         nullptr,
                         nullptr,
                         nullptr};

}  // namespace imk
