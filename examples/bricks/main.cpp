// A small host: it computes figures and a picture of a volume that does not fit its memory budget.
//
//   TOLVANE_CACHESIZE=4M bricks VOLUME.nii.gz PICTURE.png [EDGE]
//
// The volume is cut into bricks of EDGE voxels in each direction. Each has a creator of its own,
// and the default cache decides which bricks stay in memory; the others are read again when a walk
// comes to them. Ends with 1 when the volume cannot be used, 2 when the call is wrong.

#include "BrickedVolume.hpp"
#include "Figures.hpp"
#include "Report.hpp"

#include <charconv>
#include <chrono>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>

using namespace bricks;

namespace {

constexpr std::size_t DefaultEdge = 32;

/// The edge that an argument asks for; 0 when it asks for none that makes sense.
std::size_t parseEdge(std::string_view text) {
  std::size_t edge = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), edge);
  const bool valid = error == std::errc() && end == text.data() + text.size();
  return valid && edge >= 4 && edge <= 1024 ? edge : 0;
}

void run(const std::string& volumePath, const std::string& picturePath, std::size_t edge) {
  std::error_code missing;
  if (std::filesystem::equivalent(volumePath, picturePath, missing)) {
    throw VolumeError(volumePath, "is the volume, the picture would take its place");
  }
  const Tolvane::StrongPtr<VolumeFile> file = new VolumeFile(volumePath);
  const BrickedVolume::CachePtr cache = Tolvane::Cache::MemCache().lock();

  const auto start = std::chrono::steady_clock::now();
  BrickedVolume volume(file, edge, cache);
  const Figures figures = computeFigures(volume);
  const Picture picture = projectMaximum(volume);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;

  picture.write(picturePath);
  std::cout << describe(volume, figures, picture) << "\n"
            << tabulate(volume, cache->limit(), time.count());
}

} // namespace

int main(int argc, char** argv) {
  const std::size_t edge = argc > 3 ? parseEdge(argv[3]) : DefaultEdge;
  if (argc < 3 || argc > 4 || edge == 0) {
    std::cerr << "usage: bricks VOLUME.nii.gz PICTURE.png [EDGE from 4 to 1024]\n";
    return 2;
  }
  try {
    run(argv[1], argv[2], edge);
    return 0;
  } catch (const Tolvane::Cache::OutOfMemory& error) {
    std::cerr << "bricks: the cache has no room for a brick of " << error.object()->memsize()
              << " bytes; TOLVANE_CACHESIZE sets its size\n";
  } catch (const std::exception& error) {
    std::cerr << "bricks: " << error.what() << "\n";
  }
  return 1;
}
