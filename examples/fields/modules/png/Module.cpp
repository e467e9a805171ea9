// The module that saves pictures as PNG.
#include "../../data/FileError.hpp"
#include "../../data/PictureSaver.hpp"

#include <tolvane/SaveRegistry.hpp>

#include <csetjmp>
#include <ostream>
#include <png.h>
#include <string>

namespace fields {
namespace {

/// What libpng needs while it writes.
struct Handle {
  Handle()
      : png(png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, ignore)),
        info(png_create_info_struct(png)) {}
  ~Handle() { png_destroy_write_struct(&png, &info); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  static void ignore(png_structp, png_const_charp) {}

  png_structp png;
  png_infop info;
};

void writeBytes(png_structp png, png_bytep bytes, std::size_t count) {
  static_cast<std::ostream*>(png_get_io_ptr(png))
      ->write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(count));
}

void flush(png_structp) {}

/// The part that libpng may leave by a jump, so it has no object that wants to be destroyed. The
/// time is left out: the same picture gives the same bytes. Returns whether it went well.
bool writePng(const Handle& handle, std::ostream& out, const Pixels& pixels, png_text* note) {
  if (setjmp(png_jmpbuf(handle.png)) != 0) {
    return false;
  }
  png_set_write_fn(handle.png, &out, writeBytes, flush);
  png_set_IHDR(handle.png, handle.info, static_cast<png_uint_32>(pixels.width),
               static_cast<png_uint_32>(pixels.height), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_text(handle.png, handle.info, note, 1);
  png_write_info(handle.png, handle.info);
  for (int y = 0; y < pixels.height; ++y) {
    png_write_row(handle.png,
                  reinterpret_cast<png_const_bytep>(&pixels.colours[pixels.index(0, y)]));
  }
  png_write_end(handle.png, handle.info);
  return true;
}

class PngSaver : public PictureSaver {
public:
  const std::type_info& interfaceType() const override { return typeid(PngSaver); }

  void write(std::ostream& out, const Pixels& pixels, const std::string& text) override {
    const Handle handle;
    std::string key = "Description", value = text;
    png_text note{};
    note.compression = PNG_TEXT_COMPRESSION_NONE;
    note.key = key.data();
    note.text = value.data();
    if (handle.png == nullptr || handle.info == nullptr || !writePng(handle, out, pixels, &note)) {
      throw FileError("cannot be written as PNG");
    }
  }
};

class PngFormat : public PictureFormat {
public:
  PngFormat() : PictureFormat("PNG", "colour pictures, compressed", {".png"}) {}
  Tolvane::StrongPtr<PictureSaver, Tolvane::InterfaceBase> saver(const std::string&) override {
    return new PngSaver;
  }
};

const Tolvane::SaveRegistry<Picture>::Registration<PngSaver, PngFormat> format;

} // namespace
} // namespace fields
