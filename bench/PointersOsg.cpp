// The pointers of OpenSceneGraph.
#include "PointersBench.hpp"

#include <osg/Referenced>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

namespace {

struct Object : osg::Referenced, bench::Payload {
protected:
  ~Object() override = default;
};

struct Osg {
  using Strong = osg::ref_ptr<Object>;
  static Strong make() { return new Object; }
  static osg::observer_ptr<Object> weak(const Strong& strong) { return strong; }
  static Strong lock(const osg::observer_ptr<Object>& weak) {
    Strong strong;
    weak.lock(strong);
    return strong;
  }
};

[[maybe_unused]] const bool added = [] {
  bench::addStrong<Osg>("osg::ref_ptr");
  bench::addWeak<Osg>("osg::ref_ptr");
  return true;
}();

} // namespace
