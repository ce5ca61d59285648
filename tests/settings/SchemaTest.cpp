// The schema that editors use and the reader know the same keys.
#include "settings/ConfigReader.h"

#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

namespace Settings {
namespace {

using Json = nlohmann::json;

Json schema() {
   return Json::parse( std::ifstream( SCHEMA ) );
}

// The keys that the reader asks for when it meets one that it does not know.
std::set< std::string > keysOfReader( std::string const & text ) {
   auto const errors = parseConfig( text, "f" ).errors;
   std::set< std::string > keys;
   for ( auto const & error : errors ) {
      auto const expected = error.text.find( "expected " );
      if ( !error.text.starts_with( "unknown key \"unheard-of\"" ) ||
           expected == error.text.npos ) {
         continue;
      }
      auto const list = error.text.substr( expected );
      std::regex const quoted( "\"([^\"]+)\"" );
      for ( std::sregex_iterator key( list.begin(), list.end(), quoted ), end; key != end; ++key ) {
         keys.insert( ( *key )[ 1 ] );
      }
   }
   return keys;
}

std::set< std::string > keysOfSchema( Json const & definition ) {
   std::set< std::string > keys;
   for ( auto const & [ key, value ] : definition.at( "properties" ).items() ) {
      keys.insert( key );
   }
   return keys;
}

TEST( SchemaTest, EveryMappingHasTheReadersKeysAndNoOthers ) {
   auto const whole = schema();
   auto const & definitions = whole.at( "$defs" );
   std::pair< Json, std::string > const mappings[] = {
      { whole, "unheard-of: 1" },
      { definitions.at( "vrf" ), "vrfs: [{unheard-of: 1}]" },
      { definitions.at( "interface" ), "interfaces: [{unheard-of: 1}]" },
      { definitions.at( "agent" ), "agents: [{unheard-of: 1}]" },
      { definitions.at( "trace" ), "trace: {unheard-of: 1}" } };
   for ( auto const & [ definition, text ] : mappings ) {
      EXPECT_EQ( keysOfSchema( definition ), keysOfReader( text ) ) << text;
      EXPECT_FALSE( keysOfReader( text ).empty() ) << text;
      EXPECT_EQ( definition.at( "additionalProperties" ), false ) << text;
   }
}

TEST( SchemaTest, TheBoundsAreTheReaders ) {
   auto const whole = schema();
   auto const delay = whole.at( "properties" ).at( "shutdown-delay-ms" );
   for ( auto const * bound : { "minimum", "maximum" } ) {
      auto const limit = delay.at( bound ).get< int >();
      auto const beyond = limit + ( limit == 0 ? -1 : 1 );
      EXPECT_TRUE(
         parseConfig( "shutdown-delay-ms: " + std::to_string( limit ), "f" ).errors.empty() );
      EXPECT_FALSE(
         parseConfig( "shutdown-delay-ms: " + std::to_string( beyond ), "f" ).errors.empty() );
   }
   auto const fits = [ & ]( std::string const & before, std::size_t length,
                            std::string const & after ) {
      return parseConfig( before + std::string( length, 'x' ) + after, "f" ).errors.empty();
   };
   auto const bound = [ & ]( char const * definition, char const * key ) {
      return whole.at( "$defs" )
         .at( definition )
         .at( "properties" )
         .at( key )
         .at( "maxLength" )
         .get< std::size_t >();
   };
   for ( std::size_t const more : { 0u, 1u } ) {
      EXPECT_EQ( fits( "vrfs: [{namespace: n, name: ", bound( "vrf", "name" ) + more, "}]" ),
                 !more );
      EXPECT_EQ( fits( "vrfs: [{name: n, namespace: ", bound( "vrf", "namespace" ) + more, "}]" ),
                 !more );
      EXPECT_EQ(
         fits( "interfaces: [{device: d, name: ", bound( "interface", "name" ) + more, "}]" ),
         !more );
      EXPECT_EQ(
         fits( "interfaces: [{name: n, device: ", bound( "interface", "device" ) + more, "}]" ),
         !more );
      EXPECT_EQ( fits( "agents: [{name: ", bound( "agent", "name" ) + more, "}]" ), !more );
      auto const socket =
         whole.at( "properties" ).at( "socket" ).at( "maxLength" ).get< std::size_t >();
      EXPECT_EQ( fits( "socket: ", socket + more, "" ), !more );
   }
}

} // namespace
} // namespace Settings
