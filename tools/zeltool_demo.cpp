// zeltool demo [OUT.png]: the typical request on the bundled page image. Decode it, erase the
// pen stroke, write a Chinese and Latin caption, find the content rectangle, save a PNG.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <mrlbase/device.h>
#include <mrlbase/object_array.h>
#include <mrlbase/ts_array_template.h>
#include <zelutility/composite.h>
#include <zelutility/dib_edit.h>
#include <zelutility/draw_text.h>
#include <zelutility/json_factory.h>
#include <zelutility/path.h>

#include "commands.h"
#include "zeltool_image_io.h"

namespace {

// The pen stroke of examples/page.png (see examples/make_page.py), in page pixels.
constexpr float kStroke[][2] = {{140, 1010}, {250, 955}, {370, 1045}, {490, 965}, {610, 1040}, {730, 985}};
// Wider than the 9 pixel stroke, so its anti-aliased rim goes too; round ends.
constexpr const char* kEraser = R"({"LineWidth": 16, "ColorValue": 4294967295, "Cap": 1})";
constexpr const char* kCaption =
    R"({"Content": "已核对 Checked by zeltool", "DeltaX": 90, "DeltaY": 790,)"
    R"( "Font": {"FontSize": 20, "Bold": true, "Color": "#B00000"}})";

struct DemoOptions {
  std::string output = "demo.png";
  std::string page;
};

bool Exists(const std::string& path) { return CMRL_FileStream::Open(path.c_str(), false) != nullptr; }

// --page, else examples/page.png below the working folder or next to the program's build tree.
std::string FindPage(const std::string& given) {
  if (!given.empty()) return given;
  std::vector<std::string> candidates{"examples/page.png"};
  std::string folder = GetAppPath().c_str();
  for (int up = 0; up < 4 && !folder.empty(); ++up) {
    candidates.push_back(PathJoin(folder.c_str(), "examples/page.png", nullptr));
    const size_t cut = folder.find_last_of("/\\", folder.size() > 1 ? folder.size() - 2 : 0);
    if (cut == std::string::npos) break;
    folder.resize(cut + 1);
  }
  for (const std::string& path : candidates)
    if (Exists(path)) return path;
  return candidates.front();
}

int RunDemo(const DemoOptions& options) {
  const std::string pagePath = FindPage(options.page);
  std::unique_ptr<CCA_Dib> page = zeltool::LoadImage(pagePath, "demo");
  if (!page) {
    std::fprintf(stderr, "zeltool demo: run it from the repository root, or pass --page\n");
    return 1;
  }
  std::printf("1. decoded  %s: %d x %d, %d bits per pixel\n", pagePath.c_str(), page->GetWidth(),
              page->GetHeight(), page->GetBPP());
  page = zeltool::ToTrueColour32(std::move(page));
  if (!page) return 1;

  CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>> stroke;
  for (const auto& p : kStroke) stroke.Add(CMRL_PSVTemplate<float>(p[0], p[1]));
  if (!DeletePathDib(page.get(), stroke, ZELJsonFactory::ParseJsonString(kEraser, -1, nullptr))) {
    std::fprintf(stderr, "zeltool demo: erasing the stroke failed\n");
    return 1;
  }
  std::printf("2. erased   the pen stroke through %d points with %s\n", stroke.GetSize(), kEraser);

  CCA_DibDevice device(page.get());
  if (DrawTextOnDevice(&device, ZELJsonFactory::ParseJsonString(kCaption, -1, nullptr)) != 1) {
    std::fprintf(stderr, "zeltool demo: drawing the caption failed\n");
    return 1;
  }
  std::printf("3. captioned %s\n", kCaption);

  CMRL_DeviceRectTemplate<int> content;
  const bool found = GetAutoCalClipRect(page.get(), content);
  if (!zeltool::SaveImage(*page, options.output, "demo")) return 1;
  std::printf("4. saved    %s\n", options.output.c_str());
  if (!found) {
    std::printf("5. content  none found\n");
    return 1;
  }
  std::printf("5. content  left %d, top %d, right %d, bottom %d (%d x %d of %d x %d)\n", content.left, content.top,
              content.right, content.bottom, content.right - content.left + 1, content.bottom - content.top + 1,
              page->GetWidth(), page->GetHeight());
  return 0;
}

}  // namespace

void AddDemoCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<DemoOptions>();
  CLI::App* command =
      app.add_subcommand("demo", "Erase the pen stroke of the bundled page, caption it, find its content, save it");
  command->add_option("out", options->output, "PNG to write (default demo.png)");
  command->add_option("--page", options->page, "Page image to use instead of examples/page.png");
  command->callback([options, &exitCode] { exitCode = RunDemo(*options); });
}
