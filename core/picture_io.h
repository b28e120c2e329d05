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

// The load used by view windows: picture `pictureIndex` of `path` with the
// load settings applied and `progress` (may be null) called as the library
// reads. `formatIndex` passes the known format in and receives the file's;
// `pictureCount` receives the number of pictures in the file (both also after
// a failure). Returns the low 8 bits of the library's result (15: stopped by
// the progress function); `detail` receives the library's own text about a
// failure.
int LoadPictureWithProgress(const char* path, int32_t pictureIndex, ImageRecord* picture,
                            int16_t* formatIndex, int32_t* pictureCount, ImkProgressFunc progress,
                            char (*detail)[64]);

// Makes a fresh copy of `source` (width and height exchanged, pixels left
// for the caller, when `rotated`). Afterwards `destination` holds the source's
// old buffers and `source` the copy; a picture that `destination` held is
// freed first. Returns 1, or 0 when memory is short (nothing changed).
int CopyPicture(ImageRecord* source, ImageRecord* destination, bool rotated);

// Clears a record to the no-picture state, freeing its buffers if any.
void FreePicture(ImageRecord* picture);
