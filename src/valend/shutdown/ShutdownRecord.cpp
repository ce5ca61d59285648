#include "valend/shutdown/ShutdownRecord.h"

#include "settings/Counted.h"

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
   auto const frames =
      withDelay ? sendingText( *this ) + "held " + inMs( held ) + ", " + unflushedText( *this )
                : std::string();
   switch ( ending ) {
   case Ending::running:
      return shutdown + frames + outcome( "in progress", *this );
   case Ending::down:
      return shutdown + frames + outcome( "link down", *this );
   case Ending::aborted:
      return interface + ": shutdown aborted: " + why;
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

void ShutdownRecord::note( std::string const & part ) {
   if ( part.empty() ) {
      return;
   }
   why += why.empty() ? part : "; " + part;
}

} // namespace Valend
