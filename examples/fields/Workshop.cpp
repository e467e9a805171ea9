#include "Workshop.hpp"

#include <utility>

namespace fields {

Workshop::Workshop(CachePtr cache)
    : cache_(std::move(cache)), start_(std::chrono::steady_clock::now()) {
  sample();
}

double Workshop::secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Workshop::sample() {
  samples_.push_back({seconds(), cache_->totalCost(false)});
}

Workshop::Job::Job(Workshop& workshop)
    : workshop_(workshop), outer_(workshop.job_), start_(std::chrono::steady_clock::now()) {
  workshop_.job_ = this;
}

Workshop::Job::~Job() {
  workshop_.job_ = outer_;
  if (outer_ != nullptr) {
    outer_->within_ += secondsSince(start_);
  }
}

void Workshop::Job::wasAgain(Tolvane::memsize_t bytes) {
  ++workshop_.madeAgain_.count;
  workshop_.madeAgain_.bytes += bytes;
  workshop_.madeAgain_.seconds += secondsSince(start_) - within_;
}

} // namespace fields
