#include "DemanglerAnswerInternal.hpp"
#include "LastingTypeInternal.hpp"
#include "TypeMapInternal.hpp"
#include "UnloadLockInternal.hpp"

#include <tolvane/Typename.hpp>

#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>

namespace Tolvane {
namespace {

/// The registered names. A reader takes no lock, so a name that is replaced or removed stays: each
/// text is kept once, however often it comes and goes.
class NameTable {
public:
  /// The name of a type; null when it has none.
  const std::string* find(const std::type_info& type) const noexcept {
    const auto* name = names_.find(type);
    return name != nullptr ? name->load(std::memory_order_acquire) : nullptr;
  }

  void set(const std::type_info& type, const std::string& name) {
    const auto lock = detail::lockUnlessEnding(mutex_);
    if (lock.owns_lock()) {
      const std::string* const text = &*texts_.insert(name).first;
      names_.obtain(type, [] { return Name(nullptr); }).store(text, std::memory_order_release);
    }
  }

  void remove(const std::type_info& type) noexcept {
    if (detail::isLocalType(type)) {
      names_.take(type); // it goes with its module
    } else if (Name* const name = names_.find(type)) {
      name->store(nullptr, std::memory_order_release);
    }
  }

  /// A type of that name, or that of nothing.
  const std::type_info& typeOf(const std::string& name) const {
    const std::type_info* found = &typeid(void);
    names_.any([&](const auto& entry) {
      const std::string* const text = entry.value.load(std::memory_order_acquire);
      const bool same = text != nullptr && *text == name;
      found = same ? &entry.type.get() : found;
      return same;
    });
    return *found;
  }

private:
  using Name = std::atomic<const std::string*>;

  detail::TypeMap<Name> names_;
  std::mutex mutex_; // guards the texts
  std::set<std::string> texts_;
};

// Static objects of any module name their types and ask for names until the last moment, so
// neither table is ever destroyed.
NameTable& nameTable() {
  static NameTable& table = *new NameTable;
  return table;
}

struct IdTable {
  std::mutex mutex;
  // Keyed by name: the same type seen through two modules has one ID.
  std::unordered_map<std::string, std::int64_t> ids;
  std::int64_t last = 1;
};

IdTable& idTable() {
  static IdTable& table = *new IdTable;
  return table;
}

std::atomic<bool> defaultNamesInstalled{false};

void installDefaultNames() {
  const struct {
    const std::type_info& type;
    const char* name;
  } defaults[] = {
      {typeid(bool), "bool"},
      {typeid(void), "void"},
      {typeid(double), "double"},
      {typeid(float), "float"},
      {typeid(int), "int32_t"},
      {typeid(long), "long"},
      {typeid(unsigned char), "u_int8_t"},
      {typeid(signed char), "int8_t"},
      {typeid(char), "char"},
      {typeid(short), "int16_t"},
      {typeid(std::string), "std::string"},
      {typeid(unsigned short), "u_int16_t"},
      {typeid(unsigned int), "u_int32_t"},
      {typeid(unsigned long), "u_int32_t"},
      {typeid(unsigned long long), "u_int64_t"},
      {typeid(long long), "int64_t"},
  };
  for (const auto& entry : defaults)
    DefineTypenameBase::setTypename(entry.type, entry.name);
  defaultNamesInstalled.store(true, std::memory_order_relaxed);
}

} // namespace

std::string Typename(const std::type_info& type) {
  if (const std::string* const name = nameTable().find(type))
    return *name;
  return demangleSymbol(detail::rawName(type));
}

bool detail::defaultTypenamesInstalled() noexcept {
  return defaultNamesInstalled.load(std::memory_order_relaxed);
}

std::string demangleSymbol(const char* name) {
  [[maybe_unused]] static const bool installed = (installDefaultNames(), true);
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> text(
      abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
  return detail::demanglerAnswer(name, text.get(), status);
}

std::int64_t getTypeID(const std::type_info& type) {
  std::string name = detail::rawName(type);
  IdTable& table = idTable();
  const auto lock = detail::lockUnlessEnding(table.mutex);
  if (!lock.owns_lock())
    return 0;
  std::int64_t& id = table.ids[std::move(name)];
  if (id == 0)
    id = ++table.last;
  return id;
}

void DefineTypenameBase::setTypename(const std::type_info& type, const std::string& name) {
  nameTable().set(type, name);
}

void DefineTypenameBase::removeTypename(const std::type_info& type) {
  nameTable().remove(type);
}

namespace detail {

const std::type_info& typeByName(const std::string& name) {
  return nameTable().typeOf(name);
}

} // namespace detail
} // namespace Tolvane
