// What the compiler refuses, and the words it must say. The file compiles as it is; with WRONG set
// to a number, what stands under that number does not.

#include <tolvane/StrongPtr.hpp>

#ifndef WRONG
#define WRONG 0
#endif

using Tolvane::StrongPtr;
using Tolvane::WeakPtr;

struct Solid : Tolvane::ReferenceBase<Solid> {};
struct Cube : Solid {};
struct Other : Tolvane::ReferenceBase<Other> {};
struct Plain {};
class Named;

// As it stands in a header that does not know the class; the destructor is in a source.
struct Keeper {
  ~Keeper();
  StrongPtr<Named> strong;
  WeakPtr<Named> weak;
  StrongPtr<Named, Other> derived;
};

inline bool moveOut(Keeper& keeper, StrongPtr<Named>& strong) {
  strong = std::move(keeper.strong);
  keeper.derived.reset();
  return strong == keeper.weak && strong && strong.strongCount() == 1 && keeper.weak < strong;
}

void refused(const StrongPtr<Solid>& solid, const StrongPtr<const Solid>& constant,
             const StrongPtr<Other>& other, const WeakPtr<Named>& named, Named* object) {
#if WRONG == 1 // name the class, not a pointer or a reference to it
  const StrongPtr<int> p;
#elif WRONG == 2  // name the class, not a pointer or a reference to it
  const WeakPtr<Solid*> p;
#elif WRONG == 3  // T must derive from ReferenceBase<Base>
  const StrongPtr<Plain> p = new Plain;
#elif WRONG == 4  // as in StrongPtr<T, Base>
  const StrongPtr<Cube> p = new Cube;
#elif WRONG == 5  // include the header of T before a pointer is made of a T*
  const StrongPtr<Named> p = object;
#elif WRONG == 6  // include the header of T before its object is looked at
  *named;
#elif WRONG == 7  // include the header of T before its object is looked at
  named.lock().get();
#elif WRONG == 8  // convert through get() where the object really has both
  const StrongPtr<Solid> p(other);
#elif WRONG == 9  // convert through get() where the object really has both
  const WeakPtr<Cube, Solid> p(other);
#elif WRONG == 10 // a pointer to a constant object converts to pointers to constant objects only
  const WeakPtr<Solid> p(constant);
#else
  const StrongPtr<Cube, Solid> down(solid);
  const StrongPtr<const Cube, Solid> constantDown(constant);
  static_cast<void>(other != nullptr && down == solid && constantDown == constant);
#endif
  static_cast<void>(solid);
  static_cast<void>(constant);
  static_cast<void>(other);
  static_cast<void>(named);
  static_cast<void>(object);
}
