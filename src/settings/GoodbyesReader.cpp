#include "settings/GoodbyesReader.h"

#include "settings/Counted.h"

#include <algorithm>

namespace Settings {

std::optional< Goodbyes > GoodbyesReader::goodbyesAt( YAML::Node const & node ) {
   static std::string const expected =
      "; expected learned, off or a list of protocols, such as [lldp, ra]";
   if ( node.IsSequence() ) {
      return listAt( node );
   }
   if ( node.IsMap() ) {
      error( node, "goodbyes is a mapping" + expected );
      return std::nullopt;
   }
   auto const text = scalar( node, "goodbyes" );
   if ( text == "learned" ) {
      return Goodbyes::learned();
   }
   if ( text == "off" ) {
      return Goodbyes();
   }
   error( node, "goodbyes is " + quoted( text ) +
                   ( text == "false" ? "; write off instead" : expected ) );
   return std::nullopt;
}

std::optional< Goodbyes > GoodbyesReader::listAt( YAML::Node const & node ) {
   auto const most = goodbyeProtocols.size();
   if ( node.size() == 0 || node.size() > most ) { // aliases may stand for many long lists
      error( node, "goodbyes has " + counted( node.size(), "protocol" ) + "; expected 1 to " +
                      std::to_string( most ) + ", or off" );
      return std::nullopt;
   }
   auto const before = errorCount();
   std::map< std::string, Place > protocols;
   for ( auto const & element : node ) {
      readProtocol( element, protocols );
   }
   if ( errorCount() != before ) {
      return std::nullopt;
   }
   Goodbyes::Protocols names;
   for ( auto const & [ name, place ] : protocols ) {
      names.insert( name );
   }
   return Goodbyes::of( std::move( names ) );
}

void GoodbyesReader::readProtocol( YAML::Node const & node,
                                   std::map< std::string, Place > & protocols ) {
   auto const name = scalar( node, "a protocol of goodbyes" );
   if ( !node.IsScalar() && !node.IsNull() ) { // that error was reported
      return;
   }
   if ( std::ranges::find( goodbyeProtocols, name ) == goodbyeProtocols.end() ) {
      return error( node, "unknown protocol " + quoted( name ) + "; expected " +
                             listed( { goodbyeProtocols.begin(), goodbyeProtocols.end() } ) );
   }
   auto const [ first, added ] = protocols.emplace( name, placeOf( node ) );
   if ( !added ) {
      error( node, "duplicate protocol " + quoted( name ) + firstDefinedAt( first->second ) );
   }
}

} // namespace Settings
