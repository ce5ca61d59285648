// The schema that editors use has the same keys and limits as the reader.
#include "settings/ConfigReader.h"

#include <fstream>
#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

namespace Settings {
namespace {

using Json = nlohmann::json;

Json schema() {
   return Json::parse( std::ifstream( SCHEMA ) );
}

// The keys that the reader lists when it finds an unknown one.
std::set< std::string > keysOfReader( std::string const & text ) {
   auto const errors = parseConfig( text, "f" ).errors;
   std::set< std::string > keys;
   for ( auto const & error : errors ) {
      auto const expected = error.text.find( "expected " );
      if ( !error.text.starts_with( "unknown key \"no-such-key\"" ) ||
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

TEST( SchemaTest, EveryMappingHasTheSameKeysAsTheReader ) {
   auto const whole = schema();
   auto const & definitions = whole.at( "$defs" );
   std::pair< Json, std::string > const mappings[] = {
      { whole, "no-such-key: 1" },
      { definitions.at( "vrf" ), "vrfs: [{no-such-key: 1}]" },
      { definitions.at( "interface" ), "interfaces: [{no-such-key: 1}]" },
      { definitions.at( "agent" ), "agents: [{no-such-key: 1}]" },
      { whole.at( "properties" ).at( "trace" ), "trace: {no-such-key: 1}" } };
   for ( auto const & [ definition, text ] : mappings ) {
      EXPECT_EQ( keysOfSchema( definition ), keysOfReader( text ) ) << text;
      EXPECT_FALSE( keysOfReader( text ).empty() ) << text;
      EXPECT_EQ( definition.at( "additionalProperties" ), false ) << text;
   }
}

TEST( SchemaTest, TheLimitsAreThoseOfTheReader ) {
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
   }
}

TEST( SchemaTest, TheGoodbyesAreThoseOfTheReader ) {
   auto const whole = schema();
   auto const & values = whole.at( "$defs" ).at( "goodbyes" ).at( "anyOf" );
   auto const reads = []( std::string const & value ) {
      return parseConfig( "goodbyes: " + value, "f" ).errors.empty();
   };
   for ( auto const & value : values.at( 0 ).at( "enum" ) ) {
      EXPECT_TRUE( reads( value.get< std::string >() ) ) << value;
   }
   auto const protocols = values.at( 1 ).at( "items" ).at( "enum" );
   EXPECT_EQ( protocols, Json( goodbyeProtocols ) );
   EXPECT_EQ( values.at( 1 ).at( "minItems" ), 1 );
   EXPECT_EQ( values.at( 1 ).at( "uniqueItems" ), true );
   for ( auto const & properties :
         { whole.at( "properties" ), whole.at( "$defs" ).at( "interface" ).at( "properties" ) } ) {
      EXPECT_EQ( properties.at( "goodbyes" ).at( "$ref" ), "#/$defs/goodbyes" );
   }
}

// The names of all settings in the schema: "socket", "trace.file". What has a "$ref", and the delay, are
// not settings of the process.
std::map< std::string, Json > settingsOf( Json const & properties,
                                          std::string const & prefix = "" ) {
   std::map< std::string, Json > settings;
   for ( auto const & [ key, property ] : properties.items() ) {
      auto const type = property.value( "type", Json() );
      if ( type == "string" || ( type == "integer" && key != "shutdown-delay-ms" ) ) {
         settings[ prefix + key ] = property;
      } else if ( property.contains( "properties" ) ) {
         settings.merge( settingsOf( property.at( "properties" ), key + "." ) );
      }
   }
   return settings;
}

TEST( SchemaTest, TheSettingsOfTheProcessAreThoseOfTheTable ) {
   auto properties = settingsOf( schema().at( "properties" ) );
   for ( auto const & setting : processSettings ) {
      if ( !setting.inFiles() ) {
         continue;
      }
      auto const found = properties.find( std::string( setting.name ) );
      ASSERT_NE( found, properties.end() ) << setting.name;
      auto const & property = found->second;
      auto const fallback = property.value( "default", Json( "" ) );
      EXPECT_EQ( fallback.is_string() ? fallback.get< std::string >() : fallback.dump(),
                 setting.defaultValue )
         << setting.name;
      EXPECT_EQ( property.contains( "pattern" ), setting.type == SettingType::absolutePath ||
                                                    setting.type == SettingType::databaseServer )
         << setting.name;
      EXPECT_NE( property.at( "description" ).get< std::string >().find( setting.help ),
                 std::string::npos )
         << setting.name;
      if ( setting.type == SettingType::milliseconds ) {
         auto const most = property.at( "maximum" ).get< int >();
         EXPECT_EQ( property.at( "type" ), "integer" );
         EXPECT_EQ( problemWith( setting, std::to_string( most ) ), "" );
         EXPECT_NE( problemWith( setting, std::to_string( most + 1 ) ), "" );
      } else if ( setting.type != SettingType::traceLevels ) {
         std::string const head =
            setting.type == SettingType::databaseServer ? "unix:///s?password-file=/" : "/";
         auto const longest = property.at( "maxLength" ).get< std::size_t >();
         EXPECT_EQ( problemWith( setting, head + std::string( longest - head.size(), 'x' ) ), "" );
         EXPECT_NE( problemWith( setting, "/" + std::string( longest, 'x' ) ), "" );
         EXPECT_EQ( property.at( "minLength" ), 1 ) << setting.name;
      }
      properties.erase( found );
   }
   for ( auto const & [ name, property ] : properties ) {
      ADD_FAILURE() << "the schema has " << name << ", which is not a setting";
   }
}

} // namespace
} // namespace Settings
