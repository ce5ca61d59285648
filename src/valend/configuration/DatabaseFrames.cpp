#include "valend/configuration/DatabaseFrames.h"

#include "platform/quill/Printable.h"
#include "settings/Hex.h"
#include "valend/base/Errors.h"

#include <algorithm>
#include <stdexcept>

namespace Valend {

namespace {

// What is wrong with an entity.
class WrongFrames : public std::runtime_error {
   using runtime_error::runtime_error;
};

bool isFrameNumber( std::string const & name ) {
   return !name.empty() && name.size() <= DatabaseFrames::maxNumberDigits &&
          std::all_of( name.begin(), name.end(),
                       []( char character ) { return character >= '0' && character <= '9'; } );
}

std::string checkedText( char const * name, std::string const & text, std::size_t maxBytes ) {
   if ( text.size() > maxBytes ) {
      throw WrongFrames( std::string( name ) + " has " + std::to_string( text.size() ) +
                         " bytes; expected at most " + std::to_string( maxBytes ) );
   }
   if ( auto const where = Quill::unprintableIn( text ) ) {
      throw WrongFrames( std::string( name ) + " is not printable text: " + *where );
   }
   return text;
}

} // namespace

DatabaseFrames::DatabaseFrames( Publications & publications, DatabaseFile & file )
    : publications_( publications ), file_( file ) {}

// Throws WrongFrames.
DatabaseFrames::Value DatabaseFrames::valueOf( Settings::Fields const & fields ) {
   Value value;
   Settings::FrameList frames;
   for ( auto const & [ name, text ] : fields ) {
      if ( name == "owner" ) {
         value.owner = checkedText( "owner", text, maxOwnerBytes );
      } else if ( name == "lease" ) {
         value.lease = checkedText( "lease", text, maxLeaseBytes );
      } else if ( !isFrameNumber( name ) ) {
         throw WrongFrames( "unknown field \"" + Quill::printable( name.substr( 0, 100 ) ) +
                            "\"; expected \"0001\", \"0002\" ..., \"owner\" or \"lease\"" );
      } else if ( text.size() < Settings::minFrameBytes ||
                  text.size() > Publications::maxFrameBytes ) {
         throw WrongFrames( "frame " + name + " of " + std::to_string( text.size() ) +
                            " bytes; expected " + std::to_string( Settings::minFrameBytes ) +
                            " to " + std::to_string( Publications::maxFrameBytes ) );
      } else {
         frames.push_back( text );
      }
   }
   if ( frames.empty() ) {
      throw WrongFrames( "no frames; expected one or more" );
   }
   value.frames = Settings::Frames( std::move( frames ) );
   return value;
}

DatabaseFrames::Entry & DatabaseFrames::entryOf( std::string const & key ) {
   auto const found = entries_.find( key );
   if ( found != entries_.end() ) {
      return found->second;
   }
   auto const names = key.substr( std::string( prefix ).size() );
   auto const colon = names.find( ':' );
   auto const interface = colon == names.npos ? "" : names.substr( colon + 1 );
   return entries_.emplace( key, Entry{ names.substr( 0, colon ), interface } ).first->second;
}

void DatabaseFrames::entityIs( std::string const & key, Settings::Fields const & fields ) {
   auto & entry = entryOf( key );
   entry.seen = generation_;
   try {
      auto value = valueOf( fields );
      leaseOf( key, entry.value ? entry.value->lease : "", value.lease );
      entry.value = std::move( value );
      entry.fields = std::make_shared< Settings::Fields const >( fields );
      entry.wrong.clear();
      publish( key, entry );
      file_.framesAre( key, entry.fields );
   } catch ( WrongFrames const & e ) {
      entry.wrong = e.what();
   }
   tell( key, entry );
}

void DatabaseFrames::entityGone( std::string const & key ) {
   auto const found = entries_.find( key );
   if ( found == entries_.end() ) {
      return;
   }
   auto entry = std::move( found->second );
   entries_.erase( found );
   refused_.erase( key );
   if ( entry.value ) {
      leaseOf( key, entry.value->lease, "" );
      file_.framesAre( key, nullptr );
   }
   publications_.withdrawOfDatabase( entry.agent, entry.interface );
   if ( !entry.told.empty() && rejected_ ) {
      rejected_( key, "" );
   }
   retry();
}

void DatabaseFrames::resume( std::string const & key, Settings::Fields const & fields ) {
   auto const lease = fields.find( "lease" );
   if ( lease != fields.end() ) {
      leases_[ lease->second ].exists = true;
   }
   entityIs( key, fields );
}

// --- Leases --------------------------------------------------------------------------------------

void DatabaseFrames::leaseOf( std::string const & key, std::string const & before,
                              std::string const & now ) {
   if ( before == now ) {
      return;
   }
   if ( !now.empty() ) {
      bool const isFirst = leases_[ now ].keys.empty();
      leases_[ now ].keys.insert( key );
      if ( isFirst && leaseWanted_ ) {
         leaseWanted_( now, true );
      }
   }
   if ( before.empty() ) {
      return;
   }
   auto const lease = leases_.find( before );
   lease->second.keys.erase( key );
   if ( lease->second.keys.empty() ) {
      leases_.erase( lease );
      if ( leaseWanted_ ) {
         leaseWanted_( before, false );
      }
   }
}

void DatabaseFrames::leaseIs( std::string const & lease, bool exists ) {
   auto const found = leases_.find( lease );
   if ( found == leases_.end() || found->second.exists == exists ) {
      return;
   }
   found->second.exists = exists;
   for ( auto const & key : found->second.keys ) {
      auto & entry = entries_.at( key );
      publish( key, entry );
      tell( key, entry );
   }
   if ( !exists ) {
      retry();
   }
}

// --- Publishing ----------------------------------------------------------------------------------

// The last valid value.
void DatabaseFrames::publish( std::string const & key, Entry & entry ) {
   auto const & value = *entry.value;
   refused_.erase( key );
   if ( !value.lease.empty() && !leases_.at( value.lease ).exists.value_or( false ) ) {
      entry.notPublished = "lease \"" + value.lease + "\" does not exist";
      return publications_.withdrawOfDatabase( entry.agent, entry.interface );
   }
   try {
      if ( entry.interface.empty() ) {
         throw Refusal( "NoSuchInterface", "no interface; expected a key frames:AGENT:INTERFACE" );
      }
      publications_.publish( { entry.agent, entry.interface, value.frames,
                               Publications::Lifetime::database, Publications::self,
                               value.owner } );
      entry.notPublished.clear();
   } catch ( Refusal const & e ) {
      entry.notPublished = e.what();
      if ( e.name() == "TooMuch" ) {
         refused_.insert( key );
      }
   }
}

// There may be memory for more now.
void DatabaseFrames::retry() {
   for ( auto const & key : std::set< std::string >( refused_ ) ) {
      auto & entry = entries_.at( key );
      publish( key, entry );
      tell( key, entry );
   }
}

std::string DatabaseFrames::whyNotActive( Entry const & entry ) const {
   auto const & config = publications_.config();
   if ( config.agents.contains( entry.agent ) ) {
      return Errors::agentIsConfigured( entry.agent ).what();
   }
   return config.interfaces.contains( entry.interface )
             ? ""
             : Errors::noSuchInterface( entry.interface ).what();
}

void DatabaseFrames::tell( std::string const & key, Entry & entry ) {
   auto const why = !entry.wrong.empty()          ? entry.wrong
                    : !entry.notPublished.empty() ? entry.notPublished
                                                  : whyNotActive( entry );
   if ( why != entry.told ) {
      entry.told = why;
      if ( rejected_ ) {
         rejected_( key, why );
      }
   }
}

// --- All of them ---------------------------------------------------------------------------------

void DatabaseFrames::begin() {
   ++generation_;
}

Slices::Step DatabaseFrames::sweepStep() {
   return [ this, last = std::string() ]() mutable {
      auto const next = entries_.upper_bound( last );
      if ( next == entries_.end() ) {
         return false;
      }
      last = next->first;
      if ( next->second.seen != generation_ ) {
         entityGone( last );
      }
      return true;
   };
}

Slices::Step DatabaseFrames::configChangedStep() {
   return [ this, last = std::string() ]() mutable {
      auto const next = entries_.upper_bound( last );
      if ( next == entries_.end() ) {
         return false;
      }
      last = next->first;
      tell( last, next->second );
      return true;
   };
}

} // namespace Valend
