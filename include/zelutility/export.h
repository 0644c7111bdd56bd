#ifndef ZELUTILITY_EXPORT_H_
#define ZELUTILITY_EXPORT_H_

// Marks the declarations that zelutility exports; everything else is built with hidden visibility.
#define ZEL_API __attribute__((visibility("default")))

#endif  // ZELUTILITY_EXPORT_H_
