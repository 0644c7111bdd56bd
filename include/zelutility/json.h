#ifndef ZELUTILITY_JSON_H_
#define ZELUTILITY_JSON_H_

#include <cstdint>
#include <memory>

#include <mrlbase/byte_string.h>
#include <mrlbase/object_array.h>
#include <mrlbase/ts_array_template.h>
#include <zelutility/export.h>

// Kind of a JSON node. Integers report the narrowest class in the order uint, int, uint64, int64,
// so 5 and 3000000000 are ZELJsonUint and -5 is ZELJsonInt. Every stored floating-point number is
// ZELJsonDouble; no node reports ZELJsonFloat.
enum ZELJsonType : int {
  ZELJsonNull = 0,
  ZELJsonInt = 1,      // -2147483648 .. -1
  ZELJsonUint = 2,     // 0 .. 4294967295
  ZELJsonInt64 = 3,    // -9223372036854775808 .. -2147483649
  ZELJsonUint64 = 4,   // 4294967296 .. 18446744073709551615
  ZELJsonFloat = 5,
  ZELJsonDouble = 6,
  ZELJsonString = 7,
  ZELJsonBoolean = 8,
  ZELJsonArray = 9,
  ZELJsonObject = 10,
};

// The word for a type: "null", "int", "uint", "float", "double", "string", "boolean", "array",
// "object"; "unknown" for the two 64-bit types and for any value outside the enumeration.
// The pointer is to static text and never null.
ZEL_API const char* GetJsonTypeString(ZELJsonType type);

// One JSON value: null, boolean, number, string, array or object.
//
// Nodes come from ZELJsonFactory::ParseJsonString (a root), from Clone (a root of its own copy) or
// from another node (a view: GetChild, AddArray, AddObject, member iteration). A view does not keep
// its tree alive: keep the root or clone alive while a view or a text pointer from it is in use.
// Inserting into or removing from a container invalidates views and text pointers into it.
//
// Nothing throws. Wrong kinds, bad indexes (negative included) and unusable keys (null or "") give
// the documented default, false, a null pointer or no effect. Keys are copied, compared byte for
// byte, and the first member wins when a key occurs twice. Numbers keep their stored form: 2 is an
// integer, 2.0 is floating point, and the readers accept by that form, not by value.
//
//   auto root = ZELJsonFactory::ParseJsonString("{\"size\":[595,842]}", -1, nullptr);
//   int width = root->GetChild("size")->GetInt(0, 0);   // 595
//   root->SetString("title", "Page 1");                  // add or replace by key
//   root->AddArray("marks")->InsertDouble(-1, 0.5);      // -1 appends
//
// Threads: different trees share nothing (each has its own memory pool) and may be used at once.
// A tree, with every view into it, is for one thread at a time while anyone changes it; while
// nobody changes it, any number of threads may read it at once. Member iteration moves a position
// kept in the node object, so one node object is iterated by one thread at a time.
class ZELJson {
 public:
  virtual ~ZELJson() = default;

  // The node's type; see ZELJsonType.
  virtual ZELJsonType GetType() const = 0;

