// Every allocation of every public operation fails once, and once more with all that follow it.
// What the operation worked on is then as it was, or at least whole; nothing is lost; and the
// operation goes through when it is repeated.

#include "../support/CacheFixtures.hpp"

#include <tolvane/Tolvane.hpp>

#include <exception>
#include <filesystem>
#include <new>

#ifdef _WIN32
#include <malloc.h>
#include <winsock2.h>
#else
#include <unistd.h>
#endif

namespace {

/// The allocations of a thread: how many blocks it holds, and while they are counted, which fail.
struct Allocations {
  bool counted = false, onwards = false;
  unsigned long calls = 0, failing = 0;
  long blocks = 0;
};
constinit thread_local Allocations mine;

void* allocate(std::size_t size, std::size_t alignment) noexcept {
  if (mine.counted) {
    ++mine.calls;
    if (mine.calls == mine.failing || (mine.onwards && mine.calls > mine.failing))
      return nullptr;
  }
  void* block = nullptr;
#ifdef _WIN32
  block = _aligned_malloc(size, alignment);
#else
  if (posix_memalign(&block, alignment, size) != 0)
    return nullptr;
#endif
  ++mine.blocks;
  return block;
}

void* allocateOrThrow(std::size_t size, std::size_t alignment) {
  if (void* block = allocate(size, alignment))
    return block;
  throw std::bad_alloc();
}

void release(void* block) noexcept {
  mine.blocks -= block != nullptr ? 1 : 0;
#ifdef _WIN32
  _aligned_free(block);
#else
  std::free(block);
#endif
}

constexpr std::size_t usual = __STDCPP_DEFAULT_NEW_ALIGNMENT__;

} // namespace

using std::align_val_t;
using std::nothrow_t;
using std::size_t;
// clang-format off
#define REPLACE_OPERATORS(array)                                                                   \
  void* operator new array(size_t n) { return allocateOrThrow(n, usual); }                         \
  void* operator new array(size_t n, align_val_t a) { return allocateOrThrow(n, size_t(a)); }      \
  void* operator new array(size_t n, const nothrow_t&) noexcept { return allocate(n, usual); }     \
  void* operator new array(size_t n, align_val_t a, const nothrow_t&) noexcept {                   \
    return allocate(n, size_t(a));                                                                 \
  }                                                                                                \
  void operator delete array(void* p) noexcept { release(p); }                                     \
  void operator delete array(void* p, size_t) noexcept { release(p); }                             \
  void operator delete array(void* p, const nothrow_t&) noexcept { release(p); }                   \
  void operator delete array(void* p, align_val_t) noexcept { release(p); }                        \
  void operator delete array(void* p, size_t, align_val_t) noexcept { release(p); }                \
  void operator delete array(void* p, align_val_t, const nothrow_t&) noexcept { release(p); }
REPLACE_OPERATORS()
REPLACE_OPERATORS([])
// clang-format on

