#include <zelutility/draw_text.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "font/lsan_suppressions.h"

#include <mrlbase/dib.h>
#include <mrlbase/font.h>
#include <zelutility/json_factory.h>

namespace {

// Remembers every call; a text run as "family weight italic size e,f colour", with what the font had been
// asked to load at the time of the call.
class RecordingDevice : public ICA_Device {
 public:
  std::vector<std::string> calls, runs;
  std::wstring text;

  int FinishStepOne() override { return calls.push_back("FinishStepOne"), 1; }
  int FinishStepTwo() override { return calls.push_back("FinishStepTwo"), 1; }
  int DrawTextRun(const wchar_t* chars, int count, CCA_Font* font, float size, const CMRL_Matrix* m,
                  unsigned argb) override {
    calls.push_back("DrawTextRun");
    text.assign(chars, static_cast<size_t>(count));
    EXPECT_TRUE(m->a == 1 && m->b == 0 && m->c == 0 && m->d == 1);
    EXPECT_EQ(font->GetCharset(), 3);
    char line[200];
    std::snprintf(line, sizeof line, "%s %d %d %.8g %g,%g %08X", font->GetRequestedFamily(), font->GetWeight(),
                  font->GetItalic(), size, m->e, m->f, argb);
    runs.push_back(line);
    return 0;  // a refusing device does not change the answer
  }
};

std::shared_ptr<const ZELJson> Parse(const char* text) {
  std::shared_ptr<const ZELJson> node = ZELJsonFactory::ParseJsonString(text, -1, nullptr);
  EXPECT_TRUE(node) << text;
  return node;
}

TEST(DrawTextOnDevice, ReadsOnlyTheKeysItKnowsWithADefaultForEach) {
  // 26 points are 34.666668 pixels; black is the default colour.
  const char* const kDefault = "SimSun 400 0 34.666668 0,26 FF000000";
  const std::pair<const char*, const char*> cases[] = {
      {R"({"Content":"Hi \u4E2D"})", kDefault},
      {R"({"Content":"a","Font":{"FontSize":12}})", "SimSun 400 0 16 0,12 FF000000"},
      {R"({"Content":"a","Font":{"FontSize":0}})", kDefault},
      {R"({"Content":"a","Font":{"FontSize":12.5}})", kDefault},
      {R"({"Content":"a","Font":{"FontSize":"12"}})", kDefault},
      {R"({"Content":"a","FontSize":12})", kDefault},
      {R"({"Content":"a","DeltaY":-26})", "SimSun 400 0 34.666668 0,0 FF000000"},
      // The vertical offset adds to the size in points, not in pixels; offsets inside "Font" are not read.
      {R"({"Content":"a","DeltaX":12.25,"DeltaY":3.5,"Font":{"FontSize":9,"DeltaX":100,"DeltaY":100}})",
       "SimSun 400 0 12 12.25,12.5 FF000000"},
      // Colour comes only from "Font"; a refused colour text draws black.
      {R"({"Content":"a","Color":"#FF0000"})", kDefault},
      {R"({"Content":"a","Font":{"Color":""}})", kDefault},
      {R"({"Content":"a","Font":{"Color":"#00FF80"}})", "SimSun 400 0 34.666668 0,26 FF00FF80"},
      {R"({"Content":"a","Font":{"Color":"128"}})", "SimSun 400 0 34.666668 0,26 FF808080"},
      {R"({"Content":"a","Font":{"Color":"#80402010"}})", "SimSun 400 0 34.666668 0,26 FF102040"},
      {R"({"Content":"a","Font":{"Color":"#123"}})", kDefault},
      {R"({"Content":"a","Font":{"Color":17}})", kDefault},
      // Weight, slant and family, likewise only inside "Font" and only of the right type.
      {R"({"Content":"a","Font":{"Bold":true}})", "SimSun 700 0 34.666668 0,26 FF000000"},
      {R"({"Content":"a","Font":{"Italic":true,"Bold":false}})", "SimSun 400 1 34.666668 0,26 FF000000"},
      {R"({"Content":"a","Bold":true,"Italic":true})", kDefault},
      {R"({"Content":"a","Font":{"Bold":1}})", kDefault},
      {R"({"Content":"a","Font":{"FontName":""}})", kDefault},
      {R"({"Content":"a","Font":{"FontName":"No Such Face"}})", "No Such Face 400 0 34.666668 0,26 FF000000"},
      {R"({"Content":"a","Font":{"FontName":"\u5B8B\u4F53"}})",
       "\xE5\xAE\x8B\xE4\xBD\x93 400 0 34.666668 0,26 FF000000"},
      {R"({"Content":"a","FontName":"DejaVu Sans"})", kDefault},
      // "Font" of another kind counts as a "Font" with all defaults.
      {R"({"Content":"a","Font":[12,"x"]})", kDefault},
  };
  const std::vector<std::string> order{"DrawTextRun", "FinishStepOne", "FinishStepTwo"};
  for (const auto& c : cases) {
    RecordingDevice device;
    EXPECT_EQ(DrawTextOnDevice(&device, Parse(c.first)), 1) << c.first;
    EXPECT_EQ(device.calls, order) << c.first;
    EXPECT_EQ(device.runs, std::vector<std::string>{c.second}) << c.first;
    EXPECT_EQ(device.text, &c == cases ? L"Hi \x4E2D" : L"a") << c.first;
  }
}

TEST(DrawTextOnDevice, NothingToDrawMakesNoCall) {
  RecordingDevice device;
  EXPECT_EQ(DrawTextOnDevice(nullptr, Parse(R"({"Content":"a"})")), 0);
  EXPECT_EQ(DrawTextOnDevice(&device, nullptr), 0);
  for (const char* json :
       {R"({"Content":""})", R"({"Text":"a"})", R"({"Content":5})", R"({"Content":null})", R"(["Content","a"])"})
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
  EXPECT_TRUE(left >= 10 && left <= 13 && top <= 2 && bottom >= 17 && bottom <= 24)
      << left << " " << top << " " << bottom;
  EXPECT_GT(pure, 20);
}

}  // namespace
