// The public image corpus through the caller's path, ImageDecode and ImageEncode: every file
// decodes to what an independent reader (PIL, recorded in testdata/corpus_manifest.txt by
// testdata/make_corpus_manifest.py) makes of it or is refused, matches the reference pictures
// the corpus ships, and survives PNG and TIFF round trips.

#include <zelutility/image_codec.h>

#include <gtest/gtest.h>
#include <mrlbase/dib.h>
#include <mrlbase/stream.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using DibPtr = std::unique_ptr<CCA_Dib>;

constexpr int kGrid = 4;      // signature blocks a side, as the manifest writer cuts them
constexpr int kFastPng = 1;   // deflate level of the round trips: the pixels do not depend on it

const std::string kTestData = ZEL_TESTDATA_DIR;
const char* const kRoots[] = {"imagecorpus/files", "pngsuite"};
const char* const kExtensions[] = {".bmp", ".gif", ".jpg", ".jpeg", ".jp2", ".j2k", ".jpx",
                                   ".jpf", ".j2c", ".png", ".tif", ".tiff"};

struct Expectation {
  bool refused = false;
  int width = 0, height = 0;
  int tolerance = 0;
  std::vector<int> signature;   // empty: pixels not compared
  std::string reason;           // set for an argued exception to the oracle
};

struct Twin {
  std::string file, reference;
  int tolerance = 0;
};

struct Manifest {
  std::map<std::string, Expectation> files;
  std::vector<Twin> twins;
  std::string error;   // empty when every line was read
};

bool ReadFile(const std::string& path, Bytes& out) {
  std::ifstream in(path, std::ios::binary);
  out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return static_cast<bool>(in);
}

bool ParseSize(const std::string& text, Expectation& e) {
  return std::sscanf(text.c_str(), "%dx%d", &e.width, &e.height) == 2 && e.width > 0 && e.height > 0;
}

bool ParseSignature(const std::string& hex, std::vector<int>& out) {
  if (hex.size() != kGrid * kGrid * 4 * 2) return false;
  for (size_t i = 0; i < hex.size(); i += 2) out.push_back(std::stoi(hex.substr(i, 2), nullptr, 16));
  return true;
}

// Lines: "file <path> refused", "file <path> <W>x<H> <tolerance> <signature>", "except <path>
// refused <reason>", "except <path> <W>x<H> <tolerance|-> <signature|-> <reason>" and "twin <file>
// <reference> <tolerance>". An exception replaces the oracle's entry for its file.
Manifest LoadManifest() {
  Manifest m;
  std::ifstream in(std::string(ZEL_SOURCE_DIR) + "/src/image/testdata/corpus_manifest.txt");
  if (!in) m.error = "manifest missing";
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    std::istringstream words(line);
    std::string kind, path, verdict;
    words >> kind >> path >> verdict;
    bool ok = true;
    if (kind.empty() || kind[0] == '#') continue;
    if (kind == "file") {
      Expectation e;
      if (verdict == "refused") {
        e.refused = true;
      } else {
        std::string hex;
        ok = ParseSize(verdict, e) && (words >> e.tolerance >> hex) && ParseSignature(hex, e.signature);
      }
      m.files.emplace(path, e);
    } else if (kind == "except") {
      Expectation e;
      e.refused = verdict == "refused";
      if (!e.refused) {
        std::string tolerance, hex;
        ok = ParseSize(verdict, e) && (words >> tolerance >> hex);
        if (ok && tolerance != "-") {
          ok = std::sscanf(tolerance.c_str(), "%d", &e.tolerance) == 1 && ParseSignature(hex, e.signature);
        }
      }
      std::getline(words >> std::ws, e.reason);
      ok = ok && !e.reason.empty();
      m.files[path] = e;
    } else if (kind == "twin") {
      Twin t{path, verdict, 0};
      ok = static_cast<bool>(words >> t.tolerance);
      m.twins.push_back(t);
    } else {
      ok = false;
    }
    if (!ok && m.error.empty()) m.error = "manifest line " + std::to_string(number) + " unreadable: " + line;
  }
  return m;
}

const Manifest& TheManifest() {
  static const Manifest manifest = LoadManifest();
  return manifest;
}

// Corpus files by path below the test data folder; empty when the corpus is absent.
std::set<std::string> CorpusFiles() {
  std::set<std::string> out;
  for (const char* root : kRoots) {
    std::error_code ec;
    for (fs::recursive_directory_iterator it(kTestData + "/" + root, ec), end; !ec && it != end; it.increment(ec)) {
      if (!it->is_regular_file()) continue;
      std::string ext = it->path().extension().string();
      std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
      if (std::find(std::begin(kExtensions), std::end(kExtensions), ext) == std::end(kExtensions)) continue;
      out.insert(fs::relative(it->path(), kTestData).generic_string());
    }
  }
  return out;
}

DibPtr DecodeBytes(const Bytes& bytes) {
  CMRL_MemoryStream in(bytes.data(), bytes.size());
  return DibPtr(ImageDecode(&in));
}

