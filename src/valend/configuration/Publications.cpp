#include "valend/configuration/Publications.h"

#include "platform/quill/Printable.h"
#include "settings/Hex.h"
#include "valend/base/Errors.h"

#include <algorithm>
#include <tuple>

namespace Valend {

namespace {

std::size_t bytesOf( Settings::Frames const & frames ) {
   std::size_t bytes = 0;
   for ( auto const & frame : frames ) {
      bytes += frame.size();
   }
   return bytes;
}

bool isName( std::string const & text ) {
   return !text.empty() && text.size() <= Publications::maxAgentBytes &&
          std::all_of( text.begin(), text.end(),
                       []( char character ) {
                          auto const byte = static_cast< unsigned char >( character );
                          return byte > 0x20 && character != '/';
                       } ) &&
          !Quill::unprintableIn( text );
}

} // namespace

void Publications::resume( std::vector< Message > messages ) {
   for ( auto & message :
         messages ) { // checked as in publish(), but the interface may not exist now
      auto const same = find( message.agent, message.interface );
      if ( isName( message.agent ) && !message.frames.empty() && same == messages_.end() ) {
         add( std::move( message ) );
      }
   }
}

void Publications::configIs( Settings::Config config ) {
   config_ = std::move( config );
   apply();
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
   if ( config_.agents.contains( agent ) ) {
      throw Errors::agentIsConfigured( agent );
   }
   for ( auto const & message : messages_ ) {
      if ( message.agent == agent && message.lifetime == Lifetime::connection &&
           message.client != client ) {
         throw Errors::agentIsOfAnotherClient( agent );
      }
   }
}

void Publications::publish( Message message ) {
   if ( !isName( message.agent ) ) {
      throw Errors::badAgentName( maxAgentBytes, Quill::unprintableIn( message.agent ) );
   }
   if ( !config_.interfaces.contains( message.interface ) ) {
      throw Errors::noSuchInterface( message.interface );
   }
   if ( message.frames.empty() ) {
      throw Errors::noFrames();
   }
   requireName( message.agent, message.client );
   auto const old = find( message.agent, message.interface );
   std::size_t bytes = bytesOf( message.frames );
   for ( auto other = messages_.begin(); other != messages_.end(); ++other ) {
      bytes += other == old ? 0 : bytesOf( other->frames );
   }
   if ( bytes > maxBytes ) {
      throw Errors::tooManyBytes( bytes, maxBytes );
   }
   if ( old != messages_.end() ) {
      *old = std::move( message );
   } else {
      add( std::move( message ) );
   }
   changed();
}

// Keeps the order by agent, then interface.
void Publications::add( Message message ) {
   auto const key = []( Message const & each ) { return std::tie( each.agent, each.interface ); };
   auto const place =
      std::upper_bound( messages_.begin(), messages_.end(), message,
                        [ & ]( auto const & a, auto const & b ) { return key( a ) < key( b ); } );
   messages_.insert( place, std::move( message ) );
}

void Publications::withdraw( std::string const & agent, std::string const & interface,
                             U64 client ) {
   auto const old = find( agent, interface );
   if ( old == messages_.end() ) {
      bool const configured =
         config_.agents.contains( agent ) && config_.agents.at( agent ).contains( interface );
      throw configured ? Errors::messagesAreConfigured( agent, interface )
                       : Errors::noSuchMessages( agent, interface );
   }
   if ( old->lifetime == Lifetime::connection && old->client != client ) {
      requireName( agent, client );
   }
   messages_.erase( old );
   changed();
}

void Publications::clientGone( U64 client ) {
   auto const gone = std::erase_if( messages_, [ & ]( auto const & message ) {
      return message.lifetime == Lifetime::connection && message.client == client;
   } );
   if ( gone ) {
      changed();
   }
}

bool Publications::isNeeded( U64 client ) const noexcept {
   return std::any_of( messages_.begin(), messages_.end(), [ & ]( auto const & message ) {
      return message.lifetime == Lifetime::connection && message.client == client;
   } );
}

bool Publications::isActive( Message const & message ) const {
   return config_.interfaces.contains( message.interface ) &&
          !config_.agents.contains( message.agent );
}

std::vector< Publications::Message >::iterator Publications::find( std::string const & agent,
                                                                   std::string const & interface ) {
   return std::find_if( messages_.begin(), messages_.end(), [ & ]( auto const & message ) {
      return message.agent == agent && message.interface == interface;
   } );
}

void Publications::changed() {
   if ( changed_ ) {
      changed_( messages_ );
   }
   apply();
}

void Publications::apply() {
   auto combined = config_;
   for ( auto const & message : messages_ ) {
      if ( isActive( message ) ) {
         combined.agents[ message.agent ][ message.interface ] = message.frames;
      }
   }
   feeder_.apply( std::move( combined ) );
}

} // namespace Valend
