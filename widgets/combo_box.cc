// MyComboBox, written as a subclass of XmForm: the form lays out the text
// field and the arrow button; the drop list lives in an override shell that
// is a popup child of the combo box, made the first time it is needed.
#include "widgets/combo_box.h"

#include <X11/IntrinsicP.h>
#include <X11/Shell.h>
#include <Xm/ArrowB.h>
#include <Xm/FormP.h>
#include <Xm/List.h>
#include <Xm/TextF.h>
#include <Xm/XmP.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "widgets/widget_class.h"

namespace {

struct MyComboBoxPart {
  // Resources.
  Pixel arrowColor;
  XmFontList fontList;
  Boolean editable;
  int visibleItemCount;
  XtCallbackList selectionCallback;
  // Private state.
  Widget text;
  Widget arrow;
  Widget dropShell;  // null until the list is first dropped
  Widget list;
  std::vector<std::string>* items;
  int selected;  // -1: the text is no item
  bool dropped;
};

struct MyComboBoxRec {
  CorePart core;
  CompositePart composite;
  ConstraintPart constraint;
  XmManagerPart manager;
  XmBulletinBoardPart bulletin_board;
  XmFormPart form;
  MyComboBoxPart combo;
};
using MyComboBoxWidget = MyComboBoxRec*;

struct MyComboBoxClassPart {
  XtPointer extension;
};

struct MyComboBoxClassRec {
  CoreClassPart core_class;
  CompositeClassPart composite_class;
  ConstraintClassPart constraint_class;
  XmManagerClassPart manager_class;
  XmBulletinBoardClassPart bulletin_board_class;
  XmFormClassPart form_class;
  MyComboBoxClassPart combo_class;
};

char* S(const char* text) { return const_cast<char*>(text); }

#define OFFSET(field) XtOffsetOf(MyComboBoxRec, combo.field)
XtResource resources[] = {
    {S(MyNarrowColor), S(MyCArrowColor), S(XmRPixel), sizeof(Pixel), OFFSET(arrowColor),
     S(XmRString), S("XtDefaultForeground")},
    {S(XmNfontList), S(XmCFontList), S(XmRFontList), sizeof(XmFontList), OFFSET(fontList),
     S(XmRImmediate), nullptr},
    {S(XmNeditable), S(XmCEditable), S(XmRBoolean), sizeof(Boolean), OFFSET(editable),
     S(XmRImmediate), reinterpret_cast<XtPointer>(True)},
    {S(XmNvisibleItemCount), S(XmCVisibleItemCount), S(XmRInt), sizeof(int),
     OFFSET(visibleItemCount), S(XmRImmediate), reinterpret_cast<XtPointer>(8)},
    {S(XmNselectionCallback), S(XmCCallback), S(XmRCallback), sizeof(XtCallbackList),
     OFFSET(selectionCallback), S(XmRImmediate), nullptr},
};
#undef OFFSET

MyComboBoxWidget asCombo(Widget w) { return reinterpret_cast<MyComboBoxWidget>(w); }
MyComboBoxPart& part(Widget w) { return asCombo(w)->combo; }

// The combo box a child, the drop shell or anything inside it belongs to.
Widget comboOf(Widget w) {
  while (w && !XtIsSubclass(w, myComboBoxWidgetClass)) w = XtParent(w);
  return w;
}

void notify(Widget combo, int reason, XEvent* event) {
  MyComboBoxPart& c = part(combo);
  char* value = XmTextFieldGetString(c.text);
  MyComboBoxCallbackStruct data{reason, event, c.selected, value};
  XtCallCallbackList(combo, c.selectionCallback, &data);
  XtFree(value);
}

void setText(Widget combo, const char* text) {
  MyComboBoxPart& c = part(combo);
  XmTextFieldSetString(c.text, const_cast<char*>(text));
  XmTextFieldSetInsertionPosition(c.text, static_cast<XmTextPosition>(std::strlen(text)));
}

void selectItem(Widget combo, int position, bool callback, XEvent* event) {
  MyComboBoxPart& c = part(combo);
  if (position < 0 || position >= static_cast<int>(c.items->size())) return;
  c.selected = position;
  setText(combo, (*c.items)[static_cast<size_t>(position)].c_str());
  if (callback) notify(combo, XmCR_SINGLE_SELECT, event);
}

// The drop list.

void closeList(Widget combo) {
  MyComboBoxPart& c = part(combo);
  if (!c.dropped) return;
  c.dropped = false;
  XtUngrabPointer(c.dropShell, CurrentTime);
  XtPopdown(c.dropShell);
  // The keyboard goes back to the window holding the combo box.
  Widget shell = combo;
  while (!XtIsShell(shell)) shell = XtParent(shell);
  if (XtIsRealized(shell) && c.dropShell && XtIsRealized(c.dropShell)) {
    XWindowAttributes attributes;
    if (XGetWindowAttributes(XtDisplay(shell), XtWindow(shell), &attributes) &&
        attributes.map_state == IsViewable)
      XSetInputFocus(XtDisplay(shell), XtWindow(shell), RevertToParent, CurrentTime);
  }
  XmProcessTraversal(c.text, XmTRAVERSE_CURRENT);
}

void chooseFromList(Widget combo, XEvent* event) {
  MyComboBoxPart& c = part(combo);
  int* positions = nullptr;
  int count = 0;
  const bool any = XmListGetSelectedPos(c.list, &positions, &count) && count > 0;
  const int position = any ? positions[0] - 1 : -1;
  XtFree(reinterpret_cast<char*>(positions));
  closeList(combo);
  if (position >= 0) selectItem(combo, position, true, event);
}

void listClickCB(Widget w, XtPointer, XtPointer data) {
  const auto* cb = static_cast<XmListCallbackStruct*>(data);
  // Keys move through the list; only a click chooses.
  if (cb->event && (cb->event->type == ButtonPress || cb->event->type == ButtonRelease))
    chooseFromList(comboOf(w), cb->event);
}

// While the list is down the pointer is grabbed: a press outside it closes it.
void dropShellPressHandler(Widget shell, XtPointer, XEvent* event, Boolean*) {
  if (event->type != ButtonPress || event->xbutton.window != XtWindow(shell)) return;
  Dimension w = 0, h = 0;
  XtVaGetValues(shell, XmNwidth, &w, XmNheight, &h, nullptr);
  const int x = event->xbutton.x, y = event->xbutton.y;
  if (x < 0 || y < 0 || x >= w || y >= h) closeList(comboOf(shell));
}

// Once the list is on the screen it takes the keyboard and the pointer.
void dropShellMapHandler(Widget shell, XtPointer, XEvent* event, Boolean*) {
  if (event->type != MapNotify) return;
  Widget combo = comboOf(shell);
  if (!part(combo).dropped) return;
  XSetInputFocus(XtDisplay(shell), XtWindow(shell), RevertToParent, CurrentTime);
  XmProcessTraversal(part(combo).list, XmTRAVERSE_CURRENT);
  XtGrabPointer(shell, True, ButtonPressMask | ButtonReleaseMask, GrabModeAsync, GrabModeAsync,
                None, None, CurrentTime);
}

const char kListTranslations[] =
    "<Key>osfCancel: MyComboBoxClose()\n"
    "~Shift ~Ctrl ~Meta ~Alt<Key>osfUp: MyComboBoxListStep(-1)\n"
    "~Shift ~Ctrl ~Meta ~Alt<Key>osfDown: MyComboBoxListStep(1)\n"
    "~Shift ~Ctrl ~Meta ~Alt<Key>Return: MyComboBoxChoose()\n"
    "<Key>osfActivate: MyComboBoxChoose()\n";

void makeDropShell(Widget combo) {
  MyComboBoxPart& c = part(combo);
  Widget shell = combo;
  while (!XtIsShell(shell)) shell = XtParent(shell);
  Visual* visual = nullptr;
  Colormap colormap = 0;
  int depth = 0;
  XtVaGetValues(shell, XmNvisual, &visual, XmNcolormap, &colormap, XmNdepth, &depth, nullptr);
  Arg args[4];
  Cardinal n = 0;
  if (visual) XtSetArg(args[n], XmNvisual, visual), ++n;
  XtSetArg(args[n], XmNcolormap, colormap), ++n;
  XtSetArg(args[n], XmNdepth, depth), ++n;
  c.dropShell = XtCreatePopupShell("dropShell", overrideShellWidgetClass, combo, args, n);
  n = 0;
  Arg listArgs[5];
  XtSetArg(listArgs[n], XmNselectionPolicy, XmBROWSE_SELECT), ++n;
  XtSetArg(listArgs[n], XmNlistSizePolicy, XmCONSTANT), ++n;
  XtSetArg(listArgs[n], XmNscrollBarDisplayPolicy, XmAS_NEEDED), ++n;
  if (c.fontList) XtSetArg(listArgs[n], XmNfontList, c.fontList), ++n;
  c.list = XmCreateScrolledList(c.dropShell, S("list"), listArgs, n);
  XtAddCallback(c.list, XmNbrowseSelectionCallback, listClickCB, nullptr);
  XtOverrideTranslations(c.list, XtParseTranslationTable(kListTranslations));
  XtManageChild(c.list);
  XtAddEventHandler(c.dropShell, StructureNotifyMask, False, dropShellMapHandler, nullptr);
  XtAddEventHandler(c.dropShell, ButtonPressMask, False, dropShellPressHandler, nullptr);
}

void dropList(Widget combo) {
  MyComboBoxPart& c = part(combo);
  if (c.dropped || c.items->empty() || !XtIsRealized(combo)) return;
  if (!c.dropShell) makeDropShell(combo);
  XmListDeleteAllItems(c.list);
  for (const std::string& item : *c.items) {
    XmString s = XmStringCreateLocalized(const_cast<char*>(item.c_str()));
    XmListAddItemUnselected(c.list, s, 0);
    XmStringFree(s);
  }
  const int rows = std::min(static_cast<int>(c.items->size()), std::max(1, c.visibleItemCount));
  XtVaSetValues(c.list, XmNvisibleItemCount, rows, nullptr);
  if (c.selected >= 0) {
    XmListSelectPos(c.list, c.selected + 1, False);
    XmListSetKbdItemPos(c.list, c.selected + 1);
    if (c.selected + 1 > rows) XmListSetBottomPos(c.list, c.selected + 1);
  }
  Position x = 0, y = 0;
  Dimension width = 0, height = 0;
  XtVaGetValues(combo, XmNwidth, &width, XmNheight, &height, nullptr);
  XtTranslateCoords(combo, 0, static_cast<Position>(height), &x, &y);
  XtVaSetValues(c.dropShell, XmNx, x, XmNy, y, XmNwidth, width, nullptr);
  c.dropped = true;
  XtPopup(c.dropShell, XtGrabExclusive);
}

// Actions named in the translations of the text field and the list.

void stepAction(Widget w, XEvent* event, String* params, Cardinal* count) {
  Widget combo = comboOf(w);
  if (!combo || *count != 1) return;
  MyComboBoxPart& c = part(combo);
  const int size = static_cast<int>(c.items->size());
  if (size == 0) return;
  const int step = std::atoi(params[0]);
  int position = c.selected < 0 ? (step > 0 ? 0 : size - 1) : c.selected + step;
  position = std::clamp(position, 0, size - 1);
  if (position != c.selected) selectItem(combo, position, true, event);
}

// Up and Down in the dropped list move its selection (no choice yet).
void listStepAction(Widget w, XEvent*, String* params, Cardinal* count) {
  Widget combo = comboOf(w);
  if (!combo || *count != 1 || !part(combo).list) return;
  Widget list = part(combo).list;
  int* positions = nullptr;
  int selected = 0, items = 0;
  int position =
      XmListGetSelectedPos(list, &positions, &selected) && selected > 0 ? positions[0] : 0;
  XtFree(reinterpret_cast<char*>(positions));
  XtVaGetValues(list, XmNitemCount, &items, nullptr);
  position = std::clamp(position + std::atoi(params[0]), 1, std::max(1, items));
  XmListSelectPos(list, position, False);
  XmListSetKbdItemPos(list, position);
  int top = 0, visible = 0;
  XtVaGetValues(list, XmNtopItemPosition, &top, XmNvisibleItemCount, &visible, nullptr);
  if (position < top) XmListSetPos(list, position);
  if (position >= top + visible) XmListSetBottomPos(list, position);
}

void dropAction(Widget w, XEvent*, String*, Cardinal*) {
  if (Widget combo = comboOf(w)) dropList(combo);
}

void closeAction(Widget w, XEvent*, String*, Cardinal*) {
  if (Widget combo = comboOf(w)) closeList(combo);
}

void chooseAction(Widget w, XEvent* event, String*, Cardinal*) {
  if (Widget combo = comboOf(w)) chooseFromList(combo, event);
}

XtActionsRec actions[] = {
    {S("MyComboBoxStep"), stepAction},         {S("MyComboBoxDrop"), dropAction},
    {S("MyComboBoxListStep"), listStepAction}, {S("MyComboBoxClose"), closeAction},
    {S("MyComboBoxChoose"), chooseAction},
};

// Actions are registered per application context (tests make several).
void registerActions(XtAppContext app) {
  static std::vector<XtAppContext> done;
  if (std::find(done.begin(), done.end(), app) != done.end()) return;
  XtAppAddActions(app, actions, XtNumber(actions));
  done.push_back(app);
}

const char kTextTranslations[] =
    "~Shift ~Ctrl ~Meta ~Alt<Key>osfUp: MyComboBoxStep(-1)\n"
    "~Shift ~Ctrl ~Meta ~Alt<Key>osfDown: MyComboBoxStep(1)\n"
    "Alt<Key>osfDown: MyComboBoxDrop()\n"
    "Meta<Key>osfDown: MyComboBoxDrop()\n";

void arrowCB(Widget w, XtPointer, XtPointer) {
  Widget combo = comboOf(w);
  if (part(combo).dropped)
    closeList(combo);
  else
    dropList(combo);
}

void activateCB(Widget w, XtPointer, XtPointer data) {
  Widget combo = comboOf(w);
  MyComboBoxPart& c = part(combo);
  char* value = XmTextFieldGetString(c.text);
  const auto found = std::find(c.items->begin(), c.items->end(), value);
  c.selected = found == c.items->end() ? -1 : static_cast<int>(found - c.items->begin());
  XtFree(value);
  notify(combo, XmCR_ACTIVATE, static_cast<XmAnyCallbackStruct*>(data)->event);
}

// A non-editable combo box drops its list when its text is clicked.
void textPressHandler(Widget w, XtPointer, XEvent* event, Boolean*) {
  Widget combo = comboOf(w);
  if (event->type == ButtonPress && event->xbutton.button == Button1 && !part(combo).editable)
    dropList(combo);
}

void applyLook(Widget combo) {
  MyComboBoxPart& c = part(combo);
  XtVaSetValues(c.text, XmNeditable, c.editable, XmNcursorPositionVisible, c.editable, nullptr);
  XtVaSetValues(c.arrow, XmNforeground, c.arrowColor, nullptr);
  if (c.fontList) {
    XtVaSetValues(c.text, XmNfontList, c.fontList, nullptr);
    if (c.list) XtVaSetValues(c.list, XmNfontList, c.fontList, nullptr);
  }
}

// Class methods.

void Initialize(Widget, Widget w, ArgList, Cardinal*) {
  registerActions(XtWidgetToApplicationContext(w));
  MyComboBoxWidget cw = asCombo(w);
  cw->bulletin_board.margin_width = 0;
  cw->bulletin_board.margin_height = 0;
  cw->manager.shadow_thickness = 0;
  MyComboBoxPart& c = cw->combo;
  c.items = new std::vector<std::string>;
  c.selected = -1;
  c.dropped = false;
  c.dropShell = nullptr;
  c.list = nullptr;
  c.arrow = XtVaCreateManagedWidget(
      "arrow", xmArrowButtonWidgetClass, w, XmNarrowDirection, XmARROW_DOWN, XmNtraversalOn, False,
      XmNwidth, 20, XmNshadowThickness, 1, XmNtopAttachment, XmATTACH_FORM, XmNbottomAttachment,
      XmATTACH_FORM, XmNrightAttachment, XmATTACH_FORM, nullptr);
  c.text = XtVaCreateManagedWidget("text", xmTextFieldWidgetClass, w, XmNtopAttachment,
                                   XmATTACH_FORM, XmNbottomAttachment, XmATTACH_FORM,
                                   XmNleftAttachment, XmATTACH_FORM, XmNrightAttachment,
                                   XmATTACH_WIDGET, XmNrightWidget, c.arrow, nullptr);
  XtOverrideTranslations(c.text, XtParseTranslationTable(kTextTranslations));
  XtAddCallback(c.arrow, XmNactivateCallback, arrowCB, nullptr);
  XtAddCallback(c.text, XmNactivateCallback, activateCB, nullptr);
  XtAddEventHandler(c.text, ButtonPressMask, False, textPressHandler, nullptr);
  applyLook(w);
}

void Destroy(Widget w) {
  delete part(w).items;
  part(w).items = nullptr;
}

Boolean SetValues(Widget old, Widget, Widget w, ArgList, Cardinal*) {
  const MyComboBoxPart &before = part(old), &now = part(w);
  if (before.editable != now.editable || before.arrowColor != now.arrowColor ||
      before.fontList != now.fontList)
    applyLook(w);
  return False;
}

// Return in the text field accepts the combo box's text only; it does not
// reach the default button of the dialog around it. Escape still does.
Boolean ParentProcess(Widget w, XmParentProcessData data) {
  if (data->any.process_type == XmINPUT_ACTION && data->input_action.action == XmPARENT_ACTIVATE)
    return True;
  return xmFormClassRec.manager_class.parent_process(w, data);
}

MyComboBoxClassRec myComboBoxClassRec = {
    {
        // core
        reinterpret_cast<WidgetClass>(&xmFormClassRec),  // superclass
        S("MyComboBox"),                                 // class_name
        sizeof(MyComboBoxRec),                           // widget_size
        nullptr,                                         // class_initialize
        nullptr,                                         // class_part_initialize
        False,                                           // class_inited
        Initialize,                                      // initialize
        nullptr,                                         // initialize_hook
        XtInheritRealize,                                // realize
        nullptr,                                         // actions
        0,                                               // num_actions
        resources,                                       // resources
        XtNumber(resources),                             // num_resources
        NULLQUARK,                                       // xrm_class
        True,                                            // compress_motion
        XtExposeCompressMaximal,                         // compress_exposure
        True,                                            // compress_enterleave
        False,                                           // visible_interest
        Destroy,                                         // destroy
        XtInheritResize,                                 // resize
        XtInheritExpose,                                 // expose
        SetValues,                                       // set_values
        nullptr,                                         // set_values_hook
        XtInheritSetValuesAlmost,                        // set_values_almost
        nullptr,                                         // get_values_hook
        nullptr,                                         // accept_focus
        XtVersion,                                       // version
        nullptr,                                         // callback_private
        XtInheritTranslations,                           // tm_table
        XtInheritQueryGeometry,                          // query_geometry
        nullptr,                                         // display_accelerator
        nullptr,                                         // extension
    },
    {
        // composite
        XtInheritGeometryManager,
        XtInheritChangeManaged,
        XtInheritInsertChild,
        XtInheritDeleteChild,
        nullptr,
    },
    {
        // constraint: the form's own constraints
        nullptr,
        0,
        sizeof(XmFormConstraintRec),
        nullptr,
        nullptr,
        nullptr,
        nullptr,
    },
    {
        // manager
        XtInheritTranslations,
        nullptr,
        0,
        nullptr,
        0,
        ParentProcess,
        nullptr,
    },
    {
        // bulletin board
        False,
        XmInheritGeoMatrixCreate,
        XmInheritFocusMovedProc,
        nullptr,
    },
    {nullptr},  // form
    {nullptr},  // combo box
};

bool check(Widget w, const char* function) {
  return MyCheckClass(w, myComboBoxWidgetClass, function);
}

}  // namespace