DibPtr DecodeFile(const std::string& rel) {
  Bytes bytes;
  if (!ReadFile(kTestData + "/" + rel, bytes)) return nullptr;
  return DecodeBytes(bytes);
}

// Rows of a bitmap as 0xAARRGGBB pixels: palettes looked up (an index past the palette reads
// black), opaque where the layout has no alpha. Reads the documented memory layout row by row,
// which keeps whole-corpus passes fast.
class ArgbRows {
 public:
  explicit ArgbRows(const CCA_Dib& dib) : dib_(dib), row_(static_cast<size_t>(dib.GetWidth())) {
    for (int i = 0; i < 256; ++i) palette_[i] = 0xFF000000u | (dib.GetPaletteEntry(i) & 0xFFFFFFu);
  }

  const uint32_t* Row(int y) {
    const uint8_t* s = dib_.GetScanline(y);
    uint32_t* out = row_.data();
    const int w = dib_.GetWidth();
    switch (dib_.GetFormat()) {
      case CA_DIB_1bpp:
        for (int x = 0; x < w; ++x) out[x] = palette_[(s[x >> 3] >> (7 - (x & 7))) & 1];
        break;
      case CA_DIB_8bpp:
        for (int x = 0; x < w; ++x) out[x] = palette_[s[x]];
        break;
      case CA_DIB_8bppMask:
        for (int x = 0; x < w; ++x) out[x] = 0xFF000000u | s[x] * 0x010101u;
        break;
      case CA_DIB_Rgb:
        for (int x = 0; x < w; ++x, s += 3) out[x] = 0xFF000000u | s[2] << 16 | s[1] << 8 | s[0];
        break;
      case CA_DIB_Rgb32:
      case CA_DIB_Argb: {
        const uint32_t opaque = dib_.GetFormat() == CA_DIB_Rgb32 ? 0xFF000000u : 0;
        for (int x = 0; x < w; ++x, s += 4) out[x] = opaque | uint32_t{s[3]} << 24 | s[2] << 16 | s[1] << 8 | s[0];
        break;
      }
      default:
        std::fill(row_.begin(), row_.end(), 0u);
    }
    return out;
  }

 private:
  const CCA_Dib& dib_;
  std::vector<uint32_t> row_;
  uint32_t palette_[256];
};

// Block bounds along an axis of n pixels, the same cut as the manifest writer's.
std::pair<int, int> BlockRange(int i, int n) {
  const int lo = static_cast<int>(int64_t{i} * n / kGrid);
  const int hi = std::max(lo + 1, static_cast<int>(int64_t{i + 1} * n / kGrid));
  return {lo, std::min(hi, n)};
}

// Per block (row-major) mean red, green, blue premultiplied by alpha, and mean alpha.
std::vector<int> Signature(const CCA_Dib& dib) {
  ArgbRows rows(dib);
  std::vector<int> out;
  for (int by = 0; by < kGrid; ++by) {
    const auto [y0, y1] = BlockRange(by, dib.GetHeight());
    for (int bx = 0; bx < kGrid; ++bx) {
      const auto [x0, x1] = BlockRange(bx, dib.GetWidth());
      double sum[4] = {};
      for (int y = y0; y < y1; ++y) {
        const uint32_t* row = rows.Row(y);
        for (int x = x0; x < x1; ++x) {
          const uint32_t p = row[x];
          const double a = p >> 24;
          sum[0] += ((p >> 16) & 0xFF) * a / 255;
          sum[1] += ((p >> 8) & 0xFF) * a / 255;
          sum[2] += (p & 0xFF) * a / 255;
          sum[3] += a;
        }
      }
      const double n = static_cast<double>(y1 - y0) * (x1 - x0);
      for (double s : sum) out.push_back(static_cast<int>(std::floor(s / n + 0.5)));
    }
  }
  return out;
}

std::string Describe(const CCA_Dib* dib) {
  return dib ? std::to_string(dib->GetWidth()) + "x" + std::to_string(dib->GetHeight()) : "refused";
}

std::string Describe(const Expectation& e) {
  return e.refused ? "refused" : std::to_string(e.width) + "x" + std::to_string(e.height);
}

// Empty when the signatures agree within the tolerance, else where they differ most.
std::string CompareSignature(const std::vector<int>& got, const Expectation& e) {
  int worst = 0;
  size_t at = 0;
  for (size_t i = 0; i < got.size(); ++i) {
    const int d = std::abs(got[i] - e.signature[i]);
    if (d > worst) worst = d, at = i;
  }
  if (worst <= e.tolerance) return {};
  static const char kChannel[] = "RGBA";
  std::ostringstream s;
  s << "block (" << at / 4 % kGrid << "," << at / 4 / kGrid << ") " << kChannel[at % 4] << " is " << got[at]
    << ", oracle " << e.signature[at] << " (tolerance " << e.tolerance << "); signature";
  for (int v : got) s << ' ' << v;
  return s.str();
}

