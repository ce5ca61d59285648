#include "valend/configuration/PublishedFile.h"

#include "settings/Hex.h"
#include "valend/base/AtomicFile.h"
#include "valend/base/Log.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace Valend {

using Json = nlohmann::json;
using Message = Publications::Message;
using Lifetime = Publications::Lifetime;

namespace {

// Throws when `text` is damaged.
std::vector< Message > messagesIn( std::string const & text ) {
   std::vector< Message > messages;
   for ( auto const & each : Json::parse( text ) ) {
      Message message{ each.at( "agent" ), each.at( "interface" ), {}, Lifetime::kept, 0 };
      for ( auto const & frame : each.at( "frames" ) ) {
         message.frames.push_back( Settings::frameFromHex( frame.get< std::string >() ) );
      }
      messages.push_back( std::move( message ) );
   }
   return messages;
}

std::string textOf( std::vector< Message > const & messages ) {
   auto list = Json::array();
   for ( auto const & message : messages ) {
      if ( message.lifetime == Lifetime::kept ) {
         auto frames = Json::array();
         for ( auto const & frame : message.frames ) {
            frames.push_back( Settings::toHex( frame ) );
         }
         list.push_back( { { "agent", message.agent },
                           { "interface", message.interface },
                           { "frames", std::move( frames ) } } );
      }
   }
   return list.empty() ? "" : list.dump( 1, ' ', false, Json::error_handler_t::replace ) + "\n";
}

} // namespace

std::vector< Message > PublishedFile::read() const {
   std::ifstream file( path_, std::ios::binary );
   if ( path_.empty() || !file ) {
      return {};
   }
   std::string const text( std::istreambuf_iterator< char >( file ), {} );
   try {
      return text.empty() ? std::vector< Message >() : messagesIn( text );
   } catch ( std::exception const & e ) {
      auto const aside = path_ + ".damaged";
      std::rename( path_.c_str(), aside.c_str() );
      log( LogLevel::error, "published frames lost: " + path_ + " is damaged and was renamed to " +
                               aside + ": " + e.what() );
      return {};
   }
}

void PublishedFile::write( std::vector< Message > const & messages ) {
   auto text = textOf( messages );
   if ( path_.empty() || ( text == written_ && !condition_.raised() ) ) {
      return;
   }
   auto const error = writeAtomically( path_, text, 0600 );
   condition_.update( error.empty() ? "" : "published frames would be lost on restart: " + error );
   if ( error.empty() ) {
      written_ = std::move( text );
   }
}

} // namespace Valend
