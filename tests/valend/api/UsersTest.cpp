#include "valend/api/Users.h"

#include "tests/support/WorkDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Valend {
namespace {

class UsersTest : public ::testing::Test {
 protected:
   // procfs has a process of the running user with this login.
   void loginIs( std::string const & text ) {
      ::mkdir( ( work / "42" ).c_str(), 0755 );
      work.write( "42/loginuid", text );
   }

   Valen::Test::WorkDirectory work;
   Varlink::Caller const caller{ ::getuid(), 42, {} };
};

TEST_F( UsersTest, AUserIsNamedByItsAccountElseByItsNumber ) {
   EXPECT_EQ( userName( 0 ), "root" );
   EXPECT_EQ( userName( 1 ), "daemon" );
   EXPECT_EQ( userName( 4'000'000 ), "uid 4000000" );
}

TEST_F( UsersTest, TheLoginIsThatOfTheProcess ) {
   loginIs( "1" );
   EXPECT_EQ( loginOf( caller, work / "" ), 1u );
   EXPECT_EQ( loginBehind( caller, work / "" ), "daemon" );
   loginIs( "4000000\n" );
   EXPECT_EQ( loginBehind( caller, work / "" ), "uid 4000000" );
}

TEST_F( UsersTest, TheCallersOwnLoginIsNotRepeated ) {
   loginIs( std::to_string( ::getuid() ) );
   EXPECT_EQ( loginBehind( caller, work / "" ), "" );
}

TEST_F( UsersTest, AServiceHasNoLogin ) {
   loginIs( "4294967295" );
   EXPECT_EQ( loginOf( caller, work / "" ), std::nullopt );
   EXPECT_EQ( loginBehind( caller, work / "" ), "" );
}

// Its number may belong to a process of another user by now.
TEST_F( UsersTest, AProcessThatIsGoneHasNoLogin ) {
   EXPECT_EQ( loginOf( caller, work / "" ), std::nullopt );
   loginIs( "1" );
   EXPECT_EQ( loginOf( { caller.uid + 1, 42, {} }, work / "" ), std::nullopt );
   loginIs( "" );
   EXPECT_EQ( loginOf( caller, work / "" ), std::nullopt );
}

} // namespace
} // namespace Valend
