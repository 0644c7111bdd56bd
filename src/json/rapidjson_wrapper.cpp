#include "rapidjson_wrapper.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include <rapidjson/writer.h>

#include "view_block_pool.h"

namespace {

using Value = RapidjsonWrapper::Value;

// Readers: each writes `out` only when the stored form is accepted. They decide by the stored
// form (integer or floating point), not by the numeric value.
bool ReadInt(const Value& v, int& out) noexcept {
  if (!v.IsInt()) return false;
  out = v.GetInt();
  return true;
}

bool ReadUint(const Value& v, unsigned int& out) noexcept {
  if (v.IsUint()) {
    out = v.GetUint();
    return true;
  }
  if (v.IsInt()) {  // a negative int32 reads as its bit pattern
    out = static_cast<unsigned int>(v.GetInt());
    return true;
  }
  return false;
}

bool ReadInt64(const Value& v, int64_t& out) noexcept {
  if (!v.IsInt64()) return false;
  out = v.GetInt64();
  return true;
}

bool ReadUint64(const Value& v, uint64_t& out) noexcept {
  if (v.IsUint64()) {
    out = v.GetUint64();
    return true;
  }
  if (v.IsInt64()) {
    out = static_cast<uint64_t>(v.GetInt64());
    return true;
  }
  return false;
}

bool ReadString(const Value& v, const char*& out) noexcept {
  if (!v.IsString()) return false;
  out = v.GetString();
  return true;
}

bool ReadBool(const Value& v, bool& out) noexcept {
  if (!v.IsBool()) return false;
  out = v.GetBool();
  return true;
}

bool ReadFloat(const Value& v, float& out) noexcept {
  if (!v.IsFloat() && !v.IsInt()) return false;
  out = static_cast<float>(v.GetDouble());
  return true;
}

bool ReadDouble(const Value& v, double& out) noexcept {
  if (!v.IsDouble() && !v.IsInt()) return false;
  out = v.GetDouble();
  return true;
}

template <class T>
T ReadOwn(const Value& v, bool (*read)(const Value&, T&), T refusal, bool* ok) noexcept {
  T result = refusal;
  const bool accepted = read(v, result);
  if (ok != nullptr) *ok = accepted;
  return accepted ? result : refusal;
}

template <class T>
T ReadOr(const Value* v, bool (*read)(const Value&, T&), T defaultValue) noexcept {
  T result = defaultValue;
  return (v != nullptr && read(*v, result)) ? result : defaultValue;
}

bool IsUsableKey(const char* key) noexcept { return key != nullptr && key[0] != '\0'; }

// Whether a member name equals the NUL-terminated key, byte for byte and in length, as
// Value::FindMember compares. Walking both at once needs no strlen of the key and no memcmp call:
// most names differ from the key in their first byte.
bool NameIs(const Value& name, const char* key) noexcept {
  const char* text = name.GetString();
  const rapidjson::SizeType length = name.GetStringLength();
  for (rapidjson::SizeType i = 0; i < length; ++i) {
    // Stops at the key's NUL, so nothing past the key is read even when the name holds a NUL.
    if (text[i] != key[i] || key[i] == '\0') return false;
  }
  return key[length] == '\0';
}

// The first member named key, or the end.
Value::MemberIterator FindKey(Value& object, const char* key) noexcept {
  const auto end = object.MemberEnd();
  for (auto member = object.MemberBegin(); member != end; ++member) {
    if (NameIs(member->name, key)) return member;
  }
  return end;
}

// key = name, up to its first NUL, but written into key's own buffer when that is unshared and
// large enough, so a member loop does not allocate a string per member.
void AssignKey(CMRL_ByteString& key, const char* name) {
  const size_t length = std::strlen(name);
  if (length == 0) {
    key = CMRL_ByteString();
    return;
  }
  const int size = static_cast<int>(length);
  // Room for the usual short keys from the start, so the keys that follow need no growing.
  constexpr int kKeyRoom = 31;
  char* buffer = key.GetBuffer(std::max(size, kKeyRoom));
  std::memcpy(buffer, name, length);
  key.ReleaseBuffer(size);
}

// The one event of a value that is no container, chosen as Value::Accept chooses it, except that
// strings always go out as "copy". Spelled out rather than calling Accept: that recursive template
// stays out of line, which costs a call per scalar on large documents.
template <class Handler>
[[gnu::always_inline]] inline bool WalkScalar(const Value& v, Handler& handler) {
  switch (v.GetType()) {
    case rapidjson::kNullType:
      return handler.Null();
    case rapidjson::kFalseType:
      return handler.Bool(false);
    case rapidjson::kTrueType:
      return handler.Bool(true);
    case rapidjson::kStringType:
      return handler.String(v.GetString(), v.GetStringLength(), true);
    default:
      if (v.IsDouble()) return handler.Double(v.GetDouble());
      if (v.IsInt()) return handler.Int(v.GetInt());
      if (v.IsUint()) return handler.Uint(v.GetUint());
      if (v.IsInt64()) return handler.Int64(v.GetInt64());
      return handler.Uint64(v.GetUint64());
  }
}

// Sends the events of a subtree to a SAX handler, as Value::Accept does, but with the open
// containers on a heap stack instead of the call stack. Stops at the first event the handler
// refuses (a writer refuses a NaN) and returns false then. Strings and keys always go out as
// "copy", so a document fed by this never refers back into the source tree.
// Kept out of line: inlined into Walk it would weigh on every recursive call of the common case.
template <class Handler>
[[gnu::noinline]] bool WalkWithoutRecursion(const Value& root, Handler& handler) {
  struct Open {
    const Value* container;
    rapidjson::SizeType next;
  };
  std::vector<Open> open;
  open.reserve(64);
  const Value* pending = &root;
  for (;;) {
    if (pending != nullptr) {
      const Value& v = *pending;
      pending = nullptr;
      bool accepted;
      switch (v.GetType()) {
        case rapidjson::kArrayType:
          accepted = handler.StartArray();
          open.push_back({&v, 0});
          break;
        case rapidjson::kObjectType:
          accepted = handler.StartObject();
          open.push_back({&v, 0});
          break;
        default:
          accepted = WalkScalar(v, handler);
          break;
      }
      if (!accepted) return false;
    }
    if (open.empty()) return true;
    Open& top = open.back();
    const Value& container = *top.container;
    if (container.IsArray()) {
      if (top.next < container.Size()) {
        pending = container.Begin() + top.next++;
        continue;
      }
      open.pop_back();
      if (!handler.EndArray(container.Size())) return false;
    } else {
      if (top.next < container.MemberCount()) {
        const auto member = container.MemberBegin() + top.next++;
        if (!handler.Key(member->name.GetString(), member->name.GetStringLength(), true)) {
          return false;
        }
        pending = &member->value;
        continue;
      }
      open.pop_back();
      if (!handler.EndObject(container.MemberCount())) return false;
    }
  }
}

// Nesting that Walk handles by plain recursion, which is the fastest way for ordinary documents;
// deeper subtrees (only trees built by hand get there) continue on a heap stack.
constexpr int kRecursiveWalkDepth = 128;

// Value::Accept with the guarantees of WalkWithoutRecursion: any depth, strings always copied.
template <class Handler>
bool Walk(const Value& v, Handler& handler, int depthLeft = kRecursiveWalkDepth) {
  switch (v.GetType()) {
    case rapidjson::kArrayType:
      if (depthLeft == 0) return WalkWithoutRecursion(v, handler);
      if (!handler.StartArray()) return false;
      for (const Value* element = v.Begin(); element != v.End(); ++element) {
        if (!Walk(*element, handler, depthLeft - 1)) return false;
      }
      return handler.EndArray(v.Size());
    case rapidjson::kObjectType:
      if (depthLeft == 0) return WalkWithoutRecursion(v, handler);
      if (!handler.StartObject()) return false;
      for (auto member = v.MemberBegin(); member != v.MemberEnd(); ++member) {
        if (!handler.Key(member->name.GetString(), member->name.GetStringLength(), true) ||
            !Walk(member->value, handler, depthLeft - 1)) {
          return false;
        }
      }
      return handler.EndObject(v.MemberCount());
    default:
      return WalkScalar(v, handler);
  }
}

// A writer output stream that writes straight into a CMRL_ByteString's buffer, so a large text is
// not built in one buffer and then copied (and faulted in) a second time. The string is only
// usable after Finish or once the stream is gone.
class ByteStringOutput {
 public:
  using Ch = char;

