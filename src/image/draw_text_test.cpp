#include <zelutility/draw_text.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "font/lsan_suppressions.h"

#include <mrlbase/dib.h>
#include <mrlbase/font.h>
#include <zelutility/json_factory.h>

namespace {

// Remembers every call, with what the font had been asked to load at the time of the text call.
class RecordingDevice : public ICA_Device {
 public:
  struct Run {
    std::wstring text;
    int count = 0;
    std::string family;
    int charset = 0, weight = 0, italic = 0;
    float size = 0;
    CMRL_Matrix matrix;
    unsigned argb = 0;
  };
  std::vector<std::string> calls;
  std::vector<Run> runs;

  int FinishStepOne() override {
    calls.push_back("FinishStepOne");
    return 1;
  }
  int FinishStepTwo() override {
    calls.push_back("FinishStepTwo");
    return 1;
  }
  int DrawTextRun(const wchar_t* text, int count, CCA_Font* font, float size, const CMRL_Matrix* matrix,
                  unsigned argb) override {
    calls.push_back("DrawTextRun");
    Run run;
    run.text.assign(text, static_cast<size_t>(count));
    run.count = count;
    run.family = font ? font->GetRequestedFamily() : "<null>";
    run.charset = font ? font->GetCharset() : -1;
    run.weight = font ? font->GetWeight() : -1;
    run.italic = font ? font->GetItalic() : -1;
    run.size = size;
    run.matrix = matrix ? *matrix : CMRL_Matrix(0, 0, 0, 0, 0, 0);
    run.argb = argb;
    runs.push_back(run);
    return 0;  // a refusing device does not change the answer
  }
};

std::shared_ptr<const ZELJson> Parse(const char* text) {
  std::shared_ptr<const ZELJson> node = ZELJsonFactory::ParseJsonString(text, -1, nullptr);
  EXPECT_TRUE(node) << text;
  return node;
}

RecordingDevice::Run DrawOne(const char* json) {
  RecordingDevice device;
  EXPECT_EQ(DrawTextOnDevice(&device, Parse(json)), 1) << json;
  const std::vector<std::string> order{"DrawTextRun", "FinishStepOne", "FinishStepTwo"};
  EXPECT_EQ(device.calls, order) << json;
  return device.runs.empty() ? RecordingDevice::Run() : device.runs.front();
}

void ExpectMatrix(const CMRL_Matrix& m, float e, float f) {
  EXPECT_EQ(m.a, 1.0f);
  EXPECT_EQ(m.b, 0.0f);
  EXPECT_EQ(m.c, 0.0f);
  EXPECT_EQ(m.d, 1.0f);
  EXPECT_EQ(m.e, e);
  EXPECT_EQ(m.f, f);
}

TEST(DrawTextOnDevice, ContentAloneTakesEveryDefault) {
  const auto run = DrawOne(R"({"Content":"Hi \u4E2D"})");
  EXPECT_EQ(run.text, L"Hi \x4E2D");
  EXPECT_EQ(run.count, 4);
  EXPECT_EQ(run.family, "SimSun");
  EXPECT_EQ(run.charset, 3);
  EXPECT_EQ(run.weight, 400);
  EXPECT_EQ(run.italic, 0);
  EXPECT_FLOAT_EQ(run.size, 34.666668f);
  ExpectMatrix(run.matrix, 0, 26);
  EXPECT_EQ(run.argb, 0xFF000000u);
}

TEST(DrawTextOnDevice, FontSizeAndOffsets) {
  auto run = DrawOne(R"({"Content":"a","Font":{"FontSize":12}})");
  EXPECT_EQ(run.size, 16.0f);
  ExpectMatrix(run.matrix, 0, 12);
  for (const char* bad : {R"({"Content":"a","Font":{"FontSize":0}})", R"({"Content":"a","Font":{"FontSize":-3}})",
                          R"({"Content":"a","Font":{"FontSize":12.5}})", R"({"Content":"a","Font":{"FontSize":"12"}})",
                          R"({"Content":"a","FontSize":12})"}) {
    run = DrawOne(bad);
    EXPECT_FLOAT_EQ(run.size, 34.666668f) << bad;
    EXPECT_EQ(run.matrix.f, 26.0f) << bad;
  }
  run = DrawOne(R"({"Content":"a","DeltaY":-26})");
  ExpectMatrix(run.matrix, 0, 0);
  // The vertical offset adds to the size in points, not in pixels.
  run = DrawOne(R"({"Content":"a","DeltaX":12.25,"DeltaY":3.5,"Font":{"FontSize":9,"DeltaX":100}})");
  ExpectMatrix(run.matrix, 12.25f, 12.5f);
  EXPECT_EQ(run.size, 12.0f);
  // Offsets inside "Font" are not read.
  run = DrawOne(R"({"Content":"a","Font":{"DeltaX":5,"DeltaY":5}})");
  ExpectMatrix(run.matrix, 0, 26);
}

TEST(DrawTextOnDevice, ColourComesOnlyFromTheFontObject) {
  struct Case {
    const char* json;
    unsigned argb;
  } cases[] = {
      {R"({"Content":"a","Color":"#FF0000"})", 0xFF000000u},  // top level: ignored
      {R"({"Content":"a","Font":{"Color":"#000000"}})", 0xFF000000u},
      {R"({"Content":"a","Font":{"Color":""}})", 0xFF000000u},
      {R"({"Content":"a","Font":{"Color":"#FF0000"}})", 0xFFFF0000u},
      {R"({"Content":"a","Font":{"Color":"#00FF80"}})", 0xFF00FF80u},
      {R"({"Content":"a","Font":{"Color":"128"}})", 0xFF808080u},
      {R"({"Content":"a","Font":{"Color":"#80402010"}})", 0xFF102040u},
      {R"({"Content":"a","Font":{"Color":"#123"}})", 0xFF000000u},  // refused: black
      {R"({"Content":"a","Font":{"Color":17}})", 0xFF000000u},
  };
  for (const Case& c : cases) EXPECT_EQ(DrawOne(c.json).argb, c.argb) << c.json;
}

TEST(DrawTextOnDevice, FamilyWeightAndSlant) {
  auto run = DrawOne(R"({"Content":"a","Font":{"Bold":true}})");
  EXPECT_EQ(run.weight, 700);
  EXPECT_EQ(run.italic, 0);
  run = DrawOne(R"({"Content":"a","Font":{"Italic":true,"Bold":false}})");
  EXPECT_EQ(run.weight, 400);
  EXPECT_EQ(run.italic, 1);
  run = DrawOne(R"({"Content":"a","Bold":true,"Italic":true})");  // top level: ignored
  EXPECT_EQ(run.weight, 400);
  EXPECT_EQ(run.italic, 0);
  run = DrawOne(R"({"Content":"a","Font":{"Bold":1}})");  // not a boolean
  EXPECT_EQ(run.weight, 400);
  EXPECT_EQ(DrawOne(R"({"Content":"a","Font":{"FontName":""}})").family, "SimSun");
  EXPECT_EQ(DrawOne(R"({"Content":"a","Font":{"FontName":"No Such Face"}})").family, "No Such Face");
  EXPECT_EQ(DrawOne(R"({"Content":"a","Font":{"FontName":"\u5B8B\u4F53"}})").family, "\xE5\xAE\x8B\xE4\xBD\x93");
  EXPECT_EQ(DrawOne(R"({"Content":"a","FontName":"DejaVu Sans"})").family, "SimSun");
  // "Font" of another kind counts as a "Font" with all defaults.
  for (const char* json : {R"({"Content":"a","Font":[12,"x"]})", R"({"Content":"a","Font":"Bold"})"}) {
    run = DrawOne(json);
    EXPECT_EQ(run.family, "SimSun");
    EXPECT_EQ(run.weight, 400);
    EXPECT_EQ(run.matrix.f, 26.0f);
  }
}

TEST(DrawTextOnDevice, NothingToDrawMakesNoCall) {
  RecordingDevice device;
  const auto good = Parse(R"({"Content":"a"})");
  EXPECT_EQ(DrawTextOnDevice(nullptr, good), 0);
  EXPECT_EQ(DrawTextOnDevice(&device, nullptr), 0);
  for (const char* json : {R"({"Content":""})", R"({"Text":"a"})", R"({"Content":5})", R"({"Content":null})",
                           R"(["Content","a"])"})
    EXPECT_EQ(DrawTextOnDevice(&device, Parse(json)), 0) << json;
  EXPECT_TRUE(device.calls.empty());
}

TEST(DrawTextOnDevice, DrawsChineseAndLatinOnARealBitmap) {
  CCA_Dib page;
  ASSERT_TRUE(page.Create(400, 60, CA_DIB_Rgb32));
  std::fill(page.GetBuffer(), page.GetBuffer() + page.GetPitch() * page.GetHeight(), 0xFF);
  CCA_DibDevice device(&page);
  ASSERT_EQ(DrawTextOnDevice(&device, Parse(R"({"Content":"\u6587\u5B57 Text","DeltaX":10,
      "Font":{"FontSize":18,"Color":"#0000FF"}})")), 1);
  // Ink lies left-aligned at x 10, above the baseline at y 18, in the colour asked for.
  int left = 400, top = 60, bottom = -1, pure = 0;
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 400; ++x) {
      const unsigned p = page.GetPixel(CMRL_PSVTemplate<int>(x, y)) & 0xFFFFFF;
      if (p == 0xFFFFFF) continue;
      left = std::min(left, x);
      top = std::min(top, y);
      bottom = std::max(bottom, y);
      EXPECT_EQ(p & 0xFF, 0xFFu) << "blue stays full when blue ink blends over white";
      pure += p == 0x0000FF;
    }
  EXPECT_GE(left, 10);
  EXPECT_LE(left, 13);
  EXPECT_LE(top, 2);
  EXPECT_GE(bottom, 17);
  EXPECT_LE(bottom, 24);
  EXPECT_GT(pure, 20);
}

}  // namespace