namespace faulttest {

using namespace cachetest;
using Pelko::StreamString;

/// Does something while the @p failing -th allocation fails, and with @p onwards all after it.
/// Tells whether that threw; whether an allocation failed stands in `mine`.
template <class Act>
bool throwsWhileFailing(unsigned long failing, bool onwards, const Act& act) {
  const std::shared_ptr<void> end(nullptr, [](void*) { mine.counted = false; });
  mine = {true, onwards, 0, failing, mine.blocks};
  try {
    act();
    return false;
  } catch (const std::bad_alloc&) {
    return true;
  }
}

struct Node : ReferenceBase<Node> {};
struct Leaf : Node {};

/// The blocks that this thread holds. The library keeps a reference record back for the next
/// object, so one is made and dropped first: then it has one in any case.
long blocksHeld() {
  StrongPtr<Node>(new Node).reset();
  return mine.blocks;
}

enum class Promise {
  AllOrNothing, ///< A failure leaves things as they were.
  Whole,        ///< A failure may come half-way; the repetition does the rest.
  NoThrow,      ///< The failure stays inside; things are as they were or as they should be.
};

/// What is done with a world. That says with state() how things are, in a word that is the same in
/// every run.
template <class World>
struct Deed {
  const char* name;
  void (*act)(World&);
  Promise promise;
};

/// In the first pass an operation finds what the library makes once and keeps still unmade.
enum class Pass { First, Once, Onwards };

int operations = 0;
unsigned long failures = 0;

/// Does the deed in a new world. Returns whether an allocation failed.
template <class World>
bool round(const Deed<World>& deed, unsigned long n, Pass pass, std::string& expected) {
  World world;
  const StrongPtr<Node> holding = new Node; // the record that was kept back
  const std::string before = world.state();
  const bool threw = throwsWhileFailing(n, pass == Pass::Onwards, [&] { deed.act(world); });
  const bool failed = mine.calls >= n;
  std::string after = world.state();
  if (pass == Pass::First && !failed)
    expected = after;
  if (deed.promise == Promise::NoThrow) {
    EXPECT_FALSE(threw);
    EXPECT_TRUE(pass == Pass::First || after == expected || (failed && after == before))
        << after << " from " << before;
    return failed;
  }
  EXPECT_TRUE(!threw || deed.promise == Promise::Whole || after == before)
      << after << " from " << before;
  if (pass == Pass::First)
    return failed;
  if (threw) {
    deed.act(world);
    after = world.state();
  }
  EXPECT_EQ(after, expected);
  return failed;
}

template <class World>
void inject(std::initializer_list<Deed<World>> deeds) {
  const auto& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
  for (const Deed<World>& deed : deeds) {
    SCOPED_TRACE(deed.name);
    ++operations;
    const int failuresBefore = result.total_part_count();
    std::string expected;
    for (const Pass pass : {Pass::First, Pass::Once, Pass::Onwards}) {
      bool failed = true;
      for (unsigned long n = 1; failed && result.total_part_count() == failuresBefore; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n) + (pass == Pass::Onwards ? " onwards" : ""));
        long more = 0;
        // A record may be kept back a little way off as well; what is lost is lost every time.
        for (int rounds = 0; rounds == 0 || (rounds < 4 && more != 0); ++rounds) {
          const long before = blocksHeld();
          failed = round(deed, n, pass, expected);
          more = pass == Pass::First ? 0 : blocksHeld() - before;
        }
        EXPECT_TRUE(more == 0 || result.total_part_count() > failuresBefore) << "blocks are lost";
        failures += failed ? 1 : 0;
      }
    }
  }
}

/// Longer than what a string holds without an allocation.
const std::string longText = "a text that is far too long to be held inside of a string";

/// For operations that give a text, and before anything was asked for the name of a type.
struct Texts {
  std::string state() const { return text; }
  std::string text;
};

struct Plain : Texts {
  ~Plain() { DefineTypenameBase::removeTypename(typeid(Plain)); }
  std::string state() const {
    std::string all = text + Typename(typeid(Plain)) + std::to_string(kept.weakCount());
#ifndef _WIN32
    const int next = dup(STDIN_FILENO); // tells whether a socket is left open
    close(next);
    all += std::to_string(next);
#endif
    return all + (made ? " made" : "");
  }
  void connectTo(const std::string& host) {
    try {
      const int handle = ConnectTo(host, "9");
      text = handle != 0 ? "a handle" : "nobody";
#ifdef _WIN32
      closesocket(static_cast<SOCKET>(handle));
#else
      close(handle != 0 ? handle : -1);
#endif
    } catch (const SocketError&) {
      text = "not known";
    }
  }
  StrongPtr<Node> kept = new Leaf, made;
};

/// The entries of a domain; one without any is as good as none.
std::string entriesOf(const CacheMultiQueue* queues) {
  std::string text = order(queues);
  std::erase(text, '-');
  return text.size() == 2 || !queues ? "" : text + ' ';
}

