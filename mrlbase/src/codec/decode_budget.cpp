#include "codec/decode_budget.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace mrl_codec {

namespace {

// The block header: the size, padded so the block after it keeps malloc's alignment.
constexpr size_t kHeader = alignof(std::max_align_t);
static_assert(kHeader >= sizeof(size_t), "the header must hold a size");

size_t& SizeOf(void* base) noexcept { return *static_cast<size_t*>(base); }
void* BaseOf(void* block) noexcept { return static_cast<unsigned char*>(block) - kHeader; }
void* BlockOf(void* base) noexcept { return static_cast<unsigned char*>(base) + kHeader; }

}  // namespace

bool BudgetHeap::Fits(size_t extra) noexcept {
  if (extra > limit_ - std::min(inUse_, limit_) || extra > SIZE_MAX - kHeader) {
    refused_ = true;
    return false;
  }
  return true;
}

void* BudgetHeap::Allocate(size_t size) noexcept {
  if (!Fits(size)) return nullptr;
  void* base = std::malloc(kHeader + size);
  if (!base) return nullptr;
  SizeOf(base) = size;
  inUse_ += size;
  peak_ = std::max(peak_, inUse_);
  return BlockOf(base);
}

void BudgetHeap::Release(void* block) noexcept {
  if (!block) return;
  void* base = BaseOf(block);
  inUse_ -= SizeOf(base);
  std::free(base);
}

void* BudgetHeap::Reallocate(void* block, size_t size) noexcept {
  if (!block) return Allocate(size);
  void* base = BaseOf(block);
  const size_t old = SizeOf(base);
  if (size > old && !Fits(size - old)) return nullptr;
  void* moved = std::realloc(base, kHeader + size);
  if (!moved) return nullptr;
  SizeOf(moved) = size;
  inUse_ = inUse_ - old + size;
  peak_ = std::max(peak_, inUse_);
  return BlockOf(moved);
}

namespace {

// Bookkeeping the JPEG 2000 library keeps per code-block (its record, the initial segment
// table, its share of two tag trees) and per precinct of a band, with allocator overhead; both
// measured on the library and rounded up.
constexpr double kCodeBlockBytes = 512;
constexpr double kPrecinctBytes = 256;
// Per unit of the longest tile-component side: the wavelet's line buffers (several lanes of
// 32-bit samples, horizontal and vertical).
constexpr double kWaveletBytesPerSample = 64;
// Fixed costs of a decode: code-block sample buffers, the decoder's own records.
constexpr double kFixedBytes = 4.0 * 1024 * 1024;
// The coding records kept for every tile from the main header on, and for every component of
// every tile.
constexpr double kTileRecordBytes = 8192;
constexpr double kTileComponentRecordBytes = 2048;

double CeilDiv(double a, double b) { return b > 0 ? std::ceil(a / b) : a; }
double Pow2(uint32_t e) { return std::ldexp(1.0, static_cast<int>(std::min<uint32_t>(e, 62))); }

// Bookkeeping of one tile-component of `w` x `h` samples.
double TileComponentBookkeeping(double w, double h, const J2kLayout& layout) {
  const uint32_t levels = std::clamp<uint32_t>(layout.resolutions, 1, 33);
  double bytes = 0;
  for (uint32_t r = 0; r < levels; ++r) {
    const double scale = Pow2(levels - 1 - r);
    const double rw = CeilDiv(w, scale), rh = CeilDiv(h, scale);
    const uint32_t pw = layout.precinctWidthExp, ph = layout.precinctHeightExp;
    // Below the lowest resolution a precinct spans half as many band samples as pixels.
    const uint32_t groupW = r == 0 ? pw : std::max<uint32_t>(pw, 1) - 1;
    const uint32_t groupH = r == 0 ? ph : std::max<uint32_t>(ph, 1) - 1;
    const uint32_t cbw = std::min(layout.codeBlockWidthExp, groupW);
    const uint32_t cbh = std::min(layout.codeBlockHeightExp, groupH);
    const double precinctsX = CeilDiv(rw, Pow2(pw)) + 1, precinctsY = CeilDiv(rh, Pow2(ph)) + 1;
    const double bands = r == 0 ? 1 : 3;
    const double bw = r == 0 ? rw : CeilDiv(rw, 2), bh = r == 0 ? rh : CeilDiv(rh, 2);
    const double blocks = (CeilDiv(bw, Pow2(cbw)) + precinctsX) * (CeilDiv(bh, Pow2(cbh)) + precinctsY);
    bytes += bands * (precinctsX * precinctsY * kPrecinctBytes + blocks * kCodeBlockBytes);
  }
  return bytes;
}

}  // namespace