  // Reading the node's own value. The first form returns the value and sets *ok (ok may be null);
  // on refusal it returns 0, false or "" (never null) and sets *ok to false. The second form
  // stores into value and returns true, or leaves value alone and returns false.
  // AsInt: an integer that fits signed 32 bits. AsUint: one that fits signed or unsigned 32 bits,
  // read as its low 32 bits (-1 gives 4294967295). AsInt64: fits signed 64 bits. AsUint64: any
  // integer as its 64-bit pattern. AsFloat: a double within +-3.4028234e38 or an int32 integer.
  // AsDouble: any double or an int32 integer (3000000000 is refused).
  virtual int AsInt(bool* ok = nullptr) const = 0;
  virtual bool AsInt(int& value) const = 0;
  virtual unsigned int AsUint(bool* ok = nullptr) const = 0;
  virtual bool AsUint(unsigned int& value) const = 0;
  virtual int64_t AsInt64(bool* ok = nullptr) const = 0;
  virtual bool AsInt64(int64_t& value) const = 0;
  virtual uint64_t AsUint64(bool* ok = nullptr) const = 0;
  virtual bool AsUint64(uint64_t& value) const = 0;
  virtual const char* AsString(bool* ok = nullptr) const = 0;
  virtual bool AsString(const char*& value) const = 0;
  virtual bool AsBool(bool* ok = nullptr) const = 0;
  virtual bool AsBool(bool& value) const = 0;
  virtual float AsFloat(bool* ok = nullptr) const = 0;
  virtual bool AsFloat(float& value) const = 0;
  virtual double AsDouble(bool* ok = nullptr) const = 0;
  virtual bool AsDouble(double& value) const = 0;

  // True when this is an object, key is usable and a member has it.
  virtual bool HasKey(const char* key) const = 0;

  // A view of an element (array, index in range) or of a member's value (object, usable key
  // present); null otherwise. Every call makes a new view object over the same value.
  virtual std::shared_ptr<const ZELJson> GetChild(int index) const = 0;
  virtual std::shared_ptr<ZELJson> GetChild(int index) = 0;
  virtual std::shared_ptr<const ZELJson> GetChild(const char* key) const = 0;
  virtual std::shared_ptr<ZELJson> GetChild(const char* key) = 0;

  // An element or member read by the rule of the As reader of the same type, or defaultValue when
  // the node is the wrong kind, the index or key misses, or the reader refuses the value.
  // GetString hands defaultValue back unchanged, null included.
  virtual int GetInt(int index, int defaultValue = 0) const = 0;
  virtual int GetInt(const char* key, int defaultValue = 0) const = 0;
  virtual unsigned int GetUint(int index, unsigned int defaultValue = 0) const = 0;
  virtual unsigned int GetUint(const char* key, unsigned int defaultValue = 0) const = 0;
  virtual int64_t GetInt64(int index, int64_t defaultValue = 0) const = 0;
  virtual int64_t GetInt64(const char* key, int64_t defaultValue = 0) const = 0;
  virtual uint64_t GetUint64(int index, uint64_t defaultValue = 0) const = 0;
  virtual uint64_t GetUint64(const char* key, uint64_t defaultValue = 0) const = 0;
  virtual const char* GetString(int index, const char* defaultValue = "") const = 0;
  virtual const char* GetString(const char* key, const char* defaultValue = "") const = 0;
  virtual bool GetBool(int index, bool defaultValue = false) const = 0;
  virtual bool GetBool(const char* key, bool defaultValue = false) const = 0;
  virtual float GetFloat(int index, float defaultValue = 0.0f) const = 0;
  virtual float GetFloat(const char* key, float defaultValue = 0.0f) const = 0;
  virtual double GetDouble(int index, double defaultValue = 0.0) const = 0;
  virtual double GetDouble(const char* key, double defaultValue = 0.0) const = 0;

  // Writing. By index: replaces an existing element whatever it held and returns true; false with
  // no effect unless this is an array and the index is in range (never grows the array).
  // By key: replaces the value of the member with that key, or appends a new member; no effect
  // unless this is an object and the key is usable. Text is copied, a null text stores "".
  // Float is widened to double on the way in. SetJson stores a deep copy of value's node; a null
  // value gives false or no effect.
  virtual bool SetInt(int index, int value) = 0;
  virtual void SetInt(const char* key, int value) = 0;
  virtual bool SetUint(int index, unsigned int value) = 0;
  virtual void SetUint(const char* key, unsigned int value) = 0;
  virtual bool SetInt64(int index, int64_t value) = 0;
  virtual void SetInt64(const char* key, int64_t value) = 0;
  virtual bool SetUint64(int index, uint64_t value) = 0;
  virtual void SetUint64(const char* key, uint64_t value) = 0;
  virtual bool SetString(int index, const char* value) = 0;
  virtual void SetString(const char* key, const char* value) = 0;
  virtual bool SetBool(int index, bool value) = 0;
  virtual void SetBool(const char* key, bool value) = 0;
  virtual bool SetFloat(int index, float value) = 0;
  virtual void SetFloat(const char* key, float value) = 0;
  virtual bool SetDouble(int index, double value) = 0;
  virtual void SetDouble(const char* key, double value) = 0;
  virtual bool SetJson(int index, std::shared_ptr<const ZELJson> value) = 0;
  virtual void SetJson(const char* key, std::shared_ptr<const ZELJson> value) = 0;