struct Caches {
  Caches() {
    for (const char name : {'a', 'b', 'k', 'x', 'y', 'z'})
      people.add(name, name == 'a' || name == 'b' ? 30 : 10);
    people.add<1, 1>('n', 10);
    people.add('e', 60);
    for (const char name : {'a', 'b'})
      cache->insert(people[name], false);
    for (const char name : {'x', 'y'})
      queue->push_front(people[name]);
  }
  std::string state() const {
    std::string text = result ? "yes " : "no ";
    if (!cache)
      return text + std::to_string(people['a'] ? people['a']->NumberOfListEntries() : 0);
    memsize_t total = 0;
    const CacheStatistics now = cache->statistics();
    for (const CacheDomainStatistics& one : now.domains) {
      const auto* queues =
          cache->objects().creatorDomain(one.creator.get())->domain(one.data.get());
      text += entriesOf(queues);
      for (const CacheQueue* each : {queues->primary(), queues->temporaries(), queues->keepers()})
        total += each ? each->compute_memsize() : 0;
    }
    EXPECT_EQ(cache->totalCost(true), total);
    EXPECT_EQ(queue->memsize(), queue->compute_memsize());
    return text + std::to_string(cache->nEntries()) + ' ' + people.alive() + order(queue.get()) +
           ' ' + entriesOf(&domain) + entriesOf(map->domain(typeid(DataOf<0>))) +
           std::to_string(growing->NumberOfListEntries()) + named;
  }
  CachePtr cache = new Cache(100, "a cache");
  Cache small{20, "a small cache"};
  StrongPtr<CacheQueue, Cacheable> queue = new CacheQueue;
  CacheQueue temporaries, keepers;
  CacheMultiQueue domain;
  StrongPtr<CacheMap> map = new CacheMap;
  Population people{cache};
  StrongPtr<Growing, Cacheable> growing = new Growing(7);
  bool result = false;
  std::string named;
};

/// Without a look at what lives: what could not be asked in time lives on, outside of the cache.
struct Forgetting : Caches {
  std::string state() const {
    return Caches::state().substr(0, 0) + std::to_string(cache->nEntries()) + order(queue.get());
  }
};

struct Quarry : DataCreature<Data> {
  using DataCreature::DataCreature;
  Pointer create() override { return new Data(10, longText); }
};

struct Creatures {
  Creatures() {
    maker->appendProvenance("root");
    for (int i = 0; i < 20; ++i)
      leaf = new Provenance("step", leaf);
    for (const auto& result : {kept, other})
      cluster->insert(result);
    next->insert(third);
  }
  std::string state() const {
    const auto where = [&](const StrongPtr<Result>& result) {
      return !result->cluster() ? '-' : result->cluster() == cluster ? 'c' : 'n';
    };
    return std::to_string(cache->nEntries()) + maker->provenancePath() +
           std::to_string(maker->provenance().size()) + quarry->provenancePath() +
           (quarry->hasData() ? "data" : "") + text + (leaf ? leaf->getPath('.') : "gone") +
           std::to_string(cluster ? cluster->size() : 0) + std::to_string(next->size()) +
           where(kept) + where(other) + where(third);
  }
  CachePtr cache = new Cache(100, "a cache");
  MakerPtr maker = made(new Maker(cache), new Data(10));
  StrongPtr<Quarry, Creature> quarry = new Quarry(cache);
  StrongPtr<Provenance> leaf;
  StrongPtr<Result> kept = new Result, other = new Result, third = new Result;
  StrongPtr<Result::Cluster> cluster = new Result::Cluster, next = new Result::Cluster;
  std::string text;
};

struct Colour : Interface<Colour> {};
struct Shape : Interface<Shape> {};
struct Cube : ReferenceBase<Cube>, Intercube {
  StrongPtr<InterfaceBase> createInterface(const std::type_info&) override { return new Shape; }
};
struct AnySlot : IntercubeIterator {
  bool visit(TypeInfo, StrongPtr<InterfaceBase>&) override { return true; }
};

struct Interfaces {
  Interfaces() {
    cube->addInterface(new Colour);
    cube->registerInterface(typeid(int));
    attributes.setAttribute("first", makeChunk(1));
    trie['a']['b'];
  }
  std::string state() const {
    struct : Lexicon::Iterator {
      bool visitWord(std::string& word, StrongPtr<Lexicon>& node) override {
        text += word + (node->hasInterface<Colour>() ? "! " : " ");
        return true;
      }
      std::string text;
    } all;
    trie.traverse(all);
    for (const std::type_info* type : {&typeid(Colour), &typeid(Shape), &typeid(int)})
      all.text += cube->hasInterface(*type) ? cube->findInterface(*type) ? 'x' : 'o' : '-';
    for (const char* name : {"first", longText.c_str()})
      all.text += chunkValue<std::string>(attributes.getAttribute(name)).value_or("none");
    return all.text + (colour && colour == cube->findInterface(typeid(Colour)) ? "new" : "") +
           attributes.toString() + std::to_string(copy.size()) + text->value() +
           std::to_string(ChunkBase::TotalMemsize - atFirst);
  }
  const memsize_t atFirst = ChunkBase::TotalMemsize;
  StrongPtr<Cube> cube = new Cube;
  StrongPtr<InterfaceBase> colour = new Colour;
  Attributes attributes, copy;
  StrongPtr<Chunk<std::string>, ChunkBase> text = makeChunk("short");
  Lexicon trie;
};

