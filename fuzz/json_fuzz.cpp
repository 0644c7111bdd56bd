// Parses arbitrary bytes, walks the whole tree through the node interface, clones and prints it.
#include <cstddef>
#include <cmath>
#include <cstdint>
#include <string>

#include <zelutility/json.h>
#include <zelutility/json_factory.h>

namespace {

// Clears `finite` when a number reads as an infinity: a text such as 10e308 parses to one,
// and the printer stops right before it, so such a tree cannot print back whole.
void Walk(const std::shared_ptr<ZELJson>& node, int depth, bool& finite) {
  if (!node || depth > 1100) return;
  bool ok = false;
  (void)node->AsInt(&ok);
  (void)node->AsUint64(&ok);
  const double number = node->AsDouble(&ok);
  if (ok && !std::isfinite(number)) finite = false;
  (void)node->AsFloat(&ok);
  (void)node->AsString(&ok);
  (void)GetJsonTypeString(node->GetType());
  const int size = node->GetSize();
  if (node->GetType() == ZELJsonArray) {
    for (int i = 0; i < size; ++i) Walk(node->GetChild(i), depth + 1, finite);
  } else if (node->GetType() == ZELJsonObject) {
    auto keys = node->GetKeys();
    for (int i = 0; i < keys.GetSize(); ++i) (void)node->GetInt(keys.GetAt(i).c_str(), 0);
    CMRL_ByteString key;
    std::shared_ptr<ZELJson> value;
    bool more = node->GetFirstMember(key, value);
    Walk(value, depth + 1, finite);
    while (more) {
      value.reset();
      more = node->GetNextMember(key, value);
      Walk(value, depth + 1, finite);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  auto root = ZELJsonFactory::ParseJsonString(text.c_str(), static_cast<unsigned>(size), nullptr);
  if (!root) return 0;
  bool finite = true;
  Walk(root, 0, finite);
  auto clone = root->Clone();
  const CMRL_ByteString printed = ZELJsonFactory::BuildJsonString(clone, nullptr);
  // What the library prints it must read back, unless an infinity cut the text short.
  if (finite && !ZELJsonFactory::ParseJsonString(printed.c_str(), static_cast<unsigned>(printed.GetLength()), nullptr))
    __builtin_trap();
  ZELJsonFactory::BuildConfig config;
  config.SetMaxDecimalPlaces(static_cast<int>(size % 8));
  (void)ZELJsonFactory::BuildJsonString(root, &config);
  return 0;
}
