#include "platform/trace/TraceLevels.h"

#include "platform/quill/Exception.h"
#include "platform/trace/Trace.h"

#include <gtest/gtest.h>

namespace {

using Quill::TraceLevels;

TEST( TraceLevelsTest, WithoutPatternsEverythingIsOff ) {
   EXPECT_EQ( TraceLevels().maskOf( "ConfigSm" ), 0u );
   EXPECT_EQ( TraceLevels( "" ).maskOf( "ConfigSm" ), 0u );
   EXPECT_EQ( TraceLevels().text(), "" );
}

TEST( TraceLevelsTest, APatternNamesOneLevelOrARange ) {
   TraceLevels const levels( "ConfigSm/1,IntfSm/2-4,VrfSm/0-9" );
   EXPECT_EQ( levels.maskOf( "ConfigSm" ), 0b10u );
   EXPECT_EQ( levels.maskOf( "IntfSm" ), 0b11100u );
   EXPECT_EQ( levels.maskOf( "VrfSm" ), 0x3ffu );
   EXPECT_EQ( levels.maskOf( "Intf" ), 0u );
   EXPECT_EQ( levels.text(), "ConfigSm/1,IntfSm/2-4,VrfSm/0-9" );
}

TEST( TraceLevelsTest, AFinalStarStandsForAnyEnding ) {
   TraceLevels const levels( "Intf*/0" );
   EXPECT_EQ( levels.maskOf( "Intf" ), 1u );
   EXPECT_EQ( levels.maskOf( "IntfIoSm" ), 1u );
   EXPECT_EQ( levels.maskOf( "KernelIntf" ), 0u );
}

TEST( TraceLevelsTest, TheLaterPatternWins ) {
   EXPECT_EQ( TraceLevels( "*/0-9,ConfigSm/1" ).maskOf( "ConfigSm" ), 0b10u );
   EXPECT_EQ( TraceLevels( "ConfigSm/1,*/0" ).maskOf( "ConfigSm" ), 1u );
}

TEST( TraceLevelsTest, ParsingSetsNothing ) {
   Quill::traceLevelsIs( "IntfSm/3" );
   TraceLevels const parsed( "*/0" );
   EXPECT_EQ( Quill::traceLevels(), "IntfSm/3" );
   Quill::traceLevelsIs( parsed );
   EXPECT_EQ( Quill::traceLevels(), "*/0" );
   Quill::traceLevelsIs( TraceLevels() );
}

TEST( TraceLevelsTest, AnErrorNamesThePattern ) {
   try {
      TraceLevels( "IntfSm/0,ConfigSm/2-1" );
      FAIL() << "a range that counts down was accepted";
   } catch ( Quill::RangeException const & e ) {
      EXPECT_STREQ( e.what(), "trace pattern \"ConfigSm/2-1\" is not NAME/LEVEL or "
                              "NAME/FIRST-LAST with levels 0 to 9" );
   }
}

} // namespace