  explicit ByteStringOutput(CMRL_ByteString& target) noexcept : target_(target) {}
  ~ByteStringOutput() {
    if (begin_ != nullptr) target_.ReleaseBuffer(static_cast<int>(cur_ - begin_));
  }
  ByteStringOutput(const ByteStringOutput&) = delete;
  ByteStringOutput& operator=(const ByteStringOutput&) = delete;

  void Put(char c) {
    if (cur_ == end_) Grow(1);
    *cur_++ = c;
  }
  void Reserve(size_t count) {
    if (static_cast<size_t>(end_ - cur_) < count) Grow(count);
  }
  void PutUnsafe(char c) noexcept { *cur_++ = c; }
  void Flush() noexcept {}
  // Room for `count` characters to be written in place; Pop gives back what went unused.
  char* Push(size_t count) {
    Reserve(count);
    char* start = cur_;
    cur_ += count;
    return start;
  }
  void Pop(size_t count) noexcept { cur_ -= count; }

  // Hands the text over to the string; the stream is spent after this.
  void Finish() {
    if (begin_ == nullptr) return;
    const int length = static_cast<int>(cur_ - begin_);
    const bool loose = length < kTightCopyLimit && end_ - cur_ > kTightCopySlack;
    target_.ReleaseBuffer(length);
    begin_ = cur_ = end_ = nullptr;
    // Doubling may leave up to half the room unused; small texts are worth a tight copy.
    if (loose) target_ = CMRL_ByteString(target_.c_str(), length);
  }

