#ifndef ZELUTILITY_SRC_FILE_UNIQUE_TEMP_FILE_H_
#define ZELUTILITY_SRC_FILE_UNIQUE_TEMP_FILE_H_

// Internal: the creation loop of CreateUniqueTempFile with its random part handed in, so that a
// taken name and the end of the retries can be reached on purpose.

#include <functional>
#include <string>

namespace zel::file {

// How many names CreateUniqueTempFile tries before it gives up.
inline constexpr int kUniqueTempFileAttempts = 100;

// As CreateUniqueTempFile, with `randomPart` called once per attempt for the random letters and
// at most `attempts` names tried. Answers the descriptor and sets `path`, or -1 with `path` empty.
int CreateUniqueTempFileWith(const char* directory, const char* prefix, const char* extension,
                             const std::function<std::string()>& randomPart, int attempts,
                             std::string& path);

}  // namespace zel::file

#endif  // ZELUTILITY_SRC_FILE_UNIQUE_TEMP_FILE_H_
