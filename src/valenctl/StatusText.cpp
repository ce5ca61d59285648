#include "valenctl/StatusText.h"

#include "valenctl/Table.h"

#include <cstdio>
#include <ctime>

namespace Valenctl {

namespace {

std::string text( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() && found->is_string() ? found->get< std::string >() : "";
}

std::uint64_t number( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() && found->is_number() ? found->get< std::uint64_t >() : 0;
}

std::string counted( std::uint64_t count, char const * what ) {
   return std::to_string( count ) + " " + what + ( count == 1 ? "" : "s" );
}

Json list( Json const & object, char const * key ) {
   return object.value( key, Json::array() );
}

std::string framesText( Json const & interface ) {
   std::string frames;
   for ( auto const & agent : list( interface, "frames" ) ) {
      frames += ( frames.empty() ? "" : ", " ) + text( agent, "agent" ) + " " +
                std::to_string( number( agent, "count" ) );
   }
   return frames.empty() ? "-" : frames;
}

std::string heldText( Json const & interface ) {
   auto const & remaining = interface.value( "remainingMs", Json() );
   if ( remaining.is_number() ) {
      return std::to_string( remaining.get< std::uint64_t >() ) + " ms left";
   }
   return interface.value( "shuttingDown", false ) ? "shutting down" : "-";
}

std::string failedText( Json const & interface ) {
   auto const failed = std::to_string( number( interface, "failed" ) );
   auto const why = text( interface, "lastError" );
   return why.empty() ? failed : failed + " (" + why + ")";
}

std::string linkText( Json const & interface ) {
   auto const link = text( interface, "link" );
   return link == "up" && !interface.value( "carrier", true ) ? "up, no carrier" : link;
}

std::string readyText( Json const & interface ) {
   return interface.value( "ready", false ) ? "yes" : "no: " + text( interface, "notReady" );
}

// Frames that the interface's device cannot take, a line each.
std::string tooLongText( Json const & interface ) {
   std::string lines;
   for ( auto const & agent : list( interface, "frames" ) ) {
      for ( auto const & frame : list( agent, "tooLong" ) ) {
         lines += text( interface, "name" ) + ": frame " +
                  std::to_string( number( frame, "frame" ) ) + " of " + text( agent, "agent" ) +
                  " has " + std::to_string( number( frame, "bytes" ) ) + " bytes, and " +
                  text( interface, "device" ) + " takes " +
                  std::to_string( number( frame, "limit" ) ) + ": it will not be sent\n";
      }
   }
   return lines;
}

} // namespace

std::string statusText( Json const & status ) {
   auto const & delay = status.value( "shutdownDelayMs", Json() );
   auto result = delay.is_number() ? "shutdowns are held for " +
                                        std::to_string( delay.get< std::uint64_t >() ) + " ms\n"
                                   : std::string( "the feature is off: no shutdown is held\n" );
   Table table( { "INTERFACE", "DEVICE", "VRF", "LINK", "READY", "HELD", "FRAMES", "SENT", "FAILED",
                  "ABORTS" } );
   std::string notes;
   for ( auto const & interface : list( status, "interfaces" ) ) {
      table.add( { text( interface, "name" ), text( interface, "device" ), text( interface, "vrf" ),
                   linkText( interface ), readyText( interface ), heldText( interface ),
                   framesText( interface ), std::to_string( number( interface, "sent" ) ),
                   failedText( interface ), std::to_string( number( interface, "aborts" ) ) } );
      notes += tooLongText( interface );
   }
   for ( auto const & vrf : list( status, "vrfs" ) ) {
      auto const trouble = text( vrf, "trouble" );
      if ( !trouble.empty() ) {
         notes += "VRF " + text( vrf, "name" ) + ": " + trouble + "\n";
      }
   }
   auto const faults = list( status, "lastFaults" );
   if ( !faults.empty() && faults.back().is_string() ) {
      notes += counted( number( status, "faults" ), "fault" ) +
               "; the last: " + faults.back().get< std::string >() + "\n";
   }
   return result + table.text() + notes;
}

std::string stepText( Json const & answer ) {
   auto const shutdown = answer.value( "shutdown", Json::object() );
   auto const name = text( shutdown, "interface" );
   auto const step = text( answer, "step" );
   auto const held = std::to_string( number( shutdown, "heldMs" ) ) + " ms";
   if ( step == "sent" ) {
      auto const failed = number( shutdown, "failed" );
      return name + ": " + counted( number( shutdown, "sent" ), "frame" ) + " sent" +
             ( failed ? ", " + std::to_string( failed ) + " not (" +
                           text( shutdown, "failReason" ) + ")"
                      : "" );
   }
   if ( step == "delayed" ) {
      return name + ": held for " + std::to_string( number( answer, "delayMs" ) ) + " ms";
   }
   auto const ending = text( shutdown, "ending" );
   auto const why = text( shutdown, "why" );
   auto line = ending == "down"           ? shutdown.value( "withDelay", false )
                                               ? "link down, after it was held " + held
                                               : std::string( "link down, without delay" )
                         : ending == "already-down" ? "link was down already; nothing was sent"
               : ending == "aborted"      ? "shutdown called off, link stays up"
               : ending == "no-device"    ? "no link to set down"
                                          : "link could not be set down";
   if ( auto const bytes = number( shutdown, "unflushedBytes" ) ) {
      line += ", with " + std::to_string( bytes ) + " bytes of frames unsent in the socket";
   }
   return name + ": " + line + ( why.empty() ? "" : " (" + why + ")" );
}

std::string traceText( std::uint64_t timeNs, std::string const & unit, std::uint64_t level,
                       std::string const & text ) {
   auto const seconds = static_cast< std::time_t >( timeNs / 1'000'000'000 );
   std::tm utc{};
   ::gmtime_r( &seconds, &utc );
   char date[ 32 ];
   std::strftime( date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc );
   char fraction[ 16 ];
   std::snprintf( fraction, sizeof fraction, ".%06uZ ",
                  static_cast< unsigned >( timeNs % 1'000'000'000 / 1000 ) );
   return std::string( date ) + fraction + unit + "/" + std::to_string( level ) + " " + text;
}

} // namespace Valenctl
