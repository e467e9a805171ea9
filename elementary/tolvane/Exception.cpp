#include <tolvane/Environment.hpp>
#include <tolvane/Exception.hpp>
#include <tolvane/Typename.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Tolvane {
namespace {

simplestring copyOf(const char* text) {
  return {text, text ? std::strlen(text) : 0};
}

} // namespace

char Exception::last_known_description[4096];
char Exception::last_known_sourcefilename[2048];
int Exception::last_known_sourcefilenumber = 0;

Exception::Exception() noexcept = default;

Exception::Exception(const char* description, const char* sourcefile, int line)
    : description_(copyOf(description)), sourceFile_(copyOf(sourcefile)), sourceLine_(line) {}

Exception::Exception(const std::string& description, const char* sourcefile, int line)
    : description_(description), sourceFile_(copyOf(sourcefile)), sourceLine_(line) {}

Exception::Exception(const Exception& other) = default;
Exception::~Exception() = default;

const char* Exception::what() const noexcept {
  return "Unspecified Tolvane Exception";
}

void Exception::terminateHandler() {
  std::printf("Tolvane:: C++ terminate handler called - uncaught exception!\n");
  std::fflush(stdout);
  std::abort();
}

std::terminate_handler Exception::setTerminateHandler() {
  return std::set_terminate(&Exception::terminateHandler);
}

NullPtrException::NullPtrException(const std::type_info& type, const std::type_info& base) noexcept
    : type_(&type), base_(&base) {
  std::printf("NullPtrException::NullPtrException(%s, %s)\n", detail::rawName(type),
              detail::rawName(base));
  std::fflush(stdout);
  // One after the other: the first readable name ever asked for may differ from later ones.
  const std::string typeName = Typename(type);
  const std::string baseName = Typename(base);
  std::printf("\n *** NullPtrException::NullPtrException(type = %s, base class = %s) *** \n\n",
              typeName.c_str(), baseName.c_str());
  std::fflush(stdout);
  getEnvInteger("TOLVANE_NO_ASSERT", "don't do assertions on nullptrs", 0);
}

NullPtrException::~NullPtrException() = default;

const char* NullPtrException::what() const noexcept {
  return "Null Ptr Exception - invalid pointer detected!";
}

MemoryException::~MemoryException() = default;

const char* MemoryException::what() const noexcept {
  return "Tolvane::Out Of Memory";
}

MaxExceptionCount::MaxExceptionCount(int count, const std::type_info& type,
                                     const std::type_info& base) noexcept
    : count_(count), type_(&type), base_(&base) {}

MaxExceptionCount::~MaxExceptionCount() = default;

const char* MaxExceptionCount::what() const noexcept {
  return "Maximal reference count reached, cannot increment further";
}

void MaxExceptionCount::throwMaxExceptionCount(int count, const std::type_info& type,
                                               const std::type_info& base) {
  throw MaxExceptionCount(count, type, base);
}

} // namespace Tolvane
