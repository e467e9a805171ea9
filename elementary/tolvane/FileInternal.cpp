#include "FileInternal.hpp"

#ifdef _WIN32
#include <io.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace Tolvane::detail {
namespace {

constexpr int lastStandardStream = 2;

// Another number for the same file, above those of the standard streams; -1 when there is none.
int movedUp(int descriptor) {
#ifdef _WIN32
  const int copy = _dup(descriptor);
  if (copy < 0 || copy > lastStandardStream)
    return copy;
  const int moved = movedUp(copy); // the low numbers are taken until it is found
  _close(copy);
  return moved;
#else
  return fcntl(descriptor, F_DUPFD_CLOEXEC, lastStandardStream + 1);
#endif
}

} // namespace

std::FILE* openForWriting(const char* path, const char* mode) noexcept {
#ifdef _WIN32
  const char* const flags = mode;
#else
  char flags[8];
  std::snprintf(flags, sizeof flags, "%se", mode);
#endif
  std::FILE* const file = std::fopen(path, flags);
  if (!file || fileno(file) > lastStandardStream)
    return file;
  const int descriptor = movedUp(fileno(file));
  std::fclose(file);
  std::FILE* const moved = descriptor < 0 ? nullptr : fdopen(descriptor, flags);
  if (!moved && descriptor >= 0)
    close(descriptor);
  return moved;
}

} // namespace Tolvane::detail
