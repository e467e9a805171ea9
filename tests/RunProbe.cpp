#include "RunProbe.hpp"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <thread>
#include <windows.h>
#else
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace {

using Environment = std::map<std::string, std::string>;

constexpr auto timeLimit = std::chrono::minutes(2);

bool isReadByTheLibrary(const std::string& name) {
  return name.starts_with("TOLVANE_") || name == "MEMCACHE_VERBOSITY" || name == "EDITOR" ||
         name == "SHOW_ENVIRONMENT_CONTROL_VARIABLES";
}

void addInherited(Environment& environment, const std::string& entry) {
  // Windows keeps the directory of each drive in a variable whose name begins with "=".
  const std::size_t equals = entry.find('=', 1);
  if (equals != std::string::npos && !isReadByTheLibrary(entry.substr(0, equals)))
    environment[entry.substr(0, equals)] = entry.substr(equals + 1);
}

void addChosen(Environment& environment, const ProbeOptions& options) {
  environment["TOLVANE_CACHESIZE"] = "64M";
  for (const auto& [name, value] : options.environment)
    if (value)
      environment[name] = *value;
    else
      environment.erase(name);
}

[[noreturn]] void fail(const std::string& what, long code) {
  throw std::runtime_error("runProbe: " + what + " failed with code " + std::to_string(code));
}

} // namespace

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

#ifdef _WIN32

namespace {

struct Handle {
  HANDLE value = nullptr;
  ~Handle() { close(); }
  void close() {
    if (value)
      CloseHandle(value);
    value = nullptr;
  }
};

struct Pipe {
  Handle read, write;
  Pipe() {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    if (!CreatePipe(&read.value, &write.value, &inherited, 0) ||
        !SetHandleInformation(read.value, HANDLE_FLAG_INHERIT, 0))
      fail("CreatePipe", static_cast<long>(GetLastError()));
  }
};

void readAll(HANDLE pipe, std::string& text) {
  char buffer[4096];
  DWORD count = 0;
  while (ReadFile(pipe, buffer, sizeof buffer, &count, nullptr) && count > 0)
    text.append(buffer, count);
}

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

} // namespace

bool ProbeResult::aborted() const {
  return exitCode == 3;
}

ProbeResult runProbe(const std::vector<std::string>& arguments, const ProbeOptions& options) {
  Environment environment;
  char* const inherited = GetEnvironmentStringsA();
  for (const char* entry = inherited; *entry; entry += std::string(entry).size() + 1)
    addInherited(environment, entry);
  FreeEnvironmentStringsA(inherited);
  addChosen(environment, options);
  std::string block;
  for (const auto& [name, value] : environment)
    block.append(name).append("=").append(value).push_back('\0');

  const std::string path = options.program.empty() ? probePath() : options.program;
  std::string commandLine = quoted(path);
  for (const std::string& argument : arguments)
    commandLine += ' ' + quoted(argument);

  Pipe out, err;
  Handle in;
  SECURITY_ATTRIBUTES inheritedHandle = {sizeof inheritedHandle, nullptr, TRUE};
  if (!options.closeStdin)
    in.value =
        CreateFileA("NUL", GENERIC_READ, FILE_SHARE_READ, &inheritedHandle, OPEN_EXISTING, 0, {});
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = in.value;
  startup.hStdOutput = out.write.value;
  startup.hStdError = err.write.value;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessA(path.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, block.data(),
                      options.directory.empty() ? nullptr : options.directory.c_str(), &startup,
                      &process))
    fail("CreateProcess of " + path, static_cast<long>(GetLastError()));
  const Handle processHandle{process.hProcess}, threadHandle{process.hThread};
  out.write.close();
  err.write.close();

  ProbeResult result;
  std::thread outReader([&] { readAll(out.read.value, result.out); });
  std::thread errReader([&] { readAll(err.read.value, result.err); });
  const auto limit = std::chrono::milliseconds(timeLimit).count();
  if (WaitForSingleObject(process.hProcess, static_cast<DWORD>(limit)) != WAIT_OBJECT_0) {
    TerminateProcess(process.hProcess, 124);
    WaitForSingleObject(process.hProcess, INFINITE);
  }
  outReader.join();
  errReader.join();
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  result.exitCode = static_cast<int>(code);
  return result;
}

#else

namespace {

struct Descriptor {
  int value = -1;
  ~Descriptor() { close(); }
  void close() {
    if (value >= 0)
      ::close(value);
    value = -1;
  }
};

struct Pipe {
  Descriptor read, write;
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
      fail("pipe2", errno);
    read.value = ends[0];
    write.value = ends[1];
  }
};

// Reads both streams to their ends, or until the time is up and the process is killed.
void readAll(Pipe& out, Pipe& err, ProbeResult& result, pid_t process) {
  const auto deadline = std::chrono::steady_clock::now() + timeLimit;
  std::array<pollfd, 2> streams = {{{out.read.value, POLLIN, 0}, {err.read.value, POLLIN, 0}}};
  std::string* const texts[] = {&result.out, &result.err};
  while (streams[0].fd >= 0 || streams[1].fd >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      kill(process, SIGKILL);
      return;
    }
    poll(streams.data(), streams.size(), static_cast<int>(left.count()));
    for (std::size_t i = 0; i < streams.size(); ++i) {
      char buffer[4096];
      if (streams[i].fd < 0 || streams[i].revents == 0)
        continue;
      const ssize_t count = read(streams[i].fd, buffer, sizeof buffer);
      if (count > 0)
        texts[i]->append(buffer, static_cast<std::size_t>(count));
      else if (count == 0 || errno != EINTR)
        streams[i].fd = -1;
    }
  }
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

} // namespace

bool ProbeResult::aborted() const {
  return signal == SIGABRT;
}

ProbeResult runProbe(const std::vector<std::string>& arguments, const ProbeOptions& options) {
  Environment environment;
  for (char** entry = environ; *entry; ++entry)
    addInherited(environment, *entry);
  addChosen(environment, options);
  std::vector<std::string> variables;
  for (const auto& [name, value] : environment)
    variables.push_back(name + "=" + value);
  std::vector<std::string> words = {options.program.empty() ? probePath() : options.program};
  words.insert(words.end(), arguments.begin(), arguments.end());

  Pipe out, err;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (options.closeStdin)
    posix_spawn_file_actions_addclose(&actions, STDIN_FILENO);
  else
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out.write.value, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err.write.value, STDERR_FILENO);
  if (!options.directory.empty())
    posix_spawn_file_actions_addchdir_np(&actions, options.directory.c_str());
  pid_t process = 0;
  const int failure = posix_spawn(&process, words[0].c_str(), &actions, nullptr,
                                  pointersTo(words).data(), pointersTo(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0)
    fail("posix_spawn of " + words[0], failure);
  out.write.close();
  err.write.close();

  ProbeResult result;
  readAll(out, err, result, process);
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status))
    result.exitCode = WEXITSTATUS(status);
  else if (WIFSIGNALED(status))
    result.signal = WTERMSIG(status);
  return result;
}

#endif
