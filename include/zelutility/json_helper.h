#ifndef ZELUTILITY_JSON_HELPER_H_
#define ZELUTILITY_JSON_HELPER_H_

// ZELJsonHelper: the engine's values to JSON nodes and back.
//
// Every value is a JSON array by position, with no keys:
//   rectangle [left, top, right, bottom]   point or size [x, y]   matrix [a, b, c, d, e, f]
//   colour [g], [r, g, b] or [a, r, g, b]  path [[x, y], ...]     arrays one element each
//
//   auto node = ZELJsonHelper::FromRect(CMRL_DeviceRectTemplate<int>(1, 2, 30, 40));
//   ZELJsonFactory::BuildJsonString(node, nullptr);        // "[1,2,30,40]"
//   CMRL_DeviceRectTemplate<int> back;
//   ZELJsonHelper::ToRect(node, back);                     // true, back == (1, 2, 30, 40)
//
// The To* side is lenient: a scalar conversion accepts any node (null included) and falls back
// to a default; a shape conversion only asks for an array and reads missing elements as that
// default (-1 for integer shapes, 0 for float shapes). Array conversions append, never clear.
//
// Threads: no state; calls run at once. Every From* call makes a tree of its own; a To* call only
// reads its node and may share it with other readers while nobody changes the tree. Output
// variables and arrays are for one thread at a time.

#include <memory>

#include <mrlbase/array_template.h>
#include <mrlbase/byte_string.h>
#include <mrlbase/device_rect.h>
#include <mrlbase/enums.h>
#include <mrlbase/matrix.h>
#include <mrlbase/object_array.h>
#include <mrlbase/path.h>
#include <mrlbase/psv_template.h>
#include <mrlbase/ts_array_template.h>
#include <mrlbase/wide_string.h>
#include <zelutility/export.h>
#include <zelutility/json.h>

class ZEL_API ZELJsonHelper {
 public:
  ZELJsonHelper() = default;
  ZELJsonHelper(const ZELJsonHelper&) = default;
  // The helper holds nothing: both assignments do nothing and return *this.
  ZELJsonHelper& operator=(const ZELJsonHelper& other) noexcept;
  ZELJsonHelper& operator=(ZELJsonHelper&& other) noexcept;

  // ---- Values into JSON. Each returns a new array node; the argument is only read. ----

  // Colour words (packing as ParseColorString makes them). Gray: [bits 7-0]. RGB: [bits 7-0,
  // 15-8, 23-16], red first. ARGB and CMYK: [bits 31-24, 23-16, 15-8, 7-0]. Stored as int.
  static std::shared_ptr<ZELJson> FromGray(const unsigned int& color);
  static std::shared_ptr<ZELJson> FromRGB(const unsigned int& color);
  static std::shared_ptr<ZELJson> FromARGB(const unsigned int& color);
  static std::shared_ptr<ZELJson> FromCMYK(const unsigned int& color);
  // By colour space 1 gray, 2 RGB, 3 ARGB; any other space gives a null pointer.
  static std::shared_ptr<ZELJson> FromColor(const CA_ColorSpace& colorSpace, const unsigned int& color);

  // [x, y] as int or as float; point and size give the same JSON.
  static std::shared_ptr<ZELJson> FromPoint(const CMRL_PSVTemplate<int>& point);
  static std::shared_ptr<ZELJson> FromSize(const CMRL_PSVTemplate<int>& size);
  static std::shared_ptr<ZELJson> FromPointF(const CMRL_PSVTemplate<float>& point);
  static std::shared_ptr<ZELJson> FromSizeF(const CMRL_PSVTemplate<float>& size);
  // [left, top, right, bottom], not normalised.
  static std::shared_ptr<ZELJson> FromRect(const CMRL_DeviceRectTemplate<int>& rect);
  static std::shared_ptr<ZELJson> FromRectF(const MRL_DeviceRectF& rect);
  // [a, b, c, d, e, f] as floats.
  static std::shared_ptr<ZELJson> FromMatrix(const CMRL_Matrix& matrix);
  // One [x, y] pair of floats per point; point kinds and close flags are left out.
  static std::shared_ptr<ZELJson> FromPath(const CCA_Path& path);

  // One number per element: unsigned for byte/word/dword, int for int, float for float.
  static std::shared_ptr<ZELJson> FromByteArray(const CMRL_ArrayTemplate<unsigned char>& values);
  static std::shared_ptr<ZELJson> FromWordArray(const CMRL_ArrayTemplate<unsigned short>& values);
  static std::shared_ptr<ZELJson> FromDWordArray(const CMRL_ArrayTemplate<unsigned int>& values);
  static std::shared_ptr<ZELJson> FromIntArray(
      const CMRL_TSArrayTemplate<CMRL_ArrayTemplate, int>& values);
  static std::shared_ptr<ZELJson> FromFloatArray(
      const CMRL_TSArrayTemplate<CMRL_ArrayTemplate, float>& values);
  // One string per element, each up to its first zero byte (or unit). Byte strings go in as they
  // stand (taken as UTF-8); wide strings are converted to UTF-8.
  static std::shared_ptr<ZELJson> FromStringArray(
      const CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString>& values);
  static std::shared_ptr<ZELJson> FromStringArray(
      const CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_WideString>& values);

