// Drives the host `fields` as a process: on small files made here, and on real data where that is.
#include "../RunProbe.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iomanip>
#include <map>
#include <sstream>

#ifdef FIELDS_WITH_NIFTI
#include <zlib.h>
#endif
#ifdef FIELDS_WITH_NETCDF
#include <netcdf.h>
#endif

namespace fs = std::filesystem;

namespace {

/// A folder of its own for each test, in which the host runs by full paths.
class FieldsHost : public testing::Test {
protected:
  void SetUp() override {
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }

  std::string path(const std::string& name) const { return (folder_ / name).generic_string(); }

  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
  }

  std::string read(const std::string& name) const { return contentOf(path(name)); }

  /// Words that begin with "@" are files of the folder.
  ProbeResult run(const std::string& typed, ProbeOptions options = {}) const {
    std::istringstream in(typed);
    std::string line;
    for (std::string word; in >> std::quoted(word, '\'');)
      line += '\'' + (word.starts_with('@') ? path(word.substr(1)) : word) + "' ";
    options.program = TOLVANE_FIELDS;
    return probe(line, options);
  }

  /// The files of the folder with their content.
  std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(folder_))
      all[entry.path().string()] =
          entry.is_regular_file() ? read(fs::relative(entry.path(), folder_).string()) : "folder";
    return all;
  }

private:
  const fs::path folder_ =
      fs::path(TOLVANE_TEST_FOLDER) /
      (std::string("fields-") + testing::UnitTest::GetInstance()->current_test_info()->name());
};

/// A colour picture, read from a portable map.
struct Image {
  explicit Image(const std::string& bytes) {
    std::istringstream in(bytes);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "P6");
    std::getline(in, line); // the origin
    in >> width >> height >> line;
    in.get();
    pixels.assign(std::istreambuf_iterator<char>(in), {});
    EXPECT_EQ(pixels.size(), static_cast<std::size_t>(3 * width * height));
  }
  /// The colour at a place of the plot, whose longer side is `size`: from the left and the top.
  std::array<int, 3> at(double x, double y) const {
    const int column = 66 + static_cast<int>(x * (width - 170 - 1));
    const int row = 46 + static_cast<int>(y * (height - 104 - 1));
    std::array<int, 3> colour{};
    for (std::size_t i = 0; i < 3; ++i)
      colour[i] = static_cast<unsigned char>(
          pixels.at(static_cast<std::size_t>(3 * (row * width + column)) + i));
    return colour;
  }
  int width = 0, height = 0;
  std::string pixels;
};

constexpr double Missing = -1;

/// What stands at the corners of a picture in the colours grey from 0 to 10.
void expectCorners(const Image& image, const std::array<double, 4>& values) {
  for (std::size_t i = 0; i < 4; ++i) {
    const int grey = values[i] == Missing ? 150 : static_cast<int>(25.5 * values[i] + 0.5);
    EXPECT_EQ(image.at(static_cast<double>(i % 2), static_cast<double>(i / 2)),
              (std::array{grey, grey, grey}))
        << "corner " << i;
  }
}

std::string grids(int count, int columns, int rows) {
  std::ostringstream text;
  for (int time = 0; time < count; ++time) {
    text << "variable height\nunit m\nncols " << columns << "\nnrows " << rows
         << "\nxllcorner 0\nyllcorner 40\ncellsize 1\nnodata_value -9999\ntime " << time << "\r\n";
    for (int i = 0; i < columns * rows; ++i)
      text << (i * 7 + time * 13) % 100 << (i % columns + 1 == columns ? "\n" : " ");
  }
  return text.str();
}

#ifdef FIELDS_WITH_NIFTI

template <class T>
void put(std::string& bytes, std::size_t offset, T value, bool swapped = false) {
  char raw[sizeof value];
  std::memcpy(raw, &value, sizeof value);
  for (std::size_t i = 0; i < sizeof value; ++i)
    bytes[offset + i] = raw[swapped ? sizeof value - 1 - i : i];
}

using Rows = std::array<float, 12>;
constexpr Rows Straight = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};

