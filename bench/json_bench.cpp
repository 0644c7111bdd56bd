// JSON text to nodes and back, a schema-driven read and a visit of every node, against plain RapidJSON in the same run.
//
// The documents are generated page descriptions (nested objects, arrays of numbers, strings with
// some non-ASCII text) of about 1 MB and 10 MB.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <zelutility/json_factory.h>

namespace {

// Small deterministic generator so every run parses the same bytes.
class Lcg {
 public:
  uint32_t Next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<uint32_t>(state_ >> 33);
  }
  int Below(int n) { return static_cast<int>(Next() % static_cast<uint32_t>(n)); }
  double Coordinate() { return Below(60000) / 100.0 + 0.25; }

 private:
  uint64_t state_ = 0x2545F4914F6CDD1DULL;
};

void AppendNumber(std::string& out, double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof(buffer), "%.2f", value);
  out += buffer;
}

void AppendNumbers(std::string& out, Lcg& random, int count) {
  out += '[';
  for (int i = 0; i < count; ++i) {
    if (i > 0) out += ',';
    AppendNumber(out, random.Coordinate());
  }
  out += ']';
}

const char* const kTexts[] = {
    "Rapport annuel — Überblick über das Geschäftsjahr",
    "营业收入同比增长 12.4%，净利润达到 3.1 亿元。",
    "Revenue grew 12.4 % year on year; margins held at 19 %.",
    "出荷予測は前年同期比で増加しました。",
    "Zoë's résumé: naïve café façade, déjà vu.",
};
const char* const kFonts[] = {"Noto Serif", "Noto Sans CJK SC", "DejaVu Sans", "Liberation Mono"};

void AppendObject(std::string& out, Lcg& random) {
  switch (random.Below(3)) {
    case 0:
      out += "{\"Type\":\"Text\",\"Rect\":";
      AppendNumbers(out, random, 4);
      out += ",\"Font\":{\"Name\":\"";
      out += kFonts[random.Below(4)];
      out += "\",\"Size\":";
      AppendNumber(out, 8 + random.Below(16) / 2.0);
      out += random.Below(2) ? ",\"Bold\":true}" : ",\"Bold\":false}";
      out += ",\"ColorValue\":[" + std::to_string(random.Below(256)) + "," +
             std::to_string(random.Below(256)) + "," + std::to_string(random.Below(256)) + "]";
      out += ",\"Text\":\"";
      out += kTexts[random.Below(5)];
      out += "\"}";
      break;
    case 1: {
      out += "{\"Type\":\"Path\",\"LineWidth\":";
      AppendNumber(out, 0.5 + random.Below(8) / 4.0);
      out += ",\"Cap\":" + std::to_string(random.Below(3));
      out += ",\"ColorValue\":[" + std::to_string(random.Below(256)) + ",0,0],\"Points\":[";
      const int points = 3 + random.Below(10);
      for (int i = 0; i < points; ++i) {
        if (i > 0) out += ',';
        AppendNumbers(out, random, 2);
      }
      out += "]}";
      break;
    }
    default:
      out += "{\"Type\":\"Image\",\"Rect\":";
      AppendNumbers(out, random, 4);
      out += ",\"Format\":\"PNG\",\"Matrix\":";
      AppendNumbers(out, random, 6);
      out += ",\"Source\":\"images/figure-" + std::to_string(random.Below(1000)) + ".png\"}";
      break;
  }
}

std::string MakeDocument(size_t targetBytes) {
  Lcg random;
  std::string out = "{\"Document\":\"annual-report\",\"Language\":\"de-DE\",\"Pages\":[";
  for (int page = 0; out.size() < targetBytes; ++page) {
    if (page > 0) out += ',';
    out += "{\"Index\":" + std::to_string(page) + ",\"Size\":[595.28,841.89],\"Rotate\":0";
    out += ",\"Metadata\":{\"Title\":\"Seite " + std::to_string(page + 1) +
           " — Übersicht\",\"Keywords\":[\"finance\",\"résumé\",\"年度报告\"]}";
    out += ",\"Objects\":[";
    const int objects = 6 + random.Below(8);
    for (int i = 0; i < objects; ++i) {
      if (i > 0) out += ',';
      AppendObject(out, random);
    }
    out += "]}";
  }
  out += "]}";
  return out;
}

const std::string& Document(int megabytes) {
  // Built once per size, outside the timing.
  static const std::string oneMegabyte = MakeDocument(size_t{1} << 20);
  static const std::string tenMegabytes = MakeDocument(size_t{10} << 20);
  return megabytes >= 10 ? tenMegabytes : oneMegabyte;
}

