#pragma once

/// @file
/// What the tests of modules and the module `Guest` agree on. Both compile it, so that each has
/// copies of its own of the classes and templates in here.

#include <tolvane/Cache.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/Intercube.hpp>
#include <tolvane/StrongPtr.hpp>
#include <tolvane/TypeInfo.hpp>
#include <tolvane/Typename.hpp>

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace guest {

struct Shape : Tolvane::ReferenceBase<Shape> {
  virtual double area() const { return 0; }
};

struct Square : Shape {
  explicit Square(double length) : side(length) {}
  double area() const override { return side * side; }
  const double side;
};

struct Failure : Tolvane::Exception {
  using Exception::Exception;
};

struct Unit : Tolvane::Interface<Unit> {
  std::string text = "mm";
};

/// A creator that holds a brick of some bytes and gives it up whenever it is asked.
struct Maker : Tolvane::Creature {
  using Creature::Creature;
  Tolvane::StrongPtr<Tolvane::Cacheable> getCacheable() const override { return data; }
  int release() override {
    data.reset();
    return 2;
  }
  Tolvane::StrongPtr<Tolvane::Cacheable> data;
};

/// A shared type as a side sees it.
struct SeenType {
  const std::type_info* type;
  std::string name = Tolvane::Typename(*type);
  std::int64_t id = Tolvane::getTypeID(*type);
};
inline std::vector<SeenType> types() {
  using namespace Tolvane;
  return {{&typeid(int)},
          {&typeid(std::string)},
          {&typeid(std::vector<Shape>)},
          {&typeid(Shape)},
          {&typeid(Square)},
          {&typeid(Failure)},
          {&typeid(Maker)},
          {&typeid(Cacheable)},
          {&typeid(ReferenceBase<Shape>)},
          {&typeid(StrongPtr<Square, Shape>)},
          {&typeid(NullPtrException)}};
}

/// Throws one of the kinds of exceptions there are.
inline void raise(int kind) {
  using namespace Tolvane;
  const StrongPtr<Square, Shape> empty;
  switch (kind) {
  case 0:
    throw Exception("described", "file.cpp", 12);
  case 1:
    throw Failure("described", "file.cpp", 12);
  case 2:
    empty->area();
    return;
  case 3:
    throw MemoryException();
  case 4:
    throw Creature::Exception("described", "file.cpp", 12);
  case 5:
    throw Cache::OutOfMemory(nullptr, nullptr, nullptr);
  case 6: {
    const StrongPtr<Shape> shape = new Square(1);
    detail::Referer* const record = detail::PointerAccess::referer(shape);
    const auto counts = record->counts();
    record->setCounts({std::numeric_limits<int>::max(), counts.weak});
    const std::shared_ptr<void> restore(nullptr, [&](void*) { record->setCounts(counts); });
    const StrongPtr<Shape> oneTooMany = shape;
    return;
  }
  default:
    throw "a text";
  }
}
constexpr int kindsOfExceptions = 8;

/// Which handler takes what `act` throws, and what it sees.
inline std::string caught(const std::function<void()>& act) {
  using namespace Tolvane;
  const auto types = [](const auto& e) {
    return ' ' + Typename(e.type()) + ' ' + Typename(e.base());
  };
  const auto place = [](const Exception& e) {
    return ' ' + e.description().str() + ' ' + e.sourceFile().str() + ' ' +
           std::to_string(e.sourceLine());
  };
  try {
    act();
  } catch (const Failure& e) {
    return "Failure" + place(e);
  } catch (const Creature::Exception& e) {
    return "Creature::Exception" + place(e);
  } catch (const Cache::OutOfMemory& e) {
    return std::string("OutOfMemory ") + e.what();
  } catch (const Exception& e) {
    return "Exception" + place(e);
  } catch (const NullPtrException& e) {
    return "NullPtrException" + types(e);
  } catch (const MaxExceptionCount& e) {
    return "MaxExceptionCount " + std::to_string(e.count()) + types(e);
  } catch (const MemoryException& e) {
    return e.what();
  } catch (const char* text) {
    return text;
  }
  return "nothing";
}

/// What the module can do.
struct Guest {
  virtual ~Guest() = default;

  virtual std::vector<SeenType> types() const = 0;

  virtual void raise(int kind) const = 0;
  virtual std::string caught(const std::function<void()>& act) const = 0;

  /// How many shapes and cacheables were made, as the module sees it.
  virtual std::pair<std::uint64_t, std::uint64_t> made() const = 0;

  /// A square of the module, and the area of a shape if it is a square for the module.
  virtual Tolvane::StrongPtr<Shape> makeSquare(double side) const = 0;
  virtual double areaOfSquare(const Tolvane::StrongPtr<Shape>& shape) const = 0;

  /// A message from the module.
  virtual void say(const std::string& text) const = 0;

  /// A creator of a class of the module, with data of another one in `cache`.
  virtual Tolvane::StrongPtr<Tolvane::Creature>
  makeMaker(const Tolvane::WeakPtr<Tolvane::Cache, Tolvane::CacheBase>& cache,
            Tolvane::memsize_t bytes) const = 0;

  /// Attaches an interface of a class of the module.
  virtual void decorate(Tolvane::Intercube& cube) const = 0;

  /// Takes everything of the module out again.
  virtual void leave(Tolvane::Cache& cache, Tolvane::Intercube& cube) = 0;
};

} // namespace guest
