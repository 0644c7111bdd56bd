// zeltool clip IN [--crop OUT]: finds the content rectangle of a page image.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <zelutility/composite.h>

#include "commands.h"
#include "zeltool_image_io.h"

namespace {

struct ClipOptions {
  std::string input;
  std::string crop;
};

// The inclusive rectangle of the page as a bitmap of its own.
std::unique_ptr<CCA_Dib> Crop(const CCA_Dib& page, const CMRL_DeviceRectTemplate<int>& r) {
  std::unique_ptr<CCA_Dib> out(new CCA_Dib);
  if (!out->Create(r.right - r.left + 1, r.bottom - r.top + 1, page.GetFormat())) return nullptr;
  const int bytes = page.GetBPP() / 8;
  for (int y = r.top; y <= r.bottom; ++y)
    std::memcpy(out->GetScanline(y - r.top), page.GetScanline(y) + r.left * bytes,
                static_cast<size_t>(out->GetWidth()) * bytes);
  return out;
}

int RunClip(const ClipOptions& options) {
  std::unique_ptr<CCA_Dib> page = zeltool::ToTrueColour32(zeltool::LoadImage(options.input, "clip"));
  if (!page) return 1;
  // With the crop on standard output, the report goes to standard error.
  std::FILE* report = options.crop == "-" ? stderr : stdout;
  CMRL_DeviceRectTemplate<int> rect;
  if (!GetAutoCalClipRect(page.get(), rect)) {
    std::fprintf(report, "%s: %dx%d, no content found\n", options.input.c_str(), page->GetWidth(), page->GetHeight());
    return 1;
  }
  std::fprintf(report, "%s: %dx%d, content %d %d %d %d (left top right bottom, inclusive), %dx%d\n",
               options.input.c_str(), page->GetWidth(), page->GetHeight(), rect.left, rect.top, rect.right,
               rect.bottom, rect.right - rect.left + 1, rect.bottom - rect.top + 1);
  if (options.crop.empty()) return 0;
  std::unique_ptr<CCA_Dib> cropped = Crop(*page, rect);
  return cropped && zeltool::SaveImage(*cropped, options.crop, "clip") ? 0 : 1;
}

}  // namespace

void AddClipCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<ClipOptions>();
  CLI::App* command = app.add_subcommand("clip", "Find the content rectangle of a page image (exit 1: none)");
  command->add_option("in", options->input, "Page image, or - for standard input")->required();
  command->add_option("--crop", options->crop, "Also write the content rectangle as an image (- : PNG on standard output)");
  command->callback([options, &exitCode] { exitCode = RunClip(*options); });
}
