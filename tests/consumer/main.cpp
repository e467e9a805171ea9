#include <tolvane/Tolvane.hpp>

#include <iostream>
#include <string>
#include <vector>

// Uses the installed library across its boundary: values, an exception of a type that lives in the
// library, the name of a type that the library has never seen, and objects of the host's own types
// in the library's cache.

namespace Consumer {

class Volume : public Tolvane::Cacheable {
public:
  Tolvane::memsize_t memsize() const override { return 400; }
};

class Maker : public Tolvane::Creature {
public:
  using Creature::Creature;

  void make() {
    volume_ = new Volume;
    volume_->setCreator(self());
    enableCaching(false);
  }

  Tolvane::StrongPtr<Tolvane::Cacheable> getCacheable() const override { return volume_; }

  int release() override {
    volume_ = nullptr;
    return 2;
  }

private:
  Tolvane::StrongPtr<Tolvane::Cacheable> volume_;
};

} // namespace Consumer

namespace {

int failures = 0;

void check(bool holds, const char* what) {
  std::cout << (holds ? "ok      " : "FAILED  ") << what << '\n';
  if (!holds)
    ++failures;
}

bool exceptionKeepsItsType() {
  try {
    throw Tolvane::Exception("out of bricks", "main.cpp", 7);
  } catch (const std::exception& caught) {
    const auto* const exception = dynamic_cast<const Tolvane::Exception*>(&caught);
    return exception && exception->sourceLine() == 7;
  }
}

bool cacheKeepsItsBudget() {
  const Tolvane::StrongPtr<Tolvane::Cache, Tolvane::CacheBase> cache =
      new Tolvane::Cache(1000, "consumer");
  std::vector<Tolvane::StrongPtr<Consumer::Maker, Tolvane::Creature>> makers;
  for (int i = 0; i < 3; ++i) {
    makers.emplace_back(new Consumer::Maker(cache));
    makers.back()->make();
  }
  return cache->totalCost(true) == 800 && !makers[0]->hasData() && makers[1]->hasData() &&
         makers[2]->hasData();
}

} // namespace

int main() {
  check(Tolvane::Typename(typeid(Consumer::Volume)).find("Volume") != std::string::npos,
        "a type of the host has a readable name");
  check(Tolvane::setEnv("TOLVANE_CONSUMER", "17", true), "a variable is set");
  check(Tolvane::getEnvInteger("TOLVANE_CONSUMER", "a variable of the host", 0) == 17,
        "and read back");
  check(exceptionKeepsItsType(), "an exception keeps its type");
  check(cacheKeepsItsBudget(), "the cache releases the oldest object of the host");
  return failures == 0 ? 0 : 1;
}