 private:
  static constexpr size_t kFirstRoom = 256;
  static constexpr size_t kMaxRoom = INT_MAX - 1;  // a CMRL_ByteString's length is an int
  static constexpr int kTightCopyLimit = 1 << 16;
  static constexpr std::ptrdiff_t kTightCopySlack = 4096;

  void Grow(size_t count) {
    const size_t used = static_cast<size_t>(cur_ - begin_);
    if (count > kMaxRoom - used) throw std::bad_alloc();
    const size_t room = static_cast<size_t>(end_ - begin_);
    const size_t wanted = std::max({used + count, kFirstRoom, room < kMaxRoom / 2 ? room * 2 : kMaxRoom});
    // ReleaseBuffer first: GetBuffer keeps only the contents up to the string's length.
    if (begin_ != nullptr) target_.ReleaseBuffer(static_cast<int>(used));
    begin_ = target_.GetBuffer(static_cast<int>(wanted));
    cur_ = begin_ + used;
    end_ = begin_ + wanted;
  }

  CMRL_ByteString& target_;
  char* begin_ = nullptr;
  char* cur_ = nullptr;
  char* end_ = nullptr;
};

// The writer reserves room before a run of characters and then writes them unchecked.
void PutReserve(ByteStringOutput& stream, size_t count) { stream.Reserve(count); }
void PutUnsafe(ByteStringOutput& stream, char c) noexcept { stream.PutUnsafe(c); }

}  // namespace

// Numbers are formatted straight into the output, as the writer does for its own string buffer,
// instead of through a scratch buffer and a second character-by-character copy.
namespace rapidjson {

template <>
inline bool Writer<ByteStringOutput>::WriteInt(int i) {
  char* buffer = os_->Push(11);
  const char* end = internal::i32toa(i, buffer);
  os_->Pop(static_cast<size_t>(11 - (end - buffer)));
  return true;
}

template <>
inline bool Writer<ByteStringOutput>::WriteUint(unsigned u) {
  char* buffer = os_->Push(10);
  const char* end = internal::u32toa(u, buffer);
  os_->Pop(static_cast<size_t>(10 - (end - buffer)));
  return true;
}

template <>
inline bool Writer<ByteStringOutput>::WriteInt64(int64_t i64) {
  char* buffer = os_->Push(21);
  const char* end = internal::i64toa(i64, buffer);
  os_->Pop(static_cast<size_t>(21 - (end - buffer)));
  return true;
}

template <>
inline bool Writer<ByteStringOutput>::WriteUint64(uint64_t u) {
  char* buffer = os_->Push(20);
  const char* end = internal::u64toa(u, buffer);
  os_->Pop(static_cast<size_t>(20 - (end - buffer)));
  return true;
}

template <>
inline bool Writer<ByteStringOutput>::WriteDouble(double d) {
  static_assert(!(kWriteDefaultFlags & kWriteNanAndInfFlag), "NaN and infinity must stop the text");
  if (internal::Double(d).IsNanOrInf()) return false;
  char* buffer = os_->Push(25);
  const char* end = internal::dtoa(d, buffer, maxDecimalPlaces_);
  os_->Pop(static_cast<size_t>(25 - (end - buffer)));
  return true;
}

}  // namespace rapidjson

