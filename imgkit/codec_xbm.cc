// X bitmaps: C source text holding a one-bit picture.
//
//   #define name_width 16
//   #define name_height 2
//   #define name_x_hot 0          (optional hot spot, ignored)
//   static char name_bits[] = { 0x01, 0x80, ... };
//
// The X11 form stores bytes (`char` arrays), the older X10 form 16-bit words
// (`short` arrays). Rows are padded to whole bytes / words, bits are stored
// least significant first, and a set bit is the foreground: black. Comments
// and any layout of whitespace are accepted. Writing uses the X11 form.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

// A bounded scanner over the text: never looks outside [data, data + size).
struct Scanner {
  const char* p;
  const char* end;

  bool atEnd() const { return p >= end; }
  size_t remaining() const { return static_cast<size_t>(end - p); }
  bool startsWith(std::string_view s) const {
    return remaining() >= s.size() && std::string_view(p, s.size()) == s;
  }
  // Skips whitespace and C / C++ comments.
  void skipSpace() {
    while (p < end) {
      if (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r' || *p == '\f' || *p == '\v') {
        ++p;
      } else if (startsWith("/*")) {
        p += 2;
        while (p < end && !startsWith("*/")) ++p;
        p = p < end ? p + 2 : end;
      } else if (startsWith("//")) {
        while (p < end && *p != '\n') ++p;
      } else {
        break;
      }
    }
  }
  static bool identChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  }
  // The identifier (or number) at the cursor; empty when there is none.
  std::string_view word() {
    skipSpace();
    const char* start = p;
    while (p < end && identChar(*p)) ++p;
    return std::string_view(start, static_cast<size_t>(p - start));
  }
};

// An unsigned C integer literal (hex, octal or decimal) up to 0xFFFFFFFF;
// false when `s` is none.
bool parseNumber(std::string_view s, uint32_t* out) {
  if (s.empty()) return false;
  unsigned base = 10;
  size_t i = 0;
  if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    base = 16, i = 2;
  } else if (s.size() > 1 && s[0] == '0') {
    base = 8, i = 1;
  }
  uint64_t v = 0;
  for (; i < s.size(); ++i) {
    const char c = s[i];
    unsigned d;
    if (c >= '0' && c <= '9') {
      d = static_cast<unsigned>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      d = static_cast<unsigned>(c - 'a' + 10);
    } else if (c >= 'A' && c <= 'F') {
      d = static_cast<unsigned>(c - 'A' + 10);
    } else {
      return false;
    }
    if (d >= base) return false;
    v = v * base + d;
    if (v > 0xFFFFFFFFu) return false;
  }
  *out = static_cast<uint32_t>(v);
  return true;
}


bool endsWith(std::string_view s, std::string_view tail) {
  return s.size() >= tail.size() && s.substr(s.size() - tail.size()) == tail;
}

// What the text before the opening brace says.
struct XbmHeader {
  uint32_t width = 0;
  uint32_t height = 0;
  bool words = false;          // X10: 16-bit words
  const char* data = nullptr;  // just after the opening brace
};

// Reads the #defines and the array declaration. 0 or an error code.
int parseHeader(ReadContext& ctx, XbmHeader& h) {
  Scanner s{reinterpret_cast<const char*>(ctx.data),
            reinterpret_cast<const char*>(ctx.data) + ctx.size};
  bool haveWidth = false, haveHeight = false, sawShort = false;
  while (true) {
    s.skipSpace();
    if (s.atEnd()) return ctx.fail(IMK_ERR_BAD_FILE, "no bitmap data");
    if (*s.p == '#') {
      ++s.p;
      if (s.word() != "define") return ctx.fail(IMK_ERR_BAD_FILE, "unexpected directive");
      const std::string_view name = s.word();
      uint32_t value;
      if (!parseNumber(s.word(), &value)) return ctx.fail(IMK_ERR_BAD_FILE, "bad #define value");
      if (name == "width" || endsWith(name, "_width")) {
        h.width = value, haveWidth = true;
      } else if (name == "height" || endsWith(name, "_height")) {
        h.height = value, haveHeight = true;
      }
      // The hot spot (_x_hot, _y_hot) and unknown names are ignored.
      continue;
    }
    if (*s.p == '{') {
      h.data = s.p + 1;
      break;
    }
    if (Scanner::identChar(*s.p)) {
      if (s.word() == "short") sawShort = true;
      continue;
    }
    if (*s.p == '[' || *s.p == ']' || *s.p == '=' || *s.p == '*') {
      ++s.p;
      continue;
    }
    return ctx.fail(IMK_ERR_BAD_FILE, "not an X bitmap");
  }
  if (!haveWidth || !haveHeight) return ctx.fail(IMK_ERR_BAD_FILE, "missing width or height");
  if (h.width == 0 || h.height == 0 || h.width > static_cast<uint32_t>(kMaxDimension) ||
      h.height > static_cast<uint32_t>(kMaxDimension))
    return ctx.fail(IMK_ERR_BAD_FILE, "bad dimensions");
  h.words = sawShort;
  HeaderInfo& info = ctx.header;
  info.width = static_cast<int32_t>(h.width);
  info.height = static_cast<int32_t>(h.height);
  info.planes = 1;
  info.bitsPerPlane = 1;
  info.pictureCount = 1;
  return IMK_OK;
}

