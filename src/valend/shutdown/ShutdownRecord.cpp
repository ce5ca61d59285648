#include "valend/shutdown/ShutdownRecord.h"

#include "settings/Counted.h"

#include <algorithm>
#include <cstdio>

namespace Valend {

namespace {

using Ending = ShutdownRecord::Ending;
using Settings::counted;

std::string inMs( std::chrono::microseconds duration ) {
   char text[ 32 ];
   std::snprintf( text, sizeof text, "%.1f ms", static_cast< double >( duration.count() ) / 1000 );
   return text;
}

std::string inMs( std::chrono::milliseconds duration ) {
   return std::to_string( duration.count() ) + " ms";
}

// "3 frames in 0.2 ms, 1 not sent (Network is down), "
std::string sendingText( ShutdownRecord const & record ) {
   auto text = counted( record.sent, "frame" ) + " in " + inMs( record.sending ) + ", ";
   if ( record.failed ) {
      text += std::to_string( record.failed ) + " not sent (" + record.failReason + "), ";
   }
   return text;
}

// "lldp, vrrp": the protocols of these speakers, each once.
template < class Selects >
std::string protocolsOf( std::vector< MutedSpeaker > const & speakers, Selects const & selects ) {
   std::vector< std::string_view > protocols;
   std::string text;
   for ( auto const & speaker : speakers ) {
      if ( selects( speaker ) &&
           std::find( protocols.begin(), protocols.end(), speaker.protocol ) == protocols.end() ) {
         protocols.push_back( speaker.protocol );
         text += ( text.empty() ? "" : ", " ) + speaker.protocol;
      }
   }
   return text;
}

// A text that may be empty, and what separates it from others.
std::string before( char const * separator, std::string const & text ) {
   return text.empty() ? "" : text + separator;
}
std::string after( char const * separator, std::string const & text ) {
   return text.empty() ? "" : separator + text;
}

std::string unflushedText( ShutdownRecord const & record ) {
   return record.unflushedBytes ? std::to_string( record.unflushedBytes ) + " bytes unflushed, "
                                : "";
}

// "(the delay did not end in time)"
std::string inParentheses( std::string const & why ) {
   return why.empty() ? "" : " (" + why + ")";
}

// "link down, total 501 ms (the delay did not end in time)"
std::string outcome( char const * what, ShutdownRecord const & record ) {
   return std::string( what ) + ", total " + inMs( record.total ) + inParentheses( record.why );
}

// "total 901 ms, device not present: no device et1"
std::string failure( char const * what, ShutdownRecord const & record ) {
   return "total " + inMs( record.total ) + ", " + what + ": " + record.why;
}

} // namespace

ShutdownRecord::Ending endingOf( std::string const & text ) noexcept {
   return valueOf< Ending >( text ).value_or( Ending::running );
}

std::string ShutdownRecord::summary() const {
   auto const by = request.requester() +
                   ( request.reason.empty() ? "" : ", reason \"" + request.reason + "\"" ) + ": ";
   auto const shutdown = interface + ": shutdown by " + by;
   auto const frames = withDelay ? sendingText( *this ) + "held " + inMs( held ) + ", " +
                                      before( ", ", mutedText() ) + unflushedText( *this )
                                 : std::string();
   switch ( ending ) {
   case Ending::running:
      return shutdown + frames + outcome( "in progress", *this );
   case Ending::down:
      return shutdown + frames + outcome( "link down", *this );
   case Ending::aborted:
      return interface + ": shutdown aborted: " + why + after( "; ", mutedText() );
   case Ending::alreadyDown:
      return shutdown + "already down; no frames sent" + inParentheses( why );
   case Ending::noDevice:
      return shutdown + frames + failure( "device not present", *this );
   case Ending::failed:
      return shutdown + frames + failure( "cannot set the link down", *this );
   case Ending::wentDown:
      return interface + ": " + setDownOutside + "; no goodbye frames sent";
   case Ending::rebooted:
      return shutdown + frames + outcome( "machine rebooted", *this );
   case Ending::expired:
      return shutdown + frames + "expired; link left unchanged" + inParentheses( why );
   case Ending::goodbye:
      return interface + ": goodbye by " + by + sendingText( *this ) + unflushedText( *this ) +
             "link unchanged" + inParentheses( why );
   }
   return shutdown; // not reached: the switch has every ending
}

std::string ShutdownRecord::mutedText() const {
   std::string text;
   auto const add = [ & ]( std::string const & part ) {
      text += text.empty() ? part : ", " + part;
   };
   if ( !notMuted.empty() ) {
      add( "not muted: " + notMuted );
   }
   if ( !muted.empty() ) {
      U64 heldBack = 0;
      for ( auto const & speaker : muted ) {
         heldBack += speaker.heldBack;
      }
      add( "muted " + protocolsOf( muted, []( auto const & ) { return true; } ) +
           ( heldBack ? " (" + counted( heldBack, "frame" ) + " held back)" : "" ) );
   }
   auto const greeted =
      protocolsOf( muted, []( auto const & speaker ) { return speaker.greeted; } );
   if ( !greeted.empty() ) {
      add( "greeted " + greeted );
   }
   return text;
}

void ShutdownRecord::note( std::string const & part ) {
   if ( part.empty() ) {
      return;
   }
   why += why.empty() ? part : "; " + part;
}

} // namespace Valend