namespace {

// A deep copy of source with every string, element block and member block from allocator.
// Containers are rebuilt through a document over that allocator, as RapidJSON's own copy does,
// but fed by Walk, so the depth of the tree costs heap and not stack.
Value CopyTree(const Value& source, RapidjsonWrapper::Allocator& allocator) {
  if (!source.IsArray() && !source.IsObject()) return Value(source, allocator);
  rapidjson::Document builder(&allocator);
  auto events = [&source](rapidjson::Document& handler) { return Walk(source, handler); };
  builder.Populate(events);
  Value copy;
  copy.Swap(builder);
  return copy;
}

}  // namespace

RapidjsonWrapper::RapidjsonWrapper(std::unique_ptr<rapidjson::Document> document) noexcept
    : document_(std::move(document)),
      value_(document_.get()),
      allocator_(&document_->GetAllocator()),
      memberPosition_() {}

RapidjsonWrapper::RapidjsonWrapper(Value* value, Allocator* allocator) noexcept
    : value_(value), allocator_(allocator), memberPosition_() {}

const RapidjsonWrapper::Value* RapidjsonWrapper::ValueOf(const ZELJson* node) noexcept {
  const auto* wrapper = dynamic_cast<const RapidjsonWrapper*>(node);
  return wrapper != nullptr ? wrapper->value_ : nullptr;
}

void RapidjsonWrapper::ResetMemberPosition() noexcept {
  // No position, so GetNextMember stops until GetFirstMember. Setting it touches nothing of the
  // value, which keeps making a view cheap.
  memberPosition_ = Value::MemberIterator();
}

ZELJsonType RapidjsonWrapper::GetType() const {
  const Value& v = *value_;
  if (v.IsNumber()) {
    if (v.IsUint()) return ZELJsonUint;
    if (v.IsInt()) return ZELJsonInt;
    if (v.IsUint64()) return ZELJsonUint64;
    if (v.IsInt64()) return ZELJsonInt64;
    return ZELJsonDouble;
  }
  if (v.IsString()) return ZELJsonString;
  if (v.IsBool()) return ZELJsonBoolean;
  if (v.IsArray()) return ZELJsonArray;
  if (v.IsObject()) return ZELJsonObject;
  return ZELJsonNull;
}

int RapidjsonWrapper::AsInt(bool* ok) const { return ReadOwn(*value_, ReadInt, 0, ok); }
bool RapidjsonWrapper::AsInt(int& value) const { return ReadInt(*value_, value); }
unsigned int RapidjsonWrapper::AsUint(bool* ok) const { return ReadOwn(*value_, ReadUint, 0u, ok); }
bool RapidjsonWrapper::AsUint(unsigned int& value) const { return ReadUint(*value_, value); }
int64_t RapidjsonWrapper::AsInt64(bool* ok) const {
  return ReadOwn(*value_, ReadInt64, int64_t{0}, ok);
}
bool RapidjsonWrapper::AsInt64(int64_t& value) const { return ReadInt64(*value_, value); }
uint64_t RapidjsonWrapper::AsUint64(bool* ok) const {
  return ReadOwn(*value_, ReadUint64, uint64_t{0}, ok);
}
bool RapidjsonWrapper::AsUint64(uint64_t& value) const { return ReadUint64(*value_, value); }
const char* RapidjsonWrapper::AsString(bool* ok) const {
  return ReadOwn<const char*>(*value_, ReadString, "", ok);
}
bool RapidjsonWrapper::AsString(const char*& value) const { return ReadString(*value_, value); }
bool RapidjsonWrapper::AsBool(bool* ok) const { return ReadOwn(*value_, ReadBool, false, ok); }
bool RapidjsonWrapper::AsBool(bool& value) const { return ReadBool(*value_, value); }
float RapidjsonWrapper::AsFloat(bool* ok) const { return ReadOwn(*value_, ReadFloat, 0.0f, ok); }
bool RapidjsonWrapper::AsFloat(float& value) const { return ReadFloat(*value_, value); }
double RapidjsonWrapper::AsDouble(bool* ok) const { return ReadOwn(*value_, ReadDouble, 0.0, ok); }
bool RapidjsonWrapper::AsDouble(double& value) const { return ReadDouble(*value_, value); }

