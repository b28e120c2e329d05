/* Waits until the screen pixel at (x, y) comes within 16 of the colour
 * (r, g, b) on every channel and prints the seconds since the probe started,
 * polling every millisecond; prints "timeout" after 60 seconds.
 *   first_paint_probe X Y R G B */
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static double now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + t.tv_nsec / 1e9;
}

static int near(unsigned long a, int b) { return abs((int)a - b) <= 16; }

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  const double start = now();
  Display* d = XOpenDisplay(NULL);
  if (!d) return 2;
  const int x = atoi(argv[1]), y = atoi(argv[2]);
  const int r = atoi(argv[3]), g = atoi(argv[4]), b = atoi(argv[5]);
  Window root = DefaultRootWindow(d);
  XWindowAttributes wa;
  XGetWindowAttributes(d, root, &wa);
  if (wa.visual->class != TrueColor) return 2;
  struct timespec pause = {0, 1000000};
  while (now() - start < 60) {
    XImage* image = XGetImage(d, root, x, y, 1, 1, AllPlanes, ZPixmap);
    if (image) {
      const unsigned long p = XGetPixel(image, 0, 0);
      XDestroyImage(image);
      if (near((p >> 16) & 0xFF, r) && near((p >> 8) & 0xFF, g) && near(p & 0xFF, b)) {
        printf("%.3f\n", now() - start);
        return 0;
      }
    }
    nanosleep(&pause, NULL);
  }
  printf("timeout\n");
  return 1;
}