  // ---- Scalars. Any node, null included; no failure, only a default. ----

  // Integers, doubles (truncated toward zero), texts (atoi/atof), booleans (1 or 0) convert.
  // Null, JSON null, 64-bit integers, arrays and objects give the default: -1 for ToInt,
  // 0 for the others. ToInt gives -2147483648 for a double outside int.
  static int ToInt(std::shared_ptr<const ZELJson> json);
  // Low 32 bits: -1 gives 4294967295, -1.5 gives 4294967295 too.
  static unsigned int ToUint(std::shared_ptr<const ZELJson> json);
  static float ToFloat(std::shared_ptr<const ZELJson> json);
  static double ToDouble(std::shared_ptr<const ZELJson> json);
  // Numbers: not 0 (NaN counts as not 0). Texts: exactly "true". Booleans: their value.
  static bool ToBoolean(std::shared_ptr<const ZELJson> json);

  // The text of a scalar: 32-bit integers in decimal (unsigned ones keep their own digits),
  // floating point in full with `decimalPlaces` decimals (0 or below: six), texts up to their
  // first zero byte, "true"/"false". Anything else, 64-bit integers included, gives "".
  //   ToString(node of 3.14159, 2) == "3.14";   ToString(node of 3.14159, 0) == "3.141590"
  static CMRL_ByteString ToString(std::shared_ptr<const ZELJson> json, int decimalPlaces);
  // Always an empty array; the second argument is not read.
  static CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> ToString(
      std::shared_ptr<const ZELJson> json, const char* separator);

  // ---- Shapes. `json` must not be null. Any array is taken: elements are read with ToInt or
  // ToFloat, a missing one reads -1 (integer shapes) or 0 (float shapes), extra ones are ignored.
  // Returns true with the output written, or false (not an array) with the output untouched. ----

  // Colour words as FromGray/FromRGB/FromARGB pack them; elements are not masked to a byte, so
  // a value above 255 or below 0 (a missing element among them) spills into neighbouring bytes.
  static bool ToGray(std::shared_ptr<const ZELJson> json, unsigned int& color);
  static bool ToRGB(std::shared_ptr<const ZELJson> json, unsigned int& color);
  static bool ToARGB(std::shared_ptr<const ZELJson> json, unsigned int& color);
  static bool ToCMYK(std::shared_ptr<const ZELJson> json, unsigned int& color);
  // By colour space 1, 2 or 3; false with the word untouched for any other space.
  static bool ToColor(std::shared_ptr<const ZELJson> json, const CA_ColorSpace& colorSpace,
                      unsigned int& color);

  static bool ToPoint(std::shared_ptr<const ZELJson> json, CMRL_PSVTemplate<int>& point);
  static bool ToSize(std::shared_ptr<const ZELJson> json, CMRL_PSVTemplate<int>& size);
  static bool ToPointF(std::shared_ptr<const ZELJson> json, CMRL_PSVTemplate<float>& point);
  static bool ToSizeF(std::shared_ptr<const ZELJson> json, CMRL_PSVTemplate<float>& size);
  static bool ToRect(std::shared_ptr<const ZELJson> json, CMRL_DeviceRectTemplate<int>& rect);
  static bool ToRectF(std::shared_ptr<const ZELJson> json, MRL_DeviceRectF& rect);
  // An empty array gives six zeros, not the identity.
  static bool ToMatrix(std::shared_ptr<const ZELJson> json, CMRL_Matrix& matrix);

  // ---- Arrays. `json` must not be null. Each element is appended to the output (nothing is
  // cleared). Byte/word/dword elements must be 32-bit integers (anything else gives 0) and are
  // cut to the element width; float elements must be doubles within float range or integers
  // that fit int (else 0); string elements must be texts (else ""). True for any array, the
  // empty one included; false for a node that is not an array, output untouched. ----
  static bool ToByteArray(std::shared_ptr<const ZELJson> json, CMRL_ArrayTemplate<unsigned char>& values);
  static bool ToWordArray(std::shared_ptr<const ZELJson> json, CMRL_ArrayTemplate<unsigned short>& values);
  static bool ToDWordArray(std::shared_ptr<const ZELJson> json, CMRL_ArrayTemplate<unsigned int>& values);
  static bool ToFloatArray(std::shared_ptr<const ZELJson> json,
                           CMRL_TSArrayTemplate<CMRL_ArrayTemplate, float>& values);
  static bool ToStringArray(std::shared_ptr<const ZELJson> json,
                            CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString>& values);
  // Texts converted from UTF-8.
  static bool ToStringArray(std::shared_ptr<const ZELJson> json,
                            CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_WideString>& values);
};

#endif  // ZELUTILITY_JSON_HELPER_H_
