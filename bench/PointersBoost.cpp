// The pointers of Boost.
#include "PointersBench.hpp"

#include <boost/make_shared.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <boost/weak_ptr.hpp>

namespace {

struct Object : bench::Payload, boost::intrusive_ref_counter<Object> {
  virtual ~Object() = default;
};

struct Intrusive {
  static boost::intrusive_ptr<Object> make() { return new Object; }
};

struct Shared {
  using Strong = boost::shared_ptr<Object>;
  static Strong make() { return boost::make_shared<Object>(); }
  static boost::weak_ptr<Object> weak(const Strong& strong) { return strong; }
  static Strong lock(const boost::weak_ptr<Object>& weak) { return weak.lock(); }
};

[[maybe_unused]] const bool added = [] {
  bench::addStrong<Intrusive>("intrusive_ptr");
  bench::addStrong<Shared>("boost::shared_ptr");
  bench::addWeak<Shared>("boost::shared_ptr");
  return true;
}();

} // namespace
