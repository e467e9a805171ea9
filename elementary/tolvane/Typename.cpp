#include "DemanglerAnswerInternal.hpp"
#include "UnloadLockInternal.hpp"

#include <tolvane/TypeInfo.hpp>
#include <tolvane/Typename.hpp>

#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace Tolvane {
namespace {

struct NameTable {
  std::mutex mutex;
  std::unordered_map<TypeInfo, std::string> names;
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

std::optional<std::string> registeredName(const std::type_info& type) {
  NameTable& table = nameTable();
  const auto lock = detail::lockUnlessEnding(table.mutex);
  if (!lock.owns_lock())
    return std::nullopt;
  const auto found = table.names.find(type);
  if (found == table.names.end())
    return std::nullopt;
  return found->second;
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
  if (auto name = registeredName(type))
    return *std::move(name);
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
  NameTable& table = nameTable();
  const auto lock = detail::lockUnlessEnding(table.mutex);
  if (lock.owns_lock())
    table.names.insert_or_assign(type, name);
}

void DefineTypenameBase::removeTypename(const std::type_info& type) {
  NameTable& table = nameTable();
  const auto lock = detail::lockUnlessEnding(table.mutex);
  if (lock.owns_lock())
    table.names.erase(type);
}

namespace detail {

const std::type_info& typeByName(const std::string& name) {
  NameTable& table = nameTable();
  const auto lock = lockUnlessEnding(table.mutex);
  if (lock.owns_lock())
    for (const auto& [type, registered] : table.names)
      if (registered == name)
        return type.get();
  return typeid(void);
}

} // namespace detail
} // namespace Tolvane
