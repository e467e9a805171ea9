// The choice of one loader among a hundred by the ending of a file name.
#include "LoadersBench.hpp"

#include <tolvane/LoaderRegistry.hpp>

#include <unordered_map>

namespace {

using namespace Tolvane;

struct Domain {};

class Loader : public LoaderBase {
public:
  explicit Loader(const std::string& extension) : LoaderBase({extension}) {}
  using Parameters = StrongPtr<LoaderParameters>;
  bool isloadable(const Parameters& parameters) override {
    return checkIfAllExtensionsAreSupported(parameters->files(), extensions());
  }
  bool load(const Parameters& parameters, ldrpar*) override { return isloadable(parameters); }
  StrongPtr<LoaderRequest> loadrequest(const Parameters&, ldrpar*) override { return nullptr; }
};

template <int N>
struct Key {};

template <int... N>
void registerLoaders(std::integer_sequence<int, N...>) {
  (LoaderRegistryBase::domain_append(typeid(Key<N>), new Loader(bench::extension(N)),
                                     typeid(Domain)),
   ...);
}

struct Ours {
  std::vector<StrongPtr<LoaderParameters>> asked;
  explicit Ours(int extensions) {
    static const bool registered =
        (registerLoaders(std::make_integer_sequence<int, bench::Loaders>()), true);
    benchmark::DoNotOptimize(registered);
    for (int number = 0; number < extensions; ++number) {
      asked.emplace_back(new LoaderParameters({"scan" + bench::extension(number)}));
    }
  }
};

[[maybe_unused]] const bool added = [] {
  auto ask = [](auto choose) {
    return [choose](benchmark::State& state) {
      const Ours ours(bench::Loaders);
      bench::overExtensions(
          state, [&](int number) { return choose(ours.asked[static_cast<std::size_t>(number)]); });
    };
  };
  bench::add("loader among 100/tolvane",
             ask([](const auto& asked) { return LoaderRegistry<Domain>::isloadable(asked); }));
  bench::add("loader among 100/tolvane, load",
             ask([](const auto& asked) { return LoaderRegistry<Domain>::load(asked); }));
  bench::add("loader among 100/std::unordered_map", [](benchmark::State& state) {
    std::unordered_map<std::string, int> loaders;
    std::vector<std::string> asked;
    for (int number = 0; number < bench::Loaders; ++number) {
      loaders[bench::extension(number)] = number;
      asked.push_back(bench::extension(number));
    }
    bench::overExtensions(state, [&](int number) {
      return loaders.find(asked[static_cast<std::size_t>(number)])->second;
    });
  });
  return true;
}();

} // namespace
