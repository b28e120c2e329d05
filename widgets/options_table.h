// The rows of the options dialog: one per setting, grouped in pages, each
// naming the setting's place in Settings and how it is edited. No X here, so
// the table and its value rules can be checked without a display.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "core/settings.h"

enum class OptionKind { kToggle, kNumber, kChoice, kText };

struct OptionChoice {
  const char* label;
  int value;
};

struct OptionRow {
  int page;           // index into OptionPages()
  const char* key;    // the settings file's key; also the control's widget name
  const char* label;  // the text beside the control (a toggle's own text)
  OptionKind kind;
  size_t offset;                // of the value inside Settings
  int minimum, maximum;         // kNumber
  const OptionChoice* choices;  // kChoice
  int choiceCount;
};

// "Start", "View", "Resize", "Browser", "Save", "Load", "Slide", "Rename",
// "Html", "Process", "Convert": the category list, in this order.
const std::vector<const char*>& OptionPages();
const std::vector<OptionRow>& OptionRows();

// The value a number field's text gives: the old value when the text is not
// a whole decimal number, otherwise the number held within the row's range.
int OptionNumberFromText(const OptionRow& row, const char* text, int old);

// The position among the row's choices of a value (0 when it is none of
// them).
int OptionChoicePosition(const OptionRow& row, int value);

// Access to a row's value inside a Settings block.
inline bool& OptionBool(Settings& s, const OptionRow& r) {
  return *reinterpret_cast<bool*>(reinterpret_cast<char*>(&s) + r.offset);
}
inline int& OptionInt(Settings& s, const OptionRow& r) {
  return *reinterpret_cast<int*>(reinterpret_cast<char*>(&s) + r.offset);
}
inline char* OptionText(Settings& s, const OptionRow& r) {
  return reinterpret_cast<char*>(&s) + r.offset;
}