struct Volume {};
struct Surface {};
struct Loader : LoaderBase {
  explicit Loader(char letter) : LoaderBase({longText, {letter}}), name(letter) {}
  bool isloadable(const StrongPtr<LoaderParameters>&) override { return false; }
  bool load(const StrongPtr<LoaderParameters>& parameters, ldrpar*) override {
    parameters->setStatusText(longText);
    return name == 'b';
  }
  StrongPtr<LoaderRequest> loadrequest(const StrongPtr<LoaderParameters>&, ldrpar*) override {
    return name == 'b' ? new LoaderRequest(longText) : nullptr;
  }
  const char name;
};
struct Follower : Loader {
  using Loader::Loader;
};
struct SaveCreator : SaveInterfaceCreatorBase {
  SaveCreator() : SaveInterfaceCreatorBase(longText, longText) {}
};
struct Traversing : SaveRegistry<Volume>, SaveRegistryBase::Iterator {
  bool visitCreator(TypeInfo, StrongPtr<SaveInterfaceCreatorBase>&) override { return true; }
};

using Loaders = LoaderRegistry<Volume>;
using Savers = SaveRegistry<Volume>;

struct Registries {
  Registries() {
    Loaders::append(new Loader('a'));
    Loaders::load(parameters);
    Savers::getInterfaceCreator<Colour>() = new SaveCreator;
  }
  ~Registries() {
    for (const std::type_info* type : {&typeid(Volume), &typeid(Surface)}) {
      LoaderRegistryBase::forget(*type);
      SaveRegistryBase::forget(*type);
    }
  }
  std::string state() const {
    std::string all;
    for (const TypeInfo domain : LoaderRegistryBase::domains()) {
      all += domain == typeid(Volume) ? "Volume" : "Surface";
      for (const auto& loader : LoaderRegistryBase::loaders(domain.get()))
        all += dynamic_cast<Loader&>(*loader).name;
    }
    for (const auto& [type, savers] : SaveRegistryBase::BaseSaveList())
      all += (type == typeid(Volume) ? " Volume" : " Surface") + std::to_string(savers.size());
    return all + ' ' + std::to_string(extensions.size()) + text;
  }
  std::list<std::string> extensions;
  StrongPtr<LoaderParameters> parameters = new LoaderParameters({longText});
  std::string text;
};

struct Collector : VerboseCatcher {
  void catchMessage(int, const std::string&, const std::string& text, const std::string&, int,
                    char) override {
    last = text.substr(0, 20); // which is as far as the report of a section is the same
  }
  std::string last;
};
struct Asked : AssertionCallback {
  bool assertion(const std::string&, const StackFrames&) override { return false; }
};

struct Reports {
  Reports() { Profiler::enable(); }
  ~Reports() {
    Profiler::disable();
    Profiler::reset();
    VerboseCatcher::theCatcher = nullptr;
  }
  std::string state() const {
    std::string all = catcher->last + result + (logSize() > before ? " reported" : "");
    for (const Profiler::Statistic& one : Profiler::statistics())
      all += one.name;
    return all + (VerboseCatcher::theCatcher.get() == catcher.get() ? " installed" : "");
  }
  std::uintmax_t logSize() const {
    std::error_code none;
    const std::uintmax_t size = std::filesystem::file_size("Irregularities.log", none);
    return none ? 0 : size;
  }
  const std::uintmax_t before = logSize();
  StrongPtr<Collector, VerboseCatcher> catcher = new Collector;
  CachePtr cache = new Cache(100, "a cache");
  StackFrames frames{StackFrame{reinterpret_cast<std::uintptr_t>(&blocksHeld) + 1}};
  std::string result;
};
struct Catching : Reports {
  Catching() { VerboseCatcher::theCatcher = catcher; }
};

