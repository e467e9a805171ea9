#include "RunProbe.hpp"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace {

constexpr int timeLimit = 120; // seconds
#ifdef _WIN32
constexpr int hungCode = 124;
#endif
const char* const streamFiles[] = {
#ifdef _WIN32
    "NUL",
#else
    "/dev/null",
#endif
    "probe.out", "probe.err"};

bool isReadByTheLibrary(const std::string& name) {
  return name.starts_with("TOLVANE_") || name == "MEMCACHE_VERBOSITY" || name == "EDITOR" ||
         name == "SHOW_ENVIRONMENT_CONTROL_VARIABLES";
}

/// The entries "name=value" of the environment of the new process.
std::vector<std::string> entriesOf(const std::vector<std::string>& inherited, Variables chosen) {
  chosen.emplace("TOLVANE_CACHESIZE", "64M");
  for (const std::string& entry : inherited) {
    // Windows keeps the directory of each drive in a variable whose name begins with "=".
    const std::size_t equals = entry.find('=', 1);
    if (equals != std::string::npos && !isReadByTheLibrary(entry.substr(0, equals)))
      chosen.emplace(entry.substr(0, equals), entry.substr(equals + 1));
  }
  std::vector<std::string> entries;
  for (const auto& [name, value] : chosen)
    if (value)
      entries.push_back(name + '=' + *value);
  return entries;
}

std::string pathOf(int stream, const ProbeOptions& options) {
  const auto chosen = options.streams.find(stream);
  return chosen == options.streams.end() ? streamFiles[stream] : chosen->second;
}

std::string written(int stream, const ProbeOptions& options) {
  return options.streams.contains(stream) ? "" : contentOf(streamFiles[stream]);
}

[[noreturn]] void fail(const std::string& program) {
  throw std::runtime_error("runProbe: cannot start " + program);
}

#ifdef _WIN32

// The way back from the C runtime's splitting of a command line into arguments.
std::string quoted(const std::string& argument) {
  std::string text = "\"";
  std::size_t backslashes = 0;
  for (const char c : argument) {
    if (c == '"')
      text.append(backslashes + 1, '\\');
    backslashes = c == '\\' ? backslashes + 1 : 0;
    text += c;
  }
  return text.append(backslashes, '\\') + '"';
}

ProbeResult start(const std::vector<std::string>& words, const ProbeOptions& options) {
  std::vector<std::string> inherited;
  for (const char* entry = GetEnvironmentStringsA(); *entry; entry += inherited.back().size() + 1)
    inherited.emplace_back(entry);
  std::string block, line;
  for (const std::string& entry : entriesOf(inherited, options.environment))
    block.append(entry).push_back('\0');
  for (const std::string& word : words)
    line += quoted(word) + ' ';
  SECURITY_ATTRIBUTES toChildren = {sizeof toChildren, nullptr, TRUE};
  const auto open = [&](int stream) {
    const std::string path = pathOf(stream, options);
    return path.empty() ? nullptr
                        : CreateFileA(path.c_str(), stream == 0 ? GENERIC_READ : GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, &toChildren,
                                      stream == 0 ? OPEN_EXISTING : CREATE_ALWAYS, 0, {});
  };
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = open(0);
  startup.hStdOutput = open(1);
  startup.hStdError = open(2);
  PROCESS_INFORMATION process = {};
  const char* const directory = options.directory.empty() ? nullptr : options.directory.c_str();
  // On an emulated system that is short of time, a process now and then does not come up.
  for (int attempt = 1; !CreateProcessA(words[0].c_str(), line.data(), nullptr, nullptr, TRUE, 0,
                                        block.data(), directory, &startup, &process);
       ++attempt) {
    if (attempt == 5)
      fail(words[0] + ": error " + std::to_string(GetLastError()));
    Sleep(200);
  }
  if (WaitForSingleObject(process.hProcess, 1000 * timeLimit) != WAIT_OBJECT_0)
    TerminateProcess(process.hProcess, hungCode);
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  for (const HANDLE handle : {startup.hStdInput, startup.hStdOutput, startup.hStdError,
                              process.hProcess, process.hThread})
    if (handle)
      CloseHandle(handle);
  return {static_cast<int>(code), 0, written(1, options), written(2, options)};
}

#else

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

ProbeResult start(std::vector<std::string> words, const ProbeOptions& options) {
  std::vector<std::string> inherited;
  for (char** entry = environ; *entry; ++entry)
    inherited.emplace_back(*entry);
  std::vector<std::string> entries = entriesOf(inherited, options.environment);
  const std::vector<char*> arguments = pointersTo(words), variables = pointersTo(entries);
  int files[3];
  for (int i = 0; i < 3; ++i)
    files[i] = open(pathOf(i, options).c_str(),
                    (i == 0 ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC) | O_CLOEXEC, 0666);
  constexpr int notStarted = 127;
  const pid_t process = fork();
  if (process == 0) {
    alarm(timeLimit); // holds for the program as well
    for (int i = 0; i < 3; ++i)
      if (files[i] < 0 ? close(i) != 0 : dup2(files[i], i) != i)
        _exit(notStarted);
    if (options.directory.empty() || chdir(options.directory.c_str()) == 0)
      execve(arguments[0], arguments.data(), variables.data());
    _exit(notStarted);
  }
  for (const int file : files)
    close(file);
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (process < 0 || (WIFEXITED(status) && WEXITSTATUS(status) == notStarted))
    fail(words[0]);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0,
          written(1, options), written(2, options)};
}

#endif

} // namespace

bool ProbeResult::hung() const {
#ifdef _WIN32
  return exitCode == hungCode;
#else
  return signal == SIGALRM;
#endif
}

bool ProbeResult::aborted() const {
#ifdef _WIN32
  return exitCode == 3;
#else
  return signal == SIGABRT;
#endif
}

ProbeResult runProbe(const std::vector<std::string>& arguments, const ProbeOptions& options) {
  std::vector<std::string> words = {options.program.empty() ? probePath() : options.program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return start(words, options);
}

ProbeResult probe(const std::string& line, const ProbeOptions& options) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> std::quoted(word, '\'');)
    words.push_back(word);
  ProbeResult result = runProbe(words, options);
  result.out = textOf(result.out);
  result.err = textOf(result.err);
  return result;
}

std::string outputOf(const std::string& line, const Variables& environment) {
  const ProbeResult run = probe(line, {.environment = environment});
  EXPECT_EQ(run.exitCode, 0) << line << '\n' << run.err;
  return run.out;
}

std::string errorsOf(const std::string& line, const Variables& environment) {
  const ProbeResult run = probe(line, {.environment = environment});
  EXPECT_EQ(run.exitCode, 0) << line << '\n' << run.err;
  return run.err;
}

std::string probePath() {
  const char* given = std::getenv("TOLVANE_PROBE");
  return given ? given : TOLVANE_PROBE;
}

std::string textOf(const std::string& bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i)
    if (bytes.compare(i, 2, "\r\n") != 0)
      text += bytes[i];
  return text;
}

std::string contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}
