#ifndef MRLBASE_MRLBASE_H_
#define MRLBASE_MRLBASE_H_

// The whole public API of mrlbase: value types, strings, arrays, streams, bitmaps, paths, codecs,
// fonts and devices.
//
// Threads: mrlbase starts no thread. Distinct objects may be used from different threads at
// once; an object that anyone changes is for one thread at a time, except a CMRL_TSArrayTemplate,
// which locks itself for each call. The codec context and the font configuration are set up once,
// on first use, whichever thread comes first.
#include <mrlbase/array_template.h>
#include <mrlbase/byte_string.h>
#include <mrlbase/byte_string_converter.h>
#include <mrlbase/codec.h>
#include <mrlbase/device.h>
#include <mrlbase/device_rect.h>
#include <mrlbase/dib.h>
#include <mrlbase/enums.h>
#include <mrlbase/export.h>
#include <mrlbase/font.h>
#include <mrlbase/matrix.h>
#include <mrlbase/object.h>
#include <mrlbase/object_array.h>
#include <mrlbase/path.h>
#include <mrlbase/psv_template.h>
#include <mrlbase/rw_spin_lock.h>
#include <mrlbase/stream.h>
#include <mrlbase/ts_array_template.h>
#include <mrlbase/wide_string.h>

#endif  // MRLBASE_MRLBASE_H_