#define DEED(promise, ...)                                                                         \
  {                                                                                                \
#__VA_ARGS__, []([[maybe_unused]] auto& f) { __VA_ARGS__; }, Promise::promise                  \
  }
#define DO(...) DEED(AllOrNothing, __VA_ARGS__)
#define HALVES(...) DEED(Whole, __VA_ARGS__)
#define QUIET(...) DEED(NoThrow, __VA_ARGS__)

void texts() {
  inject<Texts>({DO(f.text = demangleSymbol(longText.c_str()))}); // the first of the process
  inject<Plain>({
    DO(f.made = new Leaf), DO(f.text = Typename(typeid(Plain))),
        DO(DefineTypenameBase::setTypename(typeid(Plain), longText)),
        DO(const DefineTypename<Volume> name(longText)),
        DO(f.text = std::to_string(getTypeID(typeid(Plain)) > 1)),
        DO(simplestring first(longText), second; second = first;
           f.text = simplestring(second).str()),
        DO(const Exception first(longText, longText.c_str(), 7), second(first);
           f.text = Exception(second.description().c_str(), nullptr, 0).description().str()),
        DO(const Creature::Exception first(longText, longText.c_str(), 7), second(first);
           f.text = second.sourceFile().str()),
        DO(f.text = Ageable(Ageable::InfinitelyNew() - 1).str()), DO(f.text = CacheCounts{}.str()),
        DO(f.text = Cache::MemCache() ? "made" : ""),
        DO(setEnv("FAULT_TEST_VARIABLE", longText, true);
           f.text = getEnvString("FAULT_TEST_VARIABLE", "what it is for")),
        DO(f.text = getExecutableDir().substr(0, 0) + getCurrentDir()),
        HALVES(const std::string specials = StreamString::non_identifier_characters;
               f.text = StreamString::encodeLength(longText) +
                        StreamString::encodeCtrlChar(longText) +
                        StreamString::encodeIdentifier(longText, specials);
               f.text = StreamString::decodeEscaped(StreamString::encodeEscaped(longText))),
        DO(const std::string specials = StreamString::non_identifier_characters;
           Pelko::input_string in(StreamString::encodeLength(longText) + '"' + longText + "\"[" +
                                  longText + "](" + longText + ")a_bare_token_of_some_length ");
           std::string read;
           for (int i = 0; i < 6; ++i) read +=
           StreamString::decodeIdentifier(in, StreamString::ENQ, 0, specials, true).second;
           f.text.swap(read)),
        DO(Pelko::input_string in(longText + '\n' + longText + '\n' + longText); in.getline();
           in.get(); f.text = in.getline() + in.peekline() + in.previousline() + in.currentline()),
        DO(f.connectTo(std::string(40, '\0'))), DO(f.connectTo("255.255.255.255")),
  });
}