RapidjsonWrapper::Value* RapidjsonWrapper::Element(int index) const noexcept {
  if (!value_->IsArray() || index < 0 || static_cast<rapidjson::SizeType>(index) >= value_->Size()) {
    return nullptr;
  }
  return value_->Begin() + index;
}

RapidjsonWrapper::Value* RapidjsonWrapper::Member(const char* key) const noexcept {
  if (!value_->IsObject() || !IsUsableKey(key)) return nullptr;
  const auto it = FindKey(*value_, key);
  return it != value_->MemberEnd() ? &it->value : nullptr;
}

bool RapidjsonWrapper::HasKey(const char* key) const { return Member(key) != nullptr; }

std::shared_ptr<ZELJson> RapidjsonWrapper::MakeView(Value* value) const {
  // Views come and go by the million in a walk: their blocks are recycled per thread instead of
  // going through the heap each time.
  return std::allocate_shared<RapidjsonWrapper>(ViewAllocator<RapidjsonWrapper>(), value,
                                                allocator_);
}

std::shared_ptr<const ZELJson> RapidjsonWrapper::GetChild(int index) const {
  Value* element = Element(index);
  return element != nullptr ? MakeView(element) : nullptr;
}

std::shared_ptr<ZELJson> RapidjsonWrapper::GetChild(int index) {
  Value* element = Element(index);
  return element != nullptr ? MakeView(element) : nullptr;
}

std::shared_ptr<const ZELJson> RapidjsonWrapper::GetChild(const char* key) const {
  Value* member = Member(key);
  return member != nullptr ? MakeView(member) : nullptr;
}

std::shared_ptr<ZELJson> RapidjsonWrapper::GetChild(const char* key) {
  Value* member = Member(key);
  return member != nullptr ? MakeView(member) : nullptr;
}

int RapidjsonWrapper::GetInt(int index, int defaultValue) const {
  return ReadOr(Element(index), ReadInt, defaultValue);
}
int RapidjsonWrapper::GetInt(const char* key, int defaultValue) const {
  return ReadOr(Member(key), ReadInt, defaultValue);
}
unsigned int RapidjsonWrapper::GetUint(int index, unsigned int defaultValue) const {
  return ReadOr(Element(index), ReadUint, defaultValue);
}
unsigned int RapidjsonWrapper::GetUint(const char* key, unsigned int defaultValue) const {
  return ReadOr(Member(key), ReadUint, defaultValue);
}
int64_t RapidjsonWrapper::GetInt64(int index, int64_t defaultValue) const {
  return ReadOr(Element(index), ReadInt64, defaultValue);
}
int64_t RapidjsonWrapper::GetInt64(const char* key, int64_t defaultValue) const {
  return ReadOr(Member(key), ReadInt64, defaultValue);
}
uint64_t RapidjsonWrapper::GetUint64(int index, uint64_t defaultValue) const {
  return ReadOr(Element(index), ReadUint64, defaultValue);
}
uint64_t RapidjsonWrapper::GetUint64(const char* key, uint64_t defaultValue) const {
  return ReadOr(Member(key), ReadUint64, defaultValue);
}
const char* RapidjsonWrapper::GetString(int index, const char* defaultValue) const {
  return ReadOr(Element(index), ReadString, defaultValue);
}
const char* RapidjsonWrapper::GetString(const char* key, const char* defaultValue) const {
  return ReadOr(Member(key), ReadString, defaultValue);
}
bool RapidjsonWrapper::GetBool(int index, bool defaultValue) const {
  return ReadOr(Element(index), ReadBool, defaultValue);
}
bool RapidjsonWrapper::GetBool(const char* key, bool defaultValue) const {
  return ReadOr(Member(key), ReadBool, defaultValue);
}
float RapidjsonWrapper::GetFloat(int index, float defaultValue) const {
  return ReadOr(Element(index), ReadFloat, defaultValue);
}
float RapidjsonWrapper::GetFloat(const char* key, float defaultValue) const {
  return ReadOr(Member(key), ReadFloat, defaultValue);
}
double RapidjsonWrapper::GetDouble(int index, double defaultValue) const {
  return ReadOr(Element(index), ReadDouble, defaultValue);
}
double RapidjsonWrapper::GetDouble(const char* key, double defaultValue) const {
  return ReadOr(Member(key), ReadDouble, defaultValue);
}

