// ImageDecode / ImageEncode of an A4 page (150 dpi, 24 bpp) in PNG and JPEG, each beside the same
// work done by calling libpng or libjpeg-turbo directly with the same settings: the difference is
// what the codec layer costs. The JPEG decode is also timed on an A4 page at 300 dpi, against
// libjpeg-turbo writing into a malloc'd buffer (nothing zeroed, no copy of the file). The page has far more than 256 colours, so its GIF encode goes
// through giflib's quantizer; that is timed beside the bare quantizer call.
#include <benchmark/benchmark.h>
#include <gif_lib.h>
#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <jpeglib.h>
#include <memory>
#include <vector>

#include <mrlbase/dib.h>
#include <mrlbase/stream.h>
#include <zelutility/image_codec.h>

namespace {

constexpr int kWidth = 1240, kHeight = 1754;   // A4 at 150 dpi
constexpr int kWidth300 = 2480, kHeight300 = 3508;   // A4 at 300 dpi
constexpr int kPngLevel = 6, kJpegQuality = 90;

// A page-like picture: white paper, dark strokes of "text", a gray band and a colour photo area,
// laid out on the 150 dpi grid (`scale` 2 draws the same page at 300 dpi).
std::unique_ptr<CCA_Dib> DrawPage(int scale) {
  const int width = kWidth * scale, height = kHeight * scale;
  std::unique_ptr<CCA_Dib> dib(new CCA_Dib);
  dib->Create(width, height, CA_DIB_Rgb);
  uint32_t seed = 1;
  for (int y = 0; y < height; ++y) {
    uint8_t* row = dib->GetScanline(y);
    const int py = y / scale;
    for (int x = 0; x < width; ++x) {
      seed = seed * 1664525u + 1013904223u;
      const int px = x / scale;
      uint8_t b = 250, g = 250, r = 250;
      const bool textLine = (py / 24) % 2 == 0 && py > 150 && py < 1200 && px > 120 && px < 1120;
      if (textLine && ((px / 7 + py / 3) % 5 == 0 || (seed >> 28) == 0)) b = g = r = 30;
      if (py >= 1250 && py < 1650 && px >= 200 && px < 1040) {
        r = static_cast<uint8_t>(x * 255 / width);
        g = static_cast<uint8_t>(y * 255 / height);
        b = static_cast<uint8_t>(128 + ((seed >> 26) & 15));
      }
      row[3 * x] = b;
      row[3 * x + 1] = g;
      row[3 * x + 2] = r;
    }
  }
  return dib;
}

const CCA_Dib& Page() {
  static const std::unique_ptr<CCA_Dib> page = DrawPage(1);
  return *page;
}

std::vector<uint8_t> EncodedPage(CA_ImageFormat format, int quality, const CCA_Dib& page = Page()) {
  CMRL_MemoryStream out;
  ImageEncode(const_cast<CCA_Dib*>(&page), format, &out, quality, 0, 0);
  return out.TakeData();
}

const std::vector<uint8_t>& PngFile() {
  static const std::vector<uint8_t> file = EncodedPage(CA_IMAGE_Png, kPngLevel);
  return file;
}
const std::vector<uint8_t>& JpegFile() {
  static const std::vector<uint8_t> file = EncodedPage(CA_IMAGE_Jpeg, kJpegQuality);
  return file;
}

const std::vector<uint8_t>& Jpeg300File() {
  static const std::vector<uint8_t> file = EncodedPage(CA_IMAGE_Jpeg, kJpegQuality, *DrawPage(2));
  return file;
}

void SetRate(benchmark::State& state, int pixels = kWidth * kHeight) {
  state.counters["MPix/s"] = benchmark::Counter(static_cast<double>(pixels) * state.iterations() / 1e6,
                                                benchmark::Counter::kIsRate);
}

// ---- PNG ----

void BM_PngDecode_ImageDecode(benchmark::State& state) {
  CMRL_MemoryStream in(PngFile().data(), PngFile().size());
  for (auto _ : state) {
    std::unique_ptr<CCA_Dib> dib(ImageDecode(&in));
    benchmark::DoNotOptimize(dib.get());
  }
  SetRate(state);
}

struct Cursor {
  const uint8_t* data;
  size_t size, pos;
};

void BM_PngDecode_Libpng(benchmark::State& state) {
  for (auto _ : state) {
    Cursor cursor{PngFile().data(), PngFile().size(), 0};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    std::vector<uint8_t> pixels;
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(png))) state.SkipWithError("libpng failed");
    png_set_read_fn(png, &cursor, [](png_structp p, png_bytep out, png_size_t n) {
      auto* c = static_cast<Cursor*>(png_get_io_ptr(p));
      std::memcpy(out, c->data + c->pos, n);
      c->pos += n;
    });
    png_read_info(png, info);
    png_set_bgr(png);
    png_read_update_info(png, info);
    const size_t pitch = (png_get_rowbytes(png, info) + 3) & ~size_t{3};
    pixels.assign(pitch * kHeight, 0);
    for (int y = 0; y < kHeight; ++y) rows.push_back(&pixels[pitch * y]);
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    benchmark::DoNotOptimize(pixels.data());
  }
  SetRate(state);
}

