#include "valenctl/StatusText.h"

#include "settings/Counted.h"
#include "valenctl/JsonFields.h"
#include "valenctl/Table.h"
#include "valenctl/Terminal.h"

#include <cstdio>
#include <ctime>

namespace Valenctl {

using Settings::counted;

namespace {

std::string heldText( Json const & interface ) {
   auto const & remaining = interface.value( "remainingMs", Json() );
   if ( remaining.is_number() ) {
      return std::to_string( remaining.get< std::uint64_t >() ) + " ms left";
   }
   return interface.value( "shuttingDown", false ) ? "shutting down" : "-";
}

std::string failedText( Json const & interface ) {
   auto const failed = std::to_string( numberField( interface, "failed" ) );
   auto const why = textField( interface, "lastError" );
   return why.empty() ? failed : failed + " (" + why + ")";
}

std::string linkText( Json const & interface ) {
   auto const link = textField( interface, "link" );
   return link == "up" && !interface.value( "carrier", true ) ? "up, no carrier" : link;
}

std::string readyText( Json const & interface, bool colour ) {
   return interface.value( "ready", false )
             ? coloured( "yes", Colour::green, colour )
             : coloured( "no: " + textField( interface, "notReady" ), Colour::red, colour );
}

// Frames that the interface's device cannot take, a line each.
std::string tooLongNotes( Json const & interface ) {
   std::string lines;
   for ( auto const & agent : listField( interface, "frames" ) ) {
      for ( auto const & frame : listField( agent, "tooLong" ) ) {
         lines += textField( interface, "name" ) + ": frame " +
                  std::to_string( numberField( frame, "frame" ) ) + " of " +
                  textField( agent, "agent" ) + " has " +
                  std::to_string( numberField( frame, "bytes" ) ) + " bytes, and " +
                  textField( interface, "device" ) + " takes " +
                  std::to_string( numberField( frame, "limit" ) ) + ": it will not be sent\n";
      }
   }
   return lines;
}

std::string withoutGoodbyeText( Json const & interface ) {
   return interface.value( "withoutGoodbye", false )
             ? textField( interface, "name" ) + ": somebody else set " +
                  textField( interface, "device" ) + " down, without goodbye\n"
             : "";
}

} // namespace

std::string framesText( Json const & interface, char const * none ) {
   std::string frames;
   for ( auto const & agent : listField( interface, "frames" ) ) {
      frames += ( frames.empty() ? "" : ", " ) + textField( agent, "agent" ) + " " +
                std::to_string( numberField( agent, "count" ) );
   }
   return frames.empty() ? none : frames;
}

std::string interfacesText( Json const & interfaces, bool colour ) {
   Table table( { "INTERFACE", "DEVICE", "VRF", "LINK", "READY", "HELD", "FRAMES", "SENT", "FAILED",
                  "ABORTS" } );
   for ( auto const & interface : interfaces ) {
      auto const held = heldText( interface );
      table.add(
         { textField( interface, "name" ), textField( interface, "device" ),
           textField( interface, "vrf" ), linkText( interface ), readyText( interface, colour ),
           held == "-" ? held : coloured( held, Colour::yellow, colour ),
           framesText( interface, "-" ), std::to_string( numberField( interface, "sent" ) ),
           failedText( interface ), std::to_string( numberField( interface, "aborts" ) ) } );
   }
   return table.text();
}

std::string statusText( Json const & status, bool colour ) {
   auto const & delay = status.value( "shutdownDelayMs", Json() );
   auto result = delay.is_number() ? "shutdowns are held for " +
                                        std::to_string( delay.get< std::uint64_t >() ) + " ms\n"
                                   : std::string( "the feature is off: no shutdown is held\n" );
   result += interfacesText( listField( status, "interfaces" ), colour );
   std::string notes;
   for ( auto const & interface : listField( status, "interfaces" ) ) {
      notes += tooLongNotes( interface ) + withoutGoodbyeText( interface );
   }
   for ( auto const & vrf : listField( status, "vrfs" ) ) {
      auto const trouble = textField( vrf, "trouble" );
      if ( !trouble.empty() ) {
         notes += "VRF " + textField( vrf, "name" ) + ": " + trouble + "\n";
      }
   }
   auto const trouble = textField( status, "trouble" );
   if ( !trouble.empty() ) {
      notes += "a shutdown that is under way would not outlive the agent: " + trouble + "\n";
   }
   auto const faults = listField( status, "lastFaults" );
   if ( !faults.empty() && faults.back().is_string() ) {
      notes += counted( numberField( status, "faults" ), "fault" ) +
               "; the last: " + faults.back().get< std::string >() + "\n";
   }
   return result + notes;
}

std::string stepText( Json const & answer ) {
   auto const shutdown = answer.value( "shutdown", Json::object() );
   auto const name = textField( shutdown, "interface" );
   auto const step = textField( answer, "step" );
   auto const held = std::to_string( numberField( shutdown, "heldMs" ) ) + " ms";
   if ( step == "sent" ) {
      auto const failed = numberField( shutdown, "failed" );
      return name + ": " + counted( numberField( shutdown, "sent" ), "frame" ) + " sent" +
             ( failed ? ", " + std::to_string( failed ) + " not (" +
                           textField( shutdown, "failReason" ) + ")"
                      : "" );
   }
   if ( step == "delayed" ) {
      return name + ": held for " + std::to_string( numberField( answer, "delayMs" ) ) + " ms";
   }
   auto const ending = textField( shutdown, "ending" );
   auto const why = textField( shutdown, "why" );
   auto line = ending == "down"           ? shutdown.value( "withDelay", false )
                                               ? "link down, after it was held " + held
                                               : std::string( "link down, without delay" )
                         : ending == "already-down" ? "link was down already; nothing was sent"
               : ending == "aborted"      ? "shutdown called off, link stays up"
               : ending == "no-device"    ? "no link to set down"
                                          : "link could not be set down";
   if ( auto const bytes = numberField( shutdown, "unflushedBytes" ) ) {
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
