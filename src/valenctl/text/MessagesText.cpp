#include "valenctl/text/MessagesText.h"

#include "valenctl/text/FrameWords.h"
#include "valenctl/text/JsonFields.h"
#include "valenctl/text/Table.h"
#include "valenctl/text/TimeText.h"

#include <map>

namespace Valenctl {

namespace {

// Who has queued the frames, and for how long.
std::string sourceText( Json const & message ) {
   auto source = textField( message, "lifetime" );
   if ( source == "kept" ) {
      source = "client";
   } else if ( source == "connection" ) {
      source = "client, while connected";
   } else if ( auto const owner = textField( message, "owner" ); !owner.empty() ) {
      source += ", " + owner;
   }
   return anyField( message, "inForce" ) == false ? source + " (not active)" : source;
}

// A line for each frame of which something is known.
std::string framesText( Json const & message ) {
   std::map< std::uint64_t, std::string > known; // by number
   for ( auto const & learned : listField( message, "learned" ) ) {
      known[ numberField( learned, "frame" ) ] = learnedText( learned );
   }
   std::string lines;
   std::uint64_t number = 0;
   for ( auto const & hex : textsField( message, "frames" ) ) {
      auto const learned = known.find( ++number );
      auto const text = learned == known.end() ? knownText( hex ) : learned->second;
      if ( !text.empty() ) {
         lines += textField( message, "interface" ) + ": frame " + std::to_string( number ) +
                  " of " + textField( message, "agent" ) + ": " + text + "\n";
      }
   }
   return lines;
}

} // namespace

std::string messagesText( Json const & answer ) {
   Table table( { "AGENT", "INTERFACE", "FRAMES", "BYTES", "SOURCE" } );
   std::string frames;
   for ( auto const & message : listField( answer, "messages" ) ) {
      auto const totals = frameTotals( listField( message, "frames" ) );
      table.add( { textField( message, "agent" ), textField( message, "interface" ),
                   std::to_string( totals.frames ), std::to_string( totals.bytes ),
                   sourceText( message ) } );
      frames += framesText( message );
   }
   return table.text() + frames;
}

std::string learnedText( Json const & learned ) {
   return textField( learned, "speaker" ) + ": " + textField( learned, "change" ) + "; " +
          ageText( learned );
}

std::string ageText( Json const & heard ) {
   using std::chrono::milliseconds;
   return "heard " + durationText( milliseconds( numberField( heard, "heardMs" ) ) ) +
          " ago, fresh for " + durationText( milliseconds( numberField( heard, "freshMs" ) ) );
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
