// zeltool erase IN OUT (--rect l,t,r,b | --path x,y x,y ...) [--desc JSON]: paints a rectangle or
// a thick polyline of an image over with one pixel value and saves the result.
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <mrlbase/dib.h>
#include <zelutility/dib_edit.h>
#include <zelutility/json_factory.h>

#include "commands.h"
#include "zeltool_image_io.h"

namespace {

// Reads "a,b,..." into exactly `count` numbers; false on anything else.
template <class T>
bool ParseNumbers(const std::string& text, size_t count, std::vector<T>& out) {
  std::stringstream in(text);
  std::string item;
  out.clear();
  while (std::getline(in, item, ',')) {
    std::stringstream one(item);
    T value;
    if (!(one >> value) || !(one >> std::ws).eof()) return false;
    out.push_back(value);
  }
  return out.size() == count;
}

}  // namespace

void AddEraseCommand(CLI::App& app, int& exitCode) {
  struct Options {
    std::string in, out, rect, desc;
    std::vector<std::string> path;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("erase", "Paint a rectangle or a thick line of an image over, then save it");
  command->add_option("IN", options->in, "Image to read, or - for standard input")->required();
  command->add_option("OUT", options->out, "Image to write; the format follows the extension (- : PNG on standard output)")->required();
  CLI::Option* rect = command->add_option("--rect", options->rect, "Rectangle l,t,r,b in pixels (right, bottom exclusive)");
  CLI::Option* path = command->add_option("--path", options->path, "Polyline points x,y x,y ... in pixels");
  rect->excludes(path);
  command->add_option("--desc", options->desc,
                      "JSON paint description: {\"ColorValue\": pixel, \"LineWidth\": px, \"Cap\": 2 flat | other round}");
  command->callback([options, rect, path, &exitCode] {
    // Malformed options are usage errors (2); an image that fails is refused input (1).
    exitCode = 2;
    if (!*rect && !*path) {
      std::fprintf(stderr, "zeltool erase: give --rect or --path\n");
      return;
    }
    std::shared_ptr<const ZELJson> desc;
    if (!options->desc.empty()) {
      desc = ZELJsonFactory::ParseJsonString(options->desc.c_str());
      if (!desc) {
        std::fprintf(stderr, "zeltool erase: --desc is not a JSON object or array\n");
        return;
      }
    }
    std::vector<int> v;
    if (*rect && !ParseNumbers(options->rect, 4, v)) {
      std::fprintf(stderr, "zeltool erase: --rect wants l,t,r,b\n");
      return;
    }
    CMRL_TSArrayTemplate<CMRL_ObjectArray, CMRL_PSVTemplate<float>> points;
    for (const std::string& text : options->path) {
      std::vector<float> xy;
      if (!ParseNumbers(text, 2, xy)) {
        std::fprintf(stderr, "zeltool erase: path point \"%s\" is not x,y\n", text.c_str());
        return;
      }
      points.Add(CMRL_PSVTemplate<float>(xy[0], xy[1]));
    }
    exitCode = 1;
    std::unique_ptr<CCA_Dib> dib = zeltool::LoadImage(options->in, "erase");
    if (!dib) return;
    bool done = false;
    if (*rect) {
      done = DeleteRectDib(dib.get(), CMRL_DeviceRectTemplate<int>(v[0], v[1], v[2], v[3]), desc);
    } else {
      // A polyline has no built-in paint: an empty description gives the documented defaults.
      if (!desc) desc = ZELJsonFactory::ParseJsonString("{}");
      done = DeletePathDib(dib.get(), points, desc);
    }
    if (!done) {
      std::fprintf(stderr, "zeltool erase: nothing to erase (empty rectangle or fewer than 2 points)\n");
      return;
    }
    if (!zeltool::SaveImage(*dib, options->out, "erase")) return;
    std::fprintf(options->out == "-" ? stderr : stdout, "%s -> %s\n", options->in.c_str(), options->out.c_str());
    exitCode = 0;
  });
}
