#include "valend/base/Conditions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ConditionsTest : public ::testing::Test {
 protected:
   std::vector< std::string > raised() const {
      std::vector< std::string > names;
      for ( auto const & condition : conditions.raised() ) {
         names.push_back( condition.name + ": " + condition.text );
      }
      return names;
   }

   std::vector< std::string > logged;
   Conditions conditions{ [ this ]( LogLevel level, auto const & text ) {
      logged.push_back( ( level == LogLevel::error ? "error " : "notice " ) + text );
   } };
   Condition journal{ conditions, "journal" };
};

TEST_F( ConditionsTest, AConditionIsListedFromRaiseToClear ) {
   EXPECT_THAT( raised(), IsEmpty() );
   journal.raise( "cannot write x: No space left on device" );
   EXPECT_THAT( raised(), ElementsAre( "journal: cannot write x: No space left on device" ) );
   EXPECT_TRUE( conditions.isRaised( "journal" ) );
   journal.clear();
   EXPECT_THAT( raised(), IsEmpty() );
   EXPECT_FALSE( conditions.isRaised( "journal" ) );
}

TEST_F( ConditionsTest, EachChangeIsLoggedOnce ) {
   journal.clear();
   journal.raise( "full" );
   journal.raise( "full" );
   journal.raise( "gone" );
   journal.clear();
   journal.clear();
   EXPECT_THAT( logged, ElementsAre( "error journal: full", "error journal: gone",
                                     "notice journal: recovered" ) );
}

TEST_F( ConditionsTest, AnEmptyTextClears ) {
   journal.update( "full" );
   EXPECT_TRUE( journal.raised() );
   journal.update( "" );
   EXPECT_FALSE( journal.raised() );
}

TEST_F( ConditionsTest, ItsTimeIsThatOfTheFirstRaise ) {
   journal.raise( "full" );
   auto const since = conditions.raised().at( 0 ).since;
   journal.raise( "gone" );
   EXPECT_EQ( conditions.raised().at( 0 ).since, since );
}

TEST_F( ConditionsTest, TheyAreListedByName ) {
   Condition vrf( conditions, "vrf/red" );
   Condition devices( conditions, "devices/ns-red" );
   vrf.raise( "no namespace" );
   devices.raise( "no permission" );
   journal.raise( "full" );
   EXPECT_THAT( raised(), ElementsAre( "devices/ns-red: no permission", "journal: full",
                                       "vrf/red: no namespace" ) );
}

TEST_F( ConditionsTest, OneWhoseOwnerIsGoneIsNotListed ) {
   {
      Condition vrf( conditions, "vrf/red" );
      vrf.raise( "no namespace" );
      logged.clear();
   }
   EXPECT_THAT( raised(), IsEmpty() );
   EXPECT_THAT( logged, IsEmpty() );
}

} // namespace
} // namespace Valend
