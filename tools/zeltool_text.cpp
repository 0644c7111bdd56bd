// zeltool text IN OUT --desc JSON: draws the text of a JSON description on an image.
#include <cstdio>
#include <memory>
#include <string>

#include <mrlbase/device.h>
#include <zelutility/draw_text.h>
#include <zelutility/json_factory.h>

#include "commands.h"
#include "zeltool_image_io.h"

namespace {

struct TextOptions {
  std::string input;
  std::string output;
  std::string description;
};

int RunText(const TextOptions& options) {
  std::shared_ptr<const ZELJson> description =
      ZELJsonFactory::ParseJsonString(options.description.c_str(), -1, nullptr);
  if (!description) {
    std::fprintf(stderr, "zeltool text: --desc is not a JSON object\n");
    return 2;
  }
  std::unique_ptr<CCA_Dib> dib = zeltool::ToTrueColour32(zeltool::LoadImage(options.input, "text"));
  if (!dib) return 1;
  CCA_DibDevice device(dib.get());
  if (DrawTextOnDevice(&device, description) != 1) {
    std::fprintf(stderr, "zeltool text: nothing to draw (\"Content\" missing or empty)\n");
    return 1;
  }
  return zeltool::SaveImage(*dib, options.output, "text") ? 0 : 1;
}

}  // namespace

void AddTextCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<TextOptions>();
  CLI::App* command = app.add_subcommand("text", "Draw text from a JSON description onto an image");
  command->add_option("in", options->input, "Image to draw on")->required();
  command->add_option("out", options->output, "Image to write; the extension picks the format")->required();
  command
      ->add_option("--desc", options->description,
                   "Description, e.g. {\"Content\":\"Hello\",\"DeltaX\":20,\"Font\":{\"FontSize\":18,\"Color\":\"#C00000\"}}")
      ->required();
  command->callback([options, &exitCode] { exitCode = RunText(*options); });
}
