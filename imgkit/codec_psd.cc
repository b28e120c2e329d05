// Photoshop documents: the flattened composite (read only).
// (Not implemented yet: the registry row only.)
#include "imgkit/internal.h"

namespace imk {

const Codec kPsdCodec = {"psd",   "Photoshop", {"psd"}, IMK_CAN_READ, {kEndKinds},
                         nullptr, nullptr,     nullptr, nullptr};

}  // namespace imk
