// zeltool composite SRC DST OUT --mode N --at x,y: blends one image onto another.
#include <cstdio>
#include <memory>
#include <string>

#include <zelutility/composite.h>

#include "commands.h"
#include "zeltool_image_io.h"

namespace {

struct CompositeOptions {
  std::string source;
  std::string target;
  std::string output;
  int mode = 0;
  std::string at = "0,0";
};

int RunComposite(const CompositeOptions& options) {
  int x = 0, y = 0;
  char tail = 0;
  if (std::sscanf(options.at.c_str(), "%d,%d%c", &x, &y, &tail) != 2) {
    std::fprintf(stderr, "zeltool composite: --at wants x,y, not \"%s\"\n", options.at.c_str());
    return 2;
  }
  if (options.source == "-" && options.target == "-") {
    std::fprintf(stderr, "zeltool composite: only one of SRC and DST can be standard input\n");
    return 2;
  }
  std::unique_ptr<CCA_Dib> source = zeltool::LoadImage(options.source, "composite");
  std::unique_ptr<CCA_Dib> target = zeltool::ToTrueColour32(zeltool::LoadImage(options.target, "composite"));
  if (!source || !target) return 1;
  // The source lands with its top-left corner at (x, y). Mode 30 counts right and bottom in.
  const int inclusive = options.mode == CA_BLEND_HSB ? 1 : 0;
  CMRL_DeviceRectTemplate<int> rect(x, y, x + source->GetWidth() - inclusive, y + source->GetHeight() - inclusive);
  CMRL_PSVTemplate<int> point(0, 0);
  if (!CompositeDibInBM(source.get(), target.get(), static_cast<CA_BlendMode>(options.mode), rect, point)) {
    std::fprintf(stderr, "zeltool composite: blend mode %d refused\n", options.mode);
    return 1;
  }
  return zeltool::SaveImage(*target, options.output, "composite") ? 0 : 1;
}

}  // namespace

void AddCompositeCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<CompositeOptions>();
  CLI::App* command = app.add_subcommand("composite", "Blend an image onto another with a blend mode");
  command->add_option("src", options->source, "Image to lay on top")->required();
  command->add_option("dst", options->target, "Image underneath")->required();
  command->add_option("out", options->output, "Image to write; the extension picks the format")->required();
  command->add_option("--mode", options->mode,
                      "0 normal, 1 multiply, 2 screen, 3 overlay, 4 darken, 5 lighten, 6 colour dodge, "
                      "7 colour burn, 8 hard light, 9 soft light, 10 difference, 11 exclusion, 21 hue, "
                      "22 saturation, 23 colour, 24 luminosity, 30 HSB");
  command->add_option("--at", options->at, "Where the source's top-left corner lands, x,y (default 0,0)");
  command->callback([options, &exitCode] { exitCode = RunComposite(*options); });
}