uint64_t EstimateJ2kDecodeBytes(const J2kLayout& layout) noexcept {
  const double width = static_cast<double>(layout.x1) - layout.x0;
  const double height = static_cast<double>(layout.y1) - layout.y0;
  if (width <= 0 || height <= 0 || layout.tileW == 0 || layout.tileH == 0) return 0;
  const double tileW = std::min<double>(layout.tileW, width), tileH = std::min<double>(layout.tileH, height);
  // One whole-image tile is decoded straight into the image's planes; otherwise each tile gets
  // its own planes before it is copied out.
  const bool singleTile = layout.tileX0 == 0 && layout.tileY0 == 0 && layout.x0 == 0 && layout.y0 == 0 &&
                          layout.tileW == layout.x1 && layout.tileH == layout.y1;
  // Tiles are numbered from the grid origin, whether or not the image starts there. A grid origin
  // past the image is invalid and left for the library to refuse.
  const double tiles = std::max(0.0, CeilDiv(static_cast<double>(layout.x1) - layout.tileX0, layout.tileW)) *
                       std::max(0.0, CeilDiv(static_cast<double>(layout.y1) - layout.tileY0, layout.tileH));
  const double records = kTileRecordBytes + kTileComponentRecordBytes * static_cast<double>(layout.components.size());
  double bytes = kFixedBytes + static_cast<double>(layout.streamBytes) + tiles * records;
  double longestSide = 0;
  bool first = true;
  for (const J2kLayout::Component& c : layout.components) {
    const double dx = std::max<uint32_t>(c.dx, 1), dy = std::max<uint32_t>(c.dy, 1);
    const double planeW = CeilDiv(layout.x1, dx) - CeilDiv(layout.x0, dx);
    const double planeH = CeilDiv(layout.y1, dy) - CeilDiv(layout.y0, dy);
    const double plane = planeW * planeH * 4;
    bytes += plane;
    if (first && layout.paletteChannels) bytes += plane * layout.paletteChannels;
    first = false;
    // A tile not aligned with the subsampling can reach one sample further.
    const double tw = CeilDiv(tileW, dx) + 1, th = CeilDiv(tileH, dy) + 1;
    if (!singleTile) bytes += tw * th * 4;
    bytes += TileComponentBookkeeping(tw, th, layout);
    longestSide = std::max({longestSide, tw, th});
  }
  bytes += (longestSide + 8) * kWaveletBytesPerSample;
  return bytes >= 9.0e18 ? UINT64_MAX : static_cast<uint64_t>(bytes);
}

