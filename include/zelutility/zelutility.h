#ifndef ZELUTILITY_ZELUTILITY_H_
#define ZELUTILITY_ZELUTILITY_H_

// The whole public API of zelutility: JSON, certificates, images, files and text.
#include <mrlbase/mrlbase.h>
#include <zelutility/base64.h>
#include <zelutility/cert.h>
#include <zelutility/color.h>
#include <zelutility/composite.h>
#include <zelutility/dib_edit.h>
#include <zelutility/draw_text.h>
#include <zelutility/export.h>
#include <zelutility/file_info.h>
#include <zelutility/geometry.h>
#include <zelutility/image_codec.h>
#include <zelutility/image_format.h>
#include <zelutility/json.h>
#include <zelutility/json_factory.h>
#include <zelutility/json_helper.h>
#include <zelutility/path.h>
#include <zelutility/temp_file.h>
#include <zelutility/text_encoding.h>

#endif  // ZELUTILITY_ZELUTILITY_H_
