#include "Commands.hpp"
#include "DatasetFile.hpp"
#include "OutputFile.hpp"
#include "Player.hpp"
#include "Refusal.hpp"

#include <filesystem>
#include <iostream>

namespace fields {

void showCommand(const Options& options, const ProgressBarPtr& progress) {
  Selection selection = options.selection();
  const std::string out = options.text("--out", "fields" + pictureExtension());
  requireFormat(out);
  std::error_code missing;
  if (std::filesystem::equivalent(options.file(), out, missing)) {
    throw Refusal(out + ": is the file itself; choose another place with --out");
  }
  const DatasetFile file(options.file(), progress);
  const CachePtr cache = makeCache(options.bytes("--budget"), "show");
  Workshop workshop(cache);
  // The only frame of those that follow in time.
  selection.along.reset();
  Reel reel(file.dataset, selection, workshop, progress);
  requireRoom(reel.largest(), cache->limit());
  reel.useMap(reel.scanRange(selection.time, selection.time));
  Painter& painter = *reel.painter(selection.time);
  const Painter::Pointer picture = workshop.obtain(painter);
  savePicture(out, picture->pixels(), painter.provenancePath());

  const Maker<Plane>::Pointer values = workshop.obtain(*reel.values(selection.time));
  std::cout << values->attribute("title") << ", from " << numberText(values->range().low) << " to "
            << numberText(values->range().high) << " " << values->attribute("unit") << "\n";
  for (const auto& record : painter.sources().values->provenance()) {
    std::cout << "made from " << record->getPath('/') << "\n";
  }
  if (reel.region()) {
    std::cout << "region: " << workshop.obtain(*reel.region())->summary(*values) << "\n";
  }
  std::cout << "picture: " << out << ", " << picture->pixels().width << " x "
            << picture->pixels().height << " pixels\n";
}

} // namespace fields
