#include <zelutility/image_codec.h>

#include <mrlbase/codec.h>
#include <mrlbase/dib.h>
#include <mrlbase/stream.h>

#include <memory>
#include <string>

CCA_Dib* ImageDecode(IMRL_StreamRead* stream) {
  const CA_ImageFormat format = CA_GetImageFormat(stream);
  CCA_CodecFactory* factory = CCA_Context::Get()->GetCodecFactory();
  // The factory decides what it can read, unknown formats included.
  std::unique_ptr<ICA_ImageDecoder> decoder(factory->CreateImageDecoder(format));
  if (!decoder) return nullptr;
  if (decoder->SetStream(stream, 1) == 0) return nullptr;
  return decoder->Decode(0, 0, 0);   // the bitmap outlives the decoder
}

CCA_Dib* ImageDecodeFile(const char* utf8Path) {
  if (utf8Path == nullptr || utf8Path[0] == '\0') return nullptr;
  std::unique_ptr<CMRL_FileStream> file = CMRL_FileStream::Open(utf8Path, false);
  if (!file || file->GetSize() == 0) return nullptr;
  return ImageDecode(file.get());
}

CCA_Dib* ImageDecodeBytes(const void* data, size_t size) {
  if (data == nullptr || size == 0) return nullptr;
  CMRL_MemoryStream bytes(data, size);
  return ImageDecode(&bytes);
}

int ImageEncode(CCA_Dib* dib, CA_ImageFormat format, IMRL_StreamWrite* stream, int first, int second, int third) {
  std::unique_ptr<ICA_ImageEncoder> encoder(CCA_Context::Get()->GetCodecFactory()->CreateImageEncoder(format));
  if (!encoder) return 0;
  encoder->SetQuality(&first);
  encoder->SetResolution(&second, &third);
  return encoder->Encode(dib, stream);
}

struct LXImageProcess::Record {
  std::string firstName;
  std::string secondName;
  std::string errorMessage;
  bool flag = false;
};

LXImageProcess::LXImageProcess(const char* firstName, const char* secondName)
    : m_record(new Record{firstName ? firstName : "", secondName ? secondName : "", std::string(), false}) {}

LXImageProcess::~LXImageProcess() {
  delete m_record;
  m_record = nullptr;
}

LXImageProcess& LXImageProcess::operator=(const LXImageProcess& other) {
  if (this != &other) *m_record = *other.m_record;
  return *this;
}

const char* LXImageProcess::ErrorMessage() const { return m_record->errorMessage.c_str(); }

bool LXImageProcess::AutoRotation(const CCA_Dib*, CCA_Dib*) { return false; }

bool LXImageProcess::AutoBrightnessContrastRatio(const CCA_Dib*, CCA_Dib*) { return false; }

int LXImageProcess::DetectionBlankPage(const CCA_Dib*) { return -1; }

bool LXImageProcess::RemoveBlackMatte(const CCA_Dib*, double, double, double, double, CCA_Dib*) { return false; }

CCA_Dib* AlphaBlending(const CCA_Dib*, unsigned int) { return nullptr; }

CCA_Dib* ImageBinary(const CCA_Dib*) { return nullptr; }
