#include "valenctl/text/StatusText.h"

#include "settings/Counted.h"
#include "settings/Goodbyes.h"
#include "valenctl/text/HostColumn.h"
#include "valenctl/text/JsonFields.h"
#include "valenctl/text/MessagesText.h"
#include "valenctl/text/Table.h"
#include "valenctl/text/TimeText.h"

namespace Valenctl {

using Settings::counted;

namespace {

// How long the link is still held, or what is done instead; empty when no shutdown is in progress.
std::string remainingText( Json const & interface ) {
   if ( anyField( interface, "remainingMs" ).is_number() ) {
      return std::to_string( numberField( interface, "remainingMs" ) ) + " ms left";
   }
   if ( !textField( interface, "retrying" ).empty() ) {
      return "retrying";
   }
   return flagField( interface, "shuttingDown" ) ? "shutting down" : "";
}

std::string linkText( Json const & interface ) {
   auto const link = textField( interface, "link" );
   auto const carrier = anyField( interface, "carrier" );
   return link == "up" && carrier == false ? "up, no carrier" : link;
}

std::string readyText( Json const & interface, Palette const & palette ) {
   return flagField( interface, "ready" )
             ? palette.green( "yes" )
             : palette.red( "no: " + textField( interface, "notReady" ) );
}

// How many frames each agent has queued: "lldp 1, radv 2"; empty when there are none. Learned goodbyes by protocol:
// "lldp 1 (learned)".
std::string frameCountsText( Json const & interface ) {
   std::string frames;
   for ( auto const & agent : listField( interface, "frames" ) ) {
      std::string_view const learned = Settings::learnedAgents;
      auto const name = textField( agent, "agent" );
      bool const isLearned = name.starts_with( learned );
      frames += ( frames.empty() ? "" : ", " ) + name.substr( isLearned ? learned.size() : 0 ) +
                " " + std::to_string( numberField( agent, "count" ) ) +
                ( isLearned ? " (learned)" : "" );
   }
   return frames;
}

std::string orElse( std::string const & text, char const * empty ) {
   return text.empty() ? empty : text;
}

// What needs attention at an interface, one line each.
std::string interfaceNotes( Json const & interface ) {
   auto const name = nameWithHost( interface, "name" );
   std::string lines;
   for ( auto const & agent : listField( interface, "frames" ) ) {
      for ( auto const & frame : listField( agent, "tooLong" ) ) {
         lines += name + ": " +
                  tooLongFrameText( frame, textField( agent, "agent" ),
                                    textField( interface, "device" ) ) +
                  "\n";
      }
   }
   if ( flagField( interface, "withoutGoodbye" ) ) {
      lines += name + ": link set down outside valend; no goodbye frames sent\n";
   }
   return lines;
}

std::string conditionsText( Json const & conditions ) {
   if ( conditions.empty() ) {
      return "";
   }
   HostColumn const hosts( conditions );
   Table table( hosts.headings( { "CONDITIONS", "SINCE", "DESCRIPTION" } ) );
   for ( auto const & condition : conditions ) {
      std::chrono::milliseconds const since( numberField( condition, "since" ) );
      table.add( hosts.row( condition, { textField( condition, "name" ), timeText( since ),
                                         textField( condition, "text" ) } ) );
   }
   return table.text();
}

std::string delayText( Json const & status ) {
   return anyField( status, "shutdownDelayMs" ).is_number()
             ? std::to_string( numberField( status, "shutdownDelayMs" ) ) + " ms"
             : "disabled";
}

std::vector< std::string > hostRow( Json const & host, std::size_t ready, std::size_t shuttingDown,
                                    Palette const & palette ) {
   bool const stale = flagField( host, "stale" );
   auto const state = stale ? palette.red( orElse( textField( host, "state" ), "stale" ) )
                            : palette.green( "alive" );
   return { textField( host, "host" ),
            state,
            stale ? "-" : textField( host, "version" ),
            stale ? "-" : delayText( host ),
            std::to_string( listField( host, "interfaces" ).size() ),
            std::to_string( ready ),
            std::to_string( shuttingDown ) };
}

std::string faultsText( Json const & status ) {
   auto const faults = textsField( status, "lastFaults" );
   auto const host = textField( status, "host" );
   return faults.empty() ? ""
                         : ( host.empty() ? "" : host + ": " ) +
                              counted( numberField( status, "faults" ), "fault" ) +
                              ", last: " + faults.back() + "\n";
}

} // namespace

std::string interfacesText( Json const & interfaces, Palette const & palette ) {
   HostColumn const hosts( interfaces );
   Table table( hosts.headings( { "INTERFACE", "DEVICE", "VRF", "LINK", "READY", "HELD", "FRAMES",
                                  "SENT", "FAILED", "ABORTS" } ) );
   for ( auto const & interface : interfaces ) {
      auto const held = remainingText( interface );
      table.add( hosts.row(
         interface,
         { textField( interface, "name" ), textField( interface, "device" ),
           textField( interface, "vrf" ), linkText( interface ), readyText( interface, palette ),
           held.empty() ? "-" : palette.yellow( held ), orElse( frameCountsText( interface ), "-" ),
           std::to_string( numberField( interface, "sent" ) ),
           countWithReason( interface, "failed", "lastError" ),
           std::to_string( numberField( interface, "aborts" ) ) } ) );
   }
   return table.text();
}

std::string statusText( Json const & status, Palette const & palette ) {
   auto const delay = delayText( status );
   auto text = delay == "disabled" ? "shutdown delay disabled (shutdown-delay-ms is not set)\n"
                                   : "shutdown delay: " + delay + "\n";
   text += interfacesText( listField( status, "interfaces" ), palette );
   for ( auto const & interface : listField( status, "interfaces" ) ) {
      text += interfaceNotes( interface );
   }
   return text + conditionsText( listField( status, "conditions" ) ) + faultsText( status );
}

std::string hostsText( Json const & answer, Palette const & palette ) {
   Table hosts( { "HOST", "STATE", "VALEND", "DELAY", "INTERFACES", "READY", "SHUTTING DOWN" } );
   auto interfaces = Json::array();
   auto conditions = Json::array();
   std::string notes, rejected, faults;
   for ( auto const & host : listField( answer, "hosts" ) ) {
      auto const name = textField( host, "host" );
      std::size_t ready = 0, shuttingDown = 0;
      for ( auto interface : listField( host, "interfaces" ) ) {
         ready += flagField( interface, "ready" );
         shuttingDown += flagField( interface, "shuttingDown" );
         interface[ "host" ] = name;
         notes += interfaceNotes( interface );
         interfaces.push_back( std::move( interface ) );
      }
      hosts.add( hostRow( host, ready, shuttingDown, palette ) );
      for ( auto condition : listField( host, "conditions" ) ) {
         condition[ "host" ] = name;
         conditions.push_back( std::move( condition ) );
      }
      for ( auto const & entry : listField( host, "rejected" ) ) {
         rejected += name + ": " + textField( entry, "key" ) +
                     " is rejected: " + textField( entry, "why" ) + "\n";
      }
      faults += faultsText( host );
   }
   return hosts.text() + "\n" +
          ( interfaces.empty() ? "no interfaces\n" : interfacesText( interfaces, palette ) ) +
          notes + rejected + conditionsText( conditions ) + faults;
}

std::string interfaceText( Json const & interface ) {
   auto text = textField( interface, "link" );
   text += flagField( interface, "ready" ) ? ", ready"
                                           : ", not ready: " + textField( interface, "notReady" );
   if ( flagField( interface, "delayed" ) ) {
      text += ", held";
   } else if ( flagField( interface, "shuttingDown" ) ) {
      auto const why = textField( interface, "retrying" );
      text += ", shutting down" + ( why.empty() ? "" : " (retrying: " + why + ")" );
   }
   text += ", frames: " + orElse( frameCountsText( interface ), "none" ) + ", sent " +
           std::to_string( numberField( interface, "sent" ) );
   return numberField( interface, "failed" )
             ? text + ", failed " + countWithReason( interface, "failed", "lastError" )
             : text;
}

} // namespace Valenctl
