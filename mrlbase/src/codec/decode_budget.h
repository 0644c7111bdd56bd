#ifndef MRLBASE_SRC_CODEC_DECODE_BUDGET_H_
#define MRLBASE_SRC_CODEC_DECODE_BUDGET_H_

// Keeping a codec library inside kDecodeMemoryBudget: a counting heap for the libraries that take
// an allocator, and a size estimate for JPEG 2000, whose library takes none and has to be judged
// from its header before it allocates.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "codec/codec_support.h"

namespace mrl_codec {

// A heap for one decode that counts the bytes it has handed out and refuses (gives null) any
// request that would take the count past its limit. Each block carries its size in a small
// header, so Release and Reallocate need no lookup. Not thread-safe: one decode, one heap.
class BudgetHeap {
 public:
  explicit BudgetHeap(size_t limit = kDecodeMemoryBudget) noexcept : limit_(limit) {}
  BudgetHeap(const BudgetHeap&) = delete;
  BudgetHeap& operator=(const BudgetHeap&) = delete;

  // A block of `size` bytes aligned for any type; null when it would pass the limit or malloc
  // fails. A zero size gets a valid, unique block.
  void* Allocate(size_t size) noexcept;
  // Frees a block of this heap; null is ignored.
  void Release(void* block) noexcept;
  // Like realloc: null `block` allocates; on refusal the old block stays valid and null comes back.
  void* Reallocate(void* block, size_t size) noexcept;

  // Bytes in live blocks (headers not counted), the most there ever were, and whether any
  // request has been refused.
  size_t InUse() const noexcept { return inUse_; }
  size_t Peak() const noexcept { return peak_; }
  bool Refused() const noexcept { return refused_; }

 private:
  bool Fits(size_t extra) noexcept;

  size_t limit_;
  size_t inUse_ = 0;
  size_t peak_ = 0;
  bool refused_ = false;
};

// What a JPEG 2000 decode works on, read from the code stream's headers before the library
// sees them (it sets up a record per tile while reading the main header).
struct J2kLayout {
  struct Component {
    uint32_t dx = 1, dy = 1;   // subsampling
  };
  uint32_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;           // image area on the reference grid
  uint32_t tileX0 = 0, tileY0 = 0, tileW = 0, tileH = 0;   // tile grid origin and tile size
  std::vector<Component> components;
  // Coding style, the most demanding found anywhere in the code stream: most resolution
  // levels, smallest code-block and precinct exponents (log2 of their size).
  uint32_t resolutions = 1;
  uint32_t codeBlockWidthExp = 6, codeBlockHeightExp = 6;
  uint32_t precinctWidthExp = 15, precinctHeightExp = 15;
  // Bytes of the code stream, which the library copies tile by tile before decoding.
  uint64_t streamBytes = 0;
  // Channels a palette box expands the first component into (0: no palette).
  uint32_t paletteChannels = 0;
};

// An upper bound of the bytes the JPEG 2000 library holds at once while decoding `layout`:
// its per-tile coding records, the image's component planes as 32-bit samples, one tile's
// planes, the per-code-block and per-precinct bookkeeping, the wavelet line buffers and a
// palette's output planes, and its copy of the code stream. 0 for an empty image or tile.
uint64_t EstimateJ2kDecodeBytes(const J2kLayout& layout) noexcept;

// Reads `layout` from a bare code stream (from its SOC marker): the image and tile grid of the
// SIZ segment, then the coding style segments of the main header and of every tile-part header
// (a tile may use smaller code-blocks or precincts than the main header, which only these
// markers show). Leaves paletteChannels alone. False when the headers are broken.
bool ReadJ2kLayout(const uint8_t* data, size_t size, J2kLayout& layout);

}  // namespace mrl_codec

#endif  // MRLBASE_SRC_CODEC_DECODE_BUDGET_H_
