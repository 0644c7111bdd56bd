#ifndef MRLBASE_SRC_FONT_LSAN_SUPPRESSIONS_H_
#define MRLBASE_SRC_FONT_LSAN_SUPPRESSIONS_H_

// Include once in a test program that loads fonts. fontconfig loses a few blocks while it parses
// its configuration files on first use; the leak checker of sanitizer builds should not count
// them against us. Outside sanitizer builds nothing calls this function.
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }

#endif  // MRLBASE_SRC_FONT_LSAN_SUPPRESSIONS_H_
