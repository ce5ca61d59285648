#include "valend/shutdown/ShutdownRecord.h"

#include <cstdio>
#include <iterator>

namespace Valend {

namespace {

using Ending = ShutdownRecord::Ending;

// By ending.
constexpr char const * endingTexts[] = { "running",   "down",   "aborted",   "already-down",
                                         "no-device", "failed", "went-down", "rebooted" };

// "link down", and how the other shutdowns end.
char const * outcome( Ending ending ) {
   switch ( ending ) {
   case Ending::down:
      return "link down";
   case Ending::alreadyDown:
      return "link was down already";
   case Ending::noDevice:
      return "no link to set down";
   case Ending::failed:
      return "link could not be set down";
   case Ending::rebooted:
      return "the machine was started anew";
   case Ending::running:
   case Ending::aborted:
   case Ending::wentDown:
      break;
   }
   return "under way";
}

std::string inMs( std::chrono::microseconds duration ) {
   char text[ 32 ];
   std::snprintf( text, sizeof text, "%.1f ms", static_cast< double >( duration.count() ) / 1000 );
   return text;
}

// "3 frames in 0.2 ms, 1 not sent (Network is down), held 500 ms, "
std::string goodbye( ShutdownRecord const & record ) {
   auto text = std::to_string( record.sent ) + ( record.sent == 1 ? " frame in " : " frames in " ) +
               inMs( record.sending ) + ", ";
   if ( record.failed ) {
      text += std::to_string( record.failed ) + " not sent (" + record.failReason + "), ";
   }
   text += "held " + std::to_string( record.held.count() ) + " ms, ";
   if ( record.unflushedBytes ) {
      text += std::to_string( record.unflushedBytes ) + " bytes unflushed, ";
   }
   return text;
}

} // namespace

char const * ShutdownRecord::endingText() const noexcept {
   return endingTexts[ static_cast< std::size_t >( ending ) ];
}

ShutdownRecord::Ending endingOf( std::string const & text ) noexcept {
   for ( std::size_t i = 0; i < std::size( endingTexts ); ++i ) {
      if ( text == endingTexts[ i ] ) {
         return static_cast< Ending >( i );
      }
   }
   return Ending::running;
}

std::string ShutdownRecord::summary() const {
   if ( ending == Ending::wentDown ) {
      return interface + ": went down without goodbye: " + why;
   }
   if ( ending == Ending::aborted ) {
      return interface + ": will not go down: " + why;
   }
   return interface + ": shutdown by " + by + ": " + ( withDelay ? goodbye( *this ) : "" ) +
          outcome( ending ) + ", total " + std::to_string( total.count() ) + " ms" +
          ( why.empty() ? "" : " (" + why + ")" );
}

} // namespace Valend