/// A volume of 2 x 2 x 2 voxels with the values 1 to 8, in the type 2, 4, 16 or 64.
std::string nifti(std::int16_t type, const Rows& rows = Straight, bool swapped = false) {
  const std::size_t size = type == 2 ? 1 : type == 4 ? 2 : type == 16 ? 4 : 8;
  std::string bytes(352 + 8 * size, '\0');
  const auto set = [&](std::size_t at, auto value) { put(bytes, at, value, swapped); };
  set(0, std::int32_t{348});
  for (std::size_t i = 0; i < 4; ++i)
    set(40 + 2 * i, static_cast<std::int16_t>(i == 0 ? 3 : 2));
  set(70, type);
  set(108, 352.0F);
  set(254, std::int16_t{1});
  for (std::size_t i = 0; i < 12; ++i)
    set(280 + 4 * i, rows[i]);
  bytes.replace(344, 3, "n+1");
  for (std::size_t i = 0; i < 8; ++i) {
    const std::size_t at = 352 + i * size;
    const auto value = static_cast<std::int8_t>(i + 1);
    type == 2    ? set(at, value)
    : type == 4  ? set(at, std::int16_t{value})
    : type == 16 ? set(at, static_cast<float>(value))
                 : set(at, static_cast<double>(value));
  }
  return bytes;
}

#endif

#ifdef FIELDS_WITH_NETCDF

/// Two times, two levels, and rows from the south: 1 to 16. The first value is missing.
void writeNetcdf(const std::string& path) {
  const auto check = [](int status) { ASSERT_EQ(status, NC_NOERR) << nc_strerror(status); };
  int file = 0, ids[4] = {}, variable = 0, latitude = 0, depth = 0;
  check(nc_create(path.c_str(), NC_CLOBBER, &file));
  check(nc_def_dim(file, "time", NC_UNLIMITED, &ids[0]));
  const char* names[] = {"z", "lat", "lon"};
  for (int i = 0; i < 3; ++i)
    check(nc_def_dim(file, names[i], 2, &ids[i + 1]));
  check(nc_def_var(file, "z", NC_DOUBLE, 1, &ids[1], &depth));
  check(nc_put_att_text(file, depth, "positive", 4, "down"));
  check(nc_def_var(file, "lat", NC_DOUBLE, 1, &ids[2], &latitude));
  check(nc_put_att_text(file, latitude, "units", 13, "degrees_north"));
  check(nc_def_var(file, "warmth", NC_SHORT, 4, ids, &variable));
  const double factor = 0.5, missing = 2;
  check(nc_put_att_double(file, variable, "scale_factor", NC_DOUBLE, 1, &factor));
  check(nc_put_att_double(file, variable, "missing_value", NC_DOUBLE, 1, &missing));
  check(nc_enddef(file));
  const std::size_t start[4] = {}, count[4] = {2, 2, 2, 2};
  const double ends[2] = {10, 20};
  short values[16];
  for (short i = 0; i < 16; ++i)
    values[i] = static_cast<short>(2 * i + 2);
  check(nc_put_vara_short(file, variable, start, count, values));
  check(nc_put_var_double(file, latitude, ends));
  check(nc_put_var_double(file, depth, ends));
  check(nc_close(file));
}

#endif

/// A number behind a key of the JSON table; `nth` when there are several.
double number(const std::string& json, const std::string& key, int nth = 0) {
  std::size_t at = 0;
  for (; nth >= 0; --nth)
    at = json.find("\"" + key + "\": ", at) + key.size() + 4;
  return std::stod(json.substr(at, 30));
}

} // namespace

