#ifndef ZELUTILITY_ZELUTILITY_H_
#define ZELUTILITY_ZELUTILITY_H_

// The whole public API of zelutility: JSON, certificates, images, files and text.
//
// Threads: the library starts no thread, and what it keeps between calls is set up once and then
// only read (the codec context, the font configuration, the PKCS#12 library context). Every
// function may run on any thread at the same time as any other, as long as the calls work on
// different objects (JSON trees, records, bitmaps, devices, streams, arrays, files). An object that
// anyone changes is for one thread at a time; one that nobody changes may be read by many at once.
// The only lock a caller meets is the one inside each CMRL_TSArrayTemplate. Each header says what
// its family shares.
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
#include <zelutility/version.h>

#endif  // ZELUTILITY_ZELUTILITY_H_
