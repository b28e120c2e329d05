// Byte-copying geometry: flips, quarter turns, crop and canvas. Pixels move as
// groups of bytesPerPixel bytes, so every layout is handled alike; results keep
// the source's layout, colour count, attributes and palette.
//
// Every operation returns 0, or 1 when the result could not be allocated
// (nothing is changed then). With dst given the result goes to dst and src is
// kept; with dst null src is released and replaced.
#pragma once

#include "imgkit/imgkit.h"

namespace process {

// "Horizontal" / "-xflip". Source pixel j of a row lands at byte
// bytesPerLine - (j + 1) * bytesPerPixel of the result row: the mirror is
// taken against the end of the row buffer, so on a padded row the mirrored
// pixels sit against the padding and the first bytes of the row stay 0.
int flipHorizontal(ImageRecord* src, ImageRecord* dst);

// "Vertical" / "-yflip". Row i goes whole to row height - 1 - i.
int flipVertical(ImageRecord* src, ImageRecord* dst);

// Quarter turn; the result is height wide and width high. direction >= 1 turns
// clockwise ("Right"), below 1 counter-clockwise ("Left").
int rotateQuarter(ImageRecord* src, ImageRecord* dst, int direction);

// "Right" (90), "Left" (-90), "Custom..." and "-rotate": 90 and -90 are quarter
// turns, 270 is taken as -90, and every other angle (including 0 and 180) goes
// to the free-angle rotation (process/rotate.h). Positive angles turn
// clockwise.
int rotatePicture(ImageRecord* src, ImageRecord* dst, double angle);

// "Crop" / "-crop". The rectangle is clipped to the picture on each side; one
// that leaves no pixel (w or h at zero or below after clipping) is refused with
// 1 and nothing changes.
int cropPicture(ImageRecord* src, ImageRecord* dst, int x, int y, int w, int h);

// "Canvas size..." / "-canvas". A black (index 0) canvas of the new size; the
// picture is centred in each direction where the canvas grows (an odd extra
// pixel goes right / down) and keeps its top-left corner where it shrinks.
int resizeCanvas(ImageRecord* src, ImageRecord* dst, int newWidth, int newHeight);

}  // namespace process
