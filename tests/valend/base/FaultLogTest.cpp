#include "valend/base/FaultLog.h"

#include "tests/support/FaultRecorder.h"

#include <gmock/gmock.h>
#include <stdexcept>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class FaultLogTest : public ::testing::Test {
 protected:
   // Returns what it logs.
   static std::string report( std::string const & text ) {
      ::testing::internal::CaptureStderr();
      try {
         throw std::runtime_error( text );
      } catch ( std::exception const & ) {
         Quill::reportFault( Quill::faultSource< FaultLogTest, Tag >( "Clerk" ), "key" );
      }
      return ::testing::internal::GetCapturedStderr();
   }

   struct Tag {
      static char const * name() { return "paper"; }
   };
   std::vector< std::string > observed;
   FaultLog::Observer const observer = [ this ]( Quill::Fault const & fault ) {
      observed.push_back( fault.key + " " + fault.text );
   };
};

TEST_F( FaultLogTest, AFaultIsLoggedCountedKeptAndPassedOn ) {
   FaultLog const faults( observer );
   EXPECT_THAT( report( "no ink" ), HasSubstr( "fault in Clerk on paper key: no ink\n" ) );
   EXPECT_EQ( faults.count(), 1u );
   EXPECT_THAT( faults.texts(), ElementsAre( "fault in Clerk on paper key: no ink" ) );
   EXPECT_THAT( observed, ElementsAre( "key no ink" ) );
}

TEST_F( FaultLogTest, OnlyTheNewestTextsAreKept ) {
   FaultLog const faults( observer );
   for ( std::size_t i = 0; i <= FaultLog::keptTexts; ++i ) {
      report( std::to_string( i ) );
   }
   EXPECT_EQ( faults.count(), FaultLog::keptTexts + 1 );
   ASSERT_EQ( faults.texts().size(), FaultLog::keptTexts );
   EXPECT_THAT( faults.texts().front(), ::testing::EndsWith( " 1" ) );
   EXPECT_THAT( faults.texts().back(), ::testing::EndsWith( " 20" ) );
}

TEST_F( FaultLogTest, ThePreviousSinkIsInstalledAgain ) {
   Valen::Test::FaultRecorder const previous;
   {
      FaultLog const faults( observer );
      report( "first" );
   }
   report( "second" );
   EXPECT_THAT( previous.messages(), ElementsAre( "fault in Clerk on paper key: second" ) );
}

} // namespace
} // namespace Valend
