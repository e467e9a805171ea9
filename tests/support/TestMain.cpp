#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <system_error>

#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

// The main program of all tests. Tests may write files in the working directory and run side by
// side, so every process gets a folder of its own below the build folder, removed at the end.

namespace {

const char* const folderVariable = "TOLVANE_TEST_WORKING_FOLDER";

std::string processId() {
#ifdef _WIN32
  return std::to_string(_getpid());
#else
  return std::to_string(getpid());
#endif
}

void setVariable(const char* name, const std::string& value) {
#ifdef _WIN32
  _putenv_s(name, value.c_str());
#else
  setenv(name, value.c_str(), 1);
#endif
}

std::filesystem::path makeWorkingFolder() {
  const std::filesystem::path base = TOLVANE_TEST_FOLDER;
  for (int attempt = 0;; ++attempt) {
    std::filesystem::path folder = base / (processId() + "-" + std::to_string(attempt));
    std::filesystem::create_directories(base);
    // An earlier process of the same number may have been killed and left its folder.
    if (std::filesystem::create_directory(folder))
      return folder;
  }
}

} // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!std::getenv("TOLVANE_CACHESIZE"))
    setVariable("TOLVANE_CACHESIZE", "64M");

  if (testing::GTEST_FLAG(list_tests))
    return RUN_ALL_TESTS();

  // The child of a death test works where its parent does.
  const char* const inherited = std::getenv(folderVariable);
  if (!testing::GTEST_FLAG(internal_run_death_test).empty() && inherited) {
    std::filesystem::current_path(inherited);
    return RUN_ALL_TESTS();
  }

  const std::filesystem::path before = std::filesystem::current_path();
  const std::filesystem::path folder = makeWorkingFolder();
  setVariable(folderVariable, folder.string());
  std::filesystem::current_path(folder);
  const int result = RUN_ALL_TESTS();
  std::filesystem::current_path(before);
  std::error_code error;
  std::filesystem::remove_all(folder, error);
  if (error)
    std::cerr << "cannot remove " << folder.string() << ": " << error.message() << '\n';
  return result;
}
