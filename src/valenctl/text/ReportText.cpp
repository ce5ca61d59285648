#include "valenctl/text/ReportText.h"

#include "settings/Counted.h"
#include "valenctl/text/JsonFields.h"
#include "valenctl/text/MessagesText.h"
#include "valenctl/text/Table.h"
#include "valenctl/text/TimeText.h"

namespace Valenctl {

namespace {

// "  yes  goodbye learned: lldp, chassis 02:00:00:00:00:01, port eth0: ttl 120 -> 0; heard 3 s ago, fresh for 117 s"
std::string speakerText( Json const & speaker ) {
   auto const who =
      textField( speaker, "protocol" ) + ", " + textField( speaker, "speaker" ) + ": ";
   auto const why = textField( speaker, "notLearned" );
   if ( !why.empty() ) {
      return "  no   goodbye learned: " + who + why + "\n";
   }
   auto const frames = numberField( speaker, "frames" );
   return "  yes  goodbye learned: " + who + textField( speaker, "change" ) +
          ( frames > 1 ? " and " + Settings::counted( frames - 1, "more frame" ) : "" ) + "; " +
          ageText( speaker ) + "\n";
}

} // namespace

std::string explainText( std::string const & interface, Json const & answer,
                         Palette const & palette ) {
   auto const readiness =
      flagField( answer, "ready" ) ? palette.green( "ready" ) : palette.red( "not ready" );
   auto text = interface + ": " + readiness + ", link " + textField( answer, "link" ) + "\n";
   if ( auto const why = textField( answer, "retrying" ); !why.empty() ) {
      text += "  " + palette.red( "NO " ) + "  link set down: " + why + "; valend goes on trying\n";
   }
   for ( auto const & each : listField( answer, "requirements" ) ) {
      auto const met = flagField( each, "met" ) ? palette.green( "yes" ) : palette.red( "NO " );
      auto const detail = textField( each, "detail" );
      text += "  " + met + "  " + textField( each, "what" ) +
              ( detail.empty() ? "" : ": " + detail ) + "\n";
   }
   if ( auto const why = textField( answer, "notMuted" ); !why.empty() ) {
      text += "  " + palette.red( "NO " ) +
              "  speakers can be muted, so that goodbyes last: " + why + "\n";
   }
   for ( auto const & speaker : listField( answer, "speakers" ) ) {
      text += speakerText( speaker );
   }
   return text;
}

std::string memoryText( Json const & answer ) {
   Table table( { "TYPE", "OBJECTS", "BYTES" } );
   std::uint64_t objects = 0;
   std::uint64_t bytes = 0;
   for ( auto const & type : listField( answer, "types" ) ) {
      objects += numberField( type, "live" );
      bytes += numberField( type, "bytes" );
      table.add( { textField( type, "type" ), std::to_string( numberField( type, "live" ) ),
                   std::to_string( numberField( type, "bytes" ) ) } );
   }
   table.add( { "total", std::to_string( objects ), std::to_string( bytes ) } );
   return table.text();
}

std::string traceText( TraceLine const & line ) {
   std::chrono::nanoseconds const time( line.timeNs );
   return timeText( std::chrono::floor< std::chrono::microseconds >( time ) ) + " " + line.unit +
          "/" + std::to_string( line.level ) + " " + line.text;
}

} // namespace Valenctl
