// The batch-conversion dialogs: "Multi Convert" (shell "VmoraMultiConvert"),
// a list of chosen files, and "Sequence Convert" (shell "VmoraSeqConvert"),
// a numbered sequence named by a template. Both convert inside the program,
// one file per call of a work procedure behind the progress dialog, or write
// the same job as a one-line pixbatch script ("Save Batch...").
#pragma once

#include <X11/Intrinsic.h>

#include <string>
#include <vector>

#include "process/advanced_ops.h"

// Opens the multi-file dialog over `parent` (the application shell when
// null) with `files` in its input list.
void OpenMultiConvert(Widget parent, const std::vector<std::string>& files = {});
// Opens the numbered-sequence dialog over `parent`.
void OpenSequenceConvert(Widget parent);

// Edits an ordered list of advanced operations in a modal dialog ("Advanced
// Operations", shell "VmoraAdvancedOps"). OK replaces `steps`; Cancel,
// Escape or closing the window leave it as it was.
bool EditAdvancedOperations(Widget parent, std::vector<process::AdvancedStep>* steps);
