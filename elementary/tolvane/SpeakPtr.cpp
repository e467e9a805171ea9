#include <tolvane/Breakpoint.hpp>
#include <tolvane/Exception.hpp>
#include <tolvane/SpeakPtr.hpp>
#include <tolvane/Typename.hpp>

#include <atomic>
#include <cstdio>

namespace Tolvane {

namespace {

void printEmpty(const char* a, const char* b, const char* type, bool invalid) {
  std::printf(invalid ? "%s%s: (ptr: %s) {INVALID}\n" : "%s%s: (ptr: %s) {NULL}\n", b, a, type);
}

void printPointer(const char* first, const char* second, const char* type, int strong, int weak,
                  const char* baseType, const void* referer, const void* object) {
  std::printf("%s%s: %s [%ld/%ld] from ptr %s via %p->%p\n", first, second, type,
              static_cast<long>(strong), static_cast<long>(weak), baseType, referer, object);
}

void printNoReferer(const char* a, const char* b, const char* type, const char* baseType) {
  std::printf("%s%s: DynPtr<%s,%s> is {NULL} (NO internal referer!)\n", a, b, type, baseType);
}

void printInvalidReferer(const char* a, const char* b, const char* type, const char* baseType,
                         int strong, int weak) {
  std::printf("%s%s:  DynPtr<%s,%s>: *DESTRUCTED* - INVALID REFERER: %ld refs, %ld weak refs\n", a,
              b, type, baseType, static_cast<long>(strong), static_cast<long>(weak));
}

void printDowncast(const char* fromType, const char* toType, const void* cast,
                   const void* verification) {
  std::printf("  Downcast[%s]-->[%s]: %p (vrfy:%p)\n", fromType, toType, cast, verification);
}

/// The silent events ask for the name all the same: it is there when a debugger stops here, and
/// the first name of a process installs the readable names of the plain types.
void computeName(const std::type_info& type) {
  const std::string name = Typename(type);
  static_cast<void>(name);
}

std::atomic<const char*> lastKnownSourceCodeLine{"(none)"};

} // namespace

SpeakPtr& SpeakPtr::theSpeaker() noexcept {
  static SpeakPtr& speaker = *new SpeakPtr;
  return speaker;
}

void SpeakPtr::setSpeaker(SpeakPtr&) noexcept {}

void SpeakPtr::print(const char* a, const char* b, const std::type_info& type,
                     bool invalid) noexcept {
  printEmpty(a, b, detail::rawName(type), invalid);
}

void SpeakPtr::printRS(const char* a, const char* b, const std::type_info& type,
                       bool invalid) noexcept {
  printEmpty(a, b, Typename(type).c_str(), invalid);
}

void SpeakPtr::print(const char* a, const char* b, const std::type_info& type, int strong, int weak,
                     const std::type_info& baseType, const void* referer,
                     const void* object) noexcept {
  printPointer(b, a, detail::rawName(type), strong, weak, detail::rawName(baseType), referer,
               object);
}

void SpeakPtr::printRS(const char* a, const char* b, const std::type_info& type, int strong,
                       int weak, const std::type_info& baseType, const void* referer,
                       const void* object) noexcept {
  const std::string name = Typename(type);
  printPointer(b, a, name.c_str(), strong, weak, Typename(baseType).c_str(), referer, object);
}

void SpeakPtr::DynPtrNoReferer(const char* a, const char* b, const std::type_info& type,
                               const std::type_info& baseType) noexcept {
  printNoReferer(a, b, detail::rawName(type), detail::rawName(baseType));
}

void SpeakPtr::DynPtrNoRefererRS(const char* a, const char* b, const std::type_info& type,
                                 const std::type_info& baseType) noexcept {
  const std::string name = Typename(type);
  printNoReferer(a, b, name.c_str(), Typename(baseType).c_str());
}

void SpeakPtr::DynPtrInvalidReferer(const char* a, const char* b, const std::type_info& type,
                                    const std::type_info& baseType, int strong, int weak) noexcept {
  printInvalidReferer(a, b, detail::rawName(type), detail::rawName(baseType), strong, weak);
}

void SpeakPtr::DynPtrInvalidRefererRS(const char* a, const char* b, const std::type_info& type,
                                      const std::type_info& baseType, int strong,
                                      int weak) noexcept {
  const std::string name = Typename(type);
  printInvalidReferer(a, b, name.c_str(), Typename(baseType).c_str(), strong, weak);
}

void SpeakPtr::DynPtrInfo(const char* a, const char* b, const std::type_info& type, int strong,
                          int weak, const std::type_info& baseType, const void* referer,
                          const void* object, const std::type_info& fromType,
                          const std::type_info& toType, const void* cast,
                          const void* verification) noexcept {
  printPointer(a, b, detail::rawName(type), strong, weak, detail::rawName(baseType), referer,
               object);
  printDowncast(detail::rawName(fromType), detail::rawName(toType), cast, verification);
}

void SpeakPtr::DynPtrInfoRS(const char* a, const char* b, const std::type_info& type, int strong,
                            int weak, const std::type_info& baseType, const void* referer,
                            const void* object, const std::type_info& fromType,
                            const std::type_info& toType, const void* cast,
                            const void* verification) noexcept {
  const std::string name = Typename(type);
  printPointer(a, b, name.c_str(), strong, weak, Typename(baseType).c_str(), referer, object);
  const std::string from = Typename(fromType);
  printDowncast(from.c_str(), Typename(toType).c_str(), cast, verification);
}

void SpeakPtr::CriticalWarning(const std::type_info& type, const std::type_info& baseType,
                               const void* object, const void* referer) noexcept {
  const std::string name = Typename(type);
  std::printf("CRITICAL WARNING: %s (-> %s) has no strong references... [0 weaks, obj %p via %p] - "
              "weakptr destructed with no strong and no weak references!!!\n",
              name.c_str(), Typename(baseType).c_str(), object, referer);
  std::fflush(stdout);
}

void SpeakPtr::SelfConstruction(const std::type_info&, const void*, const void*) noexcept {
  std::fputs(
      "*** DYNAMIC POINTER SELF-ASSIGNMENT DURING CONSTRUCTION - THIS LOOKS LIKE A RECURSIVE "
      "CONSTRUCTOR CALL,\n"
      "*** CHECK CORRECT CLASS MEMBER INITIALIZATION - PROGRAM TERMINATED\n",
      stdout);
  std::fflush(stdout);
}

void SpeakPtr::InconsistentDynPtr(const std::type_info& objectType, const std::type_info& baseType,
                                  const std::type_info& trueType, const void* castOfRecord,
                                  const void* castOfObject, const void* recordObject,
                                  const void* trueObject, std::uint64_t serial) noexcept {
  // In the order of the text, as the first name of a process may differ from the later ones.
  const std::string actual = Typename(trueType);
  const std::string object = Typename(objectType);
  const std::string base = Typename(baseType);
  const std::string report =
      "***\t DYNPTR: Have typeid(TrueObject)=" + actual +
      ", should have template<Object=" + object + "> as referenced from base " + base + " ***\n" +
      "\t      dynamic_cast<Object*>(this->myReferer->myObject) ==> " +
      to_address_string(castOfRecord) + "\n" +
      "\t      dynamic_cast<Object*>(trueObject)\t\t       ==> " + to_address_string(castOfObject) +
      "\n" + "\t\t\t\t    this->myReferer->myObject  ==> " + to_address_string(recordObject) +
      "\n" + "\t\t\t\t    trueObject\t\t       ==> " + to_address_string(trueObject) + "\n";
  std::printf("\n\n%s", report.c_str());
  std::fflush(stdout);
  breakpoint(report + " id #" + std::to_string(serial));
}

void SpeakPtr::InvalidPtrAccess(bool arrow, const std::type_info& pointerType,
                                const std::type_info& objectType, const std::type_info& baseType,
                                const std::type_info& trueType, int strong, int weak,
                                const void* identity, const void* via, std::uint64_t serial) {
  const std::string from = Typename(pointerType) + (arrow ? "::operator->()" : "::operator*()");
  const std::string object = Typename(objectType);
  const std::string base = Typename(baseType);
  const std::string actual = Typename(trueType);
  std::printf("\n\n *** NULL POINTER ACCESS FROM [%s]  [%d strong/%d weak refs] *** \n"
              "     Object=%s (desired), ObjectBase=%s, TrueObject=%s (actual) (via %p)\n",
              from.c_str(), strong, weak, object.c_str(), base.c_str(), actual.c_str(), via);
  breakpoint("*** NULL POINTER ACCESS FROM [" + from + "]{" + to_address_string(identity) +
             "} + [" + std::to_string(strong) + " strong/" + std::to_string(weak) +
             " weak refs] *** with " + "     Object=" + object + " (desired), ObjectBase=" + base +
             ", TrueObject=" + actual + " (actual) id #" + std::to_string(serial));
  throw NullPtrException(objectType, baseType);
}

void SpeakPtr::DestructionCancelled(int strong, int, const std::type_info& type) noexcept {
  if (strong != 0) {
    computeName(type);
  }
}

void SpeakPtr::DestructionAssertion(int, int, const std::type_info& type) noexcept {
  computeName(type);
}

void SpeakPtr::WarningUnctionChange(int, int, const std::type_info& type) noexcept {
  computeName(type);
}

void SpeakPtr::DynPtrInvalid(const void*, const void*, int, int,
                             const std::type_info& type) noexcept {
  computeName(type);
}

void SpeakPtr::WeakPtrConstructionInfo(int, int, const std::type_info& type, const void*) noexcept {
  computeName(type);
}

void SpeakPtr::WeakPtrDestructionInfo(int, int, const std::type_info& type, const void*) noexcept {
  computeName(type);
}

void IncrementDeadRefPtr::inc(int, int, const std::type_info& type,
                              const std::type_info&) noexcept {
  computeName(type);
}

std::string to_address_string(const void* address) {
  char text[64];
  std::snprintf(text, sizeof text, "%p", address);
  return text;
}

void setLastKnownSourceCodeLine(const char* line) noexcept {
  lastKnownSourceCodeLine.store(line);
}

const char* getLastKnownSourceCodeLine() noexcept {
  return lastKnownSourceCodeLine.load();
}

} // namespace Tolvane
