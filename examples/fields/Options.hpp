#pragma once

#include "Reel.hpp"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// @file
/// What was typed.

namespace fields {

/// The command, what stands behind it, and the options of the form `--name value`.
class Options {
public:
  /// Throws Refusal for an option that nobody knows or that lacks its value.
  Options(int count, const char* const* arguments);

  static const char* help();

  const std::string& command() const { return command_; }
  bool has(const std::string& name) const { return values_.contains(name); }
  std::string text(const std::string& name, const std::string& otherwise = {}) const;
  /// A whole number from `least` on. Throws Refusal.
  std::optional<std::size_t> number(const std::string& name, std::size_t least) const;
  /// A number of bytes, with K, M or G behind it. Throws Refusal.
  std::optional<Tolvane::memsize_t> bytes(const std::string& name) const;
  /// The parts of a value between commas.
  std::vector<std::string> list(const std::string& name) const;

  /// The file, the first word behind the command. Throws Refusal when there is none.
  std::string file() const;
  bool hasFile() const { return !words_.empty(); }
  /// What is to be seen of the file. Throws Refusal.
  Selection selection() const;
  /// Throws Refusal when there are more words than the command takes.
  void requireWords(std::size_t most) const;

private:
  std::string command_;
  std::vector<std::string> words_;
  std::map<std::string, std::string> values_;
};

/// The cache for that budget. Without one it is the default cache where TOLVANE_CACHESIZE says how
/// large that is, and else one for half of the memory that is free.
CachePtr makeCache(const std::optional<Tolvane::memsize_t>& budget, const std::string& name);

/// A number of bytes as a text says it: "4M". Throws Refusal.
Tolvane::memsize_t parseBytes(const std::string& text);
/// A number of bytes as people read it: "4.00 MB".
std::string bytesText(Tolvane::memsize_t bytes);

} // namespace fields
