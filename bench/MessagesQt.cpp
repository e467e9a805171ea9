// Messages by Qt.
#include "MessagesBench.hpp"

#include <QDebug>
#include <QLoggingCategory>

namespace {

const QLoggingCategory& category() {
  static const QLoggingCategory the("bench", QtInfoMsg);
  return the;
}

[[maybe_unused]] const bool added = [] {
  bench::addHidden("Qt", [](int value) { qCDebug(category) << "brick" << value << "was read"; });
  bench::addShown("Qt", [](int value) { qCInfo(category) << "brick" << value << "was read"; });
  return true;
}();

} // namespace
