// The program's side of the codec library: the plain load used for previews
// and the picture copy that serves the undo buffer.
#pragma once

#include <cstdint>

#include "imgkit/imgkit.h"

// Loads `path` without progress, reduced to fit fitWidth x fitHeight, with
// the load settings applied. Returns the low 8 bits of the library's result;
// on failure the record's buffers are null.
int LoadPicture(const char* path, ImageRecord* picture, int16_t formatIndex, int32_t fitWidth,
                int32_t fitHeight);

// Makes a fresh copy of `source` (width and height exchanged, pixels left
// for the caller, when `rotated`). Afterwards `destination` holds the source's
// old buffers and `source` the copy; a picture that `destination` held is
// freed first. Returns 1, or 0 when memory is short (nothing changed).
int CopyPicture(ImageRecord* source, ImageRecord* destination, bool rotated);

// Clears a record to the no-picture state, freeing its buffers if any.
void FreePicture(ImageRecord* picture);
