#include "valenctl/text/ConfigText.h"

#include "settings/ConfigReader.h"
#include "settings/Counted.h"
#include "valenctl/text/JsonFields.h"
#include "valenctl/text/MessagesText.h"
#include "valenctl/text/Table.h"

namespace Valenctl {

namespace {

// Where an item comes from: "/etc/valen/valen.yaml:8", or what sets it when no file does.
std::string sourceOf( Json const & item ) {
   auto const place = anyField( item, "place" );
   if ( anyField( place, "database" ) == true ) {
      return "database, " + textField( place, "file" );
   }
   if ( place.is_object() ) {
      return textField( place, "file" ) + ":" + std::to_string( numberField( place, "line" ) );
   }
   return textField( item, "origin" ) == "command-line" ? "command line" : "default";
}

std::string settingValue( Json const & setting ) {
   auto const value = anyField( setting, "value" );
   if ( value.is_string() ) {
      return value.get< std::string >();
   }
   return textField( setting, "name" ) == "shutdown-delay-ms" ? "off" : "none";
}

std::string interfaceValue( Json const & interface ) {
   auto text =
      "device " + textField( interface, "device" ) + ", VRF " + textField( interface, "vrf" );
   if ( !flagField( interface, "shutdownDelay" ) ) {
      text += ", no shutdown delay";
   }
   auto const goodbyes = anyField( interface, "goodbyes" );
   return goodbyes.is_string() ? text + ", goodbyes " + goodbyes.get< std::string >() : text;
}

std::string framesValue( Json const & messages ) {
   auto const totals = frameTotals( listField( messages, "frames" ) );
   return Settings::counted( totals.frames, "frame" ) + ", " +
          Settings::counted( totals.bytes, "byte" );
}

Json messagesJson( std::vector< Settings::ConfigError > const & messages ) {
   auto list = Json::array();
   for ( auto const & message : messages ) {
      list.push_back( { { "file", message.place.file },
                        { "line", message.place.line },
                        { "column", message.place.column },
                        { "text", message.text } } );
   }
   return list;
}

} // namespace

std::string configText( Json const & answer ) {
   Table table( { "ITEM", "VALUE", "SOURCE" } );
   for ( auto const & item : listField( answer, "settings" ) ) {
      table.add( { textField( item, "name" ), settingValue( item ), sourceOf( item ) } );
   }
   for ( auto const & item : listField( answer, "vrfs" ) ) {
      table.add( { "VRF " + textField( item, "name" ),
                   "namespace " + textField( item, "namespace" ), sourceOf( item ) } );
   }
   for ( auto const & item : listField( answer, "interfaces" ) ) {
      table.add(
         { "interface " + textField( item, "name" ), interfaceValue( item ), sourceOf( item ) } );
   }
   for ( auto const & item : listField( answer, "messages" ) ) {
      table.add(
         { "interface " + textField( item, "interface" ) + ", agent " + textField( item, "agent" ),
           framesValue( item ), sourceOf( item ) } );
   }
   return table.text();
}

Json checkJson( Settings::ConfigResult const & result ) {
   return { { "valid", result.errors.empty() },
            { "files", result.sources.files },
            { "errors", messagesJson( result.errors ) },
            { "warnings", messagesJson( result.warnings ) } };
}

} // namespace Valenctl
