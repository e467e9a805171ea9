#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/Interface.hpp>
#include <tolvane/LoaderBase.hpp>
#include <tolvane/PosixMutex.hpp>

#include <string>
#include <typeinfo>

/// @file
/// How a load reports its progress, and lets itself be steered: an interface that is attached to
/// the LoaderParameters.
///
/// @code
/// #include <tolvane/LoaderProgress.hpp>
///
/// struct Bar : Tolvane::LoaderProgress {
///   bool progress(const std::string& what, int done, int all) override {
///     std::cout << what << ' ' << done << '/' << all << '\n';
///     return !cancelled;
///   }
///   bool cancelled = false;
/// };
/// parameters->addInterface(new Bar);
/// @endcode

namespace Tolvane {

/// Receives the progress of a load. Every operation does nothing and answers true by default; false
/// asks the loader to give up, or the registry, in tryLoader(), to leave a loader out.
///
/// Thread safety: loaders may report from several threads at a time; an implementation that keeps
/// anything guards it with mutex().
class TOLVANE_API LoaderProgress : public Interface<LoaderProgress> {
public:
  LoaderProgress();
  ~LoaderProgress() override;

  /// A file or URL is being opened.
  virtual bool OpenFile(const std::string& name);

  /// The registry is about to ask a loader for data of type `domain`: the one with that index of
  /// `count` that are registered. False leaves this loader out.
  virtual bool tryLoader(const WeakPtr<LoaderBase>& loader, const std::type_info& domain, int index,
                         int count);

  /// So much of a step is done.
  virtual bool progress(const std::string& what, int done, int all);

  /// Something takes its time, and it is not known how long.
  virtual bool busy(const std::string& what);

  /// Something to tell.
  virtual bool message(const std::string& text);

protected:
  /// For implementations, as in `const std::lock_guard lock(mutex());`. The library never locks it.
  /// A second lock by the thread that holds it throws std::system_error.
  detail::PosixMutex& mutex() noexcept { return mutex_; }

private:
  detail::PosixMutex mutex_;
};

} // namespace Tolvane
