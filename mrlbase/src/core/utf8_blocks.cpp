#include "core/utf8_blocks.h"

namespace mrl_core {

const Utf8BlockKernels* BestUtf8BlockKernels() noexcept {
  static const Utf8BlockKernels* const best = [] {
    const Utf8BlockKernels* widest = Avx512Utf8BlockKernels();
    return widest ? widest : Avx2Utf8BlockKernels();
  }();
  return best;
}

}  // namespace mrl_core