RapidjsonWrapper::Value RapidjsonWrapper::MakeString(const char* text) const {
  if (text == nullptr) text = "";
  return Value(text, static_cast<rapidjson::SizeType>(std::strlen(text)), *allocator_);
}

bool RapidjsonWrapper::DeepCopy(const ZELJson* source, Value& copy) const {
  const Value* sourceValue = ValueOf(source);
  if (sourceValue == nullptr) return false;
  // Copy before the target is touched: the source may lie inside this very container.
  CopyTree(*sourceValue, *allocator_).Swap(copy);
  return true;
}

bool RapidjsonWrapper::Replace(int index, Value& newValue) noexcept {
  Value* element = Element(index);
  if (element == nullptr) return false;
  *element = newValue;  // moves; the old value's bytes stay in the pool
  return true;
}

void RapidjsonWrapper::Put(const char* key, Value& newValue) {
  if (!value_->IsObject() || !IsUsableKey(key)) return;
  const auto it = FindKey(*value_, key);
  if (it != value_->MemberEnd()) {
    it->value = newValue;
    return;
  }
  Value name = MakeString(key);
  value_->AddMember(name, newValue, *allocator_);
}

RapidjsonWrapper::Value* RapidjsonWrapper::Insert(int index, Value& newValue) {
  if (!value_->IsArray()) return nullptr;
  const rapidjson::SizeType size = value_->Size();
  if (index < 0 || static_cast<rapidjson::SizeType>(index) >= size) {
    value_->PushBack(newValue, *allocator_);
    return value_->End() - 1;
  }
  // RapidJSON only appends: grow by a placeholder, then shift the tail up one slot as raw bytes
  // (values are relocatable) and build the new element over the stale bytes left at index.
  Value placeholder(0);
  value_->PushBack(placeholder, *allocator_);
  Value* slot = value_->Begin() + index;  // the block may have moved in PushBack
  std::memmove(static_cast<void*>(slot + 1), static_cast<const void*>(slot),
               (size - static_cast<rapidjson::SizeType>(index)) * sizeof(Value));
  new (static_cast<void*>(slot)) Value(std::move(newValue));
  return slot;
}

