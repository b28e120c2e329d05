// One constructor for every processing dialog: scales, radio boxes, option
// menus, toggles and number fields laid out from a descriptor, with a live
// preview on a reduced copy of the picture.
#include "widgets/param_dialog.h"

#include <Xm/DialogS.h>
#include <Xm/DrawingA.h>
#include <Xm/Form.h>
#include <Xm/Frame.h>
#include <Xm/Label.h>
#include <Xm/MessageB.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Scale.h>
#include <Xm/TextF.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/settings.h"
#include "core/test_log.h"
#include "display/converter.h"
#include "process/operation.h"
#include "process/resize.h"

namespace {

using params::ControlKind;
using params::ParamControl;
using params::ParamDialog;

constexpr int kPreviewSize = 160;
// Delay between a change and the preview, so that dragging a slider stays
// smooth: only the last position of a quick drag is processed.
constexpr unsigned long kPreviewDelayMs = 80;

struct DialogState {
  const ParamDialog* dialog = nullptr;
  Widget shell = nullptr;
  std::vector<Widget> inputs;       // one per position (the widget holding it)
  std::vector<Widget> valueLabels;  // per position: the mapped value's label, or null
  int answer = 0;                   // 0 waiting, 1 OK, 2 cancelled
  bool syncing = false;             // the ratio-keeping update of the other size field
  int pictureWidth = 0, pictureHeight = 0;
  // Preview.
  Widget area = nullptr;
  ImageRecord small{}, shown{};
  bool shownValid = false;
  ImageConverter converter{};
  bool converterReady = false;
  DisplayVisual* visual = nullptr;
  ColormapRecord* colormap = nullptr;
  GC gc = nullptr;
  XtIntervalId timer = 0;
};

XmString xmString(const std::string& text) {
  return XmStringCreateLocalized(const_cast<char*>(text.c_str()));
}

int parseNumber(Widget field, const ParamControl& c) {
  char* text = XmTextFieldGetString(field);
  const long v = std::strtol(text, nullptr, 10);
  XtFree(text);
  return static_cast<int>(std::clamp<long>(v, c.min, c.max));
}

// Index of the set toggle among a radio box's children.
int radioIndex(Widget box) {
  WidgetList children = nullptr;
  Cardinal count = 0;
  XtVaGetValues(box, XmNchildren, &children, XmNnumChildren, &count, nullptr);
  for (Cardinal k = 0; k < count; ++k)
    if (XmIsToggleButton(children[k]) && XmToggleButtonGetState(children[k]))
      return static_cast<int>(k);
  return 0;
}

int optionIndex(Widget option) {
  Widget pulldown = nullptr, chosen = nullptr;
  XtVaGetValues(option, XmNsubMenuId, &pulldown, nullptr);
  XtVaGetValues(pulldown, XmNmenuHistory, &chosen, nullptr);
  WidgetList children = nullptr;
  Cardinal count = 0;
  XtVaGetValues(pulldown, XmNchildren, &children, XmNnumChildren, &count, nullptr);
  for (Cardinal k = 0; k < count; ++k)
    if (children[k] == chosen) return static_cast<int>(k);
  return 0;
}

std::vector<int> currentPositions(const DialogState& s) {
  std::vector<int> positions;
  size_t n = 0;
  for (const ParamControl& c : s.dialog->controls) {
    for (int k = 0; k < params::positionCount(c); ++k, ++n) {
      Widget w = s.inputs[n];
      int p = 0;
      switch (c.kind) {
        case ControlKind::kScale:
          XmScaleGetValue(w, &p);
          break;
        case ControlKind::kRadio:
          p = radioIndex(w);
          break;
        case ControlKind::kOption:
          p = optionIndex(w);
          break;
        case ControlKind::kToggle:
          p = XmToggleButtonGetState(w) ? 1 : 0;
          break;
        case ControlKind::kText:
        case ControlKind::kMatrix:
          p = parseNumber(w, c);
          break;
      }
      positions.push_back(p);
    }
  }
  return positions;
}

// Preview.

void drawPreview(DialogState* s) {
  if (!s->area || !XtIsRealized(s->area)) return;
  Display* display = XtDisplay(s->area);
  Window window = XtWindow(s->area);
  XClearWindow(display, window);
  if (!s->shownValid || !s->converterReady) return;
  const int w = s->converter.outWidth, h = s->converter.outHeight;
  XRectangle all = {0, 0, static_cast<unsigned short>(kPreviewSize),
                    static_cast<unsigned short>(kPreviewSize)};
  drawArea(window, s->gc, &s->converter, (kPreviewSize - w) / 2, (kPreviewSize - h) / 2, all);
}

void updatePreview(DialogState* s) {
  if (!s->area || !s->small.pixels) return;
  if (s->shownValid) imkFree(&s->shown);
  std::memset(&s->shown, 0, sizeof s->shown);
  const std::vector<int> positions = currentPositions(*s);
  s->shownValid = params::applyDialog(*s->dialog, &s->small, &s->shown, positions) == 0;
  if (s->shownValid) {
    // Effects that grow the picture (rotation, shear, waves) are shown
    // scaled down to the preview's size.
    int w = s->shown.width, h = s->shown.height;
    if (w > kPreviewSize || h > kPreviewSize)
      process::resizedSize(w, h, kPreviewSize, kPreviewSize, true, &w, &h);
    ConvertBitmapToImage(&s->converter, &s->shown, w, h);
  }
  drawPreview(s);
  std::string text;
  for (int p : positions) text += " " + std::to_string(p);
  TestLog("preview %s%s", s->dialog->shellName, text.c_str());
}

void previewTimeout(XtPointer data, XtIntervalId*) {
  DialogState* s = static_cast<DialogState*>(data);
  s->timer = 0;
  updatePreview(s);
}

void schedulePreview(DialogState* s) {
  if (!s->area) return;
  if (s->timer) XtRemoveTimeOut(s->timer);
  s->timer =
      XtAppAddTimeOut(XtWidgetToApplicationContext(s->shell), kPreviewDelayMs, previewTimeout, s);
}

void exposeCB(Widget, XtPointer data, XtPointer) { drawPreview(static_cast<DialogState*>(data)); }

// Makes the reduced copy: at most kPreviewSize a side, by the quick resample,
// which keeps the picture's kind (a colour-mapped picture stays one, so the
// operations see what they will see on the real picture).
void startPreview(DialogState* s, ImageRecord* picture) {
  if (!picture || !picture->pixels || !s->visual || !s->colormap) return;
  int w = picture->width, h = picture->height;
  if (w > kPreviewSize || h > kPreviewSize)
    process::resizedSize(w, h, kPreviewSize, kPreviewSize, true, &w, &h);
  const int failed =
      (w == picture->width && h == picture->height)
          ? process::duplicate(picture, &s->small)
          : process::resizePicture(picture, &s->small, w, h, process::kResampleQuick, false);
  if (failed) {
    std::memset(&s->small, 0, sizeof s->small);
    return;
  }
  initConverter(&s->converter, XtDisplay(s->area), s->colormap, s->visual);
  s->converterReady = true;
  s->gc = XCreateGC(XtDisplay(s->area), XtWindow(s->area), 0, nullptr);
  updatePreview(s);
}

// Callbacks.

void changedCB(Widget, XtPointer data, XtPointer) {
  schedulePreview(static_cast<DialogState*>(data));
}

// A scale whose value is shown mapped (levels, gamma) rewrites its label.
void scaleLabelCB(Widget w, XtPointer data, XtPointer call) {
  DialogState* s = static_cast<DialogState*>(data);
  const int value = static_cast<XmScaleCallbackStruct*>(call)->value;
  size_t n = 0;
  for (const ParamControl& c : s->dialog->controls) {
    if (s->inputs[n] == w && s->valueLabels[n]) {
      XmString text = xmString(params::positionText(c, value));
      XtVaSetValues(s->valueLabels[n], XmNlabelString, text, nullptr);
      XmStringFree(text);
    }
    n += static_cast<size_t>(params::positionCount(c));
  }
  schedulePreview(s);
}

// Radio toggles report both the one switched off and the one switched on;
// only the second is a change.
void radioCB(Widget, XtPointer data, XtPointer call) {
  if (static_cast<XmToggleButtonCallbackStruct*>(call)->set)
    schedulePreview(static_cast<DialogState*>(data));
}

void setNumber(Widget field, int value) {
  XmTextFieldSetString(field, const_cast<char*>(std::to_string(value).c_str()));
}

// Resize with the aspect kept: typing one side sets the other from the
// picture's proportions.
void sizeFieldCB(Widget w, XtPointer data, XtPointer) {
  DialogState* s = static_cast<DialogState*>(data);
  if (s->syncing || s->pictureWidth <= 0 || s->pictureHeight <= 0) return;
  Widget ratio = XtNameToWidget(s->shell, "*toggleSizeRatio");
  Widget width = XtNameToWidget(s->shell, "*textWidth");
  Widget height = XtNameToWidget(s->shell, "*textHeight");
  if (!ratio || !width || !height || !XmToggleButtonGetState(ratio)) return;
  char* text = XmTextFieldGetString(w);
  const long value = std::strtol(text, nullptr, 10);
  XtFree(text);
  if (value <= 0) return;
  s->syncing = true;
  if (w == width)
    setNumber(height,
              std::max(1, static_cast<int>(std::lround(static_cast<double>(value) *
                                                       s->pictureHeight / s->pictureWidth))));
  else
    setNumber(width,
              std::max(1, static_cast<int>(std::lround(static_cast<double>(value) *
                                                       s->pictureWidth / s->pictureHeight))));
  s->syncing = false;
}

void okCB(Widget, XtPointer data, XtPointer) { static_cast<DialogState*>(data)->answer = 1; }
void cancelCB(Widget, XtPointer data, XtPointer) { static_cast<DialogState*>(data)->answer = 2; }
// Closing the window without an answer counts as Cancel.
void popdownCB(Widget, XtPointer data, XtPointer) {
  DialogState* s = static_cast<DialogState*>(data);
  if (s->answer == 0) s->answer = 2;
}

void destroyTimeout(XtPointer data, XtIntervalId*) { XtDestroyWidget(static_cast<Widget>(data)); }

void destroyCB(Widget, XtPointer data, XtPointer) {
  DialogState* s = static_cast<DialogState*>(data);
  if (s->timer) XtRemoveTimeOut(s->timer);
  if (s->shownValid) imkFree(&s->shown);
  if (s->small.pixels) imkFree(&s->small);
  if (s->converterReady) freeConverter(&s->converter);
  if (s->gc) XFreeGC(XtDisplay(s->shell), s->gc);
  delete s;
}

// Building.

Widget labelWidget(Widget parent, const char* name, const std::string& text) {
  XmString s = xmString(text);
  Widget w = XtVaCreateManagedWidget(name, xmLabelWidgetClass, parent, XmNlabelString, s, nullptr);
  XmStringFree(s);
  return w;
}

Widget framed(Widget parent, const ParamControl& c) {
  std::string name = "frame";
  for (const char* l = c.label; *l; ++l)
    if (std::isalnum(static_cast<unsigned char>(*l))) name += *l;
  Widget frame = XtVaCreateManagedWidget(name.c_str(), xmFrameWidgetClass, parent, nullptr);
  XmString title = xmString(c.label);
  XtVaCreateManagedWidget("title", xmLabelWidgetClass, frame, XmNlabelString, title, XmNchildType,
                          XmFRAME_TITLE_CHILD, nullptr);
  XmStringFree(title);
  return frame;
}

void addScale(DialogState* s, Widget parent, const ParamControl& c, int position) {
  const std::string name = params::controlName(c);
  const bool mapped = c.map != params::ValueMap::kSame;
  // A mapped value (levels, gamma) is shown by a label above the slider, in
  // the place of the slider's own number.
  Widget label = nullptr;
  if (mapped) {
    const std::string labelName = "label" + name.substr(std::strlen("scale"));
    XmString text = xmString(params::positionText(c, position));
    label = XtVaCreateManagedWidget(labelName.c_str(), xmLabelWidgetClass, parent, XmNlabelString,
                                    text, XmNalignment, XmALIGNMENT_CENTER, nullptr);
    XmStringFree(text);
  }
  XmString title = xmString(c.label);
  Widget scale = XtVaCreateManagedWidget(
      name.c_str(), xmScaleWidgetClass, parent, XmNorientation, XmHORIZONTAL, XmNminimum, c.min,
      XmNmaximum, c.max, XmNvalue, position, XmNshowValue, mapped ? False : True, XmNtitleString,
      title, XmNscaleWidth, 260, XmNhighlightThickness, 1, nullptr);
  XmStringFree(title);
  if (label) {
    Dimension width = 0;
    XtVaGetValues(scale, XmNwidth, &width, nullptr);
    XtVaSetValues(label, XmNrecomputeSize, False, XmNwidth, width, nullptr);
  }
  // Arrow keys move by one; Page keys by about a tenth of the range.
  XtVaSetValues(scale, XmNscaleMultiple, std::max(1, (c.max - c.min) / 10), nullptr);
  XtCallbackProc changed = mapped ? scaleLabelCB : changedCB;
  XtAddCallback(scale, XmNvalueChangedCallback, changed, s);
  XtAddCallback(scale, XmNdragCallback, changed, s);
  s->inputs.push_back(scale);
  s->valueLabels.push_back(label);
}

void addRadio(DialogState* s, Widget parent, const ParamControl& c, int position) {
  Widget frame = framed(parent, c);
  const std::vector<std::string> labels = params::choiceLabels(c.choices);
  Arg args[3];
  Cardinal n = 0;
  // Six filter sizes sit in two columns of three.
  XtSetArg(args[n], XmNpacking, XmPACK_COLUMN), ++n;
  XtSetArg(args[n], XmNnumColumns, labels.size() > 4 ? 2 : 1), ++n;
  Widget box = XmCreateRadioBox(frame, const_cast<char*>(params::controlName(c).c_str()), args, n);
  for (size_t k = 0; k < labels.size(); ++k) {
    XmString text = xmString(labels[k]);
    Widget t = XtVaCreateManagedWidget(params::choiceName(labels[k]).c_str(),
                                       xmToggleButtonWidgetClass, box, XmNlabelString, text, XmNset,
                                       static_cast<int>(k) == position ? True : False, nullptr);
    XmStringFree(text);
    XtAddCallback(t, XmNvalueChangedCallback, radioCB, s);
  }
  XtManageChild(box);
  s->inputs.push_back(box);
  s->valueLabels.push_back(nullptr);
}

void addOption(DialogState* s, Widget parent, const ParamControl& c, int position) {
  Visual* visual = nullptr;
  Colormap colormap = 0;
  int depth = 0;
  XtVaGetValues(s->shell, XmNvisual, &visual, XmNcolormap, &colormap, XmNdepth, &depth, nullptr);
  Arg args[3];
  Cardinal n = 0;
  if (visual) XtSetArg(args[n], XmNvisual, visual), ++n;
  XtSetArg(args[n], XmNcolormap, colormap), ++n;
  XtSetArg(args[n], XmNdepth, depth), ++n;
  const std::string name = params::controlName(c);
  Widget pulldown =
      XmCreatePulldownMenu(parent, const_cast<char*>((name + "pulldown").c_str()), args, n);
  Widget chosen = nullptr;
  const std::vector<std::string> labels = params::choiceLabels(c.choices);
  for (size_t k = 0; k < labels.size(); ++k) {
    XmString text = xmString(labels[k]);
    Widget b = XtVaCreateManagedWidget(labels[k].c_str(), xmPushButtonWidgetClass, pulldown,
                                       XmNlabelString, text, nullptr);
    XmStringFree(text);
    XtAddCallback(b, XmNactivateCallback, changedCB, s);
    if (static_cast<int>(k) == position) chosen = b;
  }
  XmString title = xmString(c.label);
  n = 0;
  XtSetArg(args[n], XmNsubMenuId, pulldown), ++n;
  XtSetArg(args[n], XmNlabelString, title), ++n;
  if (chosen) XtSetArg(args[n], XmNmenuHistory, chosen), ++n;
  Widget option = XmCreateOptionMenu(parent, const_cast<char*>(name.c_str()), args, n);
  XmStringFree(title);
  XtManageChild(option);
  s->inputs.push_back(option);
  s->valueLabels.push_back(nullptr);
}

Widget addField(DialogState* s, Widget parent, const char* name, int value) {
  Widget field = XtVaCreateManagedWidget(name, xmTextFieldWidgetClass, parent, XmNcolumns, 6,
                                         XmNvalue, std::to_string(value).c_str(), nullptr);
  XtAddCallback(field, XmNvalueChangedCallback, changedCB, s);
  s->inputs.push_back(field);
  s->valueLabels.push_back(nullptr);
  return field;
}

void addText(DialogState* s, Widget parent, const ParamControl& c, int position) {
  const std::string name = params::controlName(c);
  Widget row = XtVaCreateManagedWidget(("row" + name).c_str(), xmRowColumnWidgetClass, parent,
                                       XmNorientation, XmHORIZONTAL, nullptr);
  labelWidget(row, "label", c.label);
  Widget field = addField(s, row, name.c_str(), position);
  if (c.pictureSide) XtAddCallback(field, XmNvalueChangedCallback, sizeFieldCB, s);
}

void addMatrix(DialogState* s, Widget parent, const ParamControl& c, const int* positions) {
  Widget frame = framed(parent, c);
  Widget grid = XtVaCreateManagedWidget(params::controlName(c).c_str(), xmRowColumnWidgetClass,
                                        frame, XmNorientation, XmHORIZONTAL, XmNpacking,
                                        XmPACK_COLUMN, XmNnumColumns, 5, nullptr);
  for (int k = 0; k < 25; ++k) {
    const std::string name = "matrix" + std::to_string(k / 5) + std::to_string(k % 5);
    Widget field = addField(s, grid, name.c_str(), positions[k]);
    XtVaSetValues(field, XmNcolumns, 4, nullptr);
  }
}

void addToggle(DialogState* s, Widget parent, const ParamControl& c, int position) {
  XmString text = xmString(c.label);
  Widget t =
      XtVaCreateManagedWidget(params::controlName(c).c_str(), xmToggleButtonWidgetClass, parent,
                              XmNlabelString, text, XmNset, position ? True : False, nullptr);
  XmStringFree(text);
  s->inputs.push_back(t);
  s->valueLabels.push_back(nullptr);
}

// The dialog: a template message box (OK, Cancel) whose work area is "form",
// holding the controls in "controls" and, on the right, the preview's
// "drawingArea" in "framePreview".
DialogState* createParamDialog(Widget parent, const ParamDialog& dialog, ImageRecord* picture,
                               DisplayVisual* visual, ColormapRecord* colormap) {
  DialogState* s = new DialogState;
  s->dialog = &dialog;
  s->visual = visual;
  s->colormap = colormap;
  if (picture) s->pictureWidth = picture->width, s->pictureHeight = picture->height;

  Widget top = parent;
  while (top && !XtIsShell(top)) top = XtParent(top);
  Visual* xvisual = nullptr;
  Colormap xcolormap = 0;
  int depth = 0;
  XtVaGetValues(top, XmNvisual, &xvisual, XmNcolormap, &xcolormap, XmNdepth, &depth, nullptr);
  Arg args[8];
  Cardinal n = 0;
  if (xvisual) XtSetArg(args[n], XmNvisual, xvisual), ++n;
  XtSetArg(args[n], XmNcolormap, xcolormap), ++n;
  XtSetArg(args[n], XmNdepth, depth), ++n;
  XtSetArg(args[n], XmNtitle, dialog.title), ++n;
  XtSetArg(args[n], XmNdeleteResponse, XmUNMAP), ++n;
  s->shell = XmCreateDialogShell(top, const_cast<char*>(dialog.shellName), args, n);
  XtAddCallback(s->shell, XmNdestroyCallback, destroyCB, s);
  XtAddCallback(s->shell, XmNpopdownCallback, popdownCB, s);

  XmString ok = xmString("OK"), cancel = xmString("Cancel");
  Widget box = XtVaCreateWidget("paramBox", xmMessageBoxWidgetClass, s->shell, XmNdialogType,
                                XmDIALOG_TEMPLATE, XmNokLabelString, ok, XmNcancelLabelString,
                                cancel, XmNdialogStyle, XmDIALOG_FULL_APPLICATION_MODAL,
                                XmNautoUnmanage, True, nullptr);
  XmStringFree(ok);
  XmStringFree(cancel);
  XtAddCallback(box, XmNokCallback, okCB, s);
  XtAddCallback(box, XmNcancelCallback, cancelCB, s);

  Widget form = XtVaCreateManagedWidget("form", xmFormWidgetClass, box, nullptr);
  Widget controls = XtVaCreateManagedWidget(
      "controls", xmRowColumnWidgetClass, form, XmNorientation, XmVERTICAL, XmNisAligned, False,
      XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment, XmATTACH_FORM, XmNbottomAttachment,
      XmATTACH_FORM, nullptr);
  const std::vector<int> positions = params::startPositions(dialog, picture);
  size_t at = 0;
  for (const ParamControl& c : dialog.controls) {
    switch (c.kind) {
      case ControlKind::kScale:
        addScale(s, controls, c, positions[at]);
        break;
      case ControlKind::kRadio:
        addRadio(s, controls, c, positions[at]);
        break;
      case ControlKind::kOption:
        addOption(s, controls, c, positions[at]);
        break;
      case ControlKind::kToggle:
        addToggle(s, controls, c, positions[at]);
        break;
      case ControlKind::kText:
        addText(s, controls, c, positions[at]);
        break;
      case ControlKind::kMatrix:
        addMatrix(s, controls, c, &positions[at]);
        break;
    }
    at += static_cast<size_t>(params::positionCount(c));
  }
  // The setting "ProcessAutoView" turns the live previews off.
  if (dialog.preview && gSettings.processAutoView && picture && picture->pixels) {
    Widget frame = XtVaCreateManagedWidget("framePreview", xmFrameWidgetClass, form,
                                           XmNtopAttachment, XmATTACH_FORM, XmNleftAttachment,
                                           XmATTACH_WIDGET, XmNleftWidget, controls, XmNleftOffset,
                                           8, XmNrightAttachment, XmATTACH_FORM, nullptr);
    s->area = XtVaCreateManagedWidget("drawingArea", xmDrawingAreaWidgetClass, frame, XmNwidth,
                                      kPreviewSize, XmNheight, kPreviewSize, XmNcolormap, xcolormap,
                                      XmNtraversalOn, False, nullptr);
    XtAddCallback(s->area, XmNexposeCallback, exposeCB, s);
  }
  // Tab goes from control to control (the arrows act inside each one).
  for (Widget w : s->inputs) XtVaSetValues(w, XmNnavigationType, XmEXCLUSIVE_TAB_GROUP, nullptr);
  XtManageChild(box);
  // The keyboard starts on the first control, not on the buttons.
  if (!s->inputs.empty()) XmProcessTraversal(s->inputs.front(), XmTRAVERSE_CURRENT);
  if (s->area) startPreview(s, picture);
  return s;
}

}  // namespace