bool sniff(const uint8_t* data, size_t size) {
  // A #define of a width within the first bytes, after optional comments.
  const size_t n = std::min<size_t>(size, 512);
  Scanner s{reinterpret_cast<const char*>(data), reinterpret_cast<const char*>(data) + n};
  s.skipSpace();
  if (!s.startsWith("#define")) return false;
  s.p += 7;
  const std::string_view name = s.word();
  return name == "width" || endsWith(name, "_width");
}

int info(ReadContext& ctx) {
  XbmHeader h;
  return parseHeader(ctx, h);
}

int read(ReadContext& ctx, Picture& out) {
  XbmHeader h;
  if (int rc = parseHeader(ctx, h)) return rc;
  const int bitsPerUnit = h.words ? 16 : 8;
  const uint64_t unitsPerRow = (h.width + bitsPerUnit - 1) / bitsPerUnit;
  const uint64_t units = unitsPerRow * h.height;
  Scanner s{h.data, reinterpret_cast<const char*>(ctx.data) + ctx.size};
  // Every value takes at least one digit and a separator. Missing values
  // fail before anything is allocated, unless errors are ignored; text for
  // less than 1/64 of the values is refused even then.
  const uint64_t least = units * 2 - 1;
  if (int rc = ctx.requireData(least, s.remaining())) return rc;
  if (!out.allocate(IMK_BINARY, static_cast<int32_t>(h.width), static_cast<int32_t>(h.height)))
    return sizeAcceptable(h.width, h.height, 1) ? ctx.fail(IMK_ERR_MEMORY, "not enough memory")
                                                : ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  if (ctx.beginProgress(h.height)) return IMK_ERR_STOPPED;
  // Undecoded pixels stay white (1): the background of a bitmap.
  for (uint32_t y = 0; y < h.height; ++y) std::memset(out.row(static_cast<int>(y)), 1, h.width);
  const char* damage = nullptr;
  for (uint32_t y = 0; y < h.height && !damage; ++y) {
    uint8_t* row = out.row(static_cast<int>(y));
    for (uint64_t u = 0; u < unitsPerRow; ++u) {
      s.skipSpace();
      if (!s.atEnd() && *s.p == ',') ++s.p;  // separators are optional
      uint32_t value;
      const std::string_view token = s.word();
      if (token.empty() || !parseNumber(token, &value)) {
        damage = token.empty() ? "truncated" : "bad value in bitmap";
        break;
      }
      const uint32_t x0 = static_cast<uint32_t>(u) * bitsPerUnit;
      for (int b = 0; b < bitsPerUnit && x0 + b < h.width; ++b)
        row[x0 + b] = ((value >> b) & 1) ? 0 : 1;
    }
    if (ctx.advanceProgress(y + 1)) return IMK_ERR_STOPPED;
  }
  if (damage) return ctx.damaged(IMK_ERR_CORRUPT, damage);
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

// WriteContext does not tell the target's name, so every file declares the
// same C names.
constexpr const char* kName = "image";

int write(WriteContext& ctx, const ImageRecord& pic) {
  if (pic.type != IMK_BINARY) return IMK_ERR_CANNOT_SAVE;
  FILE* f = ctx.out.file();
  if (!f) return IMK_ERR_WRITE;
  if (std::fprintf(f,
                   "#define %s_width %d\n#define %s_height %d\nstatic unsigned char %s_bits[] = {",
                   kName, pic.width, kName, pic.height, kName) < 0)
    return IMK_ERR_WRITE;
  if (ctx.progress.begin(pic.height)) return IMK_ERR_STOPPED;
  const int rowBytes = (pic.width + 7) / 8;
  const uint64_t total = static_cast<uint64_t>(rowBytes) * pic.height;
  uint64_t written = 0;
  std::string text;
  for (int y = 0; y < pic.height; ++y) {
    const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    text.clear();
    for (int i = 0; i < rowBytes; ++i, ++written) {
      unsigned v = 0;
      for (int b = 0; b < 8 && i * 8 + b < pic.width; ++b)
        if (src[i * 8 + b] == 0) v |= 1u << b;  // black is a set bit
      char buf[16];
      std::snprintf(buf, sizeof buf, "%s0x%02x%s", written % 12 == 0 ? "\n  " : " ", v,
                    written + 1 < total ? "," : "");
      text += buf;
    }
    if (std::fwrite(text.data(), 1, text.size(), f) != text.size()) return IMK_ERR_WRITE;
    if (ctx.progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }
  if (std::fputs(" };\n", f) < 0) return IMK_ERR_WRITE;
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

}  // namespace

const Codec kXbmCodec = {"xbm",
                         "X Bitmap",
                         {"xbm", "bm"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize}, kEndKinds},
                         sniff,
                         info,
                         read,
                         write};

}  // namespace imk
