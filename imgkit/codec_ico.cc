// Windows icons and cursors.
// (Not implemented yet: the registry row only.)
#include "imgkit/internal.h"

namespace imk {

const Codec kIcoCodec = {"ico",
                         "Windows Icon",
                         {"ico"},
                         IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         nullptr,
                         nullptr,
                         nullptr,
                         nullptr};

const Codec kCurCodec = {"cur",
                         "Windows Cursor",
                         {"cur"},
                         IMK_CAN_READ | IMK_CAN_WRITE | IMK_MULTI_PICTURE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         nullptr,
                         nullptr,
                         nullptr,
                         nullptr};

}  // namespace imk