  // A new empty container and a view of it, or null. By index (arrays only): inserted by the
  // rule of InsertInt. By key (objects only, usable key): added at the end, or an existing member
  // is emptied and turned into the container (get-and-clear, never get-or-create).
  virtual std::shared_ptr<ZELJson> AddArray(int index) = 0;
  virtual std::shared_ptr<ZELJson> AddArray(const char* key) = 0;
  virtual std::shared_ptr<ZELJson> AddObject(int index) = 0;
  virtual std::shared_ptr<ZELJson> AddObject(const char* key) = 0;

  // By index: erases an element of an array, keeping order; false when out of range or not an
  // array. By key: erases the first member with the key and moves the last member into the gap.
  virtual bool Remove(int index) = 0;
  virtual void Remove(const char* key) = 0;

  // Every key in member order, the empty key and duplicates included; empty for non-objects.
  virtual CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_ByteString> GetKeys() const = 0;
  // Member iteration with a position held in this node object. Each call that delivers a member
  // writes key and value and returns whether another member follows, so the last member comes
  // with false. Without a member to deliver (empty object, end, not an object) it returns false
  // and writes nothing: clear value first to tell the two apart.
  //
  //   CMRL_ByteString key;
  //   std::shared_ptr<ZELJson> value;
  //   for (bool more = obj->GetFirstMember(key, value); value;) {
  //     Use(key, value);
  //     value.reset();
  //     if (more) more = obj->GetNextMember(key, value);
  //   }
  virtual bool GetFirstMember(CMRL_ByteString& key, std::shared_ptr<ZELJson>& value) = 0;
  virtual bool GetNextMember(CMRL_ByteString& key, std::shared_ptr<ZELJson>& value) = 0;

  // Inserting into an array: at index when 0 <= index < size, the later elements move up;
  // otherwise (negative, size or more) appended. False with no effect only when this is not an
  // array, or for InsertJson when value is null.
  virtual bool InsertInt(int index, int value) = 0;
  virtual bool InsertUint(int index, unsigned int value) = 0;
  virtual bool InsertInt64(int index, int64_t value) = 0;
  virtual bool InsertUint64(int index, uint64_t value) = 0;
  virtual bool InsertString(int index, const char* value) = 0;
  virtual bool InsertBool(int index, bool value) = 0;
  virtual bool InsertFloat(int index, float value) = 0;
  virtual bool InsertDouble(int index, double value) = 0;
  virtual bool InsertJson(int index, std::shared_ptr<const ZELJson> value) = 0;

  // Number of elements or members (duplicates counted); -1 for scalars and null.
  virtual int GetSize() const = 0;
  // A deep copy in storage of its own, independent of this tree. Deep copies (Clone, CopyFrom,
  // SetJson, InsertJson) work at any nesting depth, however the tree was built.
  virtual std::shared_ptr<ZELJson> Clone() const = 0;
  // Replaces this node's value (whatever its kind) with a deep copy of other's and returns true;
  // false and no change for null. other may be this node or lie inside its tree. On a view the
  // copy goes into the storage of the view's tree and lives as long as that tree.
  virtual bool CopyFrom(std::shared_ptr<const ZELJson> other) = 0;
};

#endif  // ZELUTILITY_JSON_H_