bool RunParamDialog(Widget parent, const ParamDialog& dialog, ImageRecord* picture,
                    DisplayVisual* visual, ColormapRecord* colormap, std::vector<int>* positions) {
  DialogState* s = createParamDialog(parent, dialog, picture, visual, colormap);
  XtAppContext context = XtWidgetToApplicationContext(s->shell);
  TestLog("dialog %s 0x%lx", dialog.shellName, XtWindow(s->shell));
  while (s->answer == 0) XtAppProcessEvent(context, XtIMAll);
  const bool ok = s->answer == 1;
  if (ok) {
    *positions = currentPositions(*s);
    params::rememberPositions(dialog, *positions);
  }
  std::string text;
  if (ok)
    for (int p : *positions) text += " " + std::to_string(p);
  TestLog("dialog %s %s%s", dialog.shellName, ok ? "ok" : "cancel", text.c_str());
  XtRemoveCallback(s->shell, XmNpopdownCallback, popdownCB, s);
  if (s->timer) XtRemoveTimeOut(s->timer), s->timer = 0;
  s->area = nullptr;  // no more drawing while the shell waits to be destroyed
  // Motif still moves the focus after the button's callbacks; the shell goes
  // once that is done.
  XtAppAddTimeOut(context, 0, destroyTimeout, s->shell);
  return ok;
}
