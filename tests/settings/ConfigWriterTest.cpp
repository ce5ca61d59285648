#include "settings/ConfigWriter.h"

#include "settings/ConfigReader.h"

#include <gmock/gmock.h>

namespace Settings::Test {
namespace {

using ::testing::IsEmpty;

// What the reader makes of what the writer wrote.
Config rereadOf( Config const & config ) {
   auto const result = parseConfig( yamlOf( config ), "written" );
   for ( auto const & error : result.errors ) {
      ADD_FAILURE() << error.message();
   }
   EXPECT_THAT( result.errors, IsEmpty() ) << yamlOf( config );
   return result.config;
}

Config configOf( std::string const & text ) {
   auto const result = parseConfig( text, "test" );
   EXPECT_THAT( result.errors, IsEmpty() );
   return result.config;
}

TEST( ConfigWriterTest, EverythingIsWritten ) {
   auto const config = configOf( "shutdown-delay-ms: 65535\n"
                                 "goodbyes: [ra, lldp]\n"
                                 "vrfs: [{name: red, namespace: ns-red}]\n"
                                 "interfaces:\n"
                                 "- {name: Ethernet1, device: et1, vrf: red}\n"
                                 "- {name: Ethernet2, shutdown-delay: false, goodbyes: learned}\n"
                                 "- {name: Ethernet3, goodbyes: off}\n"
                                 "- {name: Ethernet4, goodbyes: [bfd]}\n"
                                 "agents:\n"
                                 "- name: lldp\n"
                                 "  messages:\n"
                                 "    Ethernet1: [0180c200000e02000000000188cc, "
                                 "'base64:AYDCAAAOAgAAAAABiMwAAA==']\n"
                                 "    Ethernet2: [0180c200000e02000000000188cc]\n"
                                 "- name: silent\n"
                                 "socket: /s\n"
                                 "netns-directory: /n\n"
                                 "state-directory: /d\n"
                                 "max-shutdown-delay-ms: 20000\n"
                                 "metrics-file: /m\n"
                                 "trace: {levels: A/0, file: /t, ring: /r}\n"
                                 "database: {server: 'redis://u:p@h', prefix: p}\n" );
   ASSERT_EQ( config.agents.at( "lldp" ).at( "Ethernet1" ).size(), 2u );
   for ( auto const & setting : processSettings ) {
      EXPECT_EQ( config.process.given( setting ).has_value(), setting.inFiles() ) << setting.name;
   }
   EXPECT_TRUE( config.goodbyes.any() );
   EXPECT_TRUE( config.interfaces.at( "Ethernet3" ).goodbyes );
   EXPECT_EQ( rereadOf( config ), config );
}

TEST( ConfigWriterTest, AnEmptyConfigurationStaysEmpty ) {
   EXPECT_EQ( rereadOf( Config() ), Config() );
}

TEST( ConfigWriterTest, NamesMayHaveAnyPrintableText ) {
   for ( auto const & name :
         { std::string( 255, '"' ), std::string( "true" ), std::string( "~" ),
           std::string( "#no comment" ), std::string( "a: b" ), std::string( " spaces " ),
           std::string( "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80" ), std::string( "\\x41'" ) } ) {
      Config config;
      config.interfaces[ name ] = { name, "et1", "default", true };
      config.agents[ name ][ name ] = { std::string( 14, '\xff' ) };
      EXPECT_EQ( rereadOf( config ), config ) << name;
   }
}

TEST( ConfigWriterTest, ValuesMayHaveAnyBytes ) {
   std::string all = "/";
   for ( int byte = 1; byte < 256; ++byte ) {
      all += static_cast< char >( byte );
   }
   Config config;
   config.process.valueIs( "trace.file", all );
   EXPECT_EQ( rereadOf( config ), config );
}

} // namespace
} // namespace Settings::Test
