#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the run with the broken condition, which the fuzzer reports with the input that broke it.
#define CHECK(condition)                                                                           \
  ((condition) ? static_cast<void>(0)                                                              \
               : (std::fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition),   \
                  std::abort()))
