// JBIG2 files (with their file header) over jbig2dec. Decode only: there is no encoder.
// A page counts only when the file itself ends it; a cut file gives no page and so null.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "codec/codec_support.h"
#include "codec/decode_budget.h"

// jbig2.h uses the fixed-width types without including their header.
#include <jbig2.h>

namespace mrl_codec {
namespace {

void NoteError(void* data, const char*, Jbig2Severity severity, uint32_t) {
  if (severity == JBIG2_SEVERITY_FATAL) *static_cast<bool*>(data) = true;
}

uint32_t Be32(const uint8_t* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
}

// Walks the segment headers of a sequential file and checks that every segment, the closing
// ones included, lies inside the data: jbig2dec itself waits quietly for more bytes, so a file
// cut inside a segment would otherwise pass. Random-access files (all headers first) are left
// to jbig2dec.
bool SegmentsComplete(const uint8_t* data, size_t size) {
  if (size < 9) return false;
  const uint8_t flags = data[8];
  if (!(flags & 1)) return true;
  size_t pos = (flags & 2) ? 9 : 13;
  if (pos > size) return false;
  while (pos < size) {
    if (size - pos < 6) return false;
    const uint32_t number = Be32(data + pos);
    const uint8_t segmentFlags = data[pos + 4];
    pos += 5;
    uint32_t referred = data[pos] >> 5;
    size_t countBytes = 1;
    if (referred == 7) {   // long form: 4 bytes of count, then the retain bits
      if (size - pos < 4) return false;
      referred = Be32(data + pos) & 0x1FFFFFFF;
      countBytes = 4 + (referred + 8) / 8;
    } else if (referred > 4) {
      return false;
    }
    const size_t numberBytes = number <= 256 ? 1 : number <= 65536 ? 2 : 4;
    const size_t pageBytes = (segmentFlags & 0x40) ? 4 : 1;
    const size_t headerRest = countBytes + referred * numberBytes + pageBytes + 4;
    if (referred > size || size - pos < headerRest) return false;
    pos += headerRest;
    const uint32_t length = Be32(data + pos - 4);
    // An unknown length (immediate generic region) is left for jbig2dec to find.
    if (length == 0xFFFFFFFFu) return true;
    if (size - pos < length) return false;
    pos += length;
    if ((segmentFlags & 0x3F) == 51) return true;   // end of file
  }
  return true;
}

// jbig2dec's allocator interface over a BudgetHeap: the library sees a refused request as an
// out-of-memory failure and gives up on the file.
struct BudgetAllocator {
  Jbig2Allocator hooks{Allocate, Release, Reallocate};
  BudgetHeap heap;

  static BudgetHeap& HeapOf(Jbig2Allocator* a) { return reinterpret_cast<BudgetAllocator*>(a)->heap; }
  static void* Allocate(Jbig2Allocator* a, size_t size) { return HeapOf(a).Allocate(size); }
  static void Release(Jbig2Allocator* a, void* p) { HeapOf(a).Release(p); }
  static void* Reallocate(Jbig2Allocator* a, void* p, size_t size) { return HeapOf(a).Reallocate(p, size); }
};
static_assert(std::is_standard_layout<BudgetAllocator>::value, "hooks must sit at the start");

struct ContextFree {
  void operator()(Jbig2Ctx* ctx) const { jbig2_ctx_free(ctx); }
};

class Jb2Decoder final : public DecoderBase {
 protected:
  bool Accepts(const uint8_t* head, size_t size) const override { return IsJb2Signature(head, size); }

  DibPtr DecodeFile(const uint8_t* data, size_t size, int frame) override {
    if (!SegmentsComplete(data, size)) return nullptr;
    bool fatal = false;
    BudgetAllocator allocator;   // outlives the context, which it also holds
    std::unique_ptr<Jbig2Ctx, ContextFree> ctx(
        jbig2_ctx_new(&allocator.hooks, static_cast<Jbig2Options>(0), nullptr, NoteError, &fatal));
    if (!ctx) return nullptr;
    if (jbig2_data_in(ctx.get(), data, size) < 0 || fatal || allocator.heap.Refused()) return nullptr;
    DibPtr dib;
    for (int page = 0; page <= frame; ++page) {
      Jbig2Image* image = jbig2_page_out(ctx.get());
      if (!image) return nullptr;
      if (page == frame && !fatal && !allocator.heap.Refused()) dib = ToDib(*image);
      jbig2_release_page(ctx.get(), image);
    }
    return dib;
  }

 private:
  static DibPtr ToDib(const Jbig2Image& image) {
    if (image.width == 0 || image.height == 0 || image.width > 0x7FFFFFFF || image.height > 0x7FFFFFFF) return nullptr;
    if (image.stride < (image.width + 7) / 8) return nullptr;
    DibPtr dib = NewDib(static_cast<int>(image.width), static_cast<int>(image.height), CA_DIB_1bpp);
    if (!dib) return nullptr;
    const unsigned palette[2] = {0xFFFFFFu, 0x000000u};   // a set bit is black ink
    dib->SetPalette(palette, 2);
    const size_t rowBytes = (image.width + 7) / 8;
    for (uint32_t y = 0; y < image.height; ++y) {
      std::memcpy(dib->GetScanline(static_cast<int>(y)), image.data + static_cast<size_t>(y) * image.stride, rowBytes);
    }
    return dib;
  }
};

}  // namespace

ICA_ImageDecoder* NewJb2Decoder() { return new Jb2Decoder; }

}  // namespace mrl_codec