bool RapidjsonWrapper::SetInt(int index, int value) {
  Value v(value);
  return Replace(index, v);
}
void RapidjsonWrapper::SetInt(const char* key, int value) {
  Value v(value);
  Put(key, v);
}
bool RapidjsonWrapper::SetUint(int index, unsigned int value) {
  Value v(value);
  return Replace(index, v);
}
void RapidjsonWrapper::SetUint(const char* key, unsigned int value) {
  Value v(value);
  Put(key, v);
}
bool RapidjsonWrapper::SetInt64(int index, int64_t value) {
  Value v(value);
  return Replace(index, v);
}
void RapidjsonWrapper::SetInt64(const char* key, int64_t value) {
  Value v(value);
  Put(key, v);
}
bool RapidjsonWrapper::SetUint64(int index, uint64_t value) {
  Value v(value);
  return Replace(index, v);
}
void RapidjsonWrapper::SetUint64(const char* key, uint64_t value) {
  Value v(value);
  Put(key, v);
}
bool RapidjsonWrapper::SetString(int index, const char* value) {
  if (Element(index) == nullptr) return false;  // no copy into the pool when nothing is set
  Value v = MakeString(value);
  return Replace(index, v);
}
void RapidjsonWrapper::SetString(const char* key, const char* value) {
  if (!value_->IsObject() || !IsUsableKey(key)) return;
  Value v = MakeString(value);
  Put(key, v);
}
bool RapidjsonWrapper::SetBool(int index, bool value) {
  Value v(value);
  return Replace(index, v);
}
void RapidjsonWrapper::SetBool(const char* key, bool value) {
  Value v(value);
  Put(key, v);
}
bool RapidjsonWrapper::SetFloat(int index, float value) {
  Value v(static_cast<double>(value));
  return Replace(index, v);
}
void RapidjsonWrapper::SetFloat(const char* key, float value) {
  Value v(static_cast<double>(value));
  Put(key, v);
}
bool RapidjsonWrapper::SetDouble(int index, double value) {
  Value v(value);
  return Replace(index, v);
}
void RapidjsonWrapper::SetDouble(const char* key, double value) {
  Value v(value);
  Put(key, v);
}
bool RapidjsonWrapper::SetJson(int index, std::shared_ptr<const ZELJson> value) {
  Value copy;
  if (Element(index) == nullptr || !DeepCopy(value.get(), copy)) return false;
  return Replace(index, copy);
}
void RapidjsonWrapper::SetJson(const char* key, std::shared_ptr<const ZELJson> value) {
  Value copy;
  if (!value_->IsObject() || !IsUsableKey(key) || !DeepCopy(value.get(), copy)) return;
  Put(key, copy);
}

std::shared_ptr<ZELJson> RapidjsonWrapper::AddContainer(int index, rapidjson::Type type) {
  Value container(type);
  Value* element = Insert(index, container);
  return element != nullptr ? MakeView(element) : nullptr;
}

std::shared_ptr<ZELJson> RapidjsonWrapper::AddContainer(const char* key, rapidjson::Type type) {
  if (!value_->IsObject() || !IsUsableKey(key)) return nullptr;
  const auto it = FindKey(*value_, key);
  if (it != value_->MemberEnd()) {
    it->value = Value(type);  // get-and-clear: what the member held is dropped
    return MakeView(&it->value);
  }
  Value name = MakeString(key);
  Value container(type);
  value_->AddMember(name, container, *allocator_);
  return MakeView(&(value_->MemberEnd() - 1)->value);  // AddMember appends, maybe after a move
}

std::shared_ptr<ZELJson> RapidjsonWrapper::AddArray(int index) {
  return AddContainer(index, rapidjson::kArrayType);
}
std::shared_ptr<ZELJson> RapidjsonWrapper::AddArray(const char* key) {
  return AddContainer(key, rapidjson::kArrayType);
}
std::shared_ptr<ZELJson> RapidjsonWrapper::AddObject(int index) {
  return AddContainer(index, rapidjson::kObjectType);
}
std::shared_ptr<ZELJson> RapidjsonWrapper::AddObject(const char* key) {
  return AddContainer(key, rapidjson::kObjectType);
}

bool RapidjsonWrapper::Remove(int index) {
  Value* element = Element(index);
  if (element == nullptr) return false;
  value_->Erase(element);
  return true;
}

void RapidjsonWrapper::Remove(const char* key) {
  if (!value_->IsObject() || !IsUsableKey(key)) return;
  const auto it = FindKey(*value_, key);
  if (it != value_->MemberEnd()) value_->RemoveMember(it);  // the last member fills the gap
}

CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> RapidjsonWrapper::GetKeys() const {
  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> keys;
  if (!value_->IsObject()) return keys;
  for (auto it = value_->MemberBegin(); it != value_->MemberEnd(); ++it) {
    keys.Add(CMRL_ByteString(it->name.GetString()));  // a key with a NUL byte is cut there
  }
  return keys;
}

bool RapidjsonWrapper::Fetch(CMRL_ByteString& key, std::shared_ptr<ZELJson>& value) {
  AssignKey(key, memberPosition_->name.GetString());
  value = MakeView(&memberPosition_->value);
  ++memberPosition_;
  return memberPosition_ != value_->MemberEnd();
}

