// Process-wide settings that the load and save paths read. The settings file
// reader and writer fill these; the values below are the built-in defaults.
#pragma once

struct Settings {
  // Load group: copied into the options of every load.
  int loadPcdBase = 3;
  int loadGrobBpp = 0;
  bool loadIgnoreError = false;
  int loadWidth = 0;
  int loadHeight = 0;
  int loadOffset = 0;
  int loadChannelOrder = 0;
  int loadChannelType = 1;
  bool loadPreview = true;
};

extern Settings gSettings;
