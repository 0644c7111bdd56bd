#ifndef ZELUTILITY_SRC_JSON_RAPIDJSON_WRAPPER_H_
#define ZELUTILITY_SRC_JSON_RAPIDJSON_WRAPPER_H_

#include <memory>

#include <rapidjson/document.h>

#include <zelutility/json.h>
#include <zelutility/json_factory.h>

// The one ZELJson implementation: a thin node object over a value inside a RapidJSON tree.
//
// A root (from parsing or Clone) owns a whole rapidjson::Document, its value and its pool. A view
// holds raw pointers to a value inside some tree and to that tree's pool, and owns nothing: a new
// one is made on every GetChild, in a block from the calling thread's ViewBlockPool, so it stays
// small enough for one block.
class RapidjsonWrapper final : public ZELJson {
 public:
  using Value = rapidjson::Value;
  using Allocator = rapidjson::MemoryPoolAllocator<>;

  // A root over `document` (never null), which it owns.
  explicit RapidjsonWrapper(std::unique_ptr<rapidjson::Document> document) noexcept;
  // A view of `value`, whose new strings and blocks come from `allocator`.
  RapidjsonWrapper(Value* value, Allocator* allocator) noexcept;
  ~RapidjsonWrapper() override = default;

  RapidjsonWrapper(const RapidjsonWrapper&) = delete;
  RapidjsonWrapper& operator=(const RapidjsonWrapper&) = delete;

  // The wrapped value of a node of this library, or null for any other ZELJson.
  static const Value* ValueOf(const ZELJson* node) noexcept;

  ZELJsonType GetType() const override;

  int AsInt(bool* ok) const override;
  bool AsInt(int& value) const override;
  unsigned int AsUint(bool* ok) const override;
  bool AsUint(unsigned int& value) const override;
  int64_t AsInt64(bool* ok) const override;
  bool AsInt64(int64_t& value) const override;
  uint64_t AsUint64(bool* ok) const override;
  bool AsUint64(uint64_t& value) const override;
  const char* AsString(bool* ok) const override;
  bool AsString(const char*& value) const override;
  bool AsBool(bool* ok) const override;
  bool AsBool(bool& value) const override;
  float AsFloat(bool* ok) const override;
  bool AsFloat(float& value) const override;
  double AsDouble(bool* ok) const override;
  bool AsDouble(double& value) const override;

  bool HasKey(const char* key) const override;

  std::shared_ptr<const ZELJson> GetChild(int index) const override;
  std::shared_ptr<ZELJson> GetChild(int index) override;
  std::shared_ptr<const ZELJson> GetChild(const char* key) const override;
  std::shared_ptr<ZELJson> GetChild(const char* key) override;

  int GetInt(int index, int defaultValue) const override;
  int GetInt(const char* key, int defaultValue) const override;
  unsigned int GetUint(int index, unsigned int defaultValue) const override;
  unsigned int GetUint(const char* key, unsigned int defaultValue) const override;
  int64_t GetInt64(int index, int64_t defaultValue) const override;
  int64_t GetInt64(const char* key, int64_t defaultValue) const override;
  uint64_t GetUint64(int index, uint64_t defaultValue) const override;
  uint64_t GetUint64(const char* key, uint64_t defaultValue) const override;
  const char* GetString(int index, const char* defaultValue) const override;
  const char* GetString(const char* key, const char* defaultValue) const override;
  bool GetBool(int index, bool defaultValue) const override;
  bool GetBool(const char* key, bool defaultValue) const override;
  float GetFloat(int index, float defaultValue) const override;
  float GetFloat(const char* key, float defaultValue) const override;
  double GetDouble(int index, double defaultValue) const override;
  double GetDouble(const char* key, double defaultValue) const override;

  bool SetInt(int index, int value) override;
  void SetInt(const char* key, int value) override;
  bool SetUint(int index, unsigned int value) override;
  void SetUint(const char* key, unsigned int value) override;
  bool SetInt64(int index, int64_t value) override;
  void SetInt64(const char* key, int64_t value) override;
  bool SetUint64(int index, uint64_t value) override;
  void SetUint64(const char* key, uint64_t value) override;
  bool SetString(int index, const char* value) override;
  void SetString(const char* key, const char* value) override;
  bool SetBool(int index, bool value) override;
  void SetBool(const char* key, bool value) override;
  bool SetFloat(int index, float value) override;
  void SetFloat(const char* key, float value) override;
  bool SetDouble(int index, double value) override;
  void SetDouble(const char* key, double value) override;
  bool SetJson(int index, std::shared_ptr<const ZELJson> value) override;
  void SetJson(const char* key, std::shared_ptr<const ZELJson> value) override;

  std::shared_ptr<ZELJson> AddArray(int index) override;
  std::shared_ptr<ZELJson> AddArray(const char* key) override;
  std::shared_ptr<ZELJson> AddObject(int index) override;
  std::shared_ptr<ZELJson> AddObject(const char* key) override;

  bool Remove(int index) override;
  void Remove(const char* key) override;

  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> GetKeys() const override;
  bool GetFirstMember(CMRL_ByteString& key, std::shared_ptr<ZELJson>& value) override;
  bool GetNextMember(CMRL_ByteString& key, std::shared_ptr<ZELJson>& value) override;

  bool InsertInt(int index, int value) override;
  bool InsertUint(int index, unsigned int value) override;
  bool InsertInt64(int index, int64_t value) override;
  bool InsertUint64(int index, uint64_t value) override;
  bool InsertString(int index, const char* value) override;
  bool InsertBool(int index, bool value) override;
  bool InsertFloat(int index, float value) override;
  bool InsertDouble(int index, double value) override;
  bool InsertJson(int index, std::shared_ptr<const ZELJson> value) override;

  int GetSize() const override;
  std::shared_ptr<ZELJson> Clone() const override;
  bool CopyFrom(std::shared_ptr<const ZELJson> other) override;

  // Compact text of this node's value; a null config means no decimal limit (324).
  virtual CMRL_ByteString ToJsonString(const ZELJsonFactory::BuildConfig* config) const;

 private:
  // The element at index, or null unless this is an array and the index is in range.
  Value* Element(int index) const noexcept;
  // The value of the first member with key, or null unless this is an object and key is usable.
  Value* Member(const char* key) const noexcept;
  // Replace-by-index and add-or-replace-by-key of a ready value (moved from).
  bool Replace(int index, Value& newValue) noexcept;
  void Put(const char* key, Value& newValue);
  // Positional insertion of a ready value (moved from); the element where it landed, or null.
  Value* Insert(int index, Value& newValue);
  // A copied string value of text (null is "").
  Value MakeString(const char* text) const;
  // A deep copy of source's value in this tree's pool; false when source is not one of ours.
  bool DeepCopy(const ZELJson* source, Value& copy) const;
  std::shared_ptr<ZELJson> MakeView(Value* value) const;
  std::shared_ptr<ZELJson> AddContainer(const char* key, rapidjson::Type type);
  std::shared_ptr<ZELJson> AddContainer(int index, rapidjson::Type type);
  bool Fetch(CMRL_ByteString& key, std::shared_ptr<ZELJson>& value);
  void ResetMemberPosition() noexcept;

  std::unique_ptr<rapidjson::Document> document_;  // roots and clones only
  std::unique_ptr<Allocator> ownedAllocator_;      // a root's or clone's pool after CopyFrom
  Value* value_;
  Allocator* allocator_;
  Value::MemberIterator memberPosition_;
};

#endif  // ZELUTILITY_SRC_JSON_RAPIDJSON_WRAPPER_H_