TEST_F(FieldsHost, DrawsEachCornerWhereItBelongs) {
  struct Case {
    std::string file, bytes, options;
    std::array<double, 4> corners; // upper left, upper right, lower left, lower right
  };
  std::vector<Case> cases = {
      {"a.asc", "ncols 2\nnrows 2\n1 2\n-9999 4\n", "", {1, 2, Missing, 4}},
      {"b.txt", "NCOLS 2\r\nNROWS 2\r\nnodata_value 4\r\n1 2\r\n3 4\r\n", "", {1, 2, 3, Missing}},
      {"two.asc",
       "ncols 2\nnrows 2\n1 2\n3 4\nncols 2\nnrows 2\n5 6\n7 8",
       "values --time 2",
       {5, 6, 7, 8}},
      {"c.pgm", "P2 # text\n2 2 9\n1 2 3 4", "", {1, 2, 3, 4}},
      {"d.pgm", "P5\n2 2\n9\n\1\2\3\4P5 2 2 9 \5\6\7\10", "--time 2", {5, 6, 7, 8}},
      {"e.pgm", std::string("P5 2 2 999 \0\1\0\2\0\3\0\4", 19), "", {1, 2, 3, 4}},
      {"f.asc", "ncols 2\nnrows 2\n1 2\n1 2\n", "--gradient", {1, 1, 1, 1}},
  };
#ifdef FIELDS_WITH_NIFTI
  const Rows mirrored = {-1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
  const Rows turned = {0, 1, 0, 0, 1, 0, 0, 0, 0, 0, -1, 0};
  std::string quaternion = nifti(16), scaled = nifti(4);
  put(quaternion, 252, std::int16_t{1});
  put(quaternion, 254, std::int16_t{0});
  put(quaternion, 256, 1.0F); // half a turn around x
  for (const std::size_t offset : {76U, 80U, 84U, 88U})
    put(quaternion, offset, 1.0F);
  put(scaled, 112, 0.5F);
  put(scaled, 116, 1.0F);
  cases.insert(cases.end(),
               {
                   {"u.nii", nifti(2), "--at 1", {3, 4, 1, 2}},
                   {"m.nii", nifti(4, mirrored), "--at 1", {4, 3, 2, 1}},
                   {"t.nii", nifti(16, turned), "--at 1", {6, 8, 5, 7}},
                   {"s.nii", nifti(64, Straight, true), "--cut x --at 1", {5, 7, 1, 3}},
                   {"y.nii", nifti(4, Straight, true), "--cut y --at 2", {7, 8, 3, 4}},
                   {"q.nii", quaternion, "--at 1", {5, 6, 7, 8}},
                   {"f.nii", scaled, "--at 1", {2.5, 3, 1.5, 2}},
               });
#endif
#ifdef FIELDS_WITH_NETCDF
  writeNetcdf(path("a.nc"));
  const std::string netcdf = read("a.nc");
  cases.insert(cases.end(),
               {
                   {"1.nc", netcdf, "warmth", {3, 4, Missing, 2}},
                   {"2.nc", netcdf, "--at 2", {7, 8, 5, 6}},
                   {"3.nc", netcdf, "--range 8:18 --time 2", {3, 4, 1, 2}},
                   {"4.nc", netcdf, "--range 8:18 --time 2 --cut x --at 1", {1, 3, 5, 7}},
               });
#endif
  for (const Case& each : cases) {
    SCOPED_TRACE(each.file);
    write(each.file, each.bytes);
    const ProbeResult result = run("show --map grey --range 0:10 --size 60 --out @p.ppm @" +
                                   each.file + " " + each.options);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    expectCorners(Image(read("p.ppm")), each.corners);
  }
}

TEST_F(FieldsHost, RefusesWithOneLineAndLeavesNothing) {
  write("a.asc", grids(3, 4, 3));
  write("a.pgm", "P5 2 2 9 \1\2\3\4");
  write("old.ppm", "of before");
  fs::create_directory(path("taken.ppm"));
  std::vector<std::pair<std::string, std::string>> cases = {
      // What is typed, and what is said.
      {"", "give a command"},
      {"show @a.asc --jump", "there is no option --jump"},
      {"show @no.asc", "there is no such file"},
      {"show @a.asc depth", "there is no variable \"depth\"; take one of height"},
      {"show @a.asc --time 4", "there is no time 4; take one from 1 to 3"},
      {"show @a.asc --at 2", "there is no slice 2"},
      {"show @a.asc --map pink", "no colour map \"pink\"; take one of grey"},
      {"show @a.asc --range 3:1", "the lower value first"},
      {"show @a.asc --region '1,2 3'", "three points or more"},
      {"show @a.asc --budget 12X", "is no size"},
      {"show @a.asc --budget 100", "too small for a single object: a picture takes"},
      {"show @a.asc --out @x.gif", "no module saves such a picture; end its name with"},
      {"show @a.asc --out @no/x.ppm", "cannot be written"},
      {"show @a.asc --out @taken.ppm", "cannot be written"},
      {"show @a.pgm --out @a.pgm", "is the file itself"},
      {"list --modules @nowhere", "no such folder of modules"},
      {"play @a.asc --budget 1K --out @new", "too small for a single object"},
      {"play @a.asc --out @old.ppm", "is no folder"},
  };
  std::vector<std::array<std::string, 3>> damaged = {
      // A file, its content, and what is said.
      {"a.xyz", "1 2 3", "no loader reads such a file; give one that ends with .asc"},
      {"cut.pgm", "P5 2 2 9 \1\2\3", "is cut off: it ends after 12 of 13 bytes"},
      {"more.pgm", "P5 2 2 9 \1\2\3\4junk", "is no grey map"},
      {"cut.asc", grids(1, 4, 3).substr(0, 120), "values are missing at its end"},
      {"word.asc", "ncols 2\nnrows 2\n1 2 x 4", "is \"x\", not a number"},
      {"sizes.asc", grids(1, 4, 3) + grids(1, 3, 4), "grids of different sizes"},
      {"none.asc", "", "has to begin with ncols and nrows"},
  };
#ifdef FIELDS_WITH_NIFTI
  const std::string whole = nifti(4);
  std::string strange = whole, flat = whole;
  put(strange, 70, std::int16_t{128});
  put(flat, 42, std::int16_t{0});
  gzFile packed = gzopen(path("whole.nii.gz").c_str(), "wb");
  ASSERT_EQ(gzwrite(packed, whole.data(), static_cast<unsigned>(whole.size())), 368);
  ASSERT_EQ(gzclose(packed), Z_OK);
  const std::string gzip = read("whole.nii.gz");
  std::string wrongSum = gzip;
  wrongSum[gzip.size() - 6] ^= 1;
  damaged.insert(damaged.end(),
                 {{"cut.nii", whole.substr(0, 360), "is cut off: it ends after 360 of at least 3"},
                  {"head.nii", whole.substr(0, 200), "shorter than a header"},
                  {"more.nii", whole + "x", "more voxels than its header says"},
                  {"type.nii", strange, "has voxels of type 128"},
                  {"flat.nii", flat, "does not have the three dimensions"},
                  {"text.nii", std::string(400, 'x'), "is no NIfTI-1 volume"},
                  {"cut.nii.gz", gzip.substr(0, gzip.size() - 12), "is cut off"},
                  {"crc.nii.gz", wrongSum, "is damaged"}});
#endif
#ifdef FIELDS_WITH_NETCDF
  writeNetcdf(path("whole.nc"));
  const std::string netcdf = read("whole.nc");
  damaged.insert(
      damaged.end(),
      {{"cut.nc", netcdf.substr(0, netcdf.size() - 1), "is cut off: it ends after "},
       {"text.nc", "no such thing", "is no NetCDF file"},
       {"head.nc", std::string("CDF\1\0\0\0\1\0\0\0\12\0\0", 14), "is cut off inside its header"}});
#endif
  for (const auto& [name, bytes, said] : damaged) {
    write(name, bytes);
    cases.emplace_back("show @" + name + " --out @new.ppm", said);
  }
  const auto before = files();
  for (const auto& [typed, said] : cases) {
    SCOPED_TRACE(typed);
    const ProbeResult result = run(typed);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(said), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("fields: "), 0U) << result.err;
    EXPECT_EQ(result.err.find('\n') + 1, result.err.size()) << result.err;
    EXPECT_EQ(files(), before);
  }
}

