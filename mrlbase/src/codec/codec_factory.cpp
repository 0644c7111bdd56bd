#include "codec/codec_support.h"

using namespace mrl_codec;

CCA_CodecFactory::~CCA_CodecFactory() = default;

ICA_ImageDecoder* CCA_CodecFactory::CreateImageDecoder(CA_ImageFormat format) {
  switch (format) {
    case CA_IMAGE_Bmp: return NewBmpDecoder();
    case CA_IMAGE_Gif: return NewGifDecoder();
    case CA_IMAGE_Jpeg: return NewJpegDecoder();
    case CA_IMAGE_Jpeg2000: return NewJp2Decoder();
    case CA_IMAGE_Jb2: return NewJb2Decoder();
    case CA_IMAGE_Png: return NewPngDecoder();
    case CA_IMAGE_Tif: return NewTiffDecoder();
    default: return nullptr;
  }
}

ICA_ImageEncoder* CCA_CodecFactory::CreateImageEncoder(CA_ImageFormat format) {
  switch (format) {
    case CA_IMAGE_Bmp: return NewBmpEncoder();
    case CA_IMAGE_Gif: return NewGifEncoder();
    case CA_IMAGE_Jpeg: return NewJpegEncoder();
    case CA_IMAGE_Jpeg2000: return NewJp2Encoder();
    case CA_IMAGE_Png: return NewPngEncoder();
    case CA_IMAGE_Tif: return NewTiffEncoder();
    default: return nullptr;   // JB2 is read-only
  }
}

CCA_Context* CCA_Context::Get() {
  static CCA_Context context;
  return &context;
}

CCA_CodecFactory* CCA_Context::GetCodecFactory() {
  CCA_CodecFactory* installed = installed_.load(std::memory_order_acquire);
  return installed ? installed : &builtin_;
}

CCA_CodecFactory* CCA_Context::SetCodecFactory(CCA_CodecFactory* factory) noexcept {
  return installed_.exchange(factory, std::memory_order_acq_rel);
}
