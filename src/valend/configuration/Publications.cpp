#include "valend/configuration/Publications.h"

#include "platform/quill/Printable.h"
#include "settings/Hex.h"
#include "valend/base/Errors.h"

#include <algorithm>

namespace Valend {

namespace {

bool isName( std::string const & text ) {
   return !text.empty() && text.size() <= Publications::maxAgentBytes &&
          std::all_of( text.begin(), text.end(),
                       []( char character ) {
                          auto const byte = static_cast< unsigned char >( character );
                          return byte > 0x20 && character != '/';
                       } ) &&
          !Quill::unprintableIn( text );
}

bool isReserved( std::string const & agent ) {
   return agent.starts_with( Settings::learnedAgents );
}

} // namespace

Publications::Publications( Feeder & feeder, Gantry::WorkQueue & work,
                            Quill::Ptr< Gantry::TaskScheduler > scheduler, Kept kept )
    : feeder_( feeder ), kept_( std::move( kept ) ), plan_( std::make_shared< Plan const >() ),
      slices_( work, std::move( scheduler ), "publications" ) {
   feeder_.additionalIs( [ this ]( auto const & interface ) { return activeFrames( interface ); } );
}

Publications::~Publications() {
   feeder_.additionalIs( nullptr );
}

std::size_t Publications::memoryOf( Settings::Frames const & frames ) noexcept {
   auto memory = entryMemory;
   for ( auto const & frame : frames ) {
      memory += frameMemory + 2 * frame.size();
   }
   return memory;
}

Publications::Key Publications::keyOf( Message const & message ) {
   return { message.agent, message.interface, message.lifetime == Lifetime::database };
}

void Publications::resume( std::vector< Message > messages ) {
   for ( auto & message :
         messages ) { // checked as in publish(), but the interface may not exist now
      if ( isName( message.agent ) && !isReserved( message.agent ) && !message.frames.empty() &&
           !messages_.contains( keyOf( message ) ) ) {
         put( std::move( message ) );
      }
   }
}

void Publications::configIs( Settings::Config config ) {
   begin( std::make_shared< Plan const >( std::move( config ) ) );
   while ( feeder_.step() ) {
   }
}

void Publications::begin( PlanPtr plan ) {
   plan_ = std::move( plan );
   feeder_.begin( plan_ );
}

std::string Publications::frameOf( std::string const & hex, std::size_t number ) {
   std::string frame;
   try {
      frame = Settings::frameFromHex( hex );
   } catch ( Settings::HexError const & e ) {
      throw Errors::badFrame( number, e.what() );
   }
   if ( frame.size() > maxFrameBytes ) {
      throw Errors::badFrame( number, std::to_string( frame.size() ) + " bytes; the limit is " +
                                         std::to_string( maxFrameBytes ) );
   }
   return frame;
}

// Throws when the name belongs to the configuration or to another client.
void Publications::requireName( std::string const & agent, U64 client ) const {
   if ( config().agents.contains( agent ) ) {
      throw Errors::agentIsConfigured( agent );
   }
   auto const clients = clientsOf_.find( agent );
   if ( clients == clientsOf_.end() || clients->second.contains( client ) ) {
      return;
   }
   for ( auto const & [ holder, messages ] : clients->second ) { // one, besides those that are gone
      if ( !gone_.contains( holder ) ) {
         throw Errors::agentIsOfAnotherClient( agent );
      }
   }
}

void Publications::publish( Message message ) {
   if ( !isName( message.agent ) ) {
      throw Errors::badAgentName( maxAgentBytes, Quill::unprintableIn( message.agent ) );
   }
   if ( isReserved( message.agent ) != ( message.lifetime == Lifetime::learned ) ) {
      throw Errors::reservedAgentName( Settings::learnedAgents );
   }
   bool const ofDatabase = message.lifetime == Lifetime::database;
   if ( !ofDatabase && !config().interfaces.contains( message.interface ) ) {
      throw Errors::noSuchInterface( message.interface );
   }
   if ( message.frames.empty() ) {
      throw Errors::noFrames();
   }
   if ( !ofDatabase ) {
      requireName( message.agent, message.client );
   }
   auto const old = messages_.find( keyOf( message ) );
   auto const memory = memory_ - ( old == messages_.end() ? 0 : memoryOf( old->second.frames ) ) +
                       memoryOf( message.frames );
   if ( memory > maxMemory ) {
      throw Errors::tooMuchMemory( memory, maxMemory );
   }
   bool const wasKept = old != messages_.end() && old->second.lifetime == Lifetime::kept;
   bool const isKept = message.lifetime == Lifetime::kept;
   if ( kept_ && ( wasKept || isKept ) ) {
      kept_( message.agent, message.interface, isKept ? message.frames : Settings::Frames() );
   }
   if ( old != messages_.end() ) {
      remove( old );
   }
   auto const interface = message.interface;
   auto const lifetime = message.lifetime;
   put( std::move( message ) );
   framesChanged( interface, lifetime );
}

void Publications::framesChanged( std::string const & interface, Lifetime lifetime ) {
   feeder_.framesChanged( interface );
   if ( changed_ && lifetime != Lifetime::learned ) {
      changed_( interface );
   }
}

void Publications::put( Message message ) {
   auto const key = keyOf( message );
   memory_ += memoryOf( message.frames );
   keysOf_[ message.interface ].insert( key );
   if ( message.lifetime == Lifetime::connection ) {
      boundTo_[ message.client ].insert( key );
      ++clientsOf_[ message.agent ][ message.client ];
   }
   messages_.emplace( key, std::move( message ) );
}

// Removes `element` from the collection under `key`, and the collection when it is empty.
template < class Map, class Element >
void removeFrom( Map & map, typename Map::key_type const & key, Element const & element ) {
   auto const found = map.find( key );
   found->second.erase( element );
   if ( found->second.empty() ) {
      map.erase( found );
   }
}

void Publications::remove( Messages::iterator message ) {
   auto const & [ key, old ] = *message;
   memory_ -= memoryOf( old.frames );
   removeFrom( keysOf_, old.interface, key );
   if ( old.lifetime == Lifetime::connection ) {
      removeFrom( boundTo_, old.client, key );
      if ( --clientsOf_[ old.agent ][ old.client ] == 0 ) {
         removeFrom( clientsOf_, old.agent, old.client );
      }
   }
   messages_.erase( message );
}

Publications::Lifetime Publications::withdraw( std::string const & agent,
                                               std::string const & interface, U64 client ) {
   auto const old = messages_.find( { agent, interface } );
   if ( old == messages_.end() ) {
      if ( messages_.contains( { agent, interface, true } ) ) {
         throw Errors::messagesAreOfDatabase( agent, interface );
      }
      auto const configured = config().agents.find( agent );
      throw configured != config().agents.end() && configured->second.contains( interface )
         ? Errors::messagesAreConfigured( agent, interface )
         : Errors::noSuchMessages( agent, interface );
   }
   auto const lifetime = old->second.lifetime;
   if ( lifetime == Lifetime::connection && old->second.client != client ) {
      requireName( agent, client );
   }
   if ( lifetime == Lifetime::learned && client != self ) {
      throw Errors::messagesAreLearned( agent, interface );
   }
   remove( old );
   if ( kept_ && lifetime == Lifetime::kept ) {
      kept_( agent, interface, {} );
   }
   framesChanged( interface, lifetime );
   return lifetime;
}

void Publications::withdrawOfDatabase( std::string const & agent, std::string const & interface ) {
   auto const old = messages_.find( { agent, interface, true } );
   if ( old != messages_.end() ) {
      remove( old );
      framesChanged( interface, Lifetime::database );
   }
}

void Publications::clientGone( U64 client ) {
   if ( isNeeded( client ) && gone_.insert( client ).second ) {
      slices_.add( [ this, client ] { return withdrawNext( client ); } );
   }
}

bool Publications::withdrawNext( U64 gone ) {
   auto const bound = boundTo_.find( gone );
   if ( bound == boundTo_.end() ) {
      gone_.erase( gone );
      return false;
   }
   auto const key = *bound->second.begin();
   remove( messages_.find( key ) );
   framesChanged( key.interface, Lifetime::connection );
   return true;
}

bool Publications::isActive( Message const & message ) const {
   return config().interfaces.contains( message.interface ) &&
          !config().agents.contains( message.agent ) &&
          ( message.lifetime == Lifetime::database ||
            !messages_.contains( { message.agent, message.interface, true } ) );
}

std::vector< Publications::Message const * >
Publications::messagesFor( std::string const & interface ) const {
   std::vector< Message const * > messages;
   auto const keys = keysOf_.find( interface );
   if ( keys == keysOf_.end() ) {
      return messages;
   }
   for ( auto const & key : keys->second ) {
      messages.push_back( &messages_.at( key ) );
   }
   return messages;
}

std::map< std::string, Settings::Frames >
Publications::activeFrames( std::string const & interface ) const {
   std::map< std::string, Settings::Frames > frames;
   for ( auto const * const message : messagesFor( interface ) ) {
      if ( isActive( *message ) ) {
         frames.emplace( message->agent, message->frames );
      }
   }
   return frames;
}

} // namespace Valend
