#include "codec/codec_support.h"

#include <cstring>

namespace mrl_codec {
namespace {

bool StartsWith(const uint8_t* head, size_t size, const void* magic, size_t length) {
  return size >= length && std::memcmp(head, magic, length) == 0;
}

}  // namespace

bool IsBmpSignature(const uint8_t* head, size_t size) { return StartsWith(head, size, "BM", 2); }

bool IsPngSignature(const uint8_t* head, size_t size) {
  return StartsWith(head, size, "\x89PNG\r\n\x1a\n", 8);
}

bool IsJpegSignature(const uint8_t* head, size_t size) { return StartsWith(head, size, "\xFF\xD8\xFF", 3); }

bool IsGifSignature(const uint8_t* head, size_t size) {
  return StartsWith(head, size, "GIF87a", 6) || StartsWith(head, size, "GIF89a", 6);
}

bool IsTiffSignature(const uint8_t* head, size_t size) {
  // Classic TIFF (42) and BigTIFF (43), in either byte order.
  return StartsWith(head, size, "II*\0", 4) || StartsWith(head, size, "MM\0*", 4) ||
         StartsWith(head, size, "II+\0", 4) || StartsWith(head, size, "MM\0+", 4);
}

bool IsJp2Signature(const uint8_t* head, size_t size) {
  return StartsWith(head, size, "\0\0\0\x0CjP  \r\n\x87\n", 12) || StartsWith(head, size, "\xFF\x4F\xFF\x51", 4);
}

bool IsJb2Signature(const uint8_t* head, size_t size) {
  return StartsWith(head, size, "\x97JB2\r\n\x1a\n", 8);
}

}  // namespace mrl_codec

CA_ImageFormat CA_GetImageFormat(IMRL_StreamRead* stream) {
  using namespace mrl_codec;
  uint8_t head[kSignatureBytes];
  const size_t n = ReadHead(stream, head, sizeof head);
  if (IsPngSignature(head, n)) return CA_IMAGE_Png;
  if (IsJpegSignature(head, n)) return CA_IMAGE_Jpeg;
  if (IsGifSignature(head, n)) return CA_IMAGE_Gif;
  if (IsTiffSignature(head, n)) return CA_IMAGE_Tif;
  if (IsJp2Signature(head, n)) return CA_IMAGE_Jpeg2000;
  if (IsJb2Signature(head, n)) return CA_IMAGE_Jb2;
  if (IsBmpSignature(head, n)) return CA_IMAGE_Bmp;
  return CA_IMAGE_None;
}
