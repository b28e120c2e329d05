#include "widgets/file_list.h"

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

bool MatchesPattern(const std::string& name, const std::string& pattern) {
  if (pattern.empty()) return true;
  const size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot + 1 == name.size()) return false;
  const std::string extension = name.substr(dot + 1);
  size_t start = 0;
  while (start < pattern.size()) {
    size_t end = pattern.find(';', start);
    if (end == std::string::npos) end = pattern.size();
    std::string entry = pattern.substr(start, end - start);
    if (entry.rfind("*.", 0) == 0) entry.erase(0, 2);
    if (!entry.empty() && strcasecmp(entry.c_str(), extension.c_str()) == 0) return true;
    start = end + 1;
  }
  return false;
}

DirectoryListing ListDirectory(const std::string& directory, const std::string& pattern,
                               bool showHidden) {
  DirectoryListing listing;
  DIR* dir = opendir(directory.c_str());
  if (!dir) return listing;
  listing.readable = true;
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (name[0] == '.' && !showHidden) continue;
    struct stat st;
    if (stat(JoinPath(directory, name).c_str(), &st) != 0) continue;  // dangling link
    if (S_ISDIR(st.st_mode))
      listing.directories.push_back(name);
    else if (MatchesPattern(name, pattern))
      listing.files.push_back(name);
  }
  closedir(dir);
  std::sort(listing.directories.begin(), listing.directories.end());
  std::sort(listing.files.begin(), listing.files.end());
  if (directory != "/") listing.directories.insert(listing.directories.begin(), "..");
  return listing;
}

std::string JoinPath(const std::string& directory, const std::string& name) {
  if (!name.empty() && name[0] == '/') return name;
  if (directory.empty()) return name;
  if (directory.back() == '/') return directory + name;
  return directory + "/" + name;
}

std::string CleanPath(const std::string& path, const std::string& base) {
  const std::string full = (!path.empty() && path[0] == '/') ? path : JoinPath(base, path);
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= full.size()) {
    size_t end = full.find('/', start);
    if (end == std::string::npos) end = full.size();
    const std::string part = full.substr(start, end - start);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    start = end + 1;
  }
  std::string result;
  for (const std::string& part : parts) result += "/" + part;
  return result.empty() ? "/" : result;
}

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string BaseName(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}
