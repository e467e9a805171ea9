#include <tolvane/StreamSaverInterface.hpp>

namespace Tolvane {

StreamSaverInterface::StreamSaverInterface() = default;

StreamSaverInterface::~StreamSaverInterface() = default;

} // namespace Tolvane
