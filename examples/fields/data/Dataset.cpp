#include "Dataset.hpp"

#include <utility>

namespace fields {

Dataset::Dataset(std::string path) : path_(std::move(path)) {}

Dataset::~Dataset() = default;

} // namespace fields