void caches() {
  inject<Caches>({
    DO(CachePtr(new Cache(1, longText))), QUIET(f.cache = nullptr),
        DO(f.result = f.cache->insert(f.people['k'], false)),
        DO(f.result = f.cache->insert(f.people['k'], true)),
        DO(f.result = f.cache->insert(f.people['a'], false)),
        DO(f.result = f.cache->insert(f.people['n'], false)),
        HALVES(f.result = f.cache->insert(f.people['e'], false)),
        HALVES(f.people.maker('a').answer = 0; f.people.maker('b').answer = 1;
               f.result = f.cache->insert(f.people['e'], false)),
        HALVES(f.cache->insert_zombie(f.people['b']); f.people.drop('b');
               f.result = f.cache->insert(f.people['k'], false)),
        DO(f.cache->insert_zombie(f.people['a']); f.cache->insert_zombie(f.people['n']);
           f.cache->purge_Hades()),
        DO(f.result = f.cache->touch(f.people['a'])), DO(f.result = f.cache->touch(f.people['n'])),
        HALVES(f.result = f.cache->purge() != 0),
        HALVES(f.result = f.cache->adjust(typeid(MakerOf<0>), typeid(DataOf<0>), 50)),
        DO(f.cache->list_info(); f.cache->list_info(typeid(MakerOf<0>));
           f.cache->list_info(typeid(MakerOf<0>), typeid(DataOf<0>));
           f.cache->list_info(typeid(Volume), typeid(Volume));
           f.people.maker('a').Creature::list_info()),
        DO(
            try {
              f.cache->handleOutOfMemory(f.people['a'], nullptr);
            } catch (const Cache::OutOfMemory& error) {
              f.result = Cache::OutOfMemory(error).object() != nullptr;
            }),
        HALVES(f.queue->push_front(f.people['z']); f.queue->put_in_front(f.people['x']);
               f.queue->put_in_back(f.people['z'])),
        HALVES(f.growing->push_front(*f.queue); f.growing->resize(9); f.growing->markAsUsed();
               f.growing->leaveQueue(); f.growing->push_back(f.keepers)),
        HALVES(f.queue->purge()), HALVES(f.queue->adjust(f.small, 30, f.temporaries, f.keepers)),
        DO(f.queue->list_info(50)), DO(EXPECT_TRUE(f.domain.push_front(f.people['z']))),
        HALVES(f.domain.push_back(f.people['x']); f.domain.touch(f.people['x']);
               f.domain.insert_zombie(f.people['y']); f.domain.adjust(f.small, 30);
               f.domain.list_info(); f.domain.purge(); f.domain.close()),
        DO(EXPECT_TRUE(f.map->insert(f.people['z'], false))), DO(f.map->touch(f.people['z'])),
        HALVES(f.map->insert(f.people['x'], true); f.map->insert_zombie(f.people['y']);
               f.map->adjust(typeid(DataOf<0>), f.small, 30); f.map->list_info(); f.map->purge();
               f.map->close()),
        HALVES(f.growing->setName(longText); f.named = f.growing->name()),
  });
  inject<Forgetting>({
    HALVES(f.cache->forget(typeid(DataOf<0>))), HALVES(f.cache->forget(typeid(MakerOf<0>))),
        HALVES(f.queue = new CacheQueue),
        HALVES(CreatorCacheMap all; all.insert(f.people['z'], false);
               all.insert_zombie(f.people['z']); all.touch(f.people['z']); all.list_info();
               all.list_info(typeid(Volume)); all.purge_Hades()),
  });
}

void creatures() {
  inject<Creatures>({
    HALVES(f.text = f.quarry->data()->name()),
        HALVES(f.quarry->data(); f.quarry->release(); f.quarry->data()),
        HALVES(f.quarry->setCacheManager(WeakPtr<Cache, CacheBase>());
               f.text = f.quarry->data() ? "data" : ""),
        DO(f.maker->enableCaching(false)), DO(f.maker->data->CacheableDeferredConstructor()),
        DO(f.text = f.quarry->hasProducer()), DO(f.maker->appendProvenance(longText)),
        DO(f.maker->appendProvenance(StrongPtr<Provenance>(new Provenance("p")))),
        DO(f.maker->setProvenance(longText)), DO(f.quarry->setProvenance(longText)),
        HALVES(Provenance* const record = f.maker->provenance().back().get(); delete record;
               f.maker->setProvenance(longText)),
        DO(f.maker->setProvenance(StrongPtr<Provenance>(new Provenance(longText)))),
        DO(f.text = std::to_string(f.maker->provenance().size()) + f.maker->provenancePath()),
        DO(f.leaf = new Provenance(longText, f.leaf)), DO(f.leaf->setName(longText)),
        DO(f.leaf->setName(f.leaf->getPathWithoutRoot('.') + f.leaf->getRoot())),
        QUIET(f.leaf = nullptr),
        DO(const StrongPtr<Result> added = new Result; f.cluster->insert(added)),
        DO(f.cluster->insert(f.third)), DO(f.cluster->remove(f.kept)),
        DO(EXPECT_EQ(f.cluster->results().size(), f.cluster->size())), DO(f.cluster->clear()),
        QUIET(f.cluster = nullptr),
  });
}

