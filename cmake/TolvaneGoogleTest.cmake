# Provides the target GTest::gtest.
#
# The installed GoogleTest serves a plain native build. A sanitizer sees only what was compiled with
# it and Windows needs its own build, so those take the sources that Debian's package installs.

set(TOLVANE_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "Sources of GoogleTest")

if(NOT TOLVANE_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
  find_package(GTest QUIET)
endif()
if(NOT TARGET GTest::gtest)
  if(NOT EXISTS ${TOLVANE_GOOGLETEST_SOURCE}/CMakeLists.txt)
    message(FATAL_ERROR "GoogleTest not found: install it (Debian: libgtest-dev and googletest), "
      "or set TOLVANE_GOOGLETEST_SOURCE to its sources, or set TOLVANE_BUILD_TESTS=OFF")
  endif()
  block()
    set(BUILD_SHARED_LIBS OFF)
    set(BUILD_GMOCK OFF)
    set(INSTALL_GTEST OFF)
    set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
    set(CMAKE_WARN_DEPRECATED OFF)
    add_subdirectory(${TOLVANE_GOOGLETEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest
      EXCLUDE_FROM_ALL SYSTEM)
  endblock()
  if(NOT TARGET GTest::gtest)
    add_library(GTest::gtest ALIAS gtest)
  endif()
endif()