void BM_ParsePrint_ZELJsonFactory(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto root = ZELJsonFactory::ParseJsonString(text.data(), static_cast<unsigned int>(text.size()),
                                                nullptr);
    CMRL_ByteString out = ZELJsonFactory::BuildJsonString(root, nullptr);
    benchmark::DoNotOptimize(out.GetLength());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_ParsePrint_RawRapidJSON(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    benchmark::DoNotOptimize(buffer.GetSize());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// The two halves apart: text to tree, and tree to text.
void BM_Parse_ZELJsonFactory(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto root = ZELJsonFactory::ParseJsonString(text.data(), static_cast<unsigned int>(text.size()),
                                                nullptr);
    benchmark::DoNotOptimize(root.get());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_Parse_RawRapidJSON(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    benchmark::DoNotOptimize(document.IsObject());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_Print_ZELJsonFactory(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  auto root = ZELJsonFactory::ParseJsonString(text.data(), static_cast<unsigned int>(text.size()),
                                              nullptr);
  for (auto _ : state) {
    CMRL_ByteString out = ZELJsonFactory::BuildJsonString(root, nullptr);
    benchmark::DoNotOptimize(out.GetLength());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_Print_RawRapidJSON(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  for (auto _ : state) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    benchmark::DoNotOptimize(buffer.GetSize());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// The same schema-driven read of every page through the node interface and through RapidJSON.
struct Totals {
  double numbers = 0;
  int64_t integers = 0;
  size_t firstBytes = 0;
};

void WalkNumbers(const ZELJson& array, Totals& totals) {
  const int size = array.GetSize();
  for (int i = 0; i < size; ++i) totals.numbers += array.GetDouble(i, 0.0);
}

void WalkZel(const ZELJson& root, Totals& totals) {
  auto pages = root.GetChild("Pages");
  const int pageCount = pages->GetSize();
  for (int p = 0; p < pageCount; ++p) {
    auto page = pages->GetChild(p);
    totals.integers += page->GetInt("Index", 0);
    WalkNumbers(*page->GetChild("Size"), totals);
    totals.firstBytes += static_cast<unsigned char>(page->GetChild("Metadata")->GetString("Title", "")[0]);
    auto objects = page->GetChild("Objects");
    const int objectCount = objects->GetSize();
    for (int o = 0; o < objectCount; ++o) {
      auto object = objects->GetChild(o);
      totals.firstBytes += static_cast<unsigned char>(object->GetString("Type", "")[0]);
      if (auto rect = object->GetChild("Rect")) WalkNumbers(*rect, totals);
      if (auto matrix = object->GetChild("Matrix")) WalkNumbers(*matrix, totals);
      if (auto color = object->GetChild("ColorValue")) {
        for (int c = 0; c < color->GetSize(); ++c) totals.integers += color->GetInt(c, 0);
      }
      if (auto font = object->GetChild("Font")) {
        totals.firstBytes += static_cast<unsigned char>(font->GetString("Name", "")[0]);
        totals.numbers += font->GetDouble("Size", 0.0);
      }
      totals.firstBytes += static_cast<unsigned char>(object->GetString("Text", "")[0]);
      if (auto points = object->GetChild("Points")) {
        const int pointCount = points->GetSize();
        for (int i = 0; i < pointCount; ++i) WalkNumbers(*points->GetChild(i), totals);
      }
    }
  }
}

const rapidjson::Value* Find(const rapidjson::Value& object, const char* key) {
  const auto it = object.FindMember(key);
  return it != object.MemberEnd() ? &it->value : nullptr;
}

void RawNumbers(const rapidjson::Value& array, Totals& totals) {
  for (const auto& v : array.GetArray()) totals.numbers += v.IsNumber() ? v.GetDouble() : 0.0;
}

unsigned char RawFirstByte(const rapidjson::Value& object, const char* key) {
  const rapidjson::Value* v = Find(object, key);
  return (v != nullptr && v->IsString()) ? static_cast<unsigned char>(v->GetString()[0]) : 0;
}

void WalkRaw(const rapidjson::Value& root, Totals& totals) {
  const rapidjson::Value& pages = *Find(root, "Pages");
  for (const auto& page : pages.GetArray()) {
    const rapidjson::Value* index = Find(page, "Index");
    totals.integers += (index != nullptr && index->IsInt()) ? index->GetInt() : 0;
    RawNumbers(*Find(page, "Size"), totals);
    totals.firstBytes += RawFirstByte(*Find(page, "Metadata"), "Title");
    for (const auto& object : Find(page, "Objects")->GetArray()) {
      totals.firstBytes += RawFirstByte(object, "Type");
      if (const auto* rect = Find(object, "Rect")) RawNumbers(*rect, totals);
      if (const auto* matrix = Find(object, "Matrix")) RawNumbers(*matrix, totals);
      if (const auto* color = Find(object, "ColorValue")) {
        for (const auto& c : color->GetArray()) totals.integers += c.IsInt() ? c.GetInt() : 0;
      }
      if (const auto* font = Find(object, "Font")) {
        totals.firstBytes += RawFirstByte(*font, "Name");
        const rapidjson::Value* size = Find(*font, "Size");
        totals.numbers += (size != nullptr && size->IsNumber()) ? size->GetDouble() : 0.0;
      }
      totals.firstBytes += RawFirstByte(object, "Text");
      if (const auto* points = Find(object, "Points")) {
        for (const auto& point : points->GetArray()) RawNumbers(point, totals);
      }
    }
  }
}

void BM_Walk_ZELJson(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  auto root = ZELJsonFactory::ParseJsonString(text.data(), static_cast<unsigned int>(text.size()),
                                              nullptr);
  {
    // Both walks must read the same values, or the comparison means nothing.
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    Totals mine;
    Totals peer;
    WalkZel(*root, mine);
    WalkRaw(document, peer);
    if (mine.numbers != peer.numbers || mine.integers != peer.integers ||
        mine.firstBytes != peer.firstBytes) {
      state.SkipWithError("the two walks disagree");
      return;
    }
  }
  for (auto _ : state) {
    Totals totals;
    WalkZel(*root, totals);
    benchmark::DoNotOptimize(totals);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_Walk_RawRapidJSON(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  for (auto _ : state) {
    Totals totals;
    WalkRaw(document, totals);
    benchmark::DoNotOptimize(totals);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// A visit of every node: its type, then the members of an object by GetFirstMember/GetNextMember,
// the elements of an array by GetSize/GetChild(i), and a scalar through the As* reader of its type.
struct Visit {
  int64_t nodes = 0;
  int64_t integers = 0;
  double numbers = 0;
  size_t bytes = 0;
};

void VisitZel(ZELJson& node, Visit& visit) {
  ++visit.nodes;
  switch (node.GetType()) {
    case ZELJsonObject: {
      CMRL_ByteString key;
      std::shared_ptr<ZELJson> value;
      bool more = node.GetFirstMember(key, value);
      while (value) {
        visit.bytes += static_cast<size_t>(key.GetLength());
        VisitZel(*value, visit);
        if (!more) break;
        more = node.GetNextMember(key, value);
      }
      break;
    }
    case ZELJsonArray: {
      const int size = node.GetSize();
      for (int i = 0; i < size; ++i) VisitZel(*node.GetChild(i), visit);
      break;
    }
    case ZELJsonInt:
      visit.integers += node.AsInt(nullptr);
      break;
    case ZELJsonUint:
      visit.integers += node.AsUint(nullptr);
      break;
    case ZELJsonInt64:
      visit.integers += node.AsInt64(nullptr);
      break;
    case ZELJsonUint64:
      visit.integers += static_cast<int64_t>(node.AsUint64(nullptr));
      break;
    case ZELJsonDouble:
      visit.numbers += node.AsDouble(nullptr);
      break;
    case ZELJsonString:
      visit.bytes += static_cast<unsigned char>(node.AsString(nullptr)[0]);
      break;
    case ZELJsonBoolean:
      visit.integers += node.AsBool(nullptr) ? 1 : 0;
      break;
    default:
      break;
  }
}

void VisitRaw(const rapidjson::Value& node, Visit& visit) {
  ++visit.nodes;
  switch (node.GetType()) {
    case rapidjson::kObjectType:
      for (const auto& member : node.GetObject()) {
        visit.bytes += member.name.GetStringLength();
        VisitRaw(member.value, visit);
      }
      break;
    case rapidjson::kArrayType: {
      const rapidjson::SizeType size = node.Size();
      for (rapidjson::SizeType i = 0; i < size; ++i) VisitRaw(node[i], visit);
      break;
    }
    case rapidjson::kNumberType:
      if (node.IsUint()) {
        visit.integers += node.GetUint();
      } else if (node.IsInt()) {
        visit.integers += node.GetInt();
      } else if (node.IsUint64()) {
        visit.integers += static_cast<int64_t>(node.GetUint64());
      } else if (node.IsInt64()) {
        visit.integers += node.GetInt64();
      } else {
        visit.numbers += node.GetDouble();
      }
      break;
    case rapidjson::kStringType:
      visit.bytes += static_cast<unsigned char>(node.GetString()[0]);
      break;
    case rapidjson::kTrueType:
      visit.integers += 1;
      break;
    default:
      break;
  }
}

void BM_VisitAll_ZELJson(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  auto root = ZELJsonFactory::ParseJsonString(text.data(), static_cast<unsigned int>(text.size()),
                                              nullptr);
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  Visit mine;
  Visit peer;
  VisitZel(*root, mine);
  VisitRaw(document, peer);
  if (mine.nodes != peer.nodes || mine.integers != peer.integers || mine.numbers != peer.numbers ||
      mine.bytes != peer.bytes) {
    state.SkipWithError("the two visits disagree");
    return;
  }
  for (auto _ : state) {
    Visit visit;
    VisitZel(*root, visit);
    benchmark::DoNotOptimize(visit);
  }
  state.SetItemsProcessed(state.iterations() * mine.nodes);
}

void BM_VisitAll_RawRapidJSON(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  int64_t nodes = 0;
  for (auto _ : state) {
    Visit visit;
    VisitRaw(document, visit);
    benchmark::DoNotOptimize(visit);
    nodes = visit.nodes;
  }
  state.SetItemsProcessed(state.iterations() * nodes);
}

BENCHMARK(BM_ParsePrint_ZELJsonFactory)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParsePrint_RawRapidJSON)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Parse_ZELJsonFactory)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Parse_RawRapidJSON)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Print_ZELJsonFactory)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Print_RawRapidJSON)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Walk_ZELJson)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Walk_RawRapidJSON)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VisitAll_ZELJson)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VisitAll_RawRapidJSON)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
