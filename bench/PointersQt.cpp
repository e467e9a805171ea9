// The shared pointer of Qt.
#include "PointersBench.hpp"

#include <QSharedPointer>

namespace {

struct Object : bench::Payload {
  virtual ~Object() = default;
};

struct QtShared {
  using Strong = QSharedPointer<Object>;
  static Strong make() { return Strong::create(); }
  static QWeakPointer<Object> weak(const Strong& strong) { return strong; }
  static Strong lock(const QWeakPointer<Object>& weak) { return weak.toStrongRef(); }
};

[[maybe_unused]] const bool added = [] {
  bench::addStrong<QtShared>("QSharedPointer");
  bench::addWeak<QtShared>("QSharedPointer");
  return true;
}();

} // namespace
