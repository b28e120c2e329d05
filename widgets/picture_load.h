// Loading a picture for a window: the codec library's load with the progress
// dialog, the busy cursor and the report of failures.
#pragma once

#include <X11/Intrinsic.h>

#include <cstdint>

#include "imgkit/imgkit.h"

// Loads picture `pictureIndex` of `path` into `picture` with the progress
// dialog ("Loading", "Loading <name>") over `parent` (the application shell
// when null); the parent shows the watch cursor meanwhile unless it is null
// or the application shell. `formatIndex` passes the known format in
// (-1: recognise it) and receives the file's; `pictureCount` receives the
// number of pictures in the file (both also after a failure). With `report`,
// a failure other than a stop (15) is shown with ReportPictureError. Returns
// the low 8 bits of the library's result; on failure the record holds no
// picture.
int LoadPictureWithProgress(Widget parent, const char* path, int32_t pictureIndex,
                            ImageRecord* picture, int16_t* formatIndex, int32_t* pictureCount,
                            bool report);

// Shows the message for a codec result `code` about `path` (with the
// library's `detail` for code 8; may be null) in an error dialog over
// `parent`. Code 15 (the user stopped the load) shows nothing.
void ReportPictureError(Widget parent, const char* path, int code, const char* detail);
