// The conversion dialog that saving shows when the output format cannot hold
// the picture's kind, and the save hooks a window hands to SavePicture.
#pragma once

#include <X11/Intrinsic.h>

#include <vector>

#include "core/save.h"
#include "imgkit/imgkit.h"

// The conversion items offered for a picture, in the Image menu's order.
// Items that would give the picture the kind it already has are left out:
// the binary items for a binary picture and "Convert to True Color" for a
// true-colour one.
std::vector<int> ConversionChoices(const ImageRecord& picture);

// Asks which conversion to apply in a modal dialog titled `title`. Returns
// the chosen item number 1..32, or 0 when cancelled (Cancel, Escape, the
// window closed).
int AskConversionDialog(Widget parent, const char* title, const ImageRecord& picture);

// Hooks for SavePicture over `parent` (the application shell when null): the
// conversion dialog, error messages, the progress dialog and the watch
// cursor on the parent's window.
SaveHooks GuiSaveHooks(Widget parent);