TEST_F(FieldsHost, ListsFilesAndModulesAndNamesTheOnesThatFail) {
  write("a.asc", grids(3, 4, 3));
  fs::copy(TOLVANE_FIELDS_MODULES, path("modules"));
  write("modules/broken" TOLVANE_TEST_MODULE_SUFFIX, "no module");
  const std::string words = "list @a.asc --modules @modules";
  const ProbeResult result = run(words, {.environment = {{"TOLVANE_VERBOSITY", "3"}}});
  EXPECT_EQ(result.exitCode, 0);
  for (const char* part : {"taken by TextLoader", "height", "4 cells of longitude, 0.5E to 3.5E",
                           "3 cells of time, 0 to 2"})
    EXPECT_NE(result.out.find(part), std::string::npos) << part << "\n" << result.out;
  const std::string left = "module broken" TOLVANE_TEST_MODULE_SUFFIX " was left out: ";
  EXPECT_NE(result.err.find(left), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("asking loader "), std::string::npos) << result.err;
  EXPECT_NE(run("list").out.find("saves .ppm .pgm"), std::string::npos);
}

TEST_F(FieldsHost, PlaysTheSamePicturesUnderEveryBudget) {
  write("a.asc", grids(20, 30, 20));
  const std::string end = TOLVANE_FIELDS_PICTURE;
  std::string tables[2];
  for (const std::string budget : {"120K", "20M"}) {
    const ProbeResult result =
        run("play @a.asc --size 60 --order forwards,random --times 3 --out @out --seed 5 --listing "
            "--region '2,42 9,42 5,49' --name " +
            budget + " --budget " + budget);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("100 %"), std::string::npos) << result.err;
    EXPECT_NE(result.out.find("Region"), std::string::npos) << result.out;
    std::string& table = tables[budget == "20M"];
    table = read("out/" + budget + "-table.json");
    EXPECT_EQ(result.out.find("passed the budget") != std::string::npos,
              number(table, "peak_counted") > number(table, "budget"));
    EXPECT_EQ(number(table, "shown"), 60);
  }
  EXPECT_EQ(read("out/120K-sheet" + end), read("out/20M-sheet" + end));
  EXPECT_GT(read("out/120K-sheet" + end).size(), 1000U);
  EXPECT_NE(read("out/120K-memory" + end), read("out/20M-memory" + end));
  const auto& [tight, wide] = tables;
  EXPECT_EQ(number(tight, "budget"), 120 * 1024);
  EXPECT_GT(number(tight, "made_again"), 40); // at least the pictures of the later rounds
  EXPECT_GT(number(tight, "made_again_bytes"), 40 * 50'000);
  EXPECT_EQ(number(wide, "made_again"), 0);
  EXPECT_GT(number(wide, "peak_counted"), 20 * 50'000);
  EXPECT_LT(number(wide, "peak_counted"), number(wide, "budget"));
  EXPECT_GT(number(wide, "peak_process"), number(wide, "peak_counted"));

  const ProbeResult compared = run("compare @a.asc --size 60 --out @out --gradient --progress bar");
  EXPECT_NE(compared.out.find("same, byte for byte, with all 6 budgets"), std::string::npos);
  EXPECT_NE(compared.err.find("\r\033[K[###"), std::string::npos) << compared.err;
  const std::string table = read("out/fields-compare.json");
  EXPECT_TRUE(number(table, "made_again", 0) > 0 && number(table, "made_again", 5) == 0);

  const ProbeResult shown =
      run("show @a.asc --region '0,58 2,58 2,60 0,60' --budget 2M --out @p" + end);
  EXPECT_NE(shown.out.find("region: 4 cells, mean 8.5 m"), std::string::npos) << shown.out;
  EXPECT_NE(shown.out.find("made from a.asc/height at 0/slice"), std::string::npos) << shown.out;
}

#ifdef FIELDS_REAL_DATA

TEST_F(FieldsHost, ShowsRealDataAsItIsKnown) {
  struct Place {
    double x, y; // from the left and the top
    const char* looks;
  };
  const auto look = [](const std::array<int, 3>& c) -> std::string {
    const auto [red, green, blue] = c;
    if (red == green && green == blue)
      return red == 150 ? "grey" : red > 150 ? "bright" : red == 0 ? "black" : "dark";
    return std::string(red > blue + 60 ? "warm " : "") + (green > blue ? "land " : "") +
           (blue > red + 40 ? "blue" : "");
  };
  const std::vector<std::pair<std::string, std::vector<Place>>> cases = {
      // The map begins at Greenwich: Tibet, Brazil, the Pacific.
      {FIELDS_REAL_DATA "/etopo5.cdf",
       {{.244, .32, "land"}, {.86, .56, "land"}, {.55, .5, "blue"}}},
      // This one at 20 E: Australia, the warm west of the Pacific, the cold south.
      {FIELDS_REAL_DATA "/ocean_atlas_subset.nc --time 7",
       {{.32, .64, "grey"}, {.36, .48, "warm"}, {.4, .81, "blue"}}},
      {FIELDS_REAL_VOLUME, {{0, 0, "black"}, {.33, .3, "bright"}, {.62, .78, "bright"}}},
  };
  for (const auto& [file, places] : cases) {
    const ProbeResult result = run("show " + file + " --out @p.ppm --budget 64M");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Image image(read("p.ppm"));
    for (const Place& place : places)
      EXPECT_NE(look(image.at(place.x, place.y)).find(place.looks), std::string::npos)
          << file << " at " << place.x << ", " << place.y;
  }
  const ProbeResult winds =
      run("play " FIELDS_REAL_DATA "/monthly_navy_winds.cdf UWND,VWND --to 12 "
          "--budget 1M --size 120 --out @out");
  ASSERT_EQ(winds.exitCode, 0) << winds.err;
  EXPECT_GT(number(read("out/fields-table.json"), "made_again"), 20);
}

#endif
