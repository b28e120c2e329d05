// X pixmaps: C source text (XPM3) or plain lines (XPM2) holding a colour
// table and rows of pixel codes.
//
//   /* XPM */
//   static char *name[] = {
//   "width height colours chars_per_pixel",
//   ".  c #FF0000",            (code, then key/value pairs: c m g g4 s)
//   "X  c navy blue",
//   "   c None",
//   ".X. .",                   (height rows of width codes)
//   };
//
// Colours come from the `c` key, else `g`, `g4`, `m`; values are #RGB,
// #RRGGBB, #RRRGGGBBB, #RRRRGGGGBBBB, the X11 colour names (case and spaces
// ignored, greyN / grayN included) or None. A name nobody knows shows black.
// None is transparent: a picture using it becomes R,G,B + alpha (alpha 0 and
// white where None is). Otherwise up to 256 colours give a colour-mapped
// picture (binary or grey when the table is exactly black/white or a grey
// ramp), more give R,G,B. Writing stores binary, grey and colour-mapped
// pictures with their palette, and true colour with one entry per distinct
// colour (alpha 0 as None), one character per pixel up to 90 colours.
#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "imgkit/internal.h"

namespace imk {

namespace {

// ---------------------------------------------------------------------------
// X11 colour names: "name rrggbb" pairs, sorted by name, names lower case
// without spaces. The grey ramps greyN / grayN (N = 0..100) are computed.
constexpr char kColourNames[] =
    "aliceblue f0f8ff antiquewhite faebd7 antiquewhite1 ffefdb antiquewhite2 eedfcc "
    "antiquewhite3 cdc0b0 antiquewhite4 8b8378 aquamarine 7fffd4 aquamarine1 7fffd4 "
    "aquamarine2 76eec6 aquamarine3 66cdaa aquamarine4 458b74 azure f0ffff azure1 f0ffff "
    "azure2 e0eeee azure3 c1cdcd azure4 838b8b beige f5f5dc bisque ffe4c4 bisque1 ffe4c4 "
    "bisque2 eed5b7 bisque3 cdb79e bisque4 8b7d6b black 000000 blanchedalmond ffebcd "
    "blue 0000ff blue1 0000ff blue2 0000ee blue3 0000cd blue4 00008b blueviolet 8a2be2 "
    "brown a52a2a brown1 ff4040 brown2 ee3b3b brown3 cd3333 brown4 8b2323 burlywood deb887 "
    "burlywood1 ffd39b burlywood2 eec591 burlywood3 cdaa7d burlywood4 8b7355 cadetblue 5f9ea0 "
    "cadetblue1 98f5ff cadetblue2 8ee5ee cadetblue3 7ac5cd cadetblue4 53868b chartreuse 7fff00 "
    "chartreuse1 7fff00 chartreuse2 76ee00 chartreuse3 66cd00 chartreuse4 458b00 "
    "chocolate d2691e chocolate1 ff7f24 chocolate2 ee7621 chocolate3 cd661d chocolate4 8b4513 "
    "coral ff7f50 coral1 ff7256 coral2 ee6a50 coral3 cd5b45 coral4 8b3e2f "
    "cornflowerblue 6495ed cornsilk fff8dc cornsilk1 fff8dc cornsilk2 eee8cd cornsilk3 cdc8b1 "
    "cornsilk4 8b8878 cyan 00ffff cyan1 00ffff cyan2 00eeee cyan3 00cdcd cyan4 008b8b "
    "darkblue 00008b darkcyan 008b8b darkgoldenrod b8860b darkgoldenrod1 ffb90f "
    "darkgoldenrod2 eead0e darkgoldenrod3 cd950c darkgoldenrod4 8b6508 darkgray a9a9a9 "
    "darkgreen 006400 darkgrey a9a9a9 darkkhaki bdb76b darkmagenta 8b008b "
    "darkolivegreen 556b2f darkolivegreen1 caff70 darkolivegreen2 bcee68 "
    "darkolivegreen3 a2cd5a darkolivegreen4 6e8b3d darkorange ff8c00 darkorange1 ff7f00 "
    "darkorange2 ee7600 darkorange3 cd6600 darkorange4 8b4500 darkorchid 9932cc "
    "darkorchid1 bf3eff darkorchid2 b23aee darkorchid3 9a32cd darkorchid4 68228b "
    "darkred 8b0000 darksalmon e9967a darkseagreen 8fbc8f darkseagreen1 c1ffc1 "
    "darkseagreen2 b4eeb4 darkseagreen3 9bcd9b darkseagreen4 698b69 darkslateblue 483d8b "
    "darkslategray 2f4f4f darkslategray1 97ffff darkslategray2 8deeee darkslategray3 79cdcd "
    "darkslategray4 528b8b darkslategrey 2f4f4f darkturquoise 00ced1 darkviolet 9400d3 "
    "debianred d70751 deeppink ff1493 deeppink1 ff1493 deeppink2 ee1289 deeppink3 cd1076 "
    "deeppink4 8b0a50 deepskyblue 00bfff deepskyblue1 00bfff deepskyblue2 00b2ee "
    "deepskyblue3 009acd deepskyblue4 00688b dimgray 696969 dimgrey 696969 dodgerblue 1e90ff "
    "dodgerblue1 1e90ff dodgerblue2 1c86ee dodgerblue3 1874cd dodgerblue4 104e8b "
    "firebrick b22222 firebrick1 ff3030 firebrick2 ee2c2c firebrick3 cd2626 firebrick4 8b1a1a "
    "floralwhite fffaf0 forestgreen 228b22 gainsboro dcdcdc ghostwhite f8f8ff gold ffd700 "
    "gold1 ffd700 gold2 eec900 gold3 cdad00 gold4 8b7500 goldenrod daa520 goldenrod1 ffc125 "
    "goldenrod2 eeb422 goldenrod3 cd9b1d goldenrod4 8b6914 gray bebebe green 00ff00 "
    "green1 00ff00 green2 00ee00 green3 00cd00 green4 008b00 greenyellow adff2f grey bebebe "
    "honeydew f0fff0 honeydew1 f0fff0 honeydew2 e0eee0 honeydew3 c1cdc1 honeydew4 838b83 "
    "hotpink ff69b4 hotpink1 ff6eb4 hotpink2 ee6aa7 hotpink3 cd6090 hotpink4 8b3a62 "
    "indianred cd5c5c indianred1 ff6a6a indianred2 ee6363 indianred3 cd5555 indianred4 8b3a3a "
    "ivory fffff0 ivory1 fffff0 ivory2 eeeee0 ivory3 cdcdc1 ivory4 8b8b83 khaki f0e68c "
    "khaki1 fff68f khaki2 eee685 khaki3 cdc673 khaki4 8b864e lavender e6e6fa "
    "lavenderblush fff0f5 lavenderblush1 fff0f5 lavenderblush2 eee0e5 lavenderblush3 cdc1c5 "
    "lavenderblush4 8b8386 lawngreen 7cfc00 lemonchiffon fffacd lemonchiffon1 fffacd "
    "lemonchiffon2 eee9bf lemonchiffon3 cdc9a5 lemonchiffon4 8b8970 lightblue add8e6 "
    "lightblue1 bfefff lightblue2 b2dfee lightblue3 9ac0cd lightblue4 68838b lightcoral f08080 "
    "lightcyan e0ffff lightcyan1 e0ffff lightcyan2 d1eeee lightcyan3 b4cdcd lightcyan4 7a8b8b "
    "lightgoldenrod eedd82 lightgoldenrod1 ffec8b lightgoldenrod2 eedc82 "
    "lightgoldenrod3 cdbe70 lightgoldenrod4 8b814c lightgoldenrodyellow fafad2 "
    "lightgray d3d3d3 lightgreen 90ee90 lightgrey d3d3d3 lightpink ffb6c1 lightpink1 ffaeb9 "
    "lightpink2 eea2ad lightpink3 cd8c95 lightpink4 8b5f65 lightsalmon ffa07a "
    "lightsalmon1 ffa07a lightsalmon2 ee9572 lightsalmon3 cd8162 lightsalmon4 8b5742 "
    "lightseagreen 20b2aa lightskyblue 87cefa lightskyblue1 b0e2ff lightskyblue2 a4d3ee "
    "lightskyblue3 8db6cd lightskyblue4 607b8b lightslateblue 8470ff lightslategray 778899 "
    "lightslategrey 778899 lightsteelblue b0c4de lightsteelblue1 cae1ff lightsteelblue2 bcd2ee "
    "lightsteelblue3 a2b5cd lightsteelblue4 6e7b8b lightyellow ffffe0 lightyellow1 ffffe0 "
    "lightyellow2 eeeed1 lightyellow3 cdcdb4 lightyellow4 8b8b7a limegreen 32cd32 linen faf0e6 "
    "magenta ff00ff magenta1 ff00ff magenta2 ee00ee magenta3 cd00cd magenta4 8b008b "
    "maroon b03060 maroon1 ff34b3 maroon2 ee30a7 maroon3 cd2990 maroon4 8b1c62 "
    "mediumaquamarine 66cdaa mediumblue 0000cd mediumorchid ba55d3 mediumorchid1 e066ff "
    "mediumorchid2 d15fee mediumorchid3 b452cd mediumorchid4 7a378b mediumpurple 9370db "
    "mediumpurple1 ab82ff mediumpurple2 9f79ee mediumpurple3 8968cd mediumpurple4 5d478b "
    "mediumseagreen 3cb371 mediumslateblue 7b68ee mediumspringgreen 00fa9a "
    "mediumturquoise 48d1cc mediumvioletred c71585 midnightblue 191970 mintcream f5fffa "
    "mistyrose ffe4e1 mistyrose1 ffe4e1 mistyrose2 eed5d2 mistyrose3 cdb7b5 mistyrose4 8b7d7b "
    "moccasin ffe4b5 navajowhite ffdead navajowhite1 ffdead navajowhite2 eecfa1 "
    "navajowhite3 cdb38b navajowhite4 8b795e navy 000080 navyblue 000080 oldlace fdf5e6 "
    "olivedrab 6b8e23 olivedrab1 c0ff3e olivedrab2 b3ee3a olivedrab3 9acd32 olivedrab4 698b22 "
    "orange ffa500 orange1 ffa500 orange2 ee9a00 orange3 cd8500 orange4 8b5a00 "
    "orangered ff4500 orangered1 ff4500 orangered2 ee4000 orangered3 cd3700 orangered4 8b2500 "
    "orchid da70d6 orchid1 ff83fa orchid2 ee7ae9 orchid3 cd69c9 orchid4 8b4789 "
    "palegoldenrod eee8aa palegreen 98fb98 palegreen1 9aff9a palegreen2 90ee90 "
    "palegreen3 7ccd7c palegreen4 548b54 paleturquoise afeeee paleturquoise1 bbffff "
    "paleturquoise2 aeeeee paleturquoise3 96cdcd paleturquoise4 668b8b palevioletred db7093 "
    "palevioletred1 ff82ab palevioletred2 ee799f palevioletred3 cd6889 palevioletred4 8b475d "
    "papayawhip ffefd5 peachpuff ffdab9 peachpuff1 ffdab9 peachpuff2 eecbad peachpuff3 cdaf95 "
    "peachpuff4 8b7765 peru cd853f pink ffc0cb pink1 ffb5c5 pink2 eea9b8 pink3 cd919e "
    "pink4 8b636c plum dda0dd plum1 ffbbff plum2 eeaeee plum3 cd96cd plum4 8b668b "
    "powderblue b0e0e6 purple a020f0 purple1 9b30ff purple2 912cee purple3 7d26cd "
    "purple4 551a8b red ff0000 red1 ff0000 red2 ee0000 red3 cd0000 red4 8b0000 "
    "rosybrown bc8f8f rosybrown1 ffc1c1 rosybrown2 eeb4b4 rosybrown3 cd9b9b rosybrown4 8b6969 "
    "royalblue 4169e1 royalblue1 4876ff royalblue2 436eee royalblue3 3a5fcd royalblue4 27408b "
    "saddlebrown 8b4513 salmon fa8072 salmon1 ff8c69 salmon2 ee8262 salmon3 cd7054 "
    "salmon4 8b4c39 sandybrown f4a460 seagreen 2e8b57 seagreen1 54ff9f seagreen2 4eee94 "
    "seagreen3 43cd80 seagreen4 2e8b57 seashell fff5ee seashell1 fff5ee seashell2 eee5de "
    "seashell3 cdc5bf seashell4 8b8682 sienna a0522d sienna1 ff8247 sienna2 ee7942 "
    "sienna3 cd6839 sienna4 8b4726 skyblue 87ceeb skyblue1 87ceff skyblue2 7ec0ee "
    "skyblue3 6ca6cd skyblue4 4a708b slateblue 6a5acd slateblue1 836fff slateblue2 7a67ee "
    "slateblue3 6959cd slateblue4 473c8b slategray 708090 slategray1 c6e2ff slategray2 b9d3ee "
    "slategray3 9fb6cd slategray4 6c7b8b slategrey 708090 snow fffafa snow1 fffafa "
    "snow2 eee9e9 snow3 cdc9c9 snow4 8b8989 springgreen 00ff7f springgreen1 00ff7f "
    "springgreen2 00ee76 springgreen3 00cd66 springgreen4 008b45 steelblue 4682b4 "
    "steelblue1 63b8ff steelblue2 5cacee steelblue3 4f94cd steelblue4 36648b tan d2b48c "
    "tan1 ffa54f tan2 ee9a49 tan3 cd853f tan4 8b5a2b thistle d8bfd8 thistle1 ffe1ff "
    "thistle2 eed2ee thistle3 cdb5cd thistle4 8b7b8b tomato ff6347 tomato1 ff6347 "
    "tomato2 ee5c42 tomato3 cd4f39 tomato4 8b3626 turquoise 40e0d0 turquoise1 00f5ff "
    "turquoise2 00e5ee turquoise3 00c5cd turquoise4 00868b violet ee82ee violetred d02090 "
    "violetred1 ff3e96 violetred2 ee3a8c violetred3 cd3278 violetred4 8b2252 wheat f5deb3 "
    "wheat1 ffe7ba wheat2 eed8ae wheat3 cdba96 wheat4 8b7e66 white ffffff whitesmoke f5f5f5 "
    "yellow ffff00 yellow1 ffff00 yellow2 eeee00 yellow3 cdcd00 yellow4 8b8b00 "
    "yellowgreen 9acd32 ";

struct NamedColour {
  std::string_view name;
  uint32_t rgb;
};

const std::vector<NamedColour>& colourNames() {
  static const std::vector<NamedColour> table = [] {
    std::vector<NamedColour> out;
    std::string_view rest(kColourNames, sizeof kColourNames - 1);
    while (!rest.empty()) {
      const size_t space = rest.find(' ');
      const std::string_view name = rest.substr(0, space);
      const std::string_view hex = rest.substr(space + 1, 6);
      out.push_back({name, static_cast<uint32_t>(std::stoul(std::string(hex), nullptr, 16))});
      rest.remove_prefix(std::min(rest.size(), space + 8));
    }
    return out;
  }();
  return table;
}

// 0xRRGGBB of an X11 colour name (already lower case without spaces).
bool lookUpName(const std::string& name, uint32_t* rgb) {
  for (const char* prefix : {"grey", "gray"}) {
    if (name.size() > 4 && name.size() <= 7 && name.compare(0, 4, prefix) == 0 &&
        name.find_first_not_of("0123456789", 4) == std::string::npos) {
      const int n = std::stoi(name.substr(4));
      if (n > 100) return false;
      // The X11 table rounds n * 2.55 in double precision (gray50 is 127).
      const auto v = static_cast<uint32_t>(n * 2.55 + 0.5);
      *rgb = v << 16 | v << 8 | v;
      return true;
    }
  }
  const auto& table = colourNames();
  auto it = std::lower_bound(table.begin(), table.end(), name,
                             [](const NamedColour& c, const std::string& n) { return c.name < n; });
  if (it == table.end() || it->name != name) return false;
  *rgb = it->rgb;
  return true;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// One entry of the colour table.
struct Colour {
  uint8_t r = 0, g = 0, b = 0;
  bool transparent = false;
};

// #RGB, #RRGGBB, #RRRGGGBBB or #RRRRGGGGBBBB, each channel scaled to 8 bits.
bool parseHex(std::string_view s, Colour* c) {
  if (s.size() < 4 || s.size() > 13 || (s.size() - 1) % 3 != 0) return false;
  const size_t digits = (s.size() - 1) / 3;
  const uint32_t max = (1u << (4 * digits)) - 1;
  uint8_t* out[3] = {&c->r, &c->g, &c->b};
  for (size_t ch = 0; ch < 3; ++ch) {
    uint32_t v = 0;
    for (size_t i = 0; i < digits; ++i) {
      const int d = hexDigit(s[1 + ch * digits + i]);
      if (d < 0) return false;
      v = v << 4 | static_cast<uint32_t>(d);
    }
    *out[ch] = static_cast<uint8_t>((v * 255 + max / 2) / max);
  }
  return true;
}

// A colour value as written after a key; unknown names give black.
Colour parseColour(const std::string& value) {
  Colour c;
  std::string name;
  for (char ch : value)
    if (ch != ' ' && ch != '\t') name += static_cast<char>(ch >= 'A' && ch <= 'Z' ? ch + 32 : ch);
  if (name == "none") {
    c.transparent = true;
    c.r = c.g = c.b = 255;
  } else if (!name.empty() && name[0] == '#') {
    if (!parseHex(name, &c)) c = Colour{};
  } else if (uint32_t rgb; lookUpName(name, &rgb)) {
    c.r = static_cast<uint8_t>(rgb >> 16), c.g = static_cast<uint8_t>(rgb >> 8);
    c.b = static_cast<uint8_t>(rgb);
  }
  return c;
}

bool isSpace(char c) { return c == ' ' || c == '\t'; }

// The colour of a colour-table entry (the text after its code).
Colour colourOfEntry(std::string_view text) {
  // Key/value pairs; a value may span several words ("light grey").
  static const char* const kKeys[] = {"c", "g", "g4", "m", "s"};
  std::string values[5];
  int key = -1;
  size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && isSpace(text[i])) ++i;
    const size_t start = i;
    while (i < text.size() && !isSpace(text[i])) ++i;
    const std::string_view word = text.substr(start, i - start);
    if (word.empty()) break;
    int found = -1;
    for (int k = 0; k < 5; ++k)
      if (word == kKeys[k]) found = k;
    if (found >= 0) {
      key = found;
      values[key].clear();
    } else if (key >= 0) {
      if (!values[key].empty()) values[key] += ' ';
      values[key] += word;
    }
  }
  for (int k = 0; k < 4; ++k)  // c, g, g4, m in that preference; s is a symbol
    if (!values[k].empty()) return parseColour(values[k]);
  return Colour{};
}

// ---------------------------------------------------------------------------
// Reading.

// The strings of the file: quoted strings outside comments (XPM3) or the
// lines after the first (XPM2).
std::vector<std::string_view> stringsOf(const uint8_t* data, size_t size) {
  std::vector<std::string_view> out;
  const char* p = reinterpret_cast<const char*>(data);
  const char* end = p + size;
  const std::string_view all(p, size);
  if (all.substr(0, 6) == "! XPM2") {
    size_t pos = all.find('\n');
    while (pos != std::string_view::npos && pos + 1 < all.size()) {
      const size_t next = all.find('\n', pos + 1);
      std::string_view line = all.substr(pos + 1, next == all.npos ? all.npos : next - pos - 1);
      if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
      out.push_back(line);
      pos = next;
    }
    return out;
  }
  while (p < end) {
    if (*p == '/' && p + 1 < end && p[1] == '*') {
      p += 2;
      while (p + 1 < end && !(p[0] == '*' && p[1] == '/')) ++p;
      p = p + 1 < end ? p + 2 : end;
    } else if (*p == '"') {
      const char* start = ++p;
      while (p < end && *p != '"') ++p;
      out.emplace_back(start, static_cast<size_t>(p - start));
      if (p < end) ++p;
    } else {
      ++p;
    }
  }
  return out;
}

struct XpmHeader {
  uint32_t width = 0, height = 0, colours = 0, cpp = 0;
};

constexpr uint32_t kMaxCharsPerPixel = 8;

int parseHeader(ReadContext& ctx, const std::vector<std::string_view>& strings, XpmHeader& h) {
  if (strings.empty()) return ctx.fail(IMK_ERR_BAD_FILE, "no XPM values line");
  const std::string values(strings[0]);
  uint32_t* fields[4] = {&h.width, &h.height, &h.colours, &h.cpp};
  size_t pos = 0;
  for (uint32_t* f : fields) {
    while (pos < values.size() && isSpace(values[pos])) ++pos;
    size_t end = pos;
    uint64_t v = 0;
    while (end < values.size() && values[end] >= '0' && values[end] <= '9' && v <= 0xFFFFFFFFu)
      v = v * 10 + static_cast<uint64_t>(values[end++] - '0');
    if (end == pos || v > 0xFFFFFFFFu) return ctx.fail(IMK_ERR_BAD_FILE, "bad XPM values line");
    *f = static_cast<uint32_t>(v);
    pos = end;
  }
  if (h.width == 0 || h.height == 0 || h.width > static_cast<uint32_t>(kMaxDimension) ||
      h.height > static_cast<uint32_t>(kMaxDimension))
    return ctx.fail(IMK_ERR_BAD_FILE, "bad dimensions");
  if (h.cpp == 0 || h.cpp > kMaxCharsPerPixel)
    return ctx.fail(IMK_ERR_BAD_FILE, "bad characters per pixel");
  if (h.colours == 0) return ctx.fail(IMK_ERR_BAD_FILE, "no colours");
  HeaderInfo& info = ctx.header;
  info.width = static_cast<int32_t>(h.width);
  info.height = static_cast<int32_t>(h.height);
  info.planes = 1;
  int bits = 1;
  while (bits < 24 && (uint64_t{1} << bits) < h.colours) ++bits;
  info.bitsPerPlane = static_cast<int16_t>(bits);
  info.pictureCount = 1;
  return IMK_OK;
}

// Pixel codes to colour-table indices.
class CodeTable {
 public:
  explicit CodeTable(uint32_t cpp) : cpp_(cpp) {
    if (cpp <= 2) direct_.assign(size_t{1} << (8 * cpp), -1);
  }
  // False when the code is already taken (the first definition wins).
  bool add(const char* code, int32_t index) {
    if (!direct_.empty()) {
      int32_t& slot = direct_[key(code)];
      if (slot >= 0) return false;
      slot = index;
      return true;
    }
    return map_.emplace(key(code), index).second;
  }
  int32_t find(const char* code) const {
    if (!direct_.empty()) return direct_[key(code)];
    auto it = map_.find(key(code));
    return it == map_.end() ? -1 : it->second;
  }

