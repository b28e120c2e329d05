// imkinfo: describes picture files through libimgkit, as the viewer's file
// properties would. With no arguments it describes the bundled samples.
#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "imgkit/imgkit.h"

static const char* kindName(const ImageRecord& r) {
  switch (r.type) {
    case IMK_BINARY: return "binary";
    case IMK_GREY: return "grey";
    case IMK_MAPPED: return "colour-mapped";
    default: return "true colour";
  }
}

static int describe(const char* path) {
  FileInfo info;
  if (imkFileInformation(path, -1, 0, &info) != 0) {
    std::printf("%s: not a picture this library knows\n", path);
    return 1;
  }
  std::printf("%s\n  format %s, %d x %d, %d plane(s) of %d bit(s), %d picture(s)\n", path,
              info.formatName, info.width, info.height, info.planes, info.bitsPerPlane,
              info.pictureCount);
  for (int i = 0; i < info.pictureCount && i < 8; ++i) {
    LoadOptions options;
    imkDefaultOption(&options);
    options.pictureIndex = i;
    ImageRecord pic;
    std::memset(&pic, 0, sizeof pic);
    FileInfo loaded;
    int rc = imkLoad(path, &pic, &options, &loaded);
    if (rc != 0) {
      std::printf("  picture %d: error %d %s\n", i, rc, loaded.errorText);
      continue;
    }
    std::printf("  picture %d: %d x %d %s", i, pic.width, pic.height, kindName(pic));
    if (pic.type == IMK_GREY || pic.type == IMK_MAPPED) std::printf(", %d entries", pic.colorCount);
    std::printf("\n");
    imkFree(&pic);
  }
  return 0;
}

int main(int argc, char** argv) {
  char version[16];
  imkVersion(version);
  std::printf("libimgkit %s, %d formats\n", version, imkCount());
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) files.emplace_back(argv[i]);
  if (files.empty()) {
    const char* dir = VIMORA_SAMPLES_DIR;
    if (DIR* d = opendir(dir)) {
      while (dirent* e = readdir(d)) {
        std::string name = e->d_name;
        if (name[0] == '.' || name.size() < 5) continue;
        FileInfo probe;
        std::string path = std::string(dir) + "/" + name;
        if (imkFileInformation(path.c_str(), -1, 0, &probe) == 0) files.push_back(path);
      }
      closedir(d);
    }
    std::sort(files.begin(), files.end());
  }
  int failures = 0;
  for (const auto& f : files) failures += describe(f.c_str());
  return failures ? 1 : 0;
}
