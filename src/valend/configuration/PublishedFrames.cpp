#include "valend/configuration/PublishedFrames.h"

#include "settings/Hex.h"
#include "valend/base/AtomicFile.h"

#include <nlohmann/json.hpp>

namespace Valend {

using Json = nlohmann::json;

namespace {

// Throws when `json` is damaged.
PublishedFrames::Entry entryOf( Json const & json ) {
   Settings::FrameList frames;
   for ( auto const & frame : json.at( "frames" ) ) {
      frames.push_back( Settings::frameFromHex( frame.get< std::string >() ) );
   }
   return { json.at( "agent" ), json.at( "interface" ), std::move( frames ) };
}

std::string quoted( std::string const & text ) {
   return Json( text ).dump( -1, ' ', false, Json::error_handler_t::replace );
}

} // namespace

std::string PublishedFrames::read( std::string const & text ) {
   std::string damage;
   auto const guarded = [ & ]( auto const & parse ) {
      try {
         parse();
      } catch ( std::exception const & e ) {
         damage = damage.empty() ? e.what() : damage;
      }
   };
   stale_ = false;
   fileBytes_ = text.size();
   if ( text.starts_with( '[' ) ) { // of a version that wrote one list
      stale_ = true;
      guarded( [ & ] { readList( text ); } );
      return damage;
   }
   std::size_t begin = 0;
   for ( auto end = text.find( '\n' ); end != text.npos; end = text.find( '\n', begin ) ) {
      guarded( [ & ] { readLine( text.substr( begin, end - begin ) ); } );
      begin = end + 1;
   }
   stale_ = begin != text.size() || !damage.empty();
   return damage;
}

void PublishedFrames::readLine( std::string const & line ) {
   take( entryOf( Json::parse( line ) ) );
}

void PublishedFrames::readList( std::string const & text ) {
   for ( auto const & each : Json::parse( text ) ) {
      take( entryOf( each ) );
   }
}

PublishedFrames::Entries PublishedFrames::entries() const {
   Entries entries;
   for ( auto const & [ key, frames ] : frames_ ) {
      entries.push_back( { key.first, key.second, frames } );
   }
   return entries;
}

std::string PublishedFrames::save( int directory, Entries const & changes ) {
   std::string lines;
   for ( auto const & change : changes ) {
      if ( take( change ) ) {
         lines += lineOf( change );
      }
   }
   if ( lines.empty() && !stale_ ) {
      return "";
   }
   if ( !stale_ && fileBytes_ + lines.size() <= 2 * liveBytes_ + slack &&
        appendSynced( directory, path_, lines ).empty() ) {
      fileBytes_ += lines.size();
      return "";
   }
   return rewrite( directory );
}

// Returns whether it changes anything.
bool PublishedFrames::take( Entry const & change ) {
   auto const [ entry, added ] = frames_.try_emplace( { change.agent, change.interface } );
   if ( entry->second == change.frames ) {
      if ( change.frames.empty() ) {
         frames_.erase( entry );
      }
      return false;
   }
   liveBytes_ += lineBytes( change.frames );
   liveBytes_ -= lineBytes( entry->second );
   entry->second = change.frames;
   if ( change.frames.empty() ) {
      frames_.erase( entry );
   }
   return true;
}

std::string PublishedFrames::rewrite( int directory ) {
   stale_ = true; // until it has succeeded
   std::string text;
   text.reserve( liveBytes_ );
   for ( auto const & entry : entries() ) {
      text += lineOf( entry );
   }
   auto error = writeAtomically( directory, path_, text, 0600, Sync::yes );
   if ( error.empty() ) {
      stale_ = false;
      fileBytes_ = text.size();
   }
   return error;
}

std::string PublishedFrames::lineOf( Entry const & entry ) {
   std::string line = "{\"agent\":" + quoted( entry.agent ) +
                      ",\"interface\":" + quoted( entry.interface ) + ",\"frames\":[";
   line.reserve( line.size() + lineBytes( entry.frames ) );
   char const * separator = "\"";
   for ( auto const & frame : entry.frames ) {
      line += separator;
      line += Settings::toHex( frame );
      separator = "\",\"";
   }
   return line + ( entry.frames.empty() ? "]}\n" : "\"]}\n" );
}

// Without the names, which are short.
std::size_t PublishedFrames::lineBytes( Settings::Frames const & frames ) {
   std::size_t bytes = 0;
   for ( auto const & frame : frames ) {
      bytes += 2 * frame.size() + 3;
   }
   return bytes + ( frames.empty() ? 0 : 100 );
}

} // namespace Valend
