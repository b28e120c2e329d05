// HEIF and AVIF pictures (read only).
// (Not implemented yet: the registry row only.)
#include "imgkit/internal.h"

namespace imk {

const Codec kHeifCodec = {"heif",
                          "HEIF",
                          {"heic", "heif", "hif"},
                          IMK_CAN_READ | IMK_MULTI_PICTURE,
                          {kEndKinds},
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

const Codec kAvifCodec = {"avif",      "AVIF",  {"avif"}, IMK_CAN_READ | IMK_MULTI_PICTURE,
                          {kEndKinds}, nullptr, nullptr,  nullptr,
                          nullptr};

}  // namespace imk