WidgetClass myComboBoxWidgetClass = reinterpret_cast<WidgetClass>(&myComboBoxClassRec);

Widget MyComboBoxCreate(Widget parent, const char* name, ArgList args, Cardinal count) {
  return XtCreateWidget(name, myComboBoxWidgetClass, parent, args, count);
}

void MyComboBoxAddItem(Widget combo, const char* text, int position) {
  if (!check(combo, "MyComboBoxAddItem")) return;
  MyComboBoxPart& c = part(combo);
  const int size = static_cast<int>(c.items->size());
  if (position < 0 || position > size) position = size;
  c.items->insert(c.items->begin() + position, text ? text : "");
  if (c.selected >= position) ++c.selected;
}

void MyComboBoxDeleteAllItems(Widget combo) {
  if (!check(combo, "MyComboBoxDeleteAllItems")) return;
  closeList(combo);
  part(combo).items->clear();
  part(combo).selected = -1;
}

int MyComboBoxGetItemCount(Widget combo) {
  if (!check(combo, "MyComboBoxGetItemCount")) return 0;
  return static_cast<int>(part(combo).items->size());
}

std::string MyComboBoxGetItem(Widget combo, int position) {
  if (!check(combo, "MyComboBoxGetItem")) return "";
  const auto& items = *part(combo).items;
  if (position < 0 || position >= static_cast<int>(items.size())) return "";
  return items[static_cast<size_t>(position)];
}

