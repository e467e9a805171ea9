#include "FileInternal.hpp"
#include "GlobalsInternal.hpp"
#include "UnloadLockInternal.hpp"

#include <tolvane/Environment.hpp>
#include <tolvane/Verbose.hpp>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <sys/stat.h>
#include <utility>

namespace Tolvane::Globals {
namespace {

// The piece after the last separator counts only when there is something in it.
std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find(separator, begin)) != std::string::npos; begin = end + 1)
    pieces.push_back(text.substr(begin, end - begin));
  if (begin < text.size())
    pieces.push_back(text.substr(begin));
  return pieces;
}

bool isDevice(std::FILE* file) {
  struct stat status {};
  return fstat(fileno(file), &status) != 0 || S_ISCHR(status.st_mode);
}

std::set<std::string, std::less<>> readSwitchedOffFiles(const std::string& path) {
  std::set<std::string, std::less<>> files;
  if (path.empty())
    return files;
  std::FILE* list = std::fopen(path.c_str(), "r");
  if (!list)
    return files;
  char line[2048 + 1];
  // A device may be without an end, or wait for somebody at a keyboard.
  while (!isDevice(list) && std::fgets(line, sizeof line, list)) {
    const std::string_view text = line;
    if (text.starts_with('#'))
      files.emplace(text.substr(1, text.find_first_of("\t\n\r") - 1));
  }
  std::fclose(list);
  return files;
}

struct DomainEntry {
  std::string_view name;
  int maximumLevel;
};

DomainEntry parseDomainEntry(std::string_view entry) {
  const std::size_t colon = entry.find(':');
  if (colon == std::string_view::npos)
    return {entry, INT_MAX};
  return {entry.substr(0, colon), std::stoi(std::string(entry.substr(entry.rfind(':') + 1)))};
}

bool isMarked(std::string_view name, char mark, std::string_view domain) {
  return name.starts_with(mark) && name.substr(1) == domain;
}

// A malformed entry surfaces from every message, so no message may be passed over unseen.
bool allWellFormed(const std::vector<std::string>& domains) {
  try {
    for (const std::string& entry : domains)
      parseDomainEntry(entry);
    return true;
  } catch (const std::logic_error&) {
    return false;
  }
}

} // namespace

VerboseFiles& VerboseFiles::instance() {
  static VerboseFiles& files = *new VerboseFiles;
  return files;
}

VerboseFiles::VerboseFiles()
    : verbosity(getEnvInteger("TOLVANE_VERBOSITY",
                              "Verbosity level of the Tolvane-controlled output routines", 0)),
      domains(split(getEnvString("TOLVANE_VERBOSITY_DOMAINS", "Verbosity domains to be displayed."),
                    ',')),
      sectionsEnabled(getEnvInteger("TOLVANE_ENABLE_VERBOSITY_SECTIONS",
                                    "Enable use of verbosity sections(discouraged!)", 0)),
      editor(getEnvString("EDITOR", "The Editor used for Debugging")),
      usedFilesPath(getEnvString("TOLVANE_VERBOSITY_FILE_WRITE",
                                 "The File for logging source code file names.")),
      switchedOffFilesPath(getEnvString("TOLVANE_VERBOSITY_FILE_READ",
                                        "The File for checking source code file names.")),
      constraints(split(getEnvString("TOLVANE_VERBOSITY_CONSTRAINTS",
                                     "Filenames or function names that are used for output only."),
                        ';')),
      switchedOffFiles(readSwitchedOffFiles(switchedOffFilesPath)),
      quietThreshold(allWellFormed(domains) ? shownLevel() : INT_MAX) {
  detail::verboseThreshold.store(quietThreshold, std::memory_order_relaxed);
}

void VerboseFiles::cleanup() {
  unloading = true;
  writeUsedFiles();
  if (detail::otherThreadsAreGone())
    return; // one of them may own the heap, which goes with the process
  const auto lock = detail::lockUnlessEnding(filesMutex);
  if (!lock.owns_lock())
    return;
  usedFiles.clear();
  cleanedUp_ = true;
}

bool VerboseFiles::enterFile(const char* file) {
  const std::string_view name = file ? file : "";
  {
    const auto lock = detail::lockUnlessEnding(filesMutex);
    if (lock.owns_lock() && !cleanedUp_ && !usedFiles.contains(name))
      usedFiles.emplace(name);
  }
  return switchedOffFiles.contains(name);
}

void VerboseFiles::writeUsedFiles() {
  std::string path;
  std::set<std::string, std::less<>> names;
  {
    const auto lock = detail::lockUnlessEnding(filesMutex);
    if (!lock.owns_lock() || usedFilesPath.empty())
      return;
    if (usedFilesPath != switchedOffFilesPath) {
      names = usedFiles;
      path = std::exchange(usedFilesPath, {});
    }
  }
  if (path.empty()) {
    VerboseStream(false, false, 0, "elementary/tolvane/Verbose", __LINE__, TOLVANE_FUNCTION,
                  "WARNING: TOLVANE_VERBOSITY_FILE_WRITE is identical to "
                  "TOLVANE_VERBOSITY_FILE_READ  The verbosity file has NOT been updated! ",
                  std::string());
    return;
  }
  std::FILE* list = detail::openForWriting(path.c_str(), "wb");
  if (!list)
    return;
  for (const std::string& name : names)
    std::fprintf(list, "%s\n", name.c_str());
  std::fclose(list);
}

int VerboseFiles::shownLevel() const noexcept {
  // The smallest integer has no absolute value.
  return verbosity == INT_MIN ? INT_MAX : std::abs(verbosity);
}

bool VerboseFiles::domainPasses(std::string_view domain, int level) const {
  if (domain.starts_with('+')) {
    for (const std::string& entry : domains)
      if (entry == domain || entry == domain.substr(1))
        return true;
    return false;
  }
  if (domains.empty())
    return true;
  bool onlyExcludes = false;
  for (const std::string& text : domains) {
    const DomainEntry entry = parseDomainEntry(text);
    if (entry.maximumLevel < level || entry.name.empty())
      continue;
    if (isMarked(entry.name, '-', domain))
      return false;
    if (isMarked(entry.name, '+', domain) || entry.name == domain)
      return true;
    onlyExcludes = onlyExcludes || entry.name.starts_with('-');
  }
  return onlyExcludes;
}

bool VerboseFiles::constraintsPass(std::string_view location) const {
  if (constraints.empty())
    return true;
  for (const std::string& constraint : constraints)
    if (location.find(constraint) != std::string_view::npos)
      return true;
  return false;
}

} // namespace Tolvane::Globals
