// What the file selector shows, without X: which names a filter row lets
// through, the sorted contents of a directory, path arithmetic and the list
// of recent directories.
#pragma once

#include <string>
#include <vector>

#include "core/settings.h"

// Whether `name` passes a filter row's pattern text ("jpg;jpeg;"; "*.jpg" is
// taken as "jpg" too). The extension after the last "." is compared without
// regard to case; an empty pattern lets every name through.
bool MatchesPattern(const std::string& name, const std::string& pattern);

struct DirectoryListing {
  bool readable = false;                 // false: the directory could not be opened
  std::vector<std::string> directories;  // ".." first (except at "/"), then by strcmp
  std::vector<std::string> files;        // those that pass the pattern, by strcmp
};

// Reads `directory`. Names starting with "." other than ".." are hidden
// unless `showHidden`; symbolic links count as what they point to.
DirectoryListing ListDirectory(const std::string& directory, const std::string& pattern,
                               bool showHidden = false);

// `name` inside `directory` ("/" joined once); an absolute name stays as it is.
std::string JoinPath(const std::string& directory, const std::string& name);

// An absolute path with ".", ".." and repeated "/" resolved as text, without
// a trailing "/" (except the root itself). A relative path is taken from
// `base`.
std::string CleanPath(const std::string& path, const std::string& base);

// The part before the last "/" ("/" for a file at the root).
std::string DirectoryOf(const std::string& path);
// The part after the last "/".
std::string BaseName(const std::string& path);

