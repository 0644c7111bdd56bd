// zeltool color TEXT...: reads colour strings and shows the word, its JSON array and its text.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <zelutility/color.h>
#include <zelutility/json_factory.h>
#include <zelutility/json_helper.h>

#include "commands.h"

namespace {

const char* ColorSpaceName(CA_ColorSpace space) {
  switch (space) {
    case CA_COLORSPACE_Gray: return "gray";
    case CA_COLORSPACE_Rgb: return "rgb";
    case CA_COLORSPACE_Argb: return "argb";
    default: return "unknown";
  }
}

// One line per text: text, colour space, word, JSON array, and "#RRGGBB" for RGB words.
bool ShowColor(const std::string& text) {
  unsigned int word = 0;
  CA_ColorSpace space = CA_COLORSPACE_Gray;
  if (!ParseColorString(text.c_str(), word, space)) {
    std::fprintf(stderr, "zeltool color: \"%s\" is not a colour\n", text.c_str());
    return false;
  }
  const CMRL_ByteString json =
      ZELJsonFactory::BuildJsonString(ZELJsonHelper::FromColor(space, word), nullptr);
  std::printf("\"%s\"\tspace %d (%s)\tword 0x%08X\tjson %s", text.c_str(), static_cast<int>(space),
              ColorSpaceName(space), word, json.c_str());
  CMRL_ByteString hex;
  if (ParseColorByte(word, space, hex)) std::printf("\ttext %s", hex.c_str());
  std::printf("\n");
  return true;
}

}  // namespace

void AddColorCommand(CLI::App& app, int& exitCode) {
  auto texts = std::make_shared<std::vector<std::string>>();
  CLI::App* command = app.add_subcommand(
      "color", "Read colour strings (\"#RRGGBB\", \"#AARRGGBB\", \"#GG\", \"R G B\", ...)");
  command->add_option("texts", *texts, "Colour strings; quote those with blanks")->required();
  command->callback([texts, &exitCode] {
    for (const std::string& text : *texts) {
      if (!ShowColor(text)) exitCode = 1;
    }
  });
}
