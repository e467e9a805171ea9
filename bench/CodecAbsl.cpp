// Text codecs of Abseil.
#include "CodecBench.hpp"

#include <absl/strings/escaping.h>
#include <absl/strings/str_cat.h>
#include <absl/strings/str_split.h>

namespace {

using Texts = std::vector<std::string>;

std::string unescape(const std::string& text) {
  std::string out;
  absl::CUnescape(text, &out);
  return out;
}

[[maybe_unused]] const bool added = [] {
  bench::addEscapes(
      "absl::CEscape", [](const std::string& text) { return absl::CEscape(text); }, &unescape);
  bench::addTokens(
      "absl::CEscape, StrSplit",
      [](const Texts& texts) {
        std::string out;
        for (const std::string& text : texts) {
          absl::StrAppend(&out, absl::CEscape(text), "\n");
        }
        return out;
      },
      [](const std::string& text) {
        Texts out;
        for (const absl::string_view piece : absl::StrSplit(text, '\n', absl::SkipEmpty())) {
          absl::CUnescape(piece, &out.emplace_back());
        }
        return out;
      });
  return true;
}();

} // namespace
