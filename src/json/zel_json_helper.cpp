#include <zelutility/json_helper.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <utility>

#include <mrlbase/byte_string_converter.h>
#include <zelutility/json_factory.h>

#include "base/color_word.h"

namespace {

std::shared_ptr<ZELJson> NewArray() {
  return ZELJsonFactory::ParseJsonString("[]", static_cast<unsigned int>(-1), nullptr);
}

std::shared_ptr<ZELJson> IntArray(std::initializer_list<int> values) {
  std::shared_ptr<ZELJson> node = NewArray();
  int index = 0;
  for (int v : values) node->InsertInt(index++, v);
  return node;
}

std::shared_ptr<ZELJson> FloatArray(std::initializer_list<float> values) {
  std::shared_ptr<ZELJson> node = NewArray();
  int index = 0;
  for (float v : values) node->InsertFloat(index++, v);
  return node;
}

// Truncation toward zero; anything outside int (NaN included) gives INT_MIN, as the hardware
// conversion does.
int TruncateToInt(double value) noexcept {
  if (value > -2147483649.0 && value < 2147483648.0) return static_cast<int>(value);
  return INT_MIN;
}

// Truncation to a 64-bit integer, then its low 32 bits: -1.5 gives 0xFFFFFFFF. Outside the
// 64-bit range the conversion gives INT64_MIN, whose low half is 0.
unsigned int TruncateToLow32(double value) noexcept {
  int64_t truncated = INT64_MIN;
  if (value >= -9223372036854775808.0 && value < 9223372036854775808.0) {
    truncated = static_cast<int64_t>(value);
  }
  return static_cast<unsigned int>(static_cast<uint64_t>(truncated));
}

// The exact decimal expansion of a double ends at most 1074 places after the point (2^-1074),
// so every "%.Nf" decimal beyond that is a zero. Formatting only that far and padding keeps a
// large decimal-places argument from making the runtime grind out the zeros one by one.
constexpr int kExactDecimals = 1074;

// The whole "%.Nf" text, however long: a small stack buffer first, the exact size when needed.
// Only a text longer than a string can hold gives the empty text.
CMRL_ByteString FormatFixed(double value, int decimalPlaces) {
  const int precision = decimalPlaces > 0 ? decimalPlaces : 6;
  const int formatted = std::min(precision, kExactDecimals);
  char small[64];
  const int length = std::snprintf(small, sizeof small, "%.*f", formatted, value);
  if (length < 0) return CMRL_ByteString();
  // "inf" and "nan" take no decimals at all.
  const int64_t padding = std::isfinite(value) ? int64_t{precision} - formatted : 0;
  if (padding == 0 && length < static_cast<int>(sizeof small)) return CMRL_ByteString(small, length);
  const int64_t total = int64_t{length} + padding;
  if (total >= INT_MAX) return CMRL_ByteString();
  CMRL_ByteString text;
  char* buffer = text.GetBuffer(static_cast<int>(total));
  std::snprintf(buffer, static_cast<size_t>(length) + 1, "%.*f", formatted, value);
  std::memset(buffer + length, '0', static_cast<size_t>(padding));
  text.ReleaseBuffer(static_cast<int>(total));
  return text;
}

// Element i of an array node through the scalar conversions; a missing element is a null node.
int IntAt(const std::shared_ptr<const ZELJson>& json, int index) {
  return ZELJsonHelper::ToInt(json->GetChild(index));
}

float FloatAt(const std::shared_ptr<const ZELJson>& json, int index) {
  return ZELJsonHelper::ToFloat(json->GetChild(index));
}

bool IsArray(const std::shared_ptr<const ZELJson>& json) {
  return json && json->GetType() == ZELJsonArray;
}

}  // namespace

ZELJsonHelper& ZELJsonHelper::operator=(const ZELJsonHelper&) noexcept { return *this; }
ZELJsonHelper& ZELJsonHelper::operator=(ZELJsonHelper&&) noexcept { return *this; }

// ---- Values into JSON ----

