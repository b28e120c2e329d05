// X bitmaps.
// (Not implemented yet: the registry row only.)
#include "imgkit/internal.h"

namespace imk {

const Codec kXbmCodec = {"xbm",
                         "X Bitmap",
                         {"xbm", "bm"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize}, kEndKinds},
                         nullptr,
                         nullptr,
                         nullptr,
                         nullptr};

}  // namespace imk
