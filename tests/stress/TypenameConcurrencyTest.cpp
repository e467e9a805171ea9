#include <tolvane/Typename.hpp>

#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <utility>
#include <vector>

using namespace Tolvane;

namespace {

template <int N>
struct Numbered {};

template <int... N>
std::vector<const std::type_info*> numberedTypes(std::integer_sequence<int, N...>) {
  return {&typeid(Numbered<N>)...};
}

} // namespace

TEST(TypenameConcurrency, ThreadsAgreeOnNamesAndIds) {
  const auto types = numberedTypes(std::make_integer_sequence<int, 100>());
  constexpr std::size_t threadCount = 4;
  std::vector<std::vector<std::int64_t>> ids(threadCount);
  std::vector<std::vector<std::string>> names(threadCount);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < threadCount; ++t)
    threads.emplace_back([&, t] {
      for (std::size_t i = 0; i < types.size(); ++i) {
        // A name of its own comes and goes meanwhile, for the types that nobody else looks at.
        if (i % threadCount == t) {
          DefineTypenameBase::setTypename(*types[i], "own");
          names[t].push_back(Typename(*types[i]));
          DefineTypenameBase::removeTypename(*types[i]);
        }
        ids[t].push_back(getTypeID(*types[i]));
        names[t].push_back(Typename(typeid(std::vector<int>)));
        detail::typeByName("own");
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(std::set<std::int64_t>(ids[0].begin(), ids[0].end()).size(), types.size());
  for (std::size_t t = 0; t < threadCount; ++t) {
    EXPECT_EQ(ids[t], ids[0]);
    EXPECT_EQ(std::count(names[t].begin(), names[t].end(), "own"), 25);
    EXPECT_EQ(std::set<std::string>(names[t].begin(), names[t].end()),
              (std::set<std::string>{"own", "std::vector<int, std::allocator<int> >"}));
  }
}