 private:
  uint64_t key(const char* code) const {
    uint64_t k = 0;
    for (uint32_t i = 0; i < cpp_; ++i) k = k << 8 | static_cast<uint8_t>(code[i]);
    return k;
  }
  uint32_t cpp_;
  std::vector<int32_t> direct_;
  std::unordered_map<uint64_t, int32_t> map_;
};

// Exactly the grey ramp of colorCount levels: the picture is grey.
void simplifyGreyRamp(ImageRecord& rec) {
  simplifyMappedPicture(rec);
  if (rec.type != IMK_MAPPED || rec.colorCount < 3) return;
  for (int i = 0; i < rec.colorCount; ++i) {
    const uint8_t v = greyLevelIntensity(i, rec.colorCount);
    if (rec.palette[i] != v || rec.palette[256 + i] != v || rec.palette[512 + i] != v) return;
  }
  rec.type = IMK_GREY;
}

bool sniff(const uint8_t* data, size_t size) {
  size_t i = 0;
  while (i < size && i < 64 &&
         (data[i] == ' ' || data[i] == '\t' || data[i] == '\n' || data[i] == '\r'))
    ++i;
  const std::string_view s(reinterpret_cast<const char*>(data) + i, size - i);
  return s.substr(0, 9) == "/* XPM */" || s.substr(0, 6) == "! XPM2";
}

int info(ReadContext& ctx) {
  XpmHeader h;
  return parseHeader(ctx, stringsOf(ctx.data, ctx.size), h);
}

int read(ReadContext& ctx, Picture& out) {
  const std::vector<std::string_view> strings = stringsOf(ctx.data, ctx.size);
  XpmHeader h;
  if (int rc = parseHeader(ctx, strings, h)) return rc;
  if (h.colours > strings.size() - 1) return ctx.fail(IMK_ERR_CORRUPT, "truncated colour table");
  const size_t firstRow = 1 + size_t{h.colours};
  const size_t rowsPresent = std::min<size_t>(strings.size() - firstRow, h.height);
  // Missing rows fail before anything is allocated, unless errors are
  // ignored; a file holding less than 1/64 of its pixel codes is refused
  // even then (the picture's memory would be out of all proportion).
  if (rowsPresent < h.height && !ctx.ignoreErrors()) return ctx.fail(IMK_ERR_CORRUPT, "truncated");
  if (uint64_t{h.width} * h.height * h.cpp > uint64_t{ctx.size} * ReadContext::kLeastShare)
    return ctx.fail(IMK_ERR_BAD_FILE, "too little data for the picture");

  std::vector<Colour> colours(h.colours);
  CodeTable codes(h.cpp);
  bool transparent = false;
  for (uint32_t i = 0; i < h.colours; ++i) {
    const std::string_view entry = strings[1 + i];
    if (entry.size() < h.cpp) return ctx.fail(IMK_ERR_BAD_FILE, "bad colour table entry");
    colours[i] = colourOfEntry(entry.substr(h.cpp));
    transparent |= colours[i].transparent;
    codes.add(entry.data(), static_cast<int32_t>(i));
  }
  const bool mapped = h.colours <= 256 && !transparent;
  const uint16_t kind = mapped ? IMK_MAPPED : transparent ? IMK_RGBX : IMK_RGB;
  const auto w = static_cast<int32_t>(h.width), ht = static_cast<int32_t>(h.height);
  if (!out.allocate(kind, w, ht))
    return sizeAcceptable(w, ht, bytesPerPixelOf(kind))
               ? ctx.fail(IMK_ERR_MEMORY, "not enough memory")
               : ctx.fail(IMK_ERR_BAD_FILE, "picture too large");
  ImageRecord& rec = out.rec();
  if (mapped) {
    for (uint32_t i = 0; i < h.colours; ++i) {
      rec.palette[i] = colours[i].r;
      rec.palette[256 + i] = colours[i].g;
      rec.palette[512 + i] = colours[i].b;
    }
    rec.colorCount = static_cast<int32_t>(h.colours);
  }
  if (ctx.beginProgress(ht)) return IMK_ERR_STOPPED;
  const char* damage = rowsPresent < h.height ? "truncated" : nullptr;
  const int bpp = rec.bytesPerPixel;
  for (size_t y = 0; y < rowsPresent; ++y) {
    const std::string_view row = strings[firstRow + y];
    uint8_t* dst = out.row(static_cast<int>(y));
    if (row.size() < size_t{h.width} * h.cpp && !damage) damage = "pixel row too short";
    const uint32_t n = std::min<uint32_t>(h.width, static_cast<uint32_t>(row.size() / h.cpp));
    for (uint32_t x = 0; x < n; ++x) {
      int32_t index = codes.find(row.data() + size_t{x} * h.cpp);
      if (index < 0) {
        if (!damage) damage = "undefined pixel code";
        index = 0;
      }
      if (mapped) {
        dst[x] = static_cast<uint8_t>(index);
        continue;
      }
      const Colour& c = colours[static_cast<size_t>(index)];
      uint8_t* px = dst + size_t{x} * bpp;
      px[0] = c.r, px[1] = c.g, px[2] = c.b;
      if (transparent) px[3] = c.transparent ? 0 : 255;
    }
    if (ctx.advanceProgress(static_cast<int64_t>(y) + 1)) return IMK_ERR_STOPPED;
  }
  if (mapped) simplifyGreyRamp(rec);
  if (damage) return ctx.damaged(IMK_ERR_CORRUPT, damage);
  return IMK_OK;
}

// ---------------------------------------------------------------------------
// Writing.

// Pixel code characters: printable ASCII without the quote, the backslash,
// '?' (trigraphs) and the comment characters '/' and '*'.
constexpr char kCodeChars[] =
    " .XoO+@#$%&=-;:>,<1234567890qwertyuipasdfghjklzxcvbnmMNBVCZASDFGHJKLPIUYTREWQ!~^()_`'[]{}|";
constexpr uint32_t kCodeCount = sizeof kCodeChars - 1;

// The table a picture is written with: colours and, per pixel, an index.
struct WriteTable {
  std::vector<Colour> colours;
  std::unordered_map<uint32_t, uint32_t> index;  // true colour: key -> entry
};

// Key of a true-colour pixel: 0xRRGGBB, or 1 << 24 for a transparent one.
uint32_t keyOf(const uint8_t* rgba) {
  if (rgba[3] == 0) return 1u << 24;
  return uint32_t{rgba[0]} << 16 | uint32_t{rgba[1]} << 8 | rgba[2];
}

// Builds the colour table of a picture of any kind.
WriteTable tableOf(const ImageRecord& pic) {
  WriteTable t;
  if (pic.type == IMK_BINARY) {
    t.colours = {Colour{0, 0, 0, false}, Colour{255, 255, 255, false}};
  } else if (pic.type == IMK_GREY || pic.type == IMK_MAPPED) {
    const int n = std::clamp(pic.colorCount, 1, 256);
    for (int i = 0; i < n; ++i) {
      Colour c;
      if (pic.type == IMK_GREY || !pic.palette) {
        c.r = c.g = c.b = pic.type == IMK_GREY ? greyLevelIntensity(i, n) : static_cast<uint8_t>(i);
      } else {
        c.r = pic.palette[i], c.g = pic.palette[256 + i], c.b = pic.palette[512 + i];
      }
      t.colours.push_back(c);
    }
  } else {
    std::vector<uint8_t> rgba(static_cast<size_t>(pic.width) * 4);
    for (int y = 0; y < pic.height; ++y) {
      rowToRgba(pic, y, rgba.data());
      for (int x = 0; x < pic.width; ++x) {
        const uint8_t* p = &rgba[static_cast<size_t>(x) * 4];
        const uint32_t key = keyOf(p);
        if (t.index.emplace(key, static_cast<uint32_t>(t.colours.size())).second)
          t.colours.push_back(Colour{p[0], p[1], p[2], key == 1u << 24});
      }
    }
  }
  return t;
}

// Code of entry `i` with `cpp` characters.
void codeOf(uint32_t i, uint32_t cpp, char* out) {
  for (uint32_t k = cpp; k-- > 0; i /= kCodeCount) out[k] = kCodeChars[i % kCodeCount];
}

bool put(FILE* f, const std::string& s) {
  return std::fwrite(s.data(), 1, s.size(), f) == s.size();
}

int write(WriteContext& ctx, const ImageRecord& pic) {
  FILE* f = ctx.out.file();
  if (!f) return IMK_ERR_WRITE;
  const WriteTable t = tableOf(pic);
  const auto n = static_cast<uint32_t>(t.colours.size());
  uint32_t cpp = 1;
  for (uint64_t room = kCodeCount; room < n; room *= kCodeCount) ++cpp;

  std::string text =
      "/* XPM */\nstatic char *image[] = {\n/* columns rows colors chars-per-pixel */\n";
  text += "\"" + std::to_string(pic.width) + " " + std::to_string(pic.height) + " " +
          std::to_string(n) + " " + std::to_string(cpp) + " \",\n";
  std::string code(cpp, ' ');
  for (uint32_t i = 0; i < n; ++i) {
    const Colour& c = t.colours[i];
    codeOf(i, cpp, code.data());
    char value[16];
    if (c.transparent)
      std::snprintf(value, sizeof value, "None");
    else
      std::snprintf(value, sizeof value, "#%02X%02X%02X", c.r, c.g, c.b);
    text += "\"" + code + " c " + value + "\",\n";
  }
  text += "/* pixels */\n";
  if (!put(f, text)) return IMK_ERR_WRITE;

  if (ctx.progress.begin(pic.height)) return IMK_ERR_STOPPED;
  const bool trueColor = isTrueColor(pic.type);
  std::vector<uint8_t> rgba(trueColor ? static_cast<size_t>(pic.width) * 4 : 0);
  for (int y = 0; y < pic.height; ++y) {
    const uint8_t* src = pic.pixels + static_cast<size_t>(y) * pic.bytesPerLine;
    if (trueColor) rowToRgba(pic, y, rgba.data());
    text.assign(1, '"');
    for (int x = 0; x < pic.width; ++x) {
      uint32_t i;
      if (trueColor)
        i = t.index.at(keyOf(&rgba[static_cast<size_t>(x) * 4]));
      else if (pic.type == IMK_BINARY)
        i = src[x] != 0;
      else
        i = std::min<uint32_t>(src[x], n - 1);
      codeOf(i, cpp, code.data());
      text += code;
    }
    text += y + 1 < pic.height ? "\",\n" : "\"\n};\n";
    if (!put(f, text)) return IMK_ERR_WRITE;
    if (ctx.progress.advance(y + 1)) return IMK_ERR_STOPPED;
  }
  return std::ferror(f) ? IMK_ERR_WRITE : IMK_OK;
}

}  // namespace

const Codec kXpmCodec = {"xpm",
                         "X Pixmap",
                         {"xpm", "pm"},
                         IMK_CAN_READ | IMK_CAN_WRITE,
                         {{IMK_BINARY, 2, kAnySize, kAnySize},
                          {IMK_GREY, 256, kAnySize, kAnySize},
                          {IMK_MAPPED, 256, kAnySize, kAnySize},
                          kEndKinds},
                         sniff,
                         info,
                         read,
                         write};

}  // namespace imk
