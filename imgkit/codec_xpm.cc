// X pixmaps.
// (Not implemented yet: the registry row only.)
#include "imgkit/internal.h"

namespace imk {

const Codec kXpmCodec = {"xpm",
                         "X Pixmap",
                         {"xpm", "pm"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          kEndKinds},
                         nullptr,
                         nullptr,
                         nullptr,
                         nullptr};

}  // namespace imk
