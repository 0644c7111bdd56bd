// zeltool convert IN OUT [--format EXT]: decodes an image and writes it in the format of OUT's
// extension, of --format, or as PNG when OUT is "-" (standard output).
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "zeltool_image_io.h"

void AddConvertCommand(CLI::App& app, int& exitCode) {
  struct Options {
    std::string in, out, format;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("convert", "Convert an image; the output format follows OUT's extension");
  command->add_option("IN", options->in, "Image to read (BMP, GIF, JPEG, JPEG 2000, JB2, PNG, TIFF), or - for standard input")
      ->required();
  command->add_option("OUT", options->out,
                      "Image to write (.bmp .gif .jpg .jpeg .jp2 .j2k .png .tif .tiff), or - for standard output")
      ->required();
  command->add_option("--format", options->format, "Output format by extension (png, jpg, ...), over OUT's own; "
                                                   "standard output defaults to png");
  command->callback([options, &exitCode] {
    std::unique_ptr<CCA_Dib> dib = zeltool::LoadImage(options->in, "convert");
    if (!dib || !zeltool::SaveImage(*dib, options->out, "convert", options->format)) {
      exitCode = 1;
      return;
    }
    // The image itself may be on standard output; the summary must not mix into it.
    std::fprintf(options->out == "-" ? stderr : stdout, "%s (%dx%d, %d bpp) -> %s\n", options->in.c_str(),
                 dib->GetWidth(), dib->GetHeight(), dib->GetBPP(), options->out.c_str());
  });
}
