#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/StrongPtr.hpp>

#include <string>
#include <vector>

/// @file
/// A load that is to be carried out later: what LoaderBase::loadrequest() gives.
///
/// @code
/// #include <tolvane/LoaderRequest.hpp>
///
/// Tolvane::StrongPtr<Tolvane::LoaderRequest> request = new Tolvane::LoaderRequest("scan.nii");
/// request->buffer().assign({'n', '+', '1'});
/// @endcode

namespace Tolvane {

/// The file or URL of a load, and a buffer for its bytes. Loaders derive from it to add what they
/// need.
///
/// Thread safety: none beyond that of the pointers.
class TOLVANE_API LoaderRequest : public ReferenceBase<LoaderRequest> {
public:
  /// A request for that file or URL, with an empty buffer.
  explicit LoaderRequest(std::string url);
  ~LoaderRequest() override;

  /// The file or URL.
  const std::string& url() const noexcept { return url_; }

  /// The bytes. The library only keeps them; loader and caller agree on their meaning.
  std::vector<unsigned char>& buffer() noexcept { return buffer_; }
  /// The bytes.
  const std::vector<unsigned char>& buffer() const noexcept { return buffer_; }

private:
  std::string url_;
  std::vector<unsigned char> buffer_;
};

} // namespace Tolvane
