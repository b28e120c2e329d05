// File access for the codecs: whole input files mapped into memory, and output
// files written beside the target and renamed over it only once complete.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "imgkit/internal.h"

namespace imk {

FileData::~FileData() {
  if (mapped_)
    munmap(data_, size_);
  else
    std::free(data_);
}

int FileData::open(const char* path, bool prefault) {
  int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return IMK_ERR_OPEN;
  struct stat st;
  if (fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    ::close(fd);
    return IMK_ERR_OPEN;
  }
  if (S_ISREG(st.st_mode) && st.st_size > 0) {
    size_ = static_cast<size_t>(st.st_size);
    void* p = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | (prefault ? MAP_POPULATE : 0), fd, 0);
    if (p != MAP_FAILED) {
      ::close(fd);
      data_ = static_cast<uint8_t*>(p);
      mapped_ = true;
      return IMK_OK;
    }
    size_ = 0;
  }
  // Pipes, devices, empty files and mappings that failed: read it all.
  size_t cap = 1 << 16;
  data_ = static_cast<uint8_t*>(std::malloc(cap));
  if (!data_) {
    ::close(fd);
    return IMK_ERR_MEMORY;
  }
  for (;;) {
    if (size_ == cap) {
      cap *= 2;
      auto* grown = static_cast<uint8_t*>(std::realloc(data_, cap));
      if (!grown) {
        ::close(fd);
        return IMK_ERR_MEMORY;
      }
      data_ = grown;
    }
    ssize_t n = ::read(fd, data_ + size_, cap - size_);
    if (n < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      return IMK_ERR_READ;
    }
    if (n == 0) break;
    size_ += static_cast<size_t>(n);
  }
  ::close(fd);
  return IMK_OK;
}

AtomicFile::~AtomicFile() {
  if (file_) std::fclose(file_);
  if (!temp_.empty()) ::unlink(temp_.c_str());
}

int AtomicFile::fd() const { return file_ ? fileno(file_) : -1; }

namespace {

// The process's umask. Reading it means setting it (umask(0)) and putting it
// back; two threads doing that at once can leave the umask at 0 for good, so
// it is read once, under the guard of a static's initialisation, and kept.
mode_t processUmask() {
  static const mode_t mask = [] {
    const mode_t m = umask(0);
    umask(m);
    return m;
  }();
  return mask;
}

}  // namespace

bool AtomicFile::open(const char* path) {
  if (!path || !*path) return false;
  // Write beside the file a symbolic link points to, so that the link stays.
  target_ = path;
  char resolved[PATH_MAX];
  struct stat lst;
  if (lstat(path, &lst) == 0 && S_ISLNK(lst.st_mode) && realpath(path, resolved))
    target_ = resolved;
  struct stat st;
  if (stat(target_.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) return false;

  std::string::size_type slash = target_.rfind('/');
  std::string dir = slash == std::string::npos ? std::string() : target_.substr(0, slash + 1);
  std::string base = slash == std::string::npos ? target_ : target_.substr(slash + 1);
  std::string templ = dir + "." + base + ".XXXXXX";
  int fd = mkostemp(templ.data(), O_CLOEXEC);
  if (fd < 0) return false;
  temp_ = templ;
  // mkstemp creates the file private; give it the mode the target has, or the
  // mode a new file would get under the current umask.
  mode_t mode;
  if (stat(target_.c_str(), &st) == 0) {
    mode = st.st_mode & 07777;
  } else {
    mode = 0666 & ~processUmask();
  }
  fchmod(fd, mode);
  file_ = fdopen(fd, "wb");
  if (!file_) {
    ::close(fd);
    return false;
  }
  return true;
}

bool AtomicFile::commit() {
  if (!file_) return false;
  bool ok = std::fflush(file_) == 0 && !std::ferror(file_);
  ok = (std::fclose(file_) == 0) && ok;
  file_ = nullptr;
  if (!ok) return false;
  if (::rename(temp_.c_str(), target_.c_str()) != 0) return false;
  temp_.clear();
  return true;
}

}  // namespace imk
