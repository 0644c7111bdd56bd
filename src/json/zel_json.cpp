#include <zelutility/json.h>

const char* GetJsonTypeString(ZELJsonType type) {
  switch (type) {
    case ZELJsonNull:
      return "null";
    case ZELJsonInt:
      return "int";
    case ZELJsonUint:
      return "uint";
    case ZELJsonFloat:
      return "float";
    case ZELJsonDouble:
      return "double";
    case ZELJsonString:
      return "string";
    case ZELJsonBoolean:
      return "boolean";
    case ZELJsonArray:
      return "array";
    case ZELJsonObject:
      return "object";
    case ZELJsonInt64:   // the 64-bit classes have no word of their own
    case ZELJsonUint64:
      break;
  }
  return "unknown";
}