void BM_PngEncode_ImageEncode(benchmark::State& state) {
  for (auto _ : state) {
    CMRL_MemoryStream out;
    ImageEncode(const_cast<CCA_Dib*>(&Page()), CA_IMAGE_Png, &out, kPngLevel, 0, 0);
    benchmark::DoNotOptimize(out.GetData());
  }
  SetRate(state);
}

void BM_PngEncode_Libpng(benchmark::State& state) {
  const CCA_Dib& page = Page();
  for (auto _ : state) {
    std::vector<uint8_t> out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(png))) state.SkipWithError("libpng failed");
    png_set_write_fn(png, &out, [](png_structp p, png_bytep data, png_size_t n) {
      auto* v = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(p));
      v->insert(v->end(), data, data + n);
    }, [](png_structp) {});
    png_set_compression_level(png, kPngLevel);
    png_set_IHDR(png, info, kWidth, kHeight, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_bgr(png);
    for (int y = 0; y < kHeight; ++y) rows.push_back(page.GetScanline(y));
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    benchmark::DoNotOptimize(out.data());
  }
  SetRate(state);
}

// ---- JPEG ----

void BM_JpegDecode_ImageDecode(benchmark::State& state) {
  CMRL_MemoryStream in(JpegFile().data(), JpegFile().size());
  for (auto _ : state) {
    std::unique_ptr<CCA_Dib> dib(ImageDecode(&in));
    benchmark::DoNotOptimize(dib.get());
  }
  SetRate(state);
}

void BM_JpegDecode_Libjpeg(benchmark::State& state) {
  for (auto _ : state) {
    jpeg_decompress_struct d;
    jpeg_error_mgr err;
    d.err = jpeg_std_error(&err);
    jpeg_create_decompress(&d);
    jpeg_mem_src(&d, JpegFile().data(), JpegFile().size());
    jpeg_read_header(&d, TRUE);
    d.out_color_space = JCS_EXT_BGR;
    jpeg_start_decompress(&d);
    const size_t pitch = (static_cast<size_t>(d.output_width) * 3 + 3) & ~size_t{3};
    std::vector<uint8_t> pixels(pitch * d.output_height);
    while (d.output_scanline < d.output_height) {
      JSAMPROW row = &pixels[pitch * d.output_scanline];
      jpeg_read_scanlines(&d, &row, 1);
    }
    jpeg_finish_decompress(&d);
    jpeg_destroy_decompress(&d);
    benchmark::DoNotOptimize(pixels.data());
  }
  SetRate(state);
}

// The 300 dpi page: the stream is the caller's, made once, as a caller holding a file in memory has.
void BM_JpegDecode300_ImageDecode(benchmark::State& state) {
  CMRL_MemoryStream in(Jpeg300File().data(), Jpeg300File().size());
  for (auto _ : state) {
    std::unique_ptr<CCA_Dib> dib(ImageDecode(&in));
    if (!dib) state.SkipWithError("ImageDecode failed");
    benchmark::DoNotOptimize(dib.get());
  }
  SetRate(state, kWidth300 * kHeight300);
}

