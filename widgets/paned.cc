// The two-pane split: a thin layer over the Motif paned window.
#include "widgets/paned.h"

#include <Xm/Form.h>
#include <Xm/PanedW.h>
#include <Xm/Xm.h>

#include <algorithm>

Widget CreatePanedPair(Widget parent, const char* name, bool sideBySide, int firstSize, int minimum,
                       Widget* first, Widget* second) {
  Widget paned = XtVaCreateWidget(name, xmPanedWindowWidgetClass, parent, XmNorientation,
                                  sideBySide ? XmHORIZONTAL : XmVERTICAL, XmNseparatorOn, True,
                                  XmNsashIndent, -8, nullptr);
  const int lowest = std::max(1, minimum);
  const char* sizeName = sideBySide ? XmNwidth : XmNheight;
  *first = XtVaCreateManagedWidget("pane1", xmFormWidgetClass, paned, XmNpaneMinimum, lowest,
                                   sizeName, std::max(lowest, firstSize), nullptr);
  *second =
      XtVaCreateManagedWidget("pane2", xmFormWidgetClass, paned, XmNpaneMinimum, lowest, nullptr);
  XtManageChild(paned);
  return paned;
}
