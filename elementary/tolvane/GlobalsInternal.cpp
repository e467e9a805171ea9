#include "GlobalsInternal.hpp"

#include "SocketLayerInternal.hpp"

#include <tolvane/Environment.hpp>

namespace Tolvane {

int detail::debugStopLimit() {
  static const int limit = getEnvInteger(
      "TOLVANE_ENABLE_DEBUG_STOP",
      "Terminate the application after that many number of object insertions - use for debug only.",
      0);
  return limit;
}

namespace {

// The one object with a constructor and a destructor that run when the library is loaded and
// unloaded. What it starts must also start by itself when something asks for it earlier.
//
// The destructor may run while the process ends on Windows, when other threads were stopped
// wherever they were: its steps never wait for a lock (see UnloadLockInternal.hpp).
struct LoadedLibrary {
  LoadedLibrary() {
    Globals::VerboseFiles::instance();
    detail::debugStopLimit();
    detail::prepareIrregularityLog();
    detail::startSockets();
  }

  ~LoadedLibrary() {
    try {
      Globals::VerboseFiles::instance().cleanup();
    } catch (...) {
      // No memory, or a malformed filter: the list or the message about it is given up.
    }
    detail::closeIrregularityLog();
    detail::stopSockets();
  }
};

const LoadedLibrary loadedLibrary;

} // namespace
} // namespace Tolvane
