#include <zelutility/json_factory.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include <rapidjson/document.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "rapidjson_wrapper.h"

namespace {

constexpr int kDefaultMaxDecimalPlaces = 324;
// Deeper texts are refused: the parser recurses once per level and must not exhaust the stack.
constexpr int kMaxNestingDepth = 1000;

// Passes every parse event on to the document and stops the parse (kParseErrorTermination) the
// moment a container would open past the depth limit, before the parser recurses into it.
class DepthLimitedHandler {
 public:
  explicit DepthLimitedHandler(rapidjson::Document& document) noexcept : document_(document) {}

  bool Null() { return document_.Null(); }
  bool Bool(bool b) { return document_.Bool(b); }
  bool Int(int i) { return document_.Int(i); }
  bool Uint(unsigned u) { return document_.Uint(u); }
  bool Int64(int64_t i) { return document_.Int64(i); }
  bool Uint64(uint64_t u) { return document_.Uint64(u); }
  bool Double(double d) { return document_.Double(d); }
  bool RawNumber(const char* str, rapidjson::SizeType length, bool copy) {
    return document_.RawNumber(str, length, copy);
  }
  bool String(const char* str, rapidjson::SizeType length, bool copy) {
    return document_.String(str, length, copy);
  }
  bool Key(const char* str, rapidjson::SizeType length, bool copy) {
    return document_.Key(str, length, copy);
  }
  bool StartObject() { return ++depth_ <= kMaxNestingDepth && document_.StartObject(); }
  bool EndObject(rapidjson::SizeType memberCount) {
    --depth_;
    return document_.EndObject(memberCount);
  }
  bool StartArray() { return ++depth_ <= kMaxNestingDepth && document_.StartArray(); }
  bool EndArray(rapidjson::SizeType elementCount) {
    --depth_;
    return document_.EndArray(elementCount);
  }

 private:
  rapidjson::Document& document_;
  int depth_ = 0;
};

// The length that means "up to the NUL".
constexpr unsigned int kNoLimit = static_cast<unsigned int>(-1);

// Feeds the text through RapidJSON's reader with default flags, seeing the same bytes as
// Document::Parse(text, length): a leading byte order mark is skipped the same way, and the
// reader stops at a NUL by itself, so the text needs no measuring first.
class LimitedParse {
 public:
  LimitedParse(const char* text, unsigned int length) noexcept : text_(text), length_(length) {}

  bool operator()(rapidjson::Document& document) {
    if (length_ == kNoLimit) {
      // Up to the NUL: a plain string stream, with the mark skipped as the stream below skips it.
      const char* start = text_;
      for (const unsigned char mark : {0xEFu, 0xBBu, 0xBFu}) {
        if (static_cast<unsigned char>(*start) == mark) ++start;
      }
      skipped_ = static_cast<size_t>(start - text_);
      rapidjson::StringStream input(start);
      return Run(input, document);
    }
    rapidjson::MemoryStream bytes(text_, length_);
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> input(bytes);
    return Run(input, document);
  }

  const rapidjson::ParseResult& Result() const noexcept { return result_; }
  // Where the reader stopped, counted from the first byte of the text, mark included (the
  // string stream above counts from after the mark, the memory stream from before it).
  size_t ErrorOffset() const noexcept { return skipped_ + result_.Offset(); }

 private:
  template <class Stream>
  bool Run(Stream& input, rapidjson::Document& document) {
    rapidjson::Reader reader;
    DepthLimitedHandler handler(document);
    result_ = reader.Parse<rapidjson::kParseDefaultFlags>(input, handler);
    return !result_.IsError();
  }

  const char* text_;
  unsigned int length_;
  size_t skipped_ = 0;
  rapidjson::ParseResult result_;
};

}  // namespace

ZELJsonFactory::ParseConfig::ParseConfig() = default;
ZELJsonFactory::ParseConfig& ZELJsonFactory::ParseConfig::operator=(const ParseConfig&) {
  return *this;
}
ZELJsonFactory::ParseConfig& ZELJsonFactory::ParseConfig::operator=(ParseConfig&&) noexcept {
  return *this;
}

ZELJsonFactory::BuildConfig::BuildConfig() : maxDecimalPlaces(kDefaultMaxDecimalPlaces) {}
ZELJsonFactory::BuildConfig& ZELJsonFactory::BuildConfig::operator=(const BuildConfig& other) {
  maxDecimalPlaces = other.maxDecimalPlaces;
  return *this;
}
ZELJsonFactory::BuildConfig& ZELJsonFactory::BuildConfig::operator=(BuildConfig&& other) noexcept {
  maxDecimalPlaces = other.maxDecimalPlaces;
  return *this;
}
int ZELJsonFactory::BuildConfig::GetMaxDecimalPlaces() const { return maxDecimalPlaces; }
void ZELJsonFactory::BuildConfig::SetMaxDecimalPlaces(int places) { maxDecimalPlaces = places; }

ZELJsonFactory& ZELJsonFactory::operator=(const ZELJsonFactory&) { return *this; }
ZELJsonFactory& ZELJsonFactory::operator=(ZELJsonFactory&&) noexcept { return *this; }

std::shared_ptr<ZELJson> ZELJsonFactory::ParseJsonString(const char* text, unsigned int length,
                                                         const ParseConfig* /*config*/) {
  ParseError error;
  std::shared_ptr<ZELJson> root = ParseJsonStringQuiet(text, length, &error);
  if (error.code == ParseError::kScalarRoot) {
    std::printf("Only allow array and object\n");
  } else if (error.code != 0) {
    std::printf("Parse json error. code=%d\n", error.code);
  }
  return root;
}

std::shared_ptr<ZELJson> ZELJsonFactory::ParseJsonStringQuiet(const char* text, unsigned int length,
                                                              ParseError* error) {
  ParseError local;
  ParseError& result = error != nullptr ? *error : local;
  result = ParseError();
  auto document = std::make_unique<rapidjson::Document>();
  if (text == nullptr || text[0] == '\0' || length == 0) {
    document->SetObject();
    return std::make_shared<RapidjsonWrapper>(std::move(document));
  }
  LimitedParse parse(text, length);
  document->Populate(parse);
  if (parse.Result().IsError()) {
    result.code = static_cast<int>(parse.Result().Code());
    result.offset = parse.ErrorOffset();
    return nullptr;
  }
  if (!document->IsArray() && !document->IsObject()) {
    result.code = ParseError::kScalarRoot;
    return nullptr;
  }
  return std::make_shared<RapidjsonWrapper>(std::move(document));
}

CMRL_ByteString ZELJsonFactory::BuildJsonString(std::shared_ptr<const ZELJson> json,
                                                const BuildConfig* config) {
  const auto* wrapper = dynamic_cast<const RapidjsonWrapper*>(json.get());
  if (wrapper == nullptr) return CMRL_ByteString();
  return wrapper->ToJsonString(config);
}
