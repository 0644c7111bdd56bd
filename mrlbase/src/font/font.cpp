// CCA_FontMgr and CCA_Font: fontconfig finds the files, FreeType loads and renders them.
#include <mrlbase/font.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <mrlbase/byte_string.h>
#include <mrlbase/byte_string_converter.h>

struct CCA_FontMgr::Impl {
  FT_Library library = nullptr;
  // FreeType allows one thread at a time per library: every face of this manager locks here.
  std::mutex mutex;
  ~Impl() {
    if (library) FT_Done_FreeType(library);
  }
};

CCA_FontMgr::CCA_FontMgr() : m_impl(new Impl) {
  if (FT_Init_FreeType(&m_impl->library) != 0) m_impl->library = nullptr;
}

CCA_FontMgr::~CCA_FontMgr() = default;

bool CCA_FontMgr::IsReady() const noexcept { return m_impl->library != nullptr; }

namespace {

struct FcPatternDeleter {
  void operator()(FcPattern* p) const noexcept { FcPatternDestroy(p); }
};
struct FcCharSetDeleter {
  void operator()(FcCharSet* c) const noexcept { FcCharSetDestroy(c); }
};
using FcPatternPtr = std::unique_ptr<FcPattern, FcPatternDeleter>;
using FcCharSetPtr = std::unique_ptr<FcCharSet, FcCharSetDeleter>;

struct FaceDeleter {
  void operator()(FT_Face f) const noexcept { FT_Done_Face(f); }
};
using FacePtr = std::unique_ptr<FT_FaceRec_, FaceDeleter>;

// The slant of synthesised italics, as the horizontal shift per unit of height.
constexpr double kObliqueShear = 0.2;

struct FontMatch {
  std::string path;
  int index = 0;
  int weight = FC_WEIGHT_REGULAR;
  int slant = FC_SLANT_ROMAN;
  bool embolden = false;  // the font configuration asks for synthetic bold
  double shear = 0;       // and for this synthetic slant
  std::vector<std::string> families;
};

bool SameFamily(const std::string& a, const std::string& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

// fontconfig builds its default configuration lazily on the first lookup, and first lookups on
// several threads would each build one at once. Its internal locks are made lazily too, on the
// first match. So one thread loads the configuration and makes one match first, before any
// lookup; later lookups only read what that set up.
void EnsureFontConfig() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (!FcInit()) return;
    FcPatternPtr pattern(FcPatternCreate());
    if (!pattern || !FcConfigSubstitute(nullptr, pattern.get(), FcMatchPattern)) return;
    FcDefaultSubstitute(pattern.get());
    FcResult result = FcResultNoMatch;
    FcPatternPtr match(FcFontMatch(nullptr, pattern.get(), &result));
  });
}

