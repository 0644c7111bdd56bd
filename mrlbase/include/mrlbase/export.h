#ifndef MRLBASE_EXPORT_H_
#define MRLBASE_EXPORT_H_

// Marks the declarations that mrlbase exports; everything else is built with hidden visibility.
#define MRL_API __attribute__((visibility("default")))

#endif  // MRLBASE_EXPORT_H_
