// Loads picture files through libimgkit, as the viewer does, and prints the
// best wall time of several runs. With --reduce WxH the load is a reduced
// (preview) load. bench/run.sh times it side by side with peer tools.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "imgkit/imgkit.h"

int main(int argc, char** argv) {
  int fitW = 0, fitH = 0, repeat = 1;
  int first = 1;
  for (; first < argc && argv[first][0] == '-'; ++first) {
    if (!std::strcmp(argv[first], "--reduce") && first + 1 < argc) {
      if (std::sscanf(argv[++first], "%dx%d", &fitW, &fitH) != 2) return 2;
    } else if (!std::strcmp(argv[first], "--repeat") && first + 1 < argc) {
      repeat = std::atoi(argv[++first]);
    } else {
      std::fprintf(stderr, "usage: bench_load [--reduce WxH] [--repeat N] file...\n");
      return 2;
    }
  }
  for (int i = first; i < argc; ++i) {
    double best = 1e9;
    int w = 0, h = 0;
    for (int r = 0; r < repeat; ++r) {
      LoadOptions o;
      imkDefaultOption(&o);
      if (fitW > 0) {
        o.flags |= IMK_FLAG_REDUCE;
        o.fitWidth = fitW;
        o.fitHeight = fitH;
      }
      ImageRecord pic{};
      const auto t0 = std::chrono::steady_clock::now();
      const int rc = imkLoad(argv[i], &pic, &o, nullptr);
      const auto t1 = std::chrono::steady_clock::now();
      if (rc != 0) {
        std::fprintf(stderr, "%s: error %d\n", argv[i], rc);
        return 1;
      }
      w = pic.width, h = pic.height;
      imkFree(&pic);
      best = std::min(best, std::chrono::duration<double>(t1 - t0).count());
    }
    if (repeat > 1) std::printf("%s %dx%d %.4f s\n", argv[i], w, h, best);
  }
  return 0;
}
