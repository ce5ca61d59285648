// The goodbyes that valend derives from what speakers send, as the frames of the agents "learned-PROTOCOL": published
// for the interface of the device, as if the agent had done it.
//
// Frames of the same protocol that are configured or that an agent has published for the interface take precedence. An
// interface is looked at again when anything changes of which its learned frames depend, one in a turn of the loop; what is
// the same as before is not published again.
#pragma once

#include "valend/configuration/Publications.h"
#include "valend/kernel/Places.h"
#include "valend/speakers/Speakers.h"

#include <map>
#include <optional>
#include <set>
#include <string>

namespace Valend {

class LearnedFrames {
 public:
   // `config` is the active configuration. All must outlive this. Raises the condition "learned" while goodbyes cannot be published.
   LearnedFrames( Settings::Config const & config, Publications & publications,
                  SpeakerTable const & table, Conditions & conditions, Gantry::WorkQueue & work,
                  Quill::Ptr< Gantry::TaskScheduler > scheduler );

   // What is known of the speakers on the device has changed.
   void speakersChanged( LinkPlace const & place );
   // Frames of agents for the interface have changed.
   void framesChanged( std::string const & interface );
   // The configuration has changed.
   void configChanged();

   // Why goodbyes of the protocol that are derived on the interface are not published; empty if they are.
   std::string whyUnused( std::string const & interface, std::string const & protocol ) const;

 private:
   using ByAgent = std::map< std::string, Settings::Frames >;

   void stepSoon();
   bool step();
   void update( std::string const & interface );
   ByAgent learned( std::string const & interface ) const;
   // Those of frames of other agents, and one agent of each.
   std::map< std::string, std::string > othersProtocols( std::string const & interface ) const;
   void publish( std::string const & agent, std::string const & interface,
                 Settings::Frames const & frames );

   Settings::Config const & config_;
   Publications & publications_;
   SpeakerTable const & table_;
   Condition condition_;
   InterfaceAt interfaceAt_;
   std::set< std::string > changed_;    // interfaces
   std::optional< std::string > after_; // all interfaces after this one are looked at again
   bool stepping_ = false;
   Slices slices_;
};

} // namespace Valend