bool RapidjsonWrapper::GetFirstMember(CMRL_ByteString& key, std::shared_ptr<ZELJson>& value) {
  if (!value_->IsObject()) return false;
  memberPosition_ = value_->MemberBegin();
  if (memberPosition_ == value_->MemberEnd()) return false;
  return Fetch(key, value);
}

bool RapidjsonWrapper::GetNextMember(CMRL_ByteString& key, std::shared_ptr<ZELJson>& value) {
  if (!value_->IsObject()) return false;
  // A position left behind by a removal past the new end must not be read.
  if (memberPosition_ == Value::MemberIterator() || memberPosition_ < value_->MemberBegin() ||
      memberPosition_ >= value_->MemberEnd()) {
    return false;
  }
  return Fetch(key, value);
}

bool RapidjsonWrapper::InsertInt(int index, int value) {
  Value v(value);
  return Insert(index, v) != nullptr;
}
bool RapidjsonWrapper::InsertUint(int index, unsigned int value) {
  Value v(value);
  return Insert(index, v) != nullptr;
}
bool RapidjsonWrapper::InsertInt64(int index, int64_t value) {
  Value v(value);
  return Insert(index, v) != nullptr;
}
bool RapidjsonWrapper::InsertUint64(int index, uint64_t value) {
  Value v(value);
  return Insert(index, v) != nullptr;
}
bool RapidjsonWrapper::InsertString(int index, const char* value) {
  if (!value_->IsArray()) return false;
  Value v = MakeString(value);
  return Insert(index, v) != nullptr;
}
bool RapidjsonWrapper::InsertBool(int index, bool value) {
  Value v(value);
  return Insert(index, v) != nullptr;
}
bool RapidjsonWrapper::InsertFloat(int index, float value) {
  Value v(static_cast<double>(value));
  return Insert(index, v) != nullptr;
}
bool RapidjsonWrapper::InsertDouble(int index, double value) {
  Value v(value);
  return Insert(index, v) != nullptr;
}
bool RapidjsonWrapper::InsertJson(int index, std::shared_ptr<const ZELJson> value) {
  Value copy;
  if (!value_->IsArray() || !DeepCopy(value.get(), copy)) return false;
  return Insert(index, copy) != nullptr;
}

int RapidjsonWrapper::GetSize() const {
  if (value_->IsArray()) return static_cast<int>(value_->Size());
  if (value_->IsObject()) return static_cast<int>(value_->MemberCount());
  return -1;
}

std::shared_ptr<ZELJson> RapidjsonWrapper::Clone() const {
  auto document = std::make_unique<rapidjson::Document>();
  CopyTree(*value_, document->GetAllocator()).Swap(*document);
  return std::make_shared<RapidjsonWrapper>(std::move(document));
}

bool RapidjsonWrapper::CopyFrom(std::shared_ptr<const ZELJson> other) {
  const Value* source = ValueOf(other.get());
  if (source == nullptr) return false;
  if (document_) {
    // A root or clone copies into a fresh pool of its own. The document and its pool stay until
    // the node goes, so views taken before still point at live (if detached) values; a pool from
    // an earlier CopyFrom is released only after the copy, as the source may lie inside it.
    auto pool = std::make_unique<Allocator>();
    Value copy = CopyTree(*source, *pool);
    *value_ = copy;
    ownedAllocator_ = std::move(pool);
    allocator_ = ownedAllocator_.get();
  } else {
    // A view copies into its tree's pool, so the copy lives as long as the tree does.
    Value copy = CopyTree(*source, *allocator_);
    *value_ = copy;
  }
  ResetMemberPosition();
  return true;
}

CMRL_ByteString RapidjsonWrapper::ToJsonString(const ZELJsonFactory::BuildConfig* config) const {
  CMRL_ByteString text;
  {
    ByteStringOutput output(text);
    rapidjson::Writer<ByteStringOutput> writer(output);
    if (config != nullptr) {
      // The writer needs at least one decimal place.
      writer.SetMaxDecimalPlaces(std::max(1, config->GetMaxDecimalPlaces()));
    }
    Walk(*value_, writer);  // on a NaN or infinity the text simply stops there
    output.Finish();
  }
  return text;
}
