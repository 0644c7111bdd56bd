// Sanitizer defaults for every fuzz target, so a target run by hand behaves as in scripts/fuzz.sh:
// undefined behaviour stops the run (so libFuzzer keeps the input) except what fuzz/ubsan.supp
// names, which is outside code this project can change.
extern "C" const char* __ubsan_default_options() {
  return "halt_on_error=1:print_stacktrace=1:suppressions=" ZEL_FUZZ_DIR "/ubsan.supp";
}
