// JudySL.
#include "LexiconBench.hpp"

#include <Judy.h>

namespace {

class JudySl {
public:
  ~JudySl() { ::JudySLFreeArray(&array_, PJE0); }
  void insert(const std::string& word) {
    *reinterpret_cast<Word_t*>(::JudySLIns(&array_, bytes(word.data()), PJE0)) = 1;
  }
  bool has(const std::string& word) const {
    return ::JudySLGet(array_, bytes(word.data()), PJE0) != nullptr;
  }
  std::size_t walk() const {
    char word[1024] = "";
    auto* buffer = reinterpret_cast<std::uint8_t*>(word);
    std::size_t letters = 0;
    for (void** value = ::JudySLFirst(array_, buffer, PJE0); value != nullptr;
         value = ::JudySLNext(array_, buffer, PJE0)) {
      letters += std::char_traits<char>::length(word);
    }
    return letters;
  }

private:
  static const std::uint8_t* bytes(const char* text) {
    return reinterpret_cast<const std::uint8_t*>(text);
  }
  void* array_ = nullptr;
};

[[maybe_unused]] const bool added = (bench::addLexicon<JudySl>("JudySL"), true);

} // namespace
