// JPEG 2000 files and code streams.
// (Not implemented yet: the registry row only.)
#include "imgkit/internal.h"

namespace imk {

const Codec kJp2Codec = {"jp2",
                         "JPEG 2000",
                         {"jp2", "jpx", "jpf"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         nullptr,
                         nullptr,
                         nullptr,
                         nullptr};

const Codec kJ2kCodec = {"j2k",
                         "JPEG 2000 codestream",
                         {"j2k", "j2c", "jpc"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize},
                          kEndKinds},
                         nullptr,
                         nullptr,
                         nullptr,
                         nullptr};

}  // namespace imk
