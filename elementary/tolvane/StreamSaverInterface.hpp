#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/Interface.hpp>

/// @file
/// The kind of interface through which an object is written to a stream.
///
/// @code
/// #include <tolvane/Intercube.hpp>
/// #include <tolvane/StreamSaverInterface.hpp>
///
/// struct VolumeStream : Tolvane::StreamSaverInterface {
///   virtual void write(std::ostream& out) = 0;
/// };
/// if (auto stream = object.findInterface<VolumeStream>()) {
///   stream->write(file);
/// }
/// @endcode

namespace Tolvane {

/// Names the kind of interface; there are no objects of it.
class StreamSaver {};

/// The base of interfaces that write an object to a stream, filed under `StreamSaver`. How they
/// write is up to the application, whose deriving classes add the operation.
///
/// Thread safety: that of the deriving class.
class TOLVANE_API StreamSaverInterface : public Interface<StreamSaver> {
public:
  ~StreamSaverInterface() override;

protected:
  StreamSaverInterface();
};

} // namespace Tolvane