// The least a caller can do: the library reads the bytes where they are and writes BGR rows into
// a malloc'd buffer with the bitmap's 4-byte row pitch.
void BM_JpegDecode300_Libjpeg(benchmark::State& state) {
  const std::vector<uint8_t>& file = Jpeg300File();
  for (auto _ : state) {
    jpeg_decompress_struct d;
    jpeg_error_mgr err;
    d.err = jpeg_std_error(&err);
    jpeg_create_decompress(&d);
    jpeg_mem_src(&d, file.data(), file.size());
    jpeg_read_header(&d, TRUE);
    d.out_color_space = JCS_EXT_BGR;
    jpeg_start_decompress(&d);
    const size_t pitch = (static_cast<size_t>(d.output_width) * 3 + 3) & ~size_t{3};
    const std::unique_ptr<uint8_t, decltype(&std::free)> pixels(
        static_cast<uint8_t*>(std::malloc(pitch * d.output_height)), &std::free);
    while (d.output_scanline < d.output_height) {
      JSAMPROW row = pixels.get() + pitch * d.output_scanline;
      jpeg_read_scanlines(&d, &row, 1);
    }
    jpeg_finish_decompress(&d);
    jpeg_destroy_decompress(&d);
    benchmark::DoNotOptimize(pixels.get());
  }
  SetRate(state, kWidth300 * kHeight300);
}

void BM_JpegEncode_ImageEncode(benchmark::State& state) {
  for (auto _ : state) {
    CMRL_MemoryStream out;
    ImageEncode(const_cast<CCA_Dib*>(&Page()), CA_IMAGE_Jpeg, &out, kJpegQuality, 0, 0);
    benchmark::DoNotOptimize(out.GetData());
  }
  SetRate(state);
}

void BM_JpegEncode_Libjpeg(benchmark::State& state) {
  const CCA_Dib& page = Page();
  for (auto _ : state) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = kWidth;
    c.image_height = kHeight;
    c.input_components = 3;
    c.in_color_space = JCS_EXT_BGR;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, kJpegQuality, TRUE);
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
      JSAMPROW row = page.GetScanline(static_cast<int>(c.next_scanline));
      jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    benchmark::DoNotOptimize(out);
    free(out);
  }
  SetRate(state);
}

// ---- GIF of more than 256 colours ----

void BM_GifEncode_ImageEncode(benchmark::State& state) {
  for (auto _ : state) {
    CMRL_MemoryStream out;
    ImageEncode(const_cast<CCA_Dib*>(&Page()), CA_IMAGE_Gif, &out, -1, 0, 0);
    benchmark::DoNotOptimize(out.GetData());
  }
  SetRate(state);
}

// The quantizer alone, on planes split once outside the loop: the bulk of the encode above.
void BM_GifQuantize_Giflib(benchmark::State& state) {
  const CCA_Dib& page = Page();
  const size_t n = static_cast<size_t>(kWidth) * kHeight;
  std::vector<GifByteType> r(n), g(n), b(n), pixels(n);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const uint8_t* p = page.GetScanline(y) + 3 * x;
      const size_t i = static_cast<size_t>(y) * kWidth + x;
      b[i] = p[0];
      g[i] = p[1];
      r[i] = p[2];
    }
  for (auto _ : state) {
    int size = 256;
    GifColorType colors[256];
    if (GifQuantizeBuffer(kWidth, kHeight, &size, r.data(), g.data(), b.data(), pixels.data(), colors) != GIF_OK)
      state.SkipWithError("GifQuantizeBuffer failed");
    benchmark::DoNotOptimize(pixels.data());
  }
  SetRate(state);
}

BENCHMARK(BM_PngDecode_ImageDecode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PngDecode_Libpng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PngEncode_ImageEncode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PngEncode_Libpng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_JpegDecode_ImageDecode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_JpegDecode_Libjpeg)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_JpegDecode300_ImageDecode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_JpegDecode300_Libjpeg)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_JpegEncode_ImageEncode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_JpegEncode_Libjpeg)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GifEncode_ImageEncode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GifQuantize_Giflib)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
