// The parameter dialogs of the processing operations, built from the
// descriptors of widgets/param_table.h by one constructor function.
#pragma once

#include <X11/Intrinsic.h>

#include <vector>

#include "display/colormap.h"
#include "display/visual.h"
#include "imgkit/imgkit.h"
#include "widgets/param_table.h"

// Shows `dialog` over `parent` (whose shell gives the visual, depth and
// colormap) and waits for the answer in a local event loop. The controls
// start from the remembered values (the picture's size for size fields).
// When the descriptor asks for it and the setting processAutoView is on, a
// reduced copy of `picture` processed with the current values is drawn
// through `visual` and `colormap` and redrawn shortly after each change. OK: true, the chosen positions in `positions`
// (one per control, 25 for the matrix) and remembered in the settings.
// Cancel, Escape or closing the window: false, and nothing is changed. The
// dialog's widgets are destroyed either way; the picture is only read.
bool RunParamDialog(Widget parent, const params::ParamDialog& dialog, ImageRecord* picture,
                    DisplayVisual* visual, ColormapRecord* colormap, std::vector<int>* positions);
