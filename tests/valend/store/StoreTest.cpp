#include "valend/store/Store.h"

#include "tests/support/LeakCheck.h"

namespace Valend {
namespace {

class StoreTest : public ::testing::Test {
 protected:
   // The entity at DIRECTORY/NAME.
   Quill::Ptr< Quill::Entity > at( char const * directory, char const * name ) const {
      auto const parent =
         Quill::ptrCast< Quill::Dir >( store.entityManager->root()->entry( directory ) );
      return parent ? parent->entry( name ) : nullptr;
   }

   Valen::Test::LeakCheck leaks;
   Store store;
};

TEST_F( StoreTest, EachEntityIsAtItsDocumentedPath ) {
   EXPECT_EQ( at( "config", "valen" ), store.configDir );
   EXPECT_EQ( at( "config", "agents" ), store.agentConfigDir );
   EXPECT_EQ( at( "interface", "config" ), store.allIntfConfigDir );
   EXPECT_EQ( at( "interface", "status" ), store.allIntfStatusDir );
   EXPECT_EQ( at( "interface", "local" ), store.allIntfStatusLocalDir );
   EXPECT_EQ( at( "l3", "status" ), store.l3IntfStatusDir );
   EXPECT_EQ( at( "vrf", "status" ), store.allVrfStatusLocal );
   EXPECT_EQ( store.entityManager->root()->entry( "status" ), store.statusDir );
   EXPECT_EQ( at( "model", "interfaces" ), store.allIntf );
   EXPECT_EQ( at( "model", "vrfs" ), store.allVrf );
}

TEST_F( StoreTest, TheMessageDirectoryOfAnAgentIsFound ) {
   EXPECT_FALSE( store.messageDir( "lldp" ) ) << "no such agent";
   auto const agent = Quill::make< Quill::Dir >();
   store.agentConfigDir->entryIs( "lldp", agent );
   EXPECT_FALSE( store.messageDir( "lldp" ) ) << "an agent without messages";
   auto const messages = Quill::make< Valen::Config::Agent::MessageDir >();
   agent->entryIs( "messages", messages );
   EXPECT_EQ( store.messageDir( "lldp" ), messages );
   EXPECT_FALSE( store.messageDir( "bgp" ) );
}

} // namespace
} // namespace Valend
