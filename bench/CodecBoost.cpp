// The tokenizer of Boost.
#include "CodecBench.hpp"

#include <boost/tokenizer.hpp>

namespace {

using Texts = std::vector<std::string>;

[[maybe_unused]] const bool added = [] {
  bench::addTokens(
      "boost::tokenizer",
      [](const Texts& texts) {
        std::string out;
        for (const std::string& text : texts) {
          for (const char c : text) {
            if (c == '\\' || c == '"' || c == ',') {
              out += '\\';
            }
            out += c;
          }
          out += ',';
        }
        out.pop_back();
        return out;
      },
      [](const std::string& text) {
        const boost::tokenizer<boost::escaped_list_separator<char>> tokens(text);
        return Texts(tokens.begin(), tokens.end());
      });
  return true;
}();

} // namespace