void interfaces() {
  inject<Interfaces>({
    DO(f.cube->addInterface(new Shape)), DO(f.cube->addInterface(f.colour)),
        DO(f.cube->registerInterface(typeid(Shape))), DO(f.cube->getInterface(typeid(int))),
        DO(f.cube->removeInterfaceBase(typeid(Colour))), DO(f.cube->clearInterfaces()),
        DO(AnySlot all; f.cube->iterateInterfaces(all);
           f.cube->iterateInterfaces(StrongPtr<InterfaceIterationParameter>());
           f.cube->const_iterateInterfaces(
               StrongPtr<InterfaceIterationParameter>(new InterfaceIterationParameter));
           f.cube->getInterfaceNames('\n'); f.cube->printInterfaces()),
        DO(const StrongPtr<SaveParameters> first = new SaveParameters(longText);
           first->setUserText(longText); first->addInterface(f.colour);
           const StrongPtr<SaveParameters> copy = new SaveParameters(*first)),
        DO(f.attributes.setAttribute(longText, makeChunk(longText))),
        DO(f.attributes.setAttribute("first", makeChunk(longText.c_str()))),
        DO(f.copy = f.attributes), DO(std::to_string(Attributes(f.attributes))),
        DO(f.text->setValue(longText)), DO(makeChunk(std::string_view(longText))), DO(f.trie['c']),
        HALVES(f.trie['a']['b']['c'].addInterface(new Colour)), DO(static_cast<void>(f.state())),
        QUIET(f.trie('a') = nullptr),
  });
}

void registries() {
  inject<Registries>({
    DO(Loaders::append(new Follower('b'))), DO(Loaders::append(new Loader('b'))),
        DO(LoaderRegistry<Surface>::append(new Loader('b'))),
        DO(const Loaders::Registration<Follower> mine('b')),
        DO(LoaderRegistryBase::domain_remove(typeid(Loader), typeid(Volume))),
        DO(LoaderRegistryBase::forget(typeid(Volume))),
        DO(LoaderRegistryBase::forget(typeid(Loader))), DO(Loaders::isloadable(f.parameters)),
        DO(LoaderRegistry<Surface>::isloadable(f.parameters)),
        DO(f.text = Loaders::load(f.parameters) ? "loaded" : "refused"),
        HALVES(Loaders::append(new Loader('b')); f.parameters->addInterface(new LoaderProgress);
               f.text = Loaders::load(f.parameters) ? "loaded" : "refused"),
        DO(f.text = f.parameters->describeAttempts()),
        DO(f.text = Loaders::loadrequest(f.parameters) ? "" : "none"),
        DO(LoaderRegistryBase::getSupportedDomainExtensions(f.extensions, typeid(Volume))),
        DO(f.extensions = Loaders::getSupportedExtensions()),
        DO(const StrongPtr<LoaderParameters> made = new LoaderParameters({longText, longText});
           made->setStatusText(longText); made->attributes().setAttribute(longText, makeChunk(1));
           f.text = made->statusText()),
        DO(SaveRegistry<Surface>::SaveMethods()),
        DO(Savers::getInterfaceCreator<Shape>() = new SaveCreator),
        DO(SaveRegistry<Surface>::getInterfaceCreator<Shape>()),
        DO(const Savers::Registration<Shape, SaveCreator> mine),
        DO(Savers::findInterfaceCreator<Colour>()), DO(Savers::removeCreator<Colour>()),
        DO(Traversing all; Savers::iterate(all)), DO(Traversing own; own.traverseCreators()),
        DO(SaveRegistryBase::forget(typeid(Volume))), DO(SaveRegistryBase::forget(typeid(Colour))),
  });
}

void reports() {
  inject<Reports>({
    DO(TOLVANE_VERBOSE(0) << longText << typeid(Volume) << 7),
        DO(TOLVANE_VERBOSE_DOMAIN(0, "Mem") << *f.cache << WeakCachePtr(f.cache)),
        DO(Console() << longText << typeid(Volume)),
        DO(TOLVANE_SECTION(0, '.', 3, longText); const VerboseRecursion recursion('>');
           TOLVANE_VERBOSE(0) << longText),
        DO(VerboseStream::writeUsedFiles()), DO(VerboseCatcher::theCatcher = f.catcher),
        QUIET(TOLVANE_PROFILE("some scope of this test", 0)),
        DO(Profiler::print(); f.result = Profiler::table().substr(0, 40)),
        QUIET(Irregularity(longText.c_str(), 1, longText.c_str(), f.result.c_str())
              << typeid(Volume)),
        QUIET(f.result = AssertionCallback::generate(f.frames) ? "frames" : ""),
        DO(f.result = AssertionCallback::to_string(f.frames).substr(0, 2)),
        DO(AssertionCallback::registerCallback(std::make_shared<Asked>());
           f.result = AssertionCallback::registeredCallback() ? "registered" : "";
           breakpoint(longText); AssertionCallback::registerCallback(nullptr)),
  });
  inject<Catching>({
      HALVES(TOLVANE_VERBOSE_DOMAIN(9, longText) << longText),
      HALVES(TOLVANE_SECTION(0)),
      DO(VerboseStream(true, true, 0, "file.cpp", 1, "f", longText, longText)), // not even in parts
      DO(VerboseCatcher::theCatcher = nullptr),
  });
}

} // namespace faulttest