void MyComboBoxSelectPos(Widget combo, int position, bool callback) {
  if (!check(combo, "MyComboBoxSelectPos")) return;
  selectItem(combo, position, callback, nullptr);
}

int MyComboBoxGetSelectedPos(Widget combo) {
  if (!check(combo, "MyComboBoxGetSelectedPos")) return -1;
  return part(combo).selected;
}

void MyComboBoxSetText(Widget combo, const char* text) {
  if (!check(combo, "MyComboBoxSetText")) return;
  MyComboBoxPart& c = part(combo);
  const char* value = text ? text : "";
  const auto found = std::find(c.items->begin(), c.items->end(), value);
  c.selected = found == c.items->end() ? -1 : static_cast<int>(found - c.items->begin());
  setText(combo, value);
}

std::string MyComboBoxGetText(Widget combo) {
  if (!check(combo, "MyComboBoxGetText")) return "";
  char* value = XmTextFieldGetString(part(combo).text);
  std::string text = value ? value : "";
  XtFree(value);
  return text;
}

void MyComboBoxShowList(Widget combo, bool show) {
  if (!check(combo, "MyComboBoxShowList")) return;
  if (show)
    dropList(combo);
  else
    closeList(combo);
}

bool MyComboBoxListShown(Widget combo) {
  if (!check(combo, "MyComboBoxListShown")) return false;
  return part(combo).dropped;
}

Widget MyComboBoxGetTextField(Widget combo) {
  if (!check(combo, "MyComboBoxGetTextField")) return nullptr;
  return part(combo).text;
}
