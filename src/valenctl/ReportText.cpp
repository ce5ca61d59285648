#include "valenctl/ReportText.h"

#include "valenctl/JsonFields.h"
#include "valenctl/StatusText.h"
#include "valenctl/Table.h"
#include "valenctl/Terminal.h"

#include <cstdio>
#include <ctime>

namespace Valenctl {

namespace {

std::string endingText( Json const & shutdown ) {
   auto const why = textField( shutdown, "why" );
   auto text = textField( shutdown, "ending" );
   if ( auto const bytes = numberField( shutdown, "unflushedBytes" ) ) {
      text += ", unflushed " + std::to_string( bytes );
   }
   return why.empty() ? text : text + " (" + why + ")";
}

} // namespace

std::string explainText( std::string const & interface, Json const & answer, bool colour ) {
   bool const ready = answer.value( "ready", false );
   auto text = interface + ": " +
               ( ready ? coloured( "ready", Colour::green, colour )
                       : coloured( "not ready", Colour::red, colour ) ) +
               ", link " + textField( answer, "link" ) + "\n";
   for ( auto const & each : listField( answer, "requirements" ) ) {
      bool const met = each.value( "met", false );
      auto const detail = textField( each, "detail" );
      text += "  " +
              ( met ? coloured( "yes", Colour::green, colour )
                    : coloured( "NO ", Colour::red, colour ) ) +
              "  " + textField( each, "what" ) + ( detail.empty() ? "" : ": " + detail ) + "\n";
   }
   return text;
}

std::string historyText( Json const & answer ) {
   Table table( { "WHEN", "INTERFACE", "BY", "SENT", "FAILED", "HELD", "ENDING" } );
   for ( auto const & shutdown : listField( answer, "shutdowns" ) ) {
      auto const failed = numberField( shutdown, "failed" );
      auto const reason = textField( shutdown, "failReason" );
      table.add( { timeText( numberField( shutdown, "whenMs" ) ),
                   textField( shutdown, "interface" ), textField( shutdown, "by" ),
                   std::to_string( numberField( shutdown, "sent" ) ),
                   std::to_string( failed ) + ( reason.empty() ? "" : " (" + reason + ")" ),
                   shutdown.value( "withDelay", false )
                      ? std::to_string( numberField( shutdown, "heldMs" ) ) + " ms"
                      : "-",
                   endingText( shutdown ) } );
   }
   return table.text();
}

std::string messagesText( Json const & answer ) {
   Table table( { "AGENT", "INTERFACE", "FRAMES", "BYTES", "FROM" } );
   for ( auto const & message : listField( answer, "messages" ) ) {
      std::size_t digits = 0;
      auto const frames = listField( message, "frames" );
      for ( auto const & frame : frames ) {
         digits += frame.is_string() ? frame.get_ref< std::string const & >().size() : 0;
      }
      auto from = textField( message, "lifetime" );
      from = from == "connection" ? "a client, while it is connected"
             : from == "kept"     ? "a client, kept"
                                  : from;
      table.add( { textField( message, "agent" ), textField( message, "interface" ),
                   std::to_string( frames.size() ), std::to_string( digits / 2 ),
                   from + ( message.value( "inForce", true ) ? "" : ", not in force" ) } );
   }
   return table.text();
}

std::string tooLongText( Json const & answer ) {
   std::string text;
   for ( auto const & frame : listField( answer, "tooLong" ) ) {
      text += "frame " + std::to_string( numberField( frame, "frame" ) ) + " has " +
              std::to_string( numberField( frame, "bytes" ) ) + " bytes, and the device takes " +
              std::to_string( numberField( frame, "limit" ) ) + ": it will not be sent\n";
   }
   return text;
}

std::string interfaceText( Json const & interface ) {
   auto text = textField( interface, "link" );
   auto const failed = numberField( interface, "failed" );
   text += interface.value( "ready", false ) ? ", ready"
                                             : ", not ready: " + textField( interface, "notReady" );
   text += interface.value( "delayed", false )        ? ", held"
           : interface.value( "shuttingDown", false ) ? ", shutting down"
                                                      : "";
   return text + ", frames: " + framesText( interface, "none" ) + ", sent " +
          std::to_string( numberField( interface, "sent" ) ) +
          ( failed ? ", failed " + std::to_string( failed ) + " (" +
                        textField( interface, "lastError" ) + ")"
                   : "" );
}

std::string timeText( std::uint64_t msSince1970 ) {
   auto const seconds = static_cast< std::time_t >( msSince1970 / 1000 );
   std::tm utc{};
   ::gmtime_r( &seconds, &utc );
   char date[ 32 ];
   std::strftime( date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc );
   char fraction[ 16 ];
   std::snprintf( fraction, sizeof fraction, ".%03uZ",
                  static_cast< unsigned >( msSince1970 % 1000 ) );
   return std::string( date ) + fraction;
}

} // namespace Valenctl