using namespace faulttest;

TEST(AllocationFaults, EveryAllocationFailsOnce) {
  const Watchdog watchdog(std::chrono::seconds(600));
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (const auto family : {texts, caches, creatures, interfaces, registries, reports})
    family();
  const std::string out = testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
  if (HasFailure())
    std::puts(out.c_str());
  std::printf("FIGURES AllocationFaults: %d operations, %lu failures injected\n", operations,
              failures);
}

// The same with everything that can be said, said: what is told on the way allocates as well.
TEST(AllocationFaults, EveryAllocationOfTheTracesFailsOnce) {
  const std::string program = TOLVANE_TEST_HOST_DIR "/tolvane-faults" TOLVANE_TEST_PROGRAM_SUFFIX;
  const ProbeResult run = runProbe({"--gtest_filter=*.EveryAllocationFailsOnce"},
                                   {.environment = {{"TOLVANE_VERBOSITY", "-200"},
                                                    {"TOLVANE_ENABLE_VERBOSITY_SECTIONS", "-1"},
                                                    {"TOLVANE_VERBOSITY_DOMAINS", "-nothing"},
                                                    {"TOLVANE_VERBOSITY_FILE_WRITE", "used"},
                                                    {"TOLVANE_ENABLE_BREAKPOINTS", "1"},
                                                    {"MEMCACHE_VERBOSITY", "12"}},
                                    .program = program});
  EXPECT_EQ(run.exitCode, 0) << run.out.substr(run.out.size() -
                                               std::min<std::size_t>(4000, run.out.size()));
  const std::string label = "FIGURES AllocationFaults";
  const std::size_t figures = run.out.find(label + ": ");
  ASSERT_NE(figures, std::string::npos);
  const std::string rest = run.out.substr(figures + label.size());
  std::printf("%sTraced%s\n", label.c_str(), rest.substr(0, rest.find_first_of("\r\n")).c_str());
}

TEST(AllocationFaults, TheChoiceOfALoaderTakesNoMemory) {
  const Registries world;
  Loaders::isloadable(world.parameters); // whatever is made once is made
  throwsWhileFailing(1, true, [&] { Loaders::isloadable(world.parameters); });
  EXPECT_EQ(mine.calls, 0U);
}

// A report that must not throw cannot be dropped: there is nothing to go on with.
TEST(AllocationFaultsDeathTest, ReportsOfPointersEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto at = reinterpret_cast<const void*>(16);
  const std::type_info &type = typeid(MakerOf<1>), &base = typeid(Creature);
  auto& speaker = SpeakPtr::theSpeaker();
  const std::function<void()> reports[] = {
      [&] { speaker.printRS("", "", type, true); },
      [&] { speaker.printRS("", "", type, 1, 2, base, at, at); },
      [&] { speaker.DynPtrNoRefererRS("", "", type, base); },
      [&] { speaker.DynPtrInfoRS("", "", type, 1, 2, base, at, at, type, base, at, at); },
      [&] { speaker.CriticalWarning(type, base, at, at); },
      [&] { speaker.InconsistentDynPtr(type, base, type, at, at, at, at, 7); },
      [&] { speaker.WarningUnctionChange(1, 2, type); },
      [&] { const NullPtrException error(type, base); },
  };
  for (const auto& report : reports)
    EXPECT_EXIT(
        {
          std::set_terminate([] { std::_Exit(42); });
          throwsWhileFailing(1, false, report);
          std::_Exit(0);
        },
        testing::ExitedWithCode(42), "")
        << &report - reports;
  // An access has an exception to throw, and throws this one.
  EXPECT_TRUE(throwsWhileFailing(1, false, [] { StrongPtr<Node>()->unction(); }));
}
