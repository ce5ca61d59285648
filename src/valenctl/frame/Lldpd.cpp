#include "valenctl/frame/Lldpd.h"

#include "valenctl/frame/Program.h"
#include "valenctl/text/JsonFields.h"

namespace Valenctl {

namespace {

constexpr std::chrono::seconds timeout{ 2 };

// The first element of a list. The format is made of lists of one element.
Json first( Json const & object, char const * key ) {
   auto const list = listField( object, key );
   return list.empty() ? Json() : list.front();
}

// An id of the chassis or the port, as --chassis-id and --port-id take it.
std::string idText( Json const & interface, char const * owner, std::string const & device ) {
   auto const id = first( first( interface, owner ), "id" );
   auto const type = textField( id, "type" );
   auto const value = textField( id, "value" );
   if ( type == "mac" || type == "local" ) {
      return type + ":" + value;
   }
   if ( type == "ifname" ) {
      return "name:" + value;
   }
   throw NoLldpd( std::string( "lldpd has no usable " ) + owner + " ID for " + device +
                  ( type.empty() ? "" : " (its type is " + type + ")" ) );
}

// What lldpcli complains about, without the time and the unit before it:
// "2026-11-22T02:55:42 [WARN/control] unable to connect to socket".
std::string complaint( ProgramOutput const & output ) {
   auto const line = output.err.substr( 0, output.err.find( '\n' ) );
   auto const unit = line.find( "] " );
   auto const text = unit == std::string::npos ? line : line.substr( unit + 2 );
   return text.empty() ? "lldpcli exited with status " + std::to_string( output.status ) : text;
}

} // namespace

LldpIds idsIn( std::string const & answer, std::string const & device ) {
   auto const interface =
      first( first( Json::parse( answer, nullptr, false ), "lldp" ), "interface" );
   if ( !interface.is_object() ) {
      throw NoLldpd( "lldpd does not know " + device );
   }
   auto const status = textField( first( interface, "status" ), "value" );
   if ( status == "RX only" || status == "disabled" ) {
      throw NoLldpd( "lldpd does not send on " + device + " (" + status + ")" );
   }
   try {
      return { Goodbye::parseLldpChassis( idText( interface, "chassis", device ) ),
               Goodbye::parseLldpPort( idText( interface, "port", device ) ) };
   } catch ( Goodbye::BadText const & e ) {
      throw NoLldpd( std::string( "lldpd has an unusable ID: " ) + e.what() );
   }
}

LldpIds lldpdIds( std::string const & device, std::string const & socket ) {
   std::vector< std::string > arguments{ "lldpcli" };
   if ( !socket.empty() ) {
      arguments.insert( arguments.end(), { "-u", socket } );
   }
   arguments.insert( arguments.end(), { "-f", "json0", "show", "interfaces", "ports", device } );
   std::string answer;
   try {
      auto const output = outputOf( arguments, timeout );
      if ( output.status != 0 ) {
         throw NoLldpd( "lldpd does not answer: " + complaint( output ) );
      }
      answer = output.out;
   } catch ( NoLldpd const & ) {
      throw;
   } catch ( std::runtime_error const & e ) {
      throw NoLldpd( std::string( "cannot ask lldpd: " ) + e.what() );
   }
   return idsIn( answer, device );
}

} // namespace Valenctl
