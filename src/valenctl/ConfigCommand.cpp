#include "valenctl/ConfigCommand.h"

#include "settings/ConfigFiles.h"
#include "settings/Counted.h"
#include "valenctl/Table.h"

#include <ostream>

namespace Valenctl {

namespace {

std::string pretty( Json const & json ) {
   return json.dump( 2, ' ', false, Json::error_handler_t::replace ) + "\n";
}

Json errorJson( Settings::ConfigError const & error ) {
   return { { "file", error.place.file },
            { "line", error.place.line },
            { "column", error.place.column },
            { "text", error.text } };
}

Json checkJson( Settings::ConfigResult const & result ) {
   auto errors = Json::array();
   for ( auto const & error : result.errors ) {
      errors.push_back( errorJson( error ) );
   }
   return { { "inOrder", result.errors.empty() },
            { "files", result.sources.files },
            { "errors", std::move( errors ) } };
}

// "/etc/valen/valen.yaml:8"; how else the item came about when no file says it.
std::string placeText( Json const & item ) {
   auto const & place = item.value( "place", Json() );
   if ( place.is_object() ) {
      return place.value( "file", "" ) + ":" + std::to_string( place.value( "line", 0 ) );
   }
   return item.value( "origin", "" ) == "command-line" ? "the command line" : "by default";
}

std::string settingText( Json const & setting ) {
   auto const & value = setting.value( "value", Json() );
   if ( value.is_string() ) {
      return value.get< std::string >();
   }
   return setting.value( "name", "" ) == "shutdown-delay-ms" ? "off" : "none";
}

std::string interfaceText( Json const & interface ) {
   auto const text =
      "device " + interface.value( "device", "" ) + ", VRF " + interface.value( "vrf", "" );
   return interface.value( "shutdownDelay", false ) ? text : text + ", no shutdown delay";
}

std::string framesText( Json const & messages ) {
   auto const & frames = messages.value( "frames", Json::array() );
   std::size_t digits = 0;
   for ( auto const & frame : frames ) {
      digits += frame.get< std::string >().size();
   }
   return std::to_string( frames.size() ) + ( frames.size() == 1 ? " frame, " : " frames, " ) +
          std::to_string( digits / 2 ) + " bytes";
}

} // namespace

Exit checkConfig( Options const & options, std::ostream & out, std::ostream & err ) {
   auto const & file = options.file.empty() ? Settings::defaultFile : options.file;
   auto const result = Settings::readConfig( file );
   if ( options.json ) {
      out << pretty( checkJson( result ) );
   } else if ( result.errors.empty() ) {
      out << file << ": in order; " << result.config.summary() << '\n';
   } else {
      for ( auto const & error : result.errors ) {
         err << error.message() << '\n';
      }
   }
   return result.errors.empty() ? Exit::done : Exit::refused;
}

Exit showConfig( Options const & options, Varlink::Client & client, std::ostream & out ) {
   auto const answer = client.call( "Config", Json::object() );
   out << ( options.json ? pretty( answer ) : configText( answer ) );
   return Exit::done;
}

std::string configText( Json const & answer ) {
   Table table( { "ITEM", "VALUE", "FROM" } );
   auto const each = [ & ]( char const * list, auto const & add ) {
      for ( auto const & item : answer.value( list, Json::array() ) ) {
         add( item );
      }
   };
   each( "settings", [ & ]( Json const & item ) {
      table.add( { item.value( "name", "" ), settingText( item ), placeText( item ) } );
   } );
   each( "vrfs", [ & ]( Json const & item ) {
      table.add( { "VRF " + item.value( "name", "" ), "namespace " + item.value( "namespace", "" ),
                   placeText( item ) } );
   } );
   each( "interfaces", [ & ]( Json const & item ) {
      table.add(
         { "interface " + item.value( "name", "" ), interfaceText( item ), placeText( item ) } );
   } );
   each( "messages", [ & ]( Json const & item ) {
      table.add(
         { "interface " + item.value( "interface", "" ) + ", agent " + item.value( "agent", "" ),
           framesText( item ), placeText( item ) } );
   } );
   return table.text();
}

Exit reload( Options const & options, Varlink::Client & client, std::ostream & out,
             std::ostream & err ) try {
   auto const answer = client.call( "Reload", Json::object() );
   auto const changed = answer.value( "changed", Json::array() );
   if ( options.json ) {
      out << pretty( answer );
      return Exit::done;
   }
   for ( auto const & line : changed ) {
      out << line.get< std::string >() << '\n';
   }
   err << "read again; " << Settings::counted( changed.size(), "change" ) << '\n';
   return Exit::done;
} catch ( Varlink::Refused const & e ) {
   if ( e.name() != "org.valen.daemon.ConfigRefused" ) {
      throw;
   }
   if ( options.json ) {
      out << pretty( e.parameters() );
   } else {
      for ( auto const & line : e.parameters().value( "errors", Json::array() ) ) {
         err << line.get< std::string >() << '\n';
      }
      err << "valenctl: " << e.what() << '\n';
   }
   return Exit::refused;
}

} // namespace Valenctl
