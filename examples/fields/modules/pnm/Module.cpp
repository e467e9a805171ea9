// The module that saves pictures as portable maps. It needs no library.
#include "../../data/PictureSaver.hpp"

#include <tolvane/SaveRegistry.hpp>

#include <ostream>

namespace fields {
namespace {

class PnmSaver : public PictureSaver {
public:
  explicit PnmSaver(bool grey) : grey_(grey) {}
  const std::type_info& interfaceType() const override { return typeid(PnmSaver); }

  void write(std::ostream& out, const Pixels& pixels, const std::string& text) override {
    out << (grey_ ? "P5\n# " : "P6\n# ");
    for (const char c : text) {
      out << (c == '\n' ? ' ' : c);
    }
    out << '\n' << pixels.width << ' ' << pixels.height << "\n255\n";
    for (const Colour& colour : pixels.colours) {
      if (grey_) { // as bright as the eye takes the colour for
        out.put(
            static_cast<char>((colour.red * 299 + colour.green * 587 + colour.blue * 114) / 1000));
      } else {
        out.put(static_cast<char>(colour.red));
        out.put(static_cast<char>(colour.green));
        out.put(static_cast<char>(colour.blue));
      }
    }
  }

private:
  const bool grey_;
};

class PnmFormat : public PictureFormat {
public:
  PnmFormat() : PictureFormat("PNM", "portable maps, colour or grey", {".ppm", ".pgm"}) {}
  Tolvane::StrongPtr<PictureSaver, Tolvane::InterfaceBase>
  saver(const std::string& extension) override {
    return new PnmSaver(extension == ".pgm");
  }
};

const Tolvane::SaveRegistry<Picture>::Registration<PnmSaver, PnmFormat> format;

} // namespace
} // namespace fields
