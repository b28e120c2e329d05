// The program's entry: usage, version check, banner, signals, toolkit
// start, settings, command line and the first windows.
#include "core/startup.h"

#include <X11/Xutil.h>
#include <Xm/Xm.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "core/app.h"
#include "core/settings.h"
#include "core/test_log.h"
#include "display/icons.h"
#include "display/visual.h"
#include "imgkit/imgkit.h"
#include "tools/slide_show.h"
#include "view/view_window.h"
#include "widgets/tool_bar.h"

namespace {

constexpr const char* kBuildDate = "Dec 16 1999";
constexpr const char* kBuildTime = "14:43:45";

// Signal handlers write with write(2): stdio is not safe in a handler.
void say(const char* text) {
  ssize_t ignored = write(STDOUT_FILENO, text, std::strlen(text));
  (void)ignored;
}

void interruptHandler(int) {
  say("****** Interrupt detected ******\n");
  interruptCount = interruptCount + 1;
  if (interruptCount > 2) _exit(1);  // nothing is saved
  char line[] = "****** Hit 0 Ctrl+C for exiting without saving ******\n";
  line[11] = static_cast<char>('0' + (3 - interruptCount));
  say(line);
  signal(SIGINT, interruptHandler);
}

// A fatal signal ends with status 0, as it always has.
void errorHandler(int) {
  say("****** Error detected ******\n");
  _exit(0);
}

void alarmHandler(int) {
  say("****** Alarm signal ******\n");
  _exit(0);
}

void installSignalHandlers() {
  signal(SIGINT, interruptHandler);
  signal(SIGBUS, errorHandler);
  signal(SIGFPE, errorHandler);
  signal(SIGSEGV, errorHandler);
  signal(SIGALRM, alarmHandler);
}

void printUsage(const char* program) {
  PrintBanner();
  std::printf("Usage : %s [options] file ...\n", program);
  std::printf("        Options :\n");
  std::printf("          -visualid <id> : Use this visual number\n");
  std::fflush(stdout);
  listVisuals();
  std::printf("          -own           : Use own colormap (8 bits only)\n");
  std::printf("          -popup         : Use popup menu\n");
  std::printf("          -browser       : Launch the browser\n");
  std::printf("          -slide <file>  : Launch slide show\n");
  std::printf("          -all           : Open a window for each picture\n");
  std::printf("          -full          : Full screen\n");
  std::printf("          -ini <file>    : Ini file\n");
}

// The browser and the about box's link are named by translation tables;
// until those tools exist their actions do nothing.
void pendingAction(Widget, XEvent*, String*, Cardinal*) {}

XtActionsRec kActions[] = {
    {const_cast<char*>("ViewDoCommand"), ViewDoCommand},
    {const_cast<char*>("ViewKeyScroll"), ViewKeyScroll},
    {const_cast<char*>("ViewClose"), ViewClose},
    {const_cast<char*>("BrowserDoCommand"), pendingAction},
    {const_cast<char*>("BrowserDoPopup"), pendingAction},
    {const_cast<char*>("UrlClick"), pendingAction},
    {const_cast<char*>("SlideDoCommand"), SlideDoCommand},
    {const_cast<char*>("DoBubble"), DoBubble},
};

// The 64x64 icon when the window manager accepts that size, else 32x32.
bool windowManagerTakes64() {
  XIconSize* sizes = nullptr;
  int count = 0;
  bool take64 = false;
  if (XGetIconSizes(display, RootWindow(display, screen), &sizes, &count) && sizes) {
    for (int i = 0; i < count && !take64; ++i) {
      const XIconSize& s = sizes[i];
      take64 = s.min_width <= 64 && s.max_width >= 64 && s.min_height <= 64 && s.max_height >= 64;
    }
  }
  if (sizes) XFree(sizes);
  return take64;
}

bool isDirectory(const char* path) {
  struct stat st;
  return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

void PrintBanner() {
  std::printf("** VIMORA v1.12 (%s/%s) **\n", kBuildDate, kBuildTime);
  std::printf("        Version for Lesstif, (c) The Vimora developers, all rights reserved\n");
  std::printf("        Free for private use; it may be copied and given away unchanged\n");
  std::printf("\n");
}

int VimoraMain(int argc, char** argv) {
  if (argc > 1 && (std::strcmp(argv[1], "-help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    printUsage(argv[0]);
    std::exit(0);
  }
  char version[16] = {};
  imkVersion(version);
  if (std::memcmp(version, "2.90", 5) != 0) {
    std::printf("Bad version of libimgkit\n");
    std::exit(0);
  }
  PrintBanner();
  std::printf("     Type %s -help, for more information\n", argv[0]);
  std::fflush(stdout);

  installSignalHandlers();

  std::vector<std::string> resourceLines = FallbackResourceLines();
  std::vector<String> fallback;
  for (std::string& line : resourceLines) fallback.push_back(line.data());
  fallback.push_back(nullptr);

  XtSetLanguageProc(nullptr, nullptr, nullptr);
  topLevel = XtVaAppInitialize(&appContext, "Vimora", nullptr, 0, &argc, argv, fallback.data(),
                               XmNmappedWhenManaged, False, nullptr);
  display = XtDisplay(topLevel);
  screen = DefaultScreen(display);
  XtRealizeWidget(topLevel);
  XtVaSetValues(topLevel, XmNx, 0, XmNy, 0, XmNwidth, DisplayWidth(display, screen), XmNheight,
                DisplayHeight(display, screen), nullptr);

  if (!getcwd(startDirectory, sizeof startDirectory)) startDirectory[0] = '\0';

  settingsPath = IniPathFromArguments(argc, argv);
  if (settingsPath.empty()) settingsPath = DefaultSettingsPath();
  ReadSettings(settingsPath);

  visualId = -1;
  ownColormap = false;
  useMenuBar = true;
  fullScreen = false;

  XtAppAddActions(appContext, kActions, XtNumber(kActions));

  appIconImage = windowManagerTakes64() ? &appIcon64() : &appIcon32();

  Widget first = nullptr;  // the first view or browser window opened
  CommandLine line;
  // The browser asked for by an option or the settings opens once, below,
  // after the files.
  if (argc <= 1) {
    if (!gSettings.startLaunchBrowserAtStartup) OpenStartWindow();
  } else {
    line = ParseCommandLine(argc, argv);
    visualId = line.visualId;
    ownColormap = line.own;
    if (line.popup) useMenuBar = false;
    fullScreen = line.full;
    if (gSettings.startLaunchBrowserAtStartup && line.slideFile.empty()) line.browser = true;
    if (gSettings.viewUsePopupInView) useMenuBar = false;
    TestLog("options visualid=%d own=%d popup=%d browser=%d all=%d full=%d slide=%s files=%d",
            line.visualId, line.own, line.popup, line.browser, line.all, line.full,
            line.slideFile.c_str(), argc - line.firstFile);

    if (line.firstFile >= argc) {
      if (!line.browser) OpenStartWindow();
    } else {
      std::vector<std::string> files;
      bool browserOpened = false;
      for (int i = line.firstFile; i < argc; ++i) {
        char resolved[PATH_MAX];
        const char* path = realpath(argv[i], resolved) ? resolved : argv[i];
        if (isDirectory(path)) {
          browserDirectory = path;
          OpenBrowser(nullptr, path);
          browserOpened = BrowserWindow() != nullptr;
        } else if (line.all) {
          Widget view = CreateViewWindow(path, -1);
          if (!first) first = view;
        } else {
          files.push_back(path);
        }
      }
      if (!line.all && !files.empty()) first = CreateListViewWindow(files);
      if (!AnyViewOpen() && !browserOpened) OpenStartWindow();
    }
  }

  if (!line.slideFile.empty()) {
    StartSlideShow(nullptr, line.slideFile.c_str());
  } else if (line.browser || gSettings.startLaunchBrowserAtStartup) {
    OpenBrowser(nullptr, browserDirectory.empty() ? nullptr : browserDirectory.c_str());
    if (!first) first = BrowserWindow();
  }
  if (gSettings.viewUsePopupInView) useMenuBar = false;

  if (first && XtIsRealized(first)) XSetCommand(display, XtWindow(first), argv, argc);
  XtAppMainLoop(appContext);
  return 0;
}
