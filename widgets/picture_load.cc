// The load with progress: the X side around the options-filling load of
// core/picture_io.
#include "widgets/picture_load.h"

#include <X11/Shell.h>
#include <X11/Vendor.h>
#include <Xm/Xm.h>

#include <cstring>
#include <string>

#include "core/app.h"
#include "core/messages.h"
#include "core/picture_io.h"
#include "core/test_log.h"
#include "widgets/message_box.h"
#include "widgets/progress_dialog.h"

namespace {

// Follows a widget that may be destroyed while events are handled during the
// load (its window closed): `widget` turns null then.
struct WidgetWatch {
  Widget widget;
  explicit WidgetWatch(Widget w) : widget(w) {
    if (widget) XtAddCallback(widget, XmNdestroyCallback, goneCB, this);
  }
  ~WidgetWatch() {
    if (widget) XtRemoveCallback(widget, XmNdestroyCallback, goneCB, this);
  }
  WidgetWatch(const WidgetWatch&) = delete;
  WidgetWatch& operator=(const WidgetWatch&) = delete;
  static void goneCB(Widget, XtPointer data, XtPointer) {
    static_cast<WidgetWatch*>(data)->widget = nullptr;
  }
};

}  // namespace

int LoadPictureWithProgress(Widget parent, const char* path, int32_t pictureIndex,
                            ImageRecord* picture, int16_t* formatIndex, int32_t* pictureCount,
                            bool report) {
  const char* slash = std::strrchr(path, '/');
  const std::string text = std::string("Loading ") + (slash ? slash + 1 : path);
  Widget created = CreateProgressDialog(parent, "Loading", text.c_str());
  const bool busy = parent && parent != topLevel;
  if (busy) SetBusyCursor(parent, true);
  Widget outer = SetProgressDialog(created);
  WidgetWatch owner(parent);
  WidgetWatch dialog(created);
  // The dialog is modal, so the window behind it takes no keys or clicks
  // while events are handled during the load; the window manager's close
  // is held off too, so that the window and its state outlive the load.
  Widget ownerShell = parent;
  while (ownerShell && !XtIsShell(ownerShell)) ownerShell = XtParent(ownerShell);
  unsigned char deleteResponse = XmDESTROY;
  const bool holdClose = busy && ownerShell && XtIsSubclass(ownerShell, vendorShellWidgetClass);
  if (holdClose) {
    XtVaGetValues(ownerShell, XmNdeleteResponse, &deleteResponse, nullptr);
    XtVaSetValues(ownerShell, XmNdeleteResponse, XmDO_NOTHING, nullptr);
  }
  char detail[64] = "";
  const int result = LoadPictureWithProgress(path, pictureIndex, picture, formatIndex, pictureCount,
                                             PictureProgress, &detail);
  SetProgressDialog(outer);
  if (Widget d = dialog.widget) {
    XtRemoveCallback(d, XmNdestroyCallback, WidgetWatch::goneCB, &dialog);
    dialog.widget = nullptr;
    CloseProgressDialog(d);
  }
  if (busy && owner.widget) SetBusyCursor(owner.widget, false);
  if (holdClose && owner.widget)
    XtVaSetValues(ownerShell, XmNdeleteResponse, deleteResponse, nullptr);
  if (result != 0) FreePicture(picture);
  TestLog("load %s %d", path, result);
  if (result != 0 && report)
    ReportPictureError(owner.widget, path, result, detail[0] ? detail : nullptr);
  return result;
}

void ReportPictureError(Widget parent, const char* path, int code, const char* detail) {
  if (static_cast<uint16_t>(code) == 15) return;
  ShowMessage(parent, "Error", PictureErrorText(path, code, detail).c_str(), true);
}