// The samples a viewer sees: colour premultiplied by alpha (rounded), and alpha.
std::array<int, 4> Visible(uint32_t argb) {
  const int a = static_cast<int>(argb >> 24);
  std::array<int, 4> out{0, 0, 0, a};
  for (int c = 0; c < 3; ++c) out[c] = (static_cast<int>((argb >> (16 - 8 * c)) & 0xFF) * a + 127) / 255;
  return out;
}

// Number of pixels whose samples differ by more than `tolerance`, or -1 when the sizes differ.
// `visible` compares what a viewer sees (colour under transparency does not count), else the
// stored samples.
int CountDifferences(const CCA_Dib& a, const CCA_Dib& b, int tolerance, bool visible) {
  if (a.GetWidth() != b.GetWidth() || a.GetHeight() != b.GetHeight()) return -1;
  ArgbRows rowsA(a), rowsB(b);
  int count = 0;
  for (int y = 0; y < a.GetHeight(); ++y) {
    const uint32_t *rowA = rowsA.Row(y), *rowB = rowsB.Row(y);
    for (int x = 0; x < a.GetWidth(); ++x) {
      const uint32_t p = rowA[x], q = rowB[x];
      if (p == q) continue;
      if (!visible) {
        ++count;
        continue;
      }
      const std::array<int, 4> u = Visible(p), v = Visible(q);
      for (int c = 0; c < 4; ++c) {
        if (std::abs(u[c] - v[c]) > tolerance) {
          ++count;
          break;
        }
      }
    }
  }
  return count;
}

class ImageCorpus : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* root : kRoots) {
      if (!fs::is_directory(kTestData + "/" + root)) GTEST_SKIP() << root << " absent";
    }
    ASSERT_EQ(manifest_.error, "");
  }
  const Manifest& manifest_ = TheManifest();
};

TEST_F(ImageCorpus, EveryFileDecodesToWhatTheOracleSeesOrIsRefused) {
  const std::set<std::string> files = CorpusFiles();
  for (const auto& [path, e] : manifest_.files) {
    if (!files.count(path)) ADD_FAILURE() << path << ": in the manifest but not in the corpus";
  }
  int decoded = 0, refused = 0;
  for (const std::string& path : files) {
    const auto it = manifest_.files.find(path);
    if (it == manifest_.files.end()) {
      ADD_FAILURE() << path << ": not in the manifest (run make_corpus_manifest.py)";
      continue;
    }
    const Expectation& e = it->second;
    const DibPtr dib = DecodeFile(path);
    (dib ? decoded : refused)++;
    if (!dib != e.refused || (dib && (dib->GetWidth() != e.width || dib->GetHeight() != e.height))) {
      ADD_FAILURE() << path << ": we give " << Describe(dib.get()) << ", expected " << Describe(e)
                    << (e.reason.empty() ? "" : " (" + e.reason + ")");
      continue;
    }
    if (dib && !e.signature.empty()) {
      const std::string diff = CompareSignature(Signature(*dib), e);
      if (!diff.empty()) ADD_FAILURE() << path << ": pixels differ from the oracle: " << diff;
    }
  }
  // A corpus that shrank to nothing must not pass quietly.
  EXPECT_GT(decoded, 500);
  EXPECT_GT(refused, 30);
}

TEST_F(ImageCorpus, PicturesMatchTheReferencesShippedWithThem) {
  ASSERT_FALSE(manifest_.twins.empty());
  for (const Twin& t : manifest_.twins) {
    const DibPtr dib = DecodeFile(t.file), reference = DecodeFile(t.reference);
    if (!dib || !reference) {
      ADD_FAILURE() << t.file << " (" << Describe(dib.get()) << ") against " << t.reference << " ("
                    << Describe(reference.get()) << ")";
      continue;
    }
    const int differences = CountDifferences(*dib, *reference, t.tolerance, true);
    EXPECT_EQ(differences, 0) << t.file << " against " << t.reference << " (tolerance " << t.tolerance
                              << "): " << (differences < 0 ? "sizes differ" : "pixels differ");
  }
}

TEST_F(ImageCorpus, EveryDecodedPictureSurvivesPngAndTiffRoundTrips) {
  int checked = 0;
  for (const std::string& path : CorpusFiles()) {
    const DibPtr dib = DecodeFile(path);
    if (!dib) continue;
    ++checked;
    for (CA_ImageFormat format : {CA_IMAGE_Png, CA_IMAGE_Tif}) {
      const char* name = format == CA_IMAGE_Png ? "PNG" : "TIFF";
      CMRL_MemoryStream out;
      if (ImageEncode(dib.get(), format, &out, format == CA_IMAGE_Png ? kFastPng : -1) != 1) {
        ADD_FAILURE() << path << ": encoding as " << name << " failed";
        continue;
      }
      const DibPtr back = DecodeBytes(Bytes(out.GetData(), out.GetData() + out.GetSize()));
      const int differences = back ? CountDifferences(*dib, *back, 0, false) : -1;
      if (differences != 0) {
        ADD_FAILURE() << path << ": " << name << " round trip gives "
                      << (back ? std::to_string(differences) + " different pixels" : "nothing");
      }
    }
  }
  EXPECT_GT(checked, 500);
}

}  // namespace
