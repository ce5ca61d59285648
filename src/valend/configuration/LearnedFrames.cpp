#include "valend/configuration/LearnedFrames.h"

#include "valend/base/Refusal.h"

#include <utility>

namespace Valend {

using Lifetime = Publications::Lifetime;

namespace {

std::string agentOf( std::string_view protocol ) {
   return std::string( Settings::learnedAgents ) + std::string( protocol );
}

// The protocol of a goodbye, as SpeakerTable has it; empty for one that valend does not know.
std::string protocolOf( std::string const & frame ) {
   auto const speaker = Egress::speakerOf( frame, 0, 0 );
   return speaker ? std::string( Egress::protocolOf( *speaker ) ) : "";
}

} // namespace

LearnedFrames::LearnedFrames( Settings::Config const & config, Publications & publications,
                              SpeakerTable const & table, Conditions & conditions,
                              Gantry::WorkQueue & work,
                              Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : config_( config ), publications_( publications ), table_( table ),
      condition_( conditions, "learned" ), interfaceAt_( config ),
      slices_( work, std::move( scheduler ), "learned" ) {}

// --- What has changed ----------------------------------------------------------------------------

void LearnedFrames::speakersChanged( LinkPlace const & place ) {
   if ( auto const * const interface = interfaceAt_.find( place ) ) {
      framesChanged( interface->name );
   }
}

void LearnedFrames::framesChanged( std::string const & interface ) {
   changed_.insert( interface );
   stepSoon();
}

void LearnedFrames::stepSoon() {
   if ( !std::exchange( stepping_, true ) ) {
      slices_.add( [ this ] { return step(); } );
   }
}

void LearnedFrames::configChanged() {
   interfaceAt_.configChanged();
   after_ = "";
   stepSoon();
}

bool LearnedFrames::step() {
   if ( !changed_.empty() ) {
      update( changed_.extract( changed_.begin() ).value() );
      return true;
   }
   auto const next = after_ ? config_.interfaces.upper_bound( *after_ ) : config_.interfaces.end();
   if ( next == config_.interfaces.end() ) {
      after_.reset();
      return stepping_ = false;
   }
   after_ = next->first;
   update( next->first );
   return true;
}

// --- Publishing ----------------------------------------------------------------------------------

void LearnedFrames::update( std::string const & interface ) {
   auto wanted = learned( interface );
   std::vector< std::string > outdated;
   for ( auto const * const message : publications_.messagesFor( interface ) ) {
      if ( message->lifetime != Lifetime::learned ) {
         continue;
      }
      auto const same = wanted.find( message->agent );
      if ( same == wanted.end() ) {
         outdated.push_back( message->agent );
      } else if ( same->second == message->frames ) {
         wanted.erase( same );
      }
   }
   for ( auto const & agent : outdated ) {
      publications_.withdraw( agent, interface, Publications::self );
   }
   for ( auto const & [ agent, frames ] : wanted ) {
      publish( agent, interface, frames );
   }
}

void LearnedFrames::publish( std::string const & agent, std::string const & interface,
                             Settings::Frames const & frames ) {
   try {
      publications_.publish( { agent, interface, frames, Lifetime::learned, Publications::self } );
      condition_.clear();
   } catch ( Refusal const & e ) {
      condition_.raise( "cannot use the goodbyes that were learned on " + interface + ": " +
                        e.what() );
   }
}

std::string LearnedFrames::whyUnused( std::string const & interface,
                                      std::string const & protocol ) const {
   auto const others = othersProtocols( interface );
   if ( auto const other = others.find( protocol ); other != others.end() ) {
      return "agent \"" + other->second + "\" has frames of this protocol";
   }
   auto const & goodbyes = config_.goodbyesOf( interface );
   return goodbyes.has( protocol ) ? "" : "not wanted: \"goodbyes: " + goodbyes.text() + "\"";
}

LearnedFrames::ByAgent LearnedFrames::learned( std::string const & interface ) const {
   ByAgent byAgent;
   auto const & goodbyes = config_.goodbyesOf( interface );
   auto const configured = config_.interfaces.find( interface );
   if ( configured == config_.interfaces.end() || !goodbyes.any() ) {
      return byAgent;
   }
   auto const others = othersProtocols( interface );
   std::map< std::string, Settings::FrameList > frames;
   for ( auto const & speaker : table_.known( placeOf( config_, configured->second ) ) ) {
      std::string const protocol( Egress::protocolOf( speaker.id ) );
      if ( !goodbyes.has( protocol ) || others.contains( protocol ) ) {
         continue;
      }
      for ( auto const & [ name, part ] : speaker.parts ) {
         if ( !part.heard.goodbye.empty() ) {
            frames[ agentOf( protocol ) ].push_back( part.heard.goodbye );
         }
      }
   }
   for ( auto & [ agent, list ] : frames ) {
      byAgent.emplace( agent, std::move( list ) );
   }
   return byAgent;
}

std::map< std::string, std::string >
LearnedFrames::othersProtocols( std::string const & interface ) const {
   std::map< std::string, std::string > protocols;
   auto const take = [ & ]( std::string const & agent, Settings::Frames const & frames ) {
      for ( auto const & frame : frames ) {
         protocols.emplace( protocolOf( frame ), agent );
      }
   };
   for ( auto const & [ agent, messages ] : publications_.config().agents ) {
      if ( auto const own = messages.find( interface ); own != messages.end() ) {
         take( agent, own->second );
      }
   }
   for ( auto const * const message : publications_.messagesFor( interface ) ) {
      if ( message->lifetime != Lifetime::learned && publications_.isActive( *message ) ) {
         take( message->agent, message->frames );
      }
   }
   return protocols;
}

} // namespace Valend
