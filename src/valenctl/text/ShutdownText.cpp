#include "valenctl/text/ShutdownText.h"

#include "settings/Counted.h"
#include "valenctl/text/HostColumn.h"
#include "valenctl/text/JsonFields.h"
#include "valenctl/text/Table.h"
#include "valenctl/text/TimeText.h"

#include <set>

namespace Valenctl {

namespace {

std::string sentText( Json const & shutdown ) {
   auto const text = Settings::counted( numberField( shutdown, "sent" ), "frame" ) + " sent";
   auto const failed = numberField( shutdown, "failed" );
   return failed ? text + ", " + std::to_string( failed ) + " failed (" +
                      textField( shutdown, "failReason" ) + ")"
                 : text;
}

std::string heldText( Json const & shutdown ) {
   return std::to_string( numberField( shutdown, "heldMs" ) ) + " ms";
}

// "; 1500 bytes of frames not sent"
std::string unsentText( Json const & shutdown ) {
   auto const bytes = numberField( shutdown, "unflushedBytes" );
   return bytes ? "; " + std::to_string( bytes ) + " bytes of frames not sent" : "";
}

// "lldp, vrrp": the protocols of speakers, each once.
std::string protocolsOf( std::vector< Json > const & speakers ) {
   std::set< std::string > seen;
   std::string text;
   for ( auto const & speaker : speakers ) {
      auto const protocol = textField( speaker, "protocol" );
      if ( seen.insert( protocol ).second ) {
         text += ( text.empty() ? "" : ", " ) + protocol;
      }
   }
   return text;
}

// What became of the speakers that said goodbye: "; muted lldp, vrrp (12 frames held back), greeted lldp".
std::string mutedText( Json const & shutdown, char const * separator = "; " ) {
   std::vector< Json > muted, greeted;
   std::uint64_t heldBack = 0;
   for ( auto const & speaker : listField( shutdown, "muted" ) ) {
      muted.push_back( speaker );
      heldBack += numberField( speaker, "heldBack" );
      if ( flagField( speaker, "greeted" ) ) {
         greeted.push_back( speaker );
      }
   }
   std::string text;
   if ( auto const why = textField( shutdown, "notMuted" ); !why.empty() ) {
      text += separator + ( "not muted: " + why );
   }
   if ( !muted.empty() ) {
      text += separator + ( "muted " + protocolsOf( muted ) ) +
              ( heldBack ? " (" + Settings::counted( heldBack, "frame" ) + " held back)" : "" );
   }
   return greeted.empty() ? text : text + ", greeted " + protocolsOf( greeted );
}

// "root (login alice)"
std::string requesterText( Json const & shutdown ) {
   auto const login = textField( shutdown, "login" );
   return textField( shutdown, "by" ) + ( login.empty() ? "" : " (login " + login + ")" );
}

// How a shutdown ended, with the reason when there is one.
std::string endText( Json const & shutdown ) {
   auto const ending = textField( shutdown, "ending" );
   auto const why = textField( shutdown, "why" );
   auto const inParentheses = why.empty() ? "" : " (" + why + ")";
   auto const afterColon = why.empty() ? "" : ": " + why;
   if ( ending == "down" ) {
      auto const when =
         flagField( shutdown, "withDelay" ) ? "after " + heldText( shutdown ) : "without delay";
      return "link down " + when + unsentText( shutdown ) + mutedText( shutdown ) + inParentheses;
   }
   if ( ending == "already-down" ) {
      return "already down; no frames sent" + inParentheses;
   }
   if ( ending == "aborted" ) {
      return "shutdown aborted; link stays up" + mutedText( shutdown ) + inParentheses;
   }
   if ( ending == "no-device" ) {
      return "device not present" + afterColon;
   }
   if ( ending == "expired" ) {
      return "shutdown expired; link left unchanged" + inParentheses;
   }
   return "cannot set link down" + afterColon;
}

std::string atText( Json const & shutdown, char const * field ) {
   return timeText( std::chrono::milliseconds( numberField( shutdown, field ) ) );
}

// "went-down, 12 times until 2026-01-31T12:00:00.123Z (link set down outside valend)"
std::string resultText( Json const & shutdown ) {
   auto text = textField( shutdown, "ending" );
   if ( auto const count = numberField( shutdown, "count" ); count > 1 ) {
      text += ", " + std::to_string( count ) + " times until " + atText( shutdown, "untilMs" );
   }
   if ( auto const bytes = numberField( shutdown, "unflushedBytes" ) ) {
      text += ", " + std::to_string( bytes ) + " bytes not sent";
   }
   text += mutedText( shutdown, ", " );
   auto const why = textField( shutdown, "why" );
   return why.empty() ? text : text + " (" + why + ")";
}

} // namespace

std::string stepText( Json const & step ) {
   auto const shutdown = anyField( step, "shutdown" );
   auto const name = nameWithHost( shutdown, "interface" ) + ": ";
   auto const kind = textField( step, "step" );
   if ( kind == "sent" ) {
      return name + sentText( shutdown );
   }
   if ( kind == "delayed" ) {
      return name + "held for " + std::to_string( numberField( step, "delayMs" ) ) + " ms";
   }
   if ( kind == "retrying" ) {
      return name + "cannot set link down: " + textField( shutdown, "why" ) +
             "; valend goes on trying";
   }
   return name + endText( shutdown );
}

bool stepSucceeded( Json const & step ) {
   auto const ending = textField( anyField( step, "shutdown" ), "ending" );
   auto const kind = textField( step, "step" );
   return kind == "sent" || kind == "delayed" || ending == "down" || ending == "already-down";
}

std::string enableText( Json const & result ) {
   auto const name = nameWithHost( result, "interface" ) + ": ";
   auto const what = textField( result, "result" );
   if ( what == "failed" ) {
      return name + textField( result, "message" );
   }
   if ( what == "aborted" ) {
      return name + "shutdown aborted; link stays up";
   }
   return name + ( what == "already-up" ? "already up" : "link up" );
}

std::string goodbyeText( Json const & result ) {
   auto const name = textField( result, "interface" ) + ": ";
   auto const what = textField( result, "result" );
   if ( what == "already-down" ) {
      return name + "already down; no frames sent";
   }
   auto const why = textField( result, "message" );
   if ( what == "not-ready" ) {
      return name + "no frames sent: " + why;
   }
   auto const goodbye = anyField( result, "goodbye" );
   return name + sentText( goodbye ) + unsentText( goodbye ) + "; link stays up" +
          ( why.empty() ? "" : " (" + why + ")" );
}

std::string historyText( Json const & answer ) {
   auto const shutdowns = listField( answer, "shutdowns" );
   HostColumn const hosts( shutdowns );
   Table table( hosts.headings(
      { "WHEN", "INTERFACE", "BY", "SENT", "FAILED", "HELD", "RESULT", "REASON" } ) );
   for ( auto const & shutdown : shutdowns ) {
      auto const reason = textField( shutdown, "reason" );
      table.add( hosts.row(
         shutdown, { atText( shutdown, "whenMs" ), textField( shutdown, "interface" ),
                     requesterText( shutdown ), std::to_string( numberField( shutdown, "sent" ) ),
                     countWithReason( shutdown, "failed", "failReason" ),
                     flagField( shutdown, "withDelay" ) ? heldText( shutdown ) : "-",
                     resultText( shutdown ), reason.empty() ? "-" : reason } ) );
   }
   return table.text();
}

} // namespace Valenctl
