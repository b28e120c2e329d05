// PNM family codec (skeleton: functions to be filled in).
#include "imgkit/internal.h"

namespace imk {

const Codec kPbmCodec = {
    "pbm", "PBM", {"pbm"}, IMK_CAN_READ | IMK_CAN_WRITE,
    {{IMK_BINARY, 2, kAnySize, kAnySize}, kEndKinds},
    nullptr, nullptr, nullptr, nullptr};
const Codec kPgmCodec = {
    "pgm", "PGM", {"pgm"}, IMK_CAN_READ | IMK_CAN_WRITE,
    {{IMK_BINARY, 2, kAnySize, kAnySize}, {IMK_GREY, 256, kAnySize, kAnySize}, kEndKinds},
    nullptr, nullptr, nullptr, nullptr};
const Codec kPpmCodec = {
    "ppm", "PPM", {"ppm", "pnm"}, IMK_CAN_READ | IMK_CAN_WRITE,
    {{IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize}, kEndKinds},
    nullptr, nullptr, nullptr, nullptr};
const Codec kPamCodec = {
    "pam", "PAM", {"pam"}, IMK_CAN_READ | IMK_CAN_WRITE,
    {{IMK_BINARY, 2, kAnySize, kAnySize}, {IMK_GREY, 256, kAnySize, kAnySize},
     {IMK_ANY_TRUECOLOR, kAnyColors, kAnySize, kAnySize}, kEndKinds},
    nullptr, nullptr, nullptr, nullptr};

}  // namespace imk
