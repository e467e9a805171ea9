#pragma once

#include "Workshop.hpp"

#include <tolvane/DataCreature.hpp>

#include <string>

/// @file
/// What the creators of the host have in common.

namespace fields {

using Origin = Tolvane::StrongPtr<Tolvane::Provenance>;

/// A creator that works for a workshop and knows the step that it stands for.
template <class Data>
class Maker : public Tolvane::DataCreature<Data> {
public:
  using typename Tolvane::DataCreature<Data>::Pointer;

  /// Where its data comes from, to be the parent of the next step.
  Origin origin() const { return this->provenance().back(); }

protected:
  Maker(Workshop& workshop, const std::string& step, const Origin& from)
      : Tolvane::DataCreature<Data>(workshop.cache()), workshop_(workshop) {
    this->setProvenance(Origin(new Tolvane::Provenance(step, from)));
  }

  /// Makes the data from that of the creators before this one.
  virtual Pointer make() = 0;

  Workshop& workshop() { return workshop_; }

private:
  Pointer create() final {
    const bool again = madeBefore_;
    Workshop::Job job(workshop_);
    const Pointer made = make();
    made->setName(this->provenancePath());
    madeBefore_ = true;
    if (again) {
      job.wasAgain(made->memsize());
    }
    return made;
  }

  Workshop& workshop_; // outlives the creators
  bool madeBefore_ = false;
};

} // namespace fields
