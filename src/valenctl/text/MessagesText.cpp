#include "valenctl/text/MessagesText.h"

#include "valenctl/text/JsonFields.h"
#include "valenctl/text/Table.h"

namespace Valenctl {

namespace {

// Who has queued the frames, and for how long.
std::string sourceText( Json const & message ) {
   auto source = textField( message, "lifetime" );
   if ( source == "kept" ) {
      source = "client";
   } else if ( source == "connection" ) {
      source = "client, while connected";
   }
   return anyField( message, "inForce" ) == false ? source + " (not active)" : source;
}

} // namespace

std::string messagesText( Json const & answer ) {
   Table table( { "AGENT", "INTERFACE", "FRAMES", "BYTES", "SOURCE" } );
   for ( auto const & message : listField( answer, "messages" ) ) {
      auto const totals = frameTotals( listField( message, "frames" ) );
      table.add( { textField( message, "agent" ), textField( message, "interface" ),
                   std::to_string( totals.frames ), std::to_string( totals.bytes ),
                   sourceText( message ) } );
   }
   return table.text();
}

std::string tooLongText( Json const & answer ) {
   std::string text;
   for ( auto const & frame : listField( answer, "tooLong" ) ) {
      text += tooLongFrameText( frame, "", "the device" ) + "\n";
   }
   return text;
}

std::string tooLongFrameText( Json const & frame, std::string const & agent,
                              std::string const & device ) {
   return "frame " + std::to_string( numberField( frame, "frame" ) ) +
          ( agent.empty() ? "" : " of " + agent ) + " (" +
          std::to_string( numberField( frame, "bytes" ) ) + " bytes) exceeds the limit of " +
          device + " (" + std::to_string( numberField( frame, "limit" ) ) +
          ") and will not be sent";
}

FrameTotals frameTotals( Json const & frames ) {
   FrameTotals totals{ frames.size(), 0 };
   for ( auto const & frame : frames ) {
      if ( frame.is_string() ) {
         totals.bytes += frame.get_ref< std::string const & >().size() / 2;
      }
   }
   return totals;
}

} // namespace Valenctl
