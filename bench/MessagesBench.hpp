#pragma once

#include "Bench.hpp"

#include <cstdio>
#include <unistd.h>

/// @file
/// One message with a number in it: not shown, and shown on standard error, flushed.

namespace bench {

/// Sends standard error to a file while it lives. One at a time; in two threads that of the first.
class StandardErrorInFile {
public:
  explicit StandardErrorInFile(bool really) {
    if (really) {
      saved_ = ::dup(STDERR_FILENO);
      file_ = std::tmpfile();
      ::dup2(::fileno(file_), STDERR_FILENO);
    }
  }
  ~StandardErrorInFile() {
    if (file_ != nullptr) {
      ::dup2(saved_, STDERR_FILENO);
      ::close(saved_);
      std::fclose(file_);
    }
  }
  StandardErrorInFile(const StandardErrorInFile&) = delete;
  StandardErrorInFile& operator=(const StandardErrorInFile&) = delete;

private:
  int saved_ = -1;
  std::FILE* file_ = nullptr;
};

template <class Message>
void addHidden(const std::string& name, Message message) {
  add("message not shown/" + name, [=](benchmark::State& state) {
    int value = 0;
    for (auto _ : state) {
      message(++value);
      benchmark::ClobberMemory();
    }
  });
}

template <class Message>
void addShown(const std::string& name, Message message) {
  for (int threads = 1; threads <= 2; ++threads) {
    add(
        "message shown/" + std::to_string(threads) + " threads/" + name,
        [=](benchmark::State& state) {
          const StandardErrorInFile redirected(state.thread_index() == 0);
          int value = 0;
          for (auto _ : state) {
            message(++value);
          }
        },
        threads);
  }
}

} // namespace bench