// Best installed font for the request; ch non-zero asks for a font that has that character.
bool MatchFont(const std::string& family, int weight, int italic, bool chinese, wchar_t ch, FontMatch& out) {
  EnsureFontConfig();
  FcPatternPtr pattern(FcPatternCreate());
  if (!pattern) return false;
  if (!family.empty())
    FcPatternAddString(pattern.get(), FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
  FcPatternAddInteger(pattern.get(), FC_WEIGHT, weight >= 600 ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
  FcPatternAddInteger(pattern.get(), FC_SLANT, italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
  FcPatternAddBool(pattern.get(), FC_SCALABLE, FcTrue);
  if (chinese) FcPatternAddString(pattern.get(), FC_LANG, reinterpret_cast<const FcChar8*>("zh-cn"));
  if (ch != 0) {
    FcCharSetPtr set(FcCharSetCreate());
    if (!set || !FcCharSetAddChar(set.get(), static_cast<FcChar32>(ch))) return false;
    FcPatternAddCharSet(pattern.get(), FC_CHARSET, set.get());
  }
  if (!FcConfigSubstitute(nullptr, pattern.get(), FcMatchPattern)) return false;
  FcDefaultSubstitute(pattern.get());
  FcResult result = FcResultNoMatch;
  FcPatternPtr match(FcFontMatch(nullptr, pattern.get(), &result));
  if (!match || result != FcResultMatch) return false;

  FcChar8* file = nullptr;
  if (FcPatternGetString(match.get(), FC_FILE, 0, &file) != FcResultMatch || !file) return false;
  if (ch != 0) {
    FcCharSet* covered = nullptr;
    if (FcPatternGetCharSet(match.get(), FC_CHARSET, 0, &covered) != FcResultMatch ||
        !FcCharSetHasChar(covered, static_cast<FcChar32>(ch)))
      return false;
  }
  out.path = reinterpret_cast<const char*>(file);
  out.index = 0;
  FcPatternGetInteger(match.get(), FC_INDEX, 0, &out.index);
  FcPatternGetInteger(match.get(), FC_WEIGHT, 0, &out.weight);
  FcPatternGetInteger(match.get(), FC_SLANT, 0, &out.slant);
  FcBool embolden = FcFalse;
  out.embolden = FcPatternGetBool(match.get(), FC_EMBOLDEN, 0, &embolden) == FcResultMatch && embolden;
  FcMatrix* matrix = nullptr;
  out.shear = FcPatternGetMatrix(match.get(), FC_MATRIX, 0, &matrix) == FcResultMatch && matrix ? matrix->xy : 0;
  out.families.clear();
  FcChar8* name = nullptr;
  for (int i = 0; FcPatternGetString(match.get(), FC_FAMILY, i, &name) == FcResultMatch; ++i)
    out.families.emplace_back(reinterpret_cast<const char*>(name));
  return true;
}

std::string ToUtf8(const CMRL_WideString& text) {
  CMRL_ByteString utf8 = CMRL_ByteStringConverter::unicode_to_utf8(text.c_str(), text.GetLength());
  return std::string(utf8.c_str(), static_cast<size_t>(utf8.GetLength()));
}

FT_Fixed ToFixed(double v) { return static_cast<FT_Fixed>(std::lround(v * 65536.0)); }

}  // namespace

struct CCA_Font::Impl {
  struct Face {
    FacePtr face;
    std::string path;
    int index = 0;
    bool emboldened = false;  // bold asked for, face is not bold
    double shear = 0;         // italic asked for, face is upright
  };

  std::unique_ptr<CCA_FontMgr> ownManager;
  CCA_FontMgr* manager = nullptr;
  std::vector<Face> faces;  // [0] is the loaded face, the rest fallbacks
  std::unordered_map<wchar_t, int> faceOfChar;
  std::string familyName;
  std::string requested;
  int charset = 0;
  int weight = 400;
  int italic = 0;
  bool chinese = false;
  bool exact = false;
  std::vector<unsigned char> coverage;

  FT_Library Library() const { return manager->m_impl->library; }

  // Index of a face of the file, opened once.
  int OpenFace(const FontMatch& match) {
    for (size_t i = 0; i < faces.size(); ++i)
      if (faces[i].path == match.path && faces[i].index == match.index) return static_cast<int>(i);
    FT_Face raw = nullptr;
    if (FT_New_Face(Library(), match.path.c_str(), match.index, &raw) != 0) return -1;
    Face face;
    face.face.reset(raw);
    face.path = match.path;
    face.index = match.index;
    face.emboldened = weight >= 600 && (match.embolden || match.weight < FC_WEIGHT_DEMIBOLD);
    if (italic != 0) face.shear = match.shear != 0 ? match.shear : (match.slant == FC_SLANT_ROMAN ? kObliqueShear : 0);
    faces.push_back(std::move(face));
    return static_cast<int>(faces.size() - 1);
  }

  // The face that draws ch: the loaded one if it has the glyph, else an installed font covering it.
  int FaceFor(wchar_t ch) {
    if (FT_Get_Char_Index(faces[0].face.get(), static_cast<FT_ULong>(ch)) != 0) return 0;
    auto found = faceOfChar.find(ch);
    if (found != faceOfChar.end()) return found->second;
    int chosen = 0;
    for (size_t i = 1; i < faces.size(); ++i)
      if (FT_Get_Char_Index(faces[i].face.get(), static_cast<FT_ULong>(ch)) != 0) {
        chosen = static_cast<int>(i);
        break;
      }
    FontMatch match;
    if (chosen == 0 && MatchFont(familyName, weight, italic, chinese, ch, match)) {
      int opened = OpenFace(match);
      if (opened > 0 && FT_Get_Char_Index(faces[opened].face.get(), static_cast<FT_ULong>(ch)) != 0)
        chosen = opened;
    }
    faceOfChar.emplace(ch, chosen);
    return chosen;
  }
};

CCA_Font::CCA_Font(CCA_FontMgr* manager) : m_impl(new Impl) {
  if (!manager) {
    m_impl->ownManager.reset(new CCA_FontMgr);
    manager = m_impl->ownManager.get();
  }
  m_impl->manager = manager;
}

CCA_Font::~CCA_Font() {
  std::lock_guard<std::mutex> lock(m_impl->manager->m_impl->mutex);
  m_impl->faces.clear();
}

bool CCA_Font::LoadFont(const CMRL_WideString& family, const CMRL_WideString& fallbackFamily, int charset,
                        int weight, int italic) {
  Impl& d = *m_impl;
  std::lock_guard<std::mutex> lock(d.manager->m_impl->mutex);
  d.faces.clear();
  d.faceOfChar.clear();
  d.exact = false;
  d.weight = weight;
  d.italic = italic;
  d.chinese = charset == 3;
  d.charset = charset;

  const std::string wanted = ToUtf8(family);
  d.requested = wanted;
  if (!d.manager->IsReady()) return false;
  const std::string fallback = ToUtf8(fallbackFamily);
  FontMatch match;
  bool found = false;
  for (const std::string* name : {&wanted, &fallback}) {
    if (name->empty() || !MatchFont(*name, weight, italic, d.chinese, 0, match)) continue;
    if (std::any_of(match.families.begin(), match.families.end(),
                    [&](const std::string& f) { return SameFamily(f, *name); })) {
      found = true;
      d.exact = name == &wanted;
      break;
    }
  }
  // Neither family is installed: take what fontconfig finds best for the charset.
  if (!found) found = MatchFont(wanted, weight, italic, d.chinese, 0, match);
  if (!found || d.OpenFace(match) != 0) {
    d.faces.clear();
    return false;
  }
  d.familyName = match.families.empty() ? wanted : match.families.front();
  return true;
}

const char* CCA_Font::GetRequestedFamily() const noexcept { return m_impl->requested.c_str(); }

int CCA_Font::GetCharset() const noexcept { return m_impl->charset; }

int CCA_Font::GetWeight() const noexcept { return m_impl->weight; }

int CCA_Font::GetItalic() const noexcept { return m_impl->italic; }

bool CCA_Font::IsLoaded() const noexcept { return !m_impl->faces.empty(); }

bool CCA_Font::IsExactMatch() const noexcept { return IsLoaded() && m_impl->exact; }

const char* CCA_Font::GetFamilyName() const noexcept { return IsLoaded() ? m_impl->familyName.c_str() : ""; }

const char* CCA_Font::GetFilePath() const noexcept { return IsLoaded() ? m_impl->faces[0].path.c_str() : ""; }

float CCA_Font::GetKerning(wchar_t left, wchar_t right, float sizeInPixels) {
  Impl& d = *m_impl;
  if (d.faces.empty() || !(sizeInPixels > 0)) return 0;
  std::lock_guard<std::mutex> lock(d.manager->m_impl->mutex);
  const int faceIndex = d.FaceFor(left);
  if (faceIndex != d.FaceFor(right)) return 0;
  FT_Face face = d.faces[faceIndex].face.get();
  if (!FT_HAS_KERNING(face)) return 0;
  if (FT_Set_Char_Size(face, 0, static_cast<FT_F26Dot6>(std::lround(sizeInPixels * 64.0)), 72, 72) != 0) return 0;
  FT_Vector kern{0, 0};
  if (FT_Get_Kerning(face, FT_Get_Char_Index(face, static_cast<FT_ULong>(left)),
                     FT_Get_Char_Index(face, static_cast<FT_ULong>(right)), FT_KERNING_UNFITTED, &kern) != 0)
    return 0;
  return static_cast<float>(kern.x / 64.0);
}

bool CCA_Font::RenderGlyph(wchar_t ch, float sizeInPixels, const CMRL_Matrix& matrix, float originX,
                           float originY, CA_GlyphImage& image, float& advance) {
  Impl& d = *m_impl;
  image = CA_GlyphImage();
  advance = 0;
  if (d.faces.empty() || !(sizeInPixels > 0) || !std::isfinite(originX) || !std::isfinite(originY)) return false;
  std::lock_guard<std::mutex> lock(d.manager->m_impl->mutex);
  // An origin this far out cannot reach any bitmap, and its pixel position would not fit an int.
  constexpr float kFarAway = 1e8f;
  const bool farAway = std::fabs(originX) > kFarAway || std::fabs(originY) > kFarAway;
  const Impl::Face& entry = d.faces[d.FaceFor(ch)];
  FT_Face face = entry.face.get();
  if (FT_Set_Char_Size(face, 0, static_cast<FT_F26Dot6>(std::lround(sizeInPixels * 64.0)), 72, 72) != 0)
    return false;

  // Text space runs y down like the device; FreeType's glyph space runs y up, hence the signs.
  const double shear = entry.shear;
  FT_Matrix m;
  m.xx = ToFixed(matrix.a);
  m.xy = ToFixed(matrix.a * shear - matrix.c);
  m.yx = ToFixed(-matrix.b);
  m.yy = ToFixed(matrix.d - matrix.b * shear);
  const double ix = std::floor(originX);
  const double iy = std::floor(originY);
  FT_Vector delta{static_cast<FT_Pos>(std::lround((originX - ix) * 64.0)),
                  static_cast<FT_Pos>(-std::lround((originY - iy) * 64.0))};
  FT_Set_Transform(face, &m, &delta);
  const FT_UInt glyph = FT_Get_Char_Index(face, static_cast<FT_ULong>(ch));
  FT_Error error = FT_Load_Glyph(face, glyph, FT_LOAD_NO_BITMAP | FT_LOAD_TARGET_LIGHT);
  FT_Set_Transform(face, nullptr, nullptr);
  if (error != 0) return false;
  FT_GlyphSlot slot = face->glyph;
  advance = static_cast<float>(slot->linearHoriAdvance / 65536.0);
  if (entry.emboldened && slot->format == FT_GLYPH_FORMAT_OUTLINE) {
    const FT_Pos strength = std::max<FT_Pos>(1, std::lround(sizeInPixels * 64.0 / 28.0));
    FT_Outline_Embolden(&slot->outline, strength);
    advance += static_cast<float>(strength / 64.0);
  }
  if (farAway) return true;
  if (FT_Render_Glyph(slot, FT_RENDER_MODE_NORMAL) != 0) return false;
  const FT_Bitmap& bitmap = slot->bitmap;
  if (bitmap.pixel_mode != FT_PIXEL_MODE_GRAY || bitmap.width == 0 || bitmap.rows == 0) return true;

  const int width = static_cast<int>(bitmap.width);
  const int height = static_cast<int>(bitmap.rows);
  const int sourcePitch = bitmap.pitch;
  d.coverage.resize(static_cast<size_t>(width) * height);
  for (int row = 0; row < height; ++row) {
    const unsigned char* from = sourcePitch >= 0 ? bitmap.buffer + static_cast<ptrdiff_t>(row) * sourcePitch
                                                 : bitmap.buffer + static_cast<ptrdiff_t>(height - 1 - row) * -sourcePitch;
    std::memcpy(d.coverage.data() + static_cast<size_t>(row) * width, from, static_cast<size_t>(width));
  }
  image.left = static_cast<int>(ix) + slot->bitmap_left;
  image.top = static_cast<int>(iy) - slot->bitmap_top;
  image.width = width;
  image.height = height;
  image.pitch = width;
  image.coverage = d.coverage.data();
  return true;
}
