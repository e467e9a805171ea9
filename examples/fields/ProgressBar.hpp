#pragma once

#include <tolvane/LoaderProgress.hpp>

#include <string>

/// @file
/// Shows on the standard error stream how far long work is.

namespace fields {

/// A bar that moves on a terminal; some plain lines elsewhere.
class ProgressBar : public Tolvane::LoaderProgress {
public:
  enum class Style { Bar, Lines, None };

  explicit ProgressBar(Style style) : style_(style) {}
  ~ProgressBar() override { clear(); }

  /// The style for a word: bar, lines, none, or auto, which looks whether there is a terminal.
  /// Throws Refusal.
  static Style styleOf(const std::string& word);

  /// The work whose parts are not told in plain lines; empty when it ends.
  void setWork(const std::string& work);

  bool tryLoader(const Tolvane::WeakPtr<Tolvane::LoaderBase>& loader, const std::type_info& domain,
                 int index, int count) override;
  bool progress(const std::string& what, int done, int all) override;

  /// Takes the bar away, for other output.
  void clear();

private:
  const Style style_;
  std::string work_;
  std::string shown_; // the text and the part of the last report
};

using ProgressBarPtr = Tolvane::StrongPtr<ProgressBar, Tolvane::InterfaceBase>;

} // namespace fields
