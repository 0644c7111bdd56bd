#ifndef ZELUTILITY_JSON_FACTORY_H_
#define ZELUTILITY_JSON_FACTORY_H_

#include <cstddef>
#include <memory>

#include <mrlbase/byte_string.h>
#include <zelutility/export.h>
#include <zelutility/json.h>

// The door between JSON text and ZELJson nodes. Static members only; no state.
//
// Threads: parses run at once, each making a tree of its own; BuildJsonString may read one tree
// from several threads at once while nobody changes it. A config object is for one thread at a time
// while it is being set.
//
//   auto root = ZELJsonFactory::ParseJsonString("{\"a\": [1, 2.5, \"x\"]}", -1, nullptr);
//   if (!root) return;                                  // the reason was printed on stdout
//   root->GetChild("a")->InsertInt(0, 7);
//   CMRL_ByteString text = ZELJsonFactory::BuildJsonString(root, nullptr);
//   // text: {"a":[7,1,2.5,"x"]}
class ZEL_API ZELJsonFactory {
 public:
  // Options for parsing. There are none: the pointer is accepted and ignored, null or not.
  class ZEL_API ParseConfig {
   public:
    ParseConfig();
    ParseConfig(const ParseConfig&) = default;
    ParseConfig& operator=(const ParseConfig& other);
    ParseConfig& operator=(ParseConfig&& other) noexcept;
  };

  // Options for printing: the most digits written after the decimal point of a floating-point
  // number. Extra digits are cut, not rounded, and one digit always stays (0.001 with 2 prints
  // 0.0); a limit below 1 acts as 1. The default 324 keeps every digit of the shortest form.
  class ZEL_API BuildConfig {
   public:
    BuildConfig();
    BuildConfig(const BuildConfig&) = default;
    BuildConfig& operator=(const BuildConfig& other);
    BuildConfig& operator=(BuildConfig&& other) noexcept;

    int GetMaxDecimalPlaces() const;
    // Stored unchecked; a value below 1 is read as 1 when printing.
    void SetMaxDecimalPlaces(int maxDecimalPlaces);

    int maxDecimalPlaces;
  };

  // Why ParseJsonStringQuiet gave null. `code` is 0 when the text was taken, the parse error code
  // ParseJsonString prints (1 blank text, 2 text after the root, 16 too deep, ...), or kScalarRoot
  // for a root that is neither array nor object. `offset` is the byte in the text where the reader
  // stopped, a leading byte order mark counted; 0 when code is 0 or kScalarRoot.
  struct ParseError {
    static constexpr int kScalarRoot = -1;
    int code = 0;
    size_t offset = 0;
  };

  ZELJsonFactory& operator=(const ZELJsonFactory& other);
  ZELJsonFactory& operator=(ZELJsonFactory&& other) noexcept;

  // Parses at most `length` bytes of text (a NUL byte ends it too; -1 reads to the NUL) into a
  // root node, an array or an object. A leading UTF-8 byte order mark is skipped.
  // Null text, "" or length 0: a new empty object, nothing printed.
  // Syntax error, or nesting deeper than 1000 levels: prints "Parse json error. code=N\n" on
  // standard output (N is the parse error code: 1 blank text, 2 text after the root, 3 invalid
  // value, 7 missing comma or bracket, 16 too deep, ...) and returns null.
  // A scalar root: prints "Only allow array and object\n" and returns null.
  static std::shared_ptr<ZELJson> ParseJsonString(const char* text,
                                                  unsigned int length = static_cast<unsigned int>(-1),
                                                  const ParseConfig* config = nullptr);

  // ParseJsonString without printing: takes and refuses exactly the same texts, and instead of a
  // line on standard output fills `error` (when not null) with the reason, reset to code 0 on
  // success. Null text, "" or length 0 give a new empty object, as there.
  static std::shared_ptr<ZELJson> ParseJsonStringQuiet(const char* text, unsigned int length,
                                                       ParseError* error);

  // Compact text of any node, view or scalar included: no blanks, members in their order,
  // non-ASCII bytes as they are, doubles always with a fraction or exponent (2.0, 1e30).
  // A null json gives the empty text; a null config means the default decimal limit.
  // A NaN or infinity in the tree ends the text right before it, unclosed. Any nesting depth
  // prints, including trees built by hand far deeper than a parsed text may be.
  static CMRL_ByteString BuildJsonString(std::shared_ptr<const ZELJson> json,
                                         const BuildConfig* config = nullptr);
};

#endif  // ZELUTILITY_JSON_FACTORY_H_