namespace {

uint32_t Be16(const uint8_t* p) { return (uint32_t{p[0]} << 8) | p[1]; }
uint32_t Be32(const uint8_t* p) { return (Be16(p) << 16) | Be16(p + 2); }

constexpr uint32_t kSiz = 0xFF51, kSoc = 0xFF4F, kSot = 0xFF90, kSod = 0xFF93, kCod = 0xFF52, kCoc = 0xFF53;

// Folds one coding style body (from the number of decomposition levels on) into `layout`.
void TakeCodingStyle(bool precincts, const uint8_t* p, size_t size, J2kLayout& layout) {
  if (size < 3) return;
  const uint32_t resolutions = p[0] + 1u;
  layout.resolutions = std::max(layout.resolutions, resolutions);
  layout.codeBlockWidthExp = std::min<uint32_t>(layout.codeBlockWidthExp, (p[1] & 0x0F) + 2u);
  layout.codeBlockHeightExp = std::min<uint32_t>(layout.codeBlockHeightExp, (p[2] & 0x0F) + 2u);
  if (!precincts || size < 5) return;
  for (size_t i = 5; i < size && i < 5 + resolutions; ++i) {
    layout.precinctWidthExp = std::min<uint32_t>(layout.precinctWidthExp, p[i] & 0x0F);
    layout.precinctHeightExp = std::min<uint32_t>(layout.precinctHeightExp, p[i] >> 4);
  }
}

// Reads the marker segments from `pos` up to SOT (main header) or SOD (tile-part header).
// The position after the closing marker, or 0 when the segments run out of the data.
size_t ScanHeader(const uint8_t* data, size_t size, size_t pos, uint32_t until, J2kLayout& layout) {
  const size_t componentBytes = layout.components.size() > 256 ? 2 : 1;
  while (size - pos >= 2) {
    const uint32_t marker = Be16(data + pos);
    if (marker == until) return pos + 2;
    if (size - pos < 4) return 0;
    const size_t length = Be16(data + pos + 2);
    if (length < 2 || size - pos - 2 < length) return 0;
    const uint8_t* body = data + pos + 4;
    const size_t bodySize = length - 2;
    if (marker == kCod && bodySize >= 5) {
      TakeCodingStyle(body[0] & 1, body + 5, bodySize - 5, layout);
    } else if (marker == kCoc && bodySize >= componentBytes + 1) {
      TakeCodingStyle(body[componentBytes] & 1, body + componentBytes + 1, bodySize - componentBytes - 1, layout);
    }
    pos += 2 + length;
  }
  return 0;
}

// The SIZ segment body: image and tile grid, then three bytes per component.
bool TakeSize(const uint8_t* p, size_t size, J2kLayout& layout) {
  if (size < 36) return false;
  layout.x1 = Be32(p + 2);
  layout.y1 = Be32(p + 6);
  layout.x0 = Be32(p + 10);
  layout.y0 = Be32(p + 14);
  layout.tileW = Be32(p + 18);
  layout.tileH = Be32(p + 22);
  layout.tileX0 = Be32(p + 26);
  layout.tileY0 = Be32(p + 30);
  const size_t count = Be16(p + 34);
  if (count == 0 || size < 36 + 3 * count) return false;
  layout.components.clear();
  for (size_t i = 0; i < count; ++i) layout.components.push_back({p[37 + 3 * i], p[38 + 3 * i]});
  return true;
}

}  // namespace

bool ReadJ2kLayout(const uint8_t* data, size_t size, J2kLayout& layout) {
  if (size < 6 || Be16(data) != kSoc || Be16(data + 2) != kSiz) return false;
  layout.streamBytes = size;
  const size_t sizLength = Be16(data + 4);
  if (sizLength < 2 || size - 4 < sizLength || !TakeSize(data + 6, sizLength - 2, layout)) return false;
  size_t pos = ScanHeader(data, size, 4 + sizLength, kSot, layout);
  if (pos == 0) return false;
  pos -= 2;   // back to the SOT marker
  // Tile-parts follow one another by their stated lengths; a length of 0 runs to the end.
  while (size - pos >= 12 && Be16(data + pos) == kSot) {
    const size_t partLength = Be32(data + pos + 6);
    if (ScanHeader(data, size, pos + 12, kSod, layout) == 0) break;
    if (partLength < 14 || size - pos < partLength) break;
    pos += partLength;
  }
  return true;
}

}  // namespace mrl_codec
