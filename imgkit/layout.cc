// The blocks exchanged with callers are read by offset: pin every offset.
// Only fields after a pointer move on 64-bit machines.
#include <cstddef>

#include "imgkit/imgkit.h"

#define AT(type, field, offset) static_assert(offsetof(type, field) == (offset), #type "." #field)

AT(ImageRecord, width, 0);
AT(ImageRecord, height, 4);
AT(ImageRecord, bytesPerLine, 8);
AT(ImageRecord, type, 12);
AT(ImageRecord, bytesPerPixel, 14);
AT(ImageRecord, bitsPerComponent, 16);
AT(ImageRecord, attribute, 18);
AT(ImageRecord, reserved1, 20);
AT(ImageRecord, reserved2, 24);
AT(ImageRecord, colorCount, 28);
AT(ImageRecord, palette, 32);
AT(ImageRecord, pixels, 32 + sizeof(void*));

AT(LoadOptions, reserved0, 0);
AT(LoadOptions, formatIndex, 2);
AT(LoadOptions, reserved4, 4);
AT(LoadOptions, flags, 6);
AT(LoadOptions, pictureIndex, 8);
AT(LoadOptions, rawWidth, 12);
AT(LoadOptions, rawHeight, 16);
AT(LoadOptions, rawOffset, 20);
AT(LoadOptions, rawChannelOrder, 24);
AT(LoadOptions, rawChannelType, 26);
AT(LoadOptions, reserved28, 28);
AT(LoadOptions, saveQuality, 28);
AT(LoadOptions, saveOption, 30);
AT(LoadOptions, saveOption2, 32);
AT(LoadOptions, pcdBase, 34);
AT(LoadOptions, grobBpp, 36);
AT(LoadOptions, reserved38, 38);
AT(LoadOptions, reserved40, 40);
AT(LoadOptions, fitWidth, 44);
AT(LoadOptions, fitHeight, 48);
AT(LoadOptions, progressData, 52);
AT(LoadOptions, progress, 56);
static_assert(sizeof(LoadOptions) == 56 + sizeof(void*), "LoadOptions size");

AT(FileInfo, formatName, 0);
AT(FileInfo, formatIndex, 0x200);
AT(FileInfo, width, 0x204);
AT(FileInfo, height, 0x208);
AT(FileInfo, planes, 0x20C);
AT(FileInfo, bitsPerPlane, 0x20E);
AT(FileInfo, pictureCount, 0x218);
AT(FileInfo, errorText, 0x21C);
static_assert(sizeof(FileInfo) == 604, "FileInfo size");

AT(FormatInfo, index, 16);
AT(FormatInfo, capabilities, 18);
AT(FormatInfo, name, 20);
AT(FormatInfo, extensions, 276);
static_assert(sizeof(FormatInfo) == 636, "FormatInfo size");
static_assert(sizeof(ImkKind) == 16, "ImkKind size");
