#include "Report.hpp"

#include <iomanip>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

namespace bricks {

std::string describe(const BrickedVolume& volume, const Figures& figures, const Picture& picture) {
  const Extent& extent = volume.extent();
  std::ostringstream out;
  out << "volume       " << extent[0] << " x " << extent[1] << " x " << extent[2] << " voxels in "
      << volume.count() << " bricks\n"
      << "mean         " << std::fixed << std::setprecision(6) << figures.mean() << "\n"
      << "above mean   " << figures.aboveMean << " voxels\n"
      << "maximum      " << unsigned{figures.maximum} << "\n"
      << "projection   " << picture.width() << " x " << picture.height() << " pixels\n";
  return out.str();
}

std::string tabulate(const BrickedVolume& volume, Tolvane::memsize_t budget, double seconds) {
  const CacheFigures figures = volume.figures();
  std::ostringstream time;
  time << std::fixed << std::setprecision(2) << seconds;
  const std::vector<std::pair<std::string_view, std::string>> columns = {
      {"budget", std::to_string(budget)},
      {"insertions", std::to_string(figures.insertions)},
      {"releases", std::to_string(figures.releases)},
      {"made again", std::to_string(figures.madeAgain)},
      {"peak bytes", std::to_string(figures.peak)},
      {"seconds", time.str()},
  };
  std::ostringstream heads;
  std::ostringstream values;
  for (const auto& [head, value] : columns) {
    const int width = head == "budget" ? 14 : 12;
    heads << std::setw(width) << head;
    values << std::setw(width) << value;
  }
  return heads.str() + "\n" + values.str() + "\n";
}

} // namespace bricks
