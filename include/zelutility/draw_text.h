#ifndef ZELUTILITY_DRAW_TEXT_H_
#define ZELUTILITY_DRAW_TEXT_H_

#include <memory>

#include <mrlbase/device.h>
#include <zelutility/export.h>
#include <zelutility/json.h>

// Draws the text of a JSON description on a device, then finishes the device.
//
// The description is an object; only "Content" (UTF-8) is needed. Optional keys:
//   "Font": { "FontSize": points (26), "FontName": family ("SimSun"), "Bold": false,
//             "Italic": false, "Color": colour string ("#000000") }
//   "DeltaX": x of the baseline origin (0), "DeltaY": added to its y, which starts at the size
//   in points (0).
// The size in pixels is points / 72 * 96. The colour is drawn opaque.
// Returns 1 when the text went to the device; 0 for a null device or description, or an empty text.
//
//   CCA_Dib page;  page.Create(600, 80, CA_DIB_Rgb32);
//   CCA_DibDevice device(&page);
//   auto desc = ZELJsonFactory::ParseJsonString(
//       "{\"Content\":\"你好 Hello\",\"Font\":{\"FontSize\":20,\"Color\":\"#C00000\"},\"DeltaX\":8}", -1, nullptr);
//   DrawTextOnDevice(&device, desc);   // 1
//
// Threads: calls on different devices run at once; a device and its bitmap are for one thread at
// a time. Each call loads a font of its own with its own FreeType library; the system's font
// configuration is loaded once per process, by whichever call comes first.
ZEL_API int DrawTextOnDevice(ICA_Device* device, std::shared_ptr<const ZELJson> description);

#endif  // ZELUTILITY_DRAW_TEXT_H_
