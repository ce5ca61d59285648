// What the control API answers about the speakers on the devices of interfaces, and about the goodbyes that were learned
// from them. Computed on request.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "valend/configuration/LearnedFrames.h"
#include "valend/speakers/SpeakerTable.h"

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace Valend {

class SpeakersReport {
 public:
   // All must outlive the report.
   struct Sources {
      Settings::Config const & config; // the active one
      SpeakerTable const & table;
      LearnedFrames const & learned;
      // Why speakers of the device cannot be muted; empty if they can be.
      std::function< std::string( LinkPlace const & place ) > whyNotMuted;
      Quill::Ptr< Gantry::TaskScheduler > scheduler;
   };

   explicit SpeakersReport( Sources sources ) : sources_( std::move( sources ) ) {}

   // Where each frame of the message was learned, as the API's type LearnedFrame; nothing of frames that were not
   // learned. A speaker that has changed since the frames were published is missing.
   nlohmann::json learned( Publications::Message const & message ) const;
   // The speakers that are heard on the interface, as the API's type HeardSpeaker.
   nlohmann::json heard( Settings::InterfaceConfig const & interface ) const;
   // Why speakers of the interface cannot be muted; empty if they can be.
   std::string whyNotMuted( Settings::InterfaceConfig const & interface ) const;

 private:
   nlohmann::json age( SpeakerTable::Part const & part ) const;
   std::string whyNotLearned( std::string const & interface,
                              SpeakerTable::Speaker const & speaker ) const;

   Sources const sources_;
};

} // namespace Valend