std::shared_ptr<ZELJson> ZELJsonHelper::FromGray(const unsigned int& color) {
  return IntArray({ColorWordByte(color, 0)});
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromRGB(const unsigned int& color) {
  return IntArray({ColorWordByte(color, 0), ColorWordByte(color, 1), ColorWordByte(color, 2)});
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromARGB(const unsigned int& color) {
  return IntArray({ColorWordByte(color, 3), ColorWordByte(color, 2), ColorWordByte(color, 1),
                   ColorWordByte(color, 0)});
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromCMYK(const unsigned int& color) {
  return FromARGB(color);
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromColor(const CA_ColorSpace& colorSpace,
                                                  const unsigned int& color) {
  switch (colorSpace) {
    case CA_COLORSPACE_Gray: return FromGray(color);
    case CA_COLORSPACE_Rgb: return FromRGB(color);
    case CA_COLORSPACE_Argb: return FromARGB(color);
    default: return nullptr;
  }
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromPoint(const CMRL_PSVTemplate<int>& point) {
  return IntArray({point.x, point.y});
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromSize(const CMRL_PSVTemplate<int>& size) {
  return FromPoint(size);
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromPointF(const CMRL_PSVTemplate<float>& point) {
  return FloatArray({point.x, point.y});
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromSizeF(const CMRL_PSVTemplate<float>& size) {
  return FromPointF(size);
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromRect(const CMRL_DeviceRectTemplate<int>& rect) {
  return IntArray({rect.left, rect.top, rect.right, rect.bottom});
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromRectF(const MRL_DeviceRectF& rect) {
  return FloatArray({rect.left, rect.top, rect.right, rect.bottom});
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromMatrix(const CMRL_Matrix& matrix) {
  return FloatArray({matrix.a, matrix.b, matrix.c, matrix.d, matrix.e, matrix.f});
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromPath(const CCA_Path& path) {
  std::shared_ptr<ZELJson> outer = NewArray();
  const int count = path.GetPointCount();
  for (int i = 0; i < count; ++i) {
    CMRL_PSVTemplate<float> point;
    int type = 0;
    bool closeFigure = false;
    if (!path.GetPoint(i, point, type, closeFigure)) continue;
    std::shared_ptr<ZELJson> pair = NewArray();
    pair->InsertFloat(-1, point.x);
    pair->InsertFloat(-1, point.y);
    outer->InsertJson(i, pair);
  }
  return outer;
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromByteArray(
    const CMRL_ArrayTemplate<unsigned char>& values) {
  std::shared_ptr<ZELJson> node = NewArray();
  for (int i = 0; i < values.GetSize(); ++i) node->InsertUint(i, values.GetAt(i));
  return node;
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromWordArray(
    const CMRL_ArrayTemplate<unsigned short>& values) {
  std::shared_ptr<ZELJson> node = NewArray();
  for (int i = 0; i < values.GetSize(); ++i) node->InsertUint(i, values.GetAt(i));
  return node;
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromDWordArray(
    const CMRL_ArrayTemplate<unsigned int>& values) {
  std::shared_ptr<ZELJson> node = NewArray();
  for (int i = 0; i < values.GetSize(); ++i) node->InsertUint(i, values.GetAt(i));
  return node;
}

// The shared arrays below are read one locked access at a time (the size on every round), never
// holding the lock across an insertion into the node.

std::shared_ptr<ZELJson> ZELJsonHelper::FromIntArray(
    const CMRL_TSArrayTemplate<CMRL_ArrayTemplate, int>& values) {
  std::shared_ptr<ZELJson> node = NewArray();
  for (int i = 0; i < values.GetSize(); ++i) node->InsertInt(i, values.GetAt(i));
  return node;
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromFloatArray(
    const CMRL_TSArrayTemplate<CMRL_ArrayTemplate, float>& values) {
  std::shared_ptr<ZELJson> node = NewArray();
  for (int i = 0; i < values.GetSize(); ++i) node->InsertFloat(i, values.GetAt(i));
  return node;
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromStringArray(
    const CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString>& values) {
  std::shared_ptr<ZELJson> node = NewArray();
  for (int i = 0; i < values.GetSize(); ++i) {
    const CMRL_ByteString text = values.GetAt(i);
    node->InsertString(i, text.c_str());
  }
  return node;
}

std::shared_ptr<ZELJson> ZELJsonHelper::FromStringArray(
    const CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_WideString>& values) {
  std::shared_ptr<ZELJson> node = NewArray();
  for (int i = 0; i < values.GetSize(); ++i) {
    const CMRL_WideString text = values.GetAt(i);
    const CMRL_ByteString utf8 = CMRL_ByteStringConverter::unicode_to_utf8(text.c_str(), -1);
    node->InsertString(i, utf8.c_str());
  }
  return node;
}

// ---- Scalars ----

int ZELJsonHelper::ToInt(std::shared_ptr<const ZELJson> json) {
  if (!json) return -1;
  switch (json->GetType()) {
    case ZELJsonInt: return json->AsInt();
    case ZELJsonUint: return static_cast<int>(json->AsUint());
    case ZELJsonFloat: return TruncateToInt(json->AsFloat());
    case ZELJsonDouble: return TruncateToInt(json->AsDouble());
    case ZELJsonString: return std::atoi(json->AsString());
    case ZELJsonBoolean: return json->AsBool() ? 1 : 0;
    default: return -1;
  }
}

unsigned int ZELJsonHelper::ToUint(std::shared_ptr<const ZELJson> json) {
  if (!json) return 0;
  switch (json->GetType()) {
    case ZELJsonInt: return static_cast<unsigned int>(json->AsInt());
    case ZELJsonUint: return json->AsUint();
    case ZELJsonFloat: return TruncateToLow32(json->AsFloat());
    case ZELJsonDouble: return TruncateToLow32(json->AsDouble());
    case ZELJsonString: return static_cast<unsigned int>(std::atoi(json->AsString()));
    case ZELJsonBoolean: return json->AsBool() ? 1u : 0u;
    default: return 0;
  }
}

float ZELJsonHelper::ToFloat(std::shared_ptr<const ZELJson> json) {
  if (!json) return 0.0f;
  switch (json->GetType()) {
    case ZELJsonInt: return static_cast<float>(json->AsInt());
    case ZELJsonUint: return static_cast<float>(json->AsUint());
    case ZELJsonFloat: return json->AsFloat();
    case ZELJsonDouble: return static_cast<float>(json->AsDouble());
    case ZELJsonString: return static_cast<float>(std::atof(json->AsString()));
    case ZELJsonBoolean: return json->AsBool() ? 1.0f : 0.0f;
    default: return 0.0f;
  }
}

double ZELJsonHelper::ToDouble(std::shared_ptr<const ZELJson> json) {
  if (!json) return 0.0;
  switch (json->GetType()) {
    case ZELJsonInt: return static_cast<double>(json->AsInt());
    case ZELJsonUint: return static_cast<double>(json->AsUint());
    case ZELJsonFloat: return static_cast<double>(json->AsFloat());
    case ZELJsonDouble: return json->AsDouble();
    case ZELJsonString: return std::atof(json->AsString());
    case ZELJsonBoolean: return json->AsBool() ? 1.0 : 0.0;
    default: return 0.0;
  }
}

bool ZELJsonHelper::ToBoolean(std::shared_ptr<const ZELJson> json) {
  if (!json) return false;
  switch (json->GetType()) {
    case ZELJsonInt: return json->AsInt() != 0;
    case ZELJsonUint: return json->AsUint() != 0;
    case ZELJsonFloat: return json->AsFloat() != 0.0f;  // NaN is not 0
    case ZELJsonDouble: return json->AsDouble() != 0.0;
    case ZELJsonString: return std::strcmp(json->AsString(), "true") == 0;
    case ZELJsonBoolean: return json->AsBool();
    default: return false;
  }
}

CMRL_ByteString ZELJsonHelper::ToString(std::shared_ptr<const ZELJson> json, int decimalPlaces) {
  if (!json) return CMRL_ByteString();
  char buffer[16];
  switch (json->GetType()) {
    case ZELJsonInt:
      std::snprintf(buffer, sizeof buffer, "%d", json->AsInt());
      return CMRL_ByteString(buffer);
    case ZELJsonUint:
      // Unsigned, so values above 2147483647 keep their own digits.
      std::snprintf(buffer, sizeof buffer, "%u", json->AsUint());
      return CMRL_ByteString(buffer);
    case ZELJsonFloat:
      return FormatFixed(static_cast<double>(json->AsFloat()), decimalPlaces);
    case ZELJsonDouble:
      return FormatFixed(json->AsDouble(), decimalPlaces);
    case ZELJsonString:
      return CMRL_ByteString(json->AsString());
    case ZELJsonBoolean:
      return CMRL_ByteString(json->AsBool() ? "true" : "false");
    default:
      return CMRL_ByteString();
  }
}

CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> ZELJsonHelper::ToString(
    std::shared_ptr<const ZELJson>, const char*) {
  return CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString>();
}

// ---- Shapes ----

bool ZELJsonHelper::ToGray(std::shared_ptr<const ZELJson> json, unsigned int& color) {
  if (!IsArray(json)) return false;
  color = PackGrayWord(IntAt(json, 0));
  return true;
}

bool ZELJsonHelper::ToRGB(std::shared_ptr<const ZELJson> json, unsigned int& color) {
  if (!IsArray(json)) return false;
  color = PackRgbWord(IntAt(json, 0), IntAt(json, 1), IntAt(json, 2));
  return true;
}

bool ZELJsonHelper::ToARGB(std::shared_ptr<const ZELJson> json, unsigned int& color) {
  if (!IsArray(json)) return false;
  color = PackArgbWord(IntAt(json, 0), IntAt(json, 1), IntAt(json, 2), IntAt(json, 3));
  return true;
}

bool ZELJsonHelper::ToCMYK(std::shared_ptr<const ZELJson> json, unsigned int& color) {
  return ToARGB(std::move(json), color);
}

bool ZELJsonHelper::ToColor(std::shared_ptr<const ZELJson> json, const CA_ColorSpace& colorSpace,
                            unsigned int& color) {
  if (!IsArray(json)) return false;
  switch (colorSpace) {
    case CA_COLORSPACE_Gray: return ToGray(std::move(json), color);
    case CA_COLORSPACE_Rgb: return ToRGB(std::move(json), color);
    case CA_COLORSPACE_Argb: return ToARGB(std::move(json), color);
    default: return false;
  }
}

bool ZELJsonHelper::ToPoint(std::shared_ptr<const ZELJson> json, CMRL_PSVTemplate<int>& point) {
  if (!IsArray(json)) return false;
  point.x = IntAt(json, 0);
  point.y = IntAt(json, 1);
  return true;
}

bool ZELJsonHelper::ToSize(std::shared_ptr<const ZELJson> json, CMRL_PSVTemplate<int>& size) {
  return ToPoint(std::move(json), size);
}

bool ZELJsonHelper::ToPointF(std::shared_ptr<const ZELJson> json, CMRL_PSVTemplate<float>& point) {
  if (!IsArray(json)) return false;
  point.x = FloatAt(json, 0);
  point.y = FloatAt(json, 1);
  return true;
}

bool ZELJsonHelper::ToSizeF(std::shared_ptr<const ZELJson> json, CMRL_PSVTemplate<float>& size) {
  return ToPointF(std::move(json), size);
}

bool ZELJsonHelper::ToRect(std::shared_ptr<const ZELJson> json, CMRL_DeviceRectTemplate<int>& rect) {
  if (!IsArray(json)) return false;
  rect.left = IntAt(json, 0);
  rect.top = IntAt(json, 1);
  rect.right = IntAt(json, 2);
  rect.bottom = IntAt(json, 3);
  return true;
}

bool ZELJsonHelper::ToRectF(std::shared_ptr<const ZELJson> json, MRL_DeviceRectF& rect) {
  if (!IsArray(json)) return false;
  rect.left = FloatAt(json, 0);
  rect.top = FloatAt(json, 1);
  rect.right = FloatAt(json, 2);
  rect.bottom = FloatAt(json, 3);
  return true;
}

bool ZELJsonHelper::ToMatrix(std::shared_ptr<const ZELJson> json, CMRL_Matrix& matrix) {
  if (!IsArray(json)) return false;
  matrix.a = FloatAt(json, 0);
  matrix.b = FloatAt(json, 1);
  matrix.c = FloatAt(json, 2);
  matrix.d = FloatAt(json, 3);
  matrix.e = FloatAt(json, 4);
  matrix.f = FloatAt(json, 5);
  return true;
}

// ---- Arrays: appended element by element, a failed growth skipped ----

bool ZELJsonHelper::ToByteArray(std::shared_ptr<const ZELJson> json,
                                CMRL_ArrayTemplate<unsigned char>& values) {
  if (!IsArray(json)) return false;
  const int size = json->GetSize();
  for (int i = 0; i < size; ++i) values.Add(static_cast<unsigned char>(json->GetUint(i, 0u)));
  return true;
}

bool ZELJsonHelper::ToWordArray(std::shared_ptr<const ZELJson> json,
                                CMRL_ArrayTemplate<unsigned short>& values) {
  if (!IsArray(json)) return false;
  const int size = json->GetSize();
  for (int i = 0; i < size; ++i) values.Add(static_cast<unsigned short>(json->GetUint(i, 0u)));
  return true;
}

bool ZELJsonHelper::ToDWordArray(std::shared_ptr<const ZELJson> json,
                                 CMRL_ArrayTemplate<unsigned int>& values) {
  if (!IsArray(json)) return false;
  const int size = json->GetSize();
  for (int i = 0; i < size; ++i) values.Add(json->GetUint(i, 0u));
  return true;
}

bool ZELJsonHelper::ToFloatArray(std::shared_ptr<const ZELJson> json,
                                 CMRL_TSArrayTemplate<CMRL_ArrayTemplate, float>& values) {
  if (!IsArray(json)) return false;
  const int size = json->GetSize();
  for (int i = 0; i < size; ++i) values.Add(json->GetFloat(i, 0.0f));
  return true;
}

bool ZELJsonHelper::ToStringArray(std::shared_ptr<const ZELJson> json,
                                  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString>& values) {
  if (!IsArray(json)) return false;
  const int size = json->GetSize();
  for (int i = 0; i < size; ++i) values.Add(CMRL_ByteString(json->GetString(i, "")));
  return true;
}

bool ZELJsonHelper::ToStringArray(std::shared_ptr<const ZELJson> json,
                                  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_WideString>& values) {
  if (!IsArray(json)) return false;
  const int size = json->GetSize();
  for (int i = 0; i < size; ++i) {
    values.Add(CMRL_ByteStringConverter::utf8_to_unicode(json->GetString(i, ""), -1));
  }
  return true;
}
