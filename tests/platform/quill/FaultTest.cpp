// Faults: an exception that leaves a handler is contained and reported, and ends the process when
// there is no sink; the framework's exceptions, and which of them are expected.
#include "platform/quill/Fault.h"

#include "platform/quill/Exception.h"
#include "tests/platform/quill/ReactorModel.h"

#include <cerrno>
#include <stdexcept>

namespace {

using Quill::ErrnoException;
using Quill::Exception;
using Quill::ExceptionId;
using Quill::Expect;

using Texts = std::vector< std::string >;

using FaultTest = Valen::Test::PorterTest;

TEST_F( FaultTest, FaultInAHandlerNamesReactorAttributeAndKey ) {
   auto & a = add( 'a' );
   add( 'b' );
   a.onNext = [] { throw std::runtime_error( "width refused" ); };
   EXPECT_EQ( widthIs( 1 ), "a width 1, b width 1" );
   a.onNext = [] { throw std::runtime_error( "tag refused" ); };
   shelf_->tagIs( "red" );
   a.onNext = [] { throw 7; };
   shelf_->messageEnq( "text" );
   EXPECT_EQ(
      recorder_.messages(),
      ( Texts{ "fault in Porter on width: width refused", "fault in Porter on tag red: tag refused",
               "fault in Porter on message 0: exception of an unknown type" } ) );
   EXPECT_EQ( story_.told(), "a tag red, b tag red, a message 0, b message 0" );
}

TEST_F( FaultTest, FaultLeavesTheReactorWorkingAndRemovable ) {
   auto & a = add( 'a' );
   a.onNext = [] { throw std::runtime_error( "refused" ); };
   widthIs( 1 );
   EXPECT_EQ( widthIs( 2 ), "a width 2" );
   retire( 'a' );
   EXPECT_EQ( story_.told(), "-a" ) << "no handler counts as running";
}

TEST_F( FaultTest, FaultAfterTheReactorWasRetiredIsStillReported ) {
   auto & a = add( 'a' );
   a.onNext = [ & ] {
      retire( 'a' );
      throw std::runtime_error( "too late" );
   };
   EXPECT_EQ( widthIs( 1 ), "a width 1, -a" );
   EXPECT_EQ( recorder_.messages(), Texts{ "fault in Porter on width: too late" } );
}

TEST_F( FaultTest, FaultAfterTheWatchMovedIsStillReported ) {
   auto & a = add( 'a' );
   a.onNext = [ & ] {
      a.shelfWatch().notifierIs( nullptr );
      throw std::runtime_error( "elsewhere" );
   };
   EXPECT_EQ( widthIs( 1 ), "a width 1" );
   EXPECT_EQ( recorder_.messages(), Texts{ "fault in Porter on width: elsewhere" } );
}

TEST_F( FaultTest, FaultInANestedHandlerDoesNotReachTheOuterOne ) {
   auto & a = add( 'a' );
   auto & b = add( 'b' );
   a.onNext = [ & ] {
      b.onNext = [] { throw std::runtime_error( "inner" ); };
      shelf_->tagIs( "red" );
      story_.add( "outer goes on" );
   };
   EXPECT_EQ( widthIs( 1 ), "a width 1, a tag red, b tag red, outer goes on, b width 1" );
   EXPECT_EQ( recorder_.messages(), Texts{ "fault in Porter on tag red: inner" } );
}

TEST_F( FaultTest, DirectCallOfAHandlerThrowsToItsCaller ) {
   auto & a = add( 'a' );
   a.onNext = [] { throw std::runtime_error( "to the caller" ); };
   EXPECT_THROW( a.handleWidth(), std::runtime_error );
   EXPECT_EQ( recorder_.messages(), Texts() );
}

TEST_F( FaultTest, FaultCarriesTheExceptionItself ) {
   add( 'a' ).onNext = [] { throw ErrnoException( "socket failed", ENETDOWN ); };
   auto const before = Quill::faults();
   widthIs( 1 );
   EXPECT_EQ( Quill::faults(), before + 1 );
   ASSERT_EQ( recorder_.faults().size(), 1 );
   auto const & fault = recorder_.faults().front();
   EXPECT_STREQ( fault.source.reactor, "Porter" );
   EXPECT_STREQ( fault.source.attribute, "width" );
   EXPECT_TRUE( ( fault.isFrom< Valen::Test::Porter, Valen::Test::Shelf::widthAttr >() ) );
   EXPECT_FALSE( ( fault.isFrom< Valen::Test::Porter, Valen::Test::Shelf::tagAttr >() ) );
   EXPECT_FALSE( ( fault.isFrom< FaultTest, Valen::Test::Shelf::widthAttr >() ) );
   EXPECT_EQ( fault.key, "" );
   EXPECT_EQ( fault.text, "socket failed" );
   try {
      std::rethrow_exception( fault.exception );
   } catch ( ErrnoException const & e ) {
      EXPECT_EQ( e.number(), ENETDOWN );
   }
}

TEST_F( FaultTest, WorkUnderTheBoundaryReportsWhatItThrows ) {
   Quill::FaultSource const vrf{ typeid( int ), "ConfigSm", typeid( char ), "vrf" };
   auto const key = [] { return std::string( "red" ); };
   EXPECT_TRUE( Quill::underFaultBoundary( vrf, key, [] {} ) );
   EXPECT_EQ( recorder_.messages(), Texts() );
   EXPECT_FALSE(
      Quill::underFaultBoundary( vrf, key, [] { throw std::runtime_error( "no room" ); } ) );
   EXPECT_FALSE( Quill::underFaultBoundary(
      { typeid( int ), "ConfigSm" }, [] { return std::string(); },
      [] { throw std::runtime_error( "no room" ); } ) );
   EXPECT_EQ( recorder_.messages(),
              ( Texts{ "fault in ConfigSm on vrf red: no room", "fault in ConfigSm: no room" } ) );
}

TEST_F( FaultTest, InstallingASinkReturnsTheOneBefore ) {
   Valen::Test::FaultRecorder inner;
   EXPECT_EQ( Quill::faultSinkIs( &inner ), &inner );
   add( 'a' ).onNext = [] { throw std::runtime_error( "reported to the inner one" ); };
   widthIs( 1 );
   EXPECT_EQ( inner.faults().size(), 1 );
   EXPECT_EQ( recorder_.faults().size(), 0 );
}

TEST_F( FaultTest, WithoutASinkTheProcessEndsWithTheText ) {
   auto & a = add( 'a' );
   a.onNext = [] { throw std::runtime_error( "no sink" ); };
   EXPECT_DEATH(
      {
         Quill::faultSinkIs( nullptr );
         shelf_->tagIs( "red" );
      },
      "^fault in Porter on tag red: no sink\n$" );
}

// --- Exceptions ----------------------------------------------------------------------------------

// How many exceptions counted as unexpected while `work` ran.
template < class Work > U64 unexpectedIn( Work const & work ) {
   auto const before = Quill::unexpectedExceptions();
   work();
   return Quill::unexpectedExceptions() - before;
}

TEST( ExceptionTest, EachKindHasItsTextAndItsId ) {
   EXPECT_STREQ( Quill::NameInUseException( "in use" ).what(), "in use" );
   EXPECT_EQ( Quill::NameInUseException( "in use" ).id(), ExceptionId::nameInUse );
   EXPECT_EQ( Quill::RangeException( "too long" ).text(), "too long" );
   EXPECT_EQ( Quill::RangeException( "too long" ).id(), ExceptionId::range );
   EXPECT_EQ( Quill::NullParameterException( "null" ).id(), ExceptionId::nullParameter );
   EXPECT_EQ( ErrnoException( "open", EMFILE ).id(), ExceptionId::errnoFailure );
   EXPECT_EQ( static_cast< U32 >( ExceptionId::errnoFailure ), 29 );
}

TEST( ExceptionTest, ErrnoExceptionCarriesTextAndNumberAndLeavesErrno ) {
   errno = 0;
   try {
      throw ErrnoException( "setns of a namespace with a name that needs the heap", EPERM );
   } catch ( ErrnoException const & e ) {
      EXPECT_EQ( errno, EPERM );
      EXPECT_EQ( e.number(), EPERM );
      EXPECT_STREQ( e.what(), "setns of a namespace with a name that needs the heap" );
      ErrnoException const copy = e;
      EXPECT_EQ( copy.number(), EPERM );
      EXPECT_EQ( copy.text(), e.text() );
   }
}

TEST( ExceptionTest, EveryKindIsCaughtAsAStandardException ) {
   EXPECT_THROW( throw ErrnoException( "open", EMFILE ), std::exception );
   EXPECT_THROW( throw Quill::RangeException( "too long" ), Exception );
}

TEST( ExceptionTest, ExceptionInsideItsScopeIsExpected ) {
   EXPECT_EQ( unexpectedIn( [] {
                 Expect const scope( 29 );
                 EXPECT_TRUE( ErrnoException( "open", EMFILE ).expected() );
              } ),
              0 );
}

TEST( ExceptionTest, ExceptionOutsideAnyScopeIsCountedAsUnexpected ) {
   EXPECT_EQ( unexpectedIn( [] {
                 { Expect const ended( 29 ); }
                 EXPECT_FALSE( ErrnoException( "open", EMFILE ).expected() );
              } ),
              1 );
}

TEST( ExceptionTest, ScopeOfAnotherIdDoesNotMatter ) {
   EXPECT_EQ( unexpectedIn( [] {
                 Expect const scope( 29 );
                 EXPECT_FALSE( Quill::RangeException( "too long" ).expected() );
              } ),
              1 );
}

TEST( ExceptionTest, ScopesNest ) {
   EXPECT_FALSE( Expect::isExpected( ExceptionId::range ) );
   Expect const outer( ExceptionId::range );
   {
      Expect const inner( ExceptionId::errnoFailure );
      EXPECT_TRUE( Expect::isExpected( ExceptionId::range ) );
      EXPECT_TRUE( Expect::isExpected( ExceptionId::errnoFailure ) );
      Expect const again( ExceptionId::range );
   }
   EXPECT_TRUE( Expect::isExpected( ExceptionId::range ) );
   EXPECT_FALSE( Expect::isExpected( ExceptionId::errnoFailure ) );
}

TEST( ExceptionTest, CopyOfAnExceptionIsNotCountedAgain ) {
   EXPECT_EQ( unexpectedIn( [] {
                 Quill::RangeException const made( "too long" );
                 Quill::RangeException const copy = made; // NOLINT
                 EXPECT_EQ( copy.expected(), made.expected() );
              } ),
              1 );
}

} // namespace
