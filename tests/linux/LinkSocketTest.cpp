#include "linux/LinkSocket.h"

#include "linux/LinkWorker.h"
#include "linux/Rtnetlink.h"
#include "tests/linux/Links.h"
#include "tests/linux/Privileges.h"

#include <linux/filter.h>
#include <linux/netlink.h>
#include <set>
#include <thread>

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;

// The netlink sockets of this process.
std::set< int > netlinkSockets() {
   std::set< int > found;
   for ( int fd = 0; fd < 1024; ++fd ) {
      sockaddr_storage address{};
      socklen_t length = sizeof address;
      if ( ::getsockname( fd, reinterpret_cast< sockaddr * >( &address ), &length ) == 0 &&
           address.ss_family == AF_NETLINK ) {
         found.insert( fd );
      }
   }
   return found;
}

// From now on, what the kernel sends to the socket is lost.
void answersAreLost( int socket ) {
   sock_filter nothing{ BPF_RET | BPF_K, 0, 0, 0 };
   sock_fprog const program{ 1, &nothing };
   ASSERT_EQ( ::setsockopt( socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program ), 0 );
}

class LinkSocketTest : public Valen::Test::LinksTest {
 protected:
   void SetUp() override {
      LinksTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      link_ = id( "et1" );
      others_ = netlinkSockets();
   }
   NetNs netNs() const { return NetNsDirectories().open( blue_->name() ); }
   // The socket that was opened last.
   int opened() const {
      for ( auto const fd : netlinkSockets() ) {
         if ( !others_.contains( fd ) ) {
            return fd;
         }
      }
      return -1;
   }
   // The error of setting the link down or up; 0 if that was done.
   int errorOf( LinkSocket & socket, LinkState state ) const {
      Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
      try {
         socket.stateIs( link_, state );
         return 0;
      } catch ( Quill::ErrnoException const & e ) {
         return e.number();
      }
   }

   LinkId link_;

 private:
   std::set< int > others_;
};

TEST_F( LinkSocketTest, AfterAnAnswerTheSocketIsGood ) {
   LinkSocket socket( netNs(), 10s );
   EXPECT_FALSE( socket.broken() );
   EXPECT_EQ( errorOf( socket, LinkState::down ), 0 );
   EXPECT_FALSE( socket.broken() );
   EXPECT_EQ( socket.state( link_ ), LinkState::down );
}

TEST_F( LinkSocketTest, WhatFailsWithOneLinkDoesNotEndTheOthers ) {
   LinkSocket socket( netNs(), 10s );
   EXPECT_EQ( errorOf( socket, LinkState::down ), 0 );
   auto wrong = id( "et3" );
   wrong.device = "et4";
   std::vector< LinkSetting > const settings{ { id( "et2" ), LinkState::down },
                                              { wrong, LinkState::down },
                                              { link_, LinkState::down },
                                              { id( "et3" ), LinkState::down } };
   auto const results = socket.statesAre( settings );
   ASSERT_EQ( results.size(), 4u );
   EXPECT_TRUE( results[ 0 ].changed );
   EXPECT_EQ( results[ 1 ].error, ENODEV );
   EXPECT_FALSE( results[ 1 ].changed );
   EXPECT_FALSE( results[ 2 ].changed ) << "it was down";
   EXPECT_EQ( results[ 2 ].error, 0 );
   EXPECT_TRUE( results[ 3 ].changed );
   for ( auto const * const device : { "et1", "et2", "et3" } ) {
      EXPECT_EQ( socket.state( id( device ) ), LinkState::down ) << device;
   }
}

// The kernel refuses each, and says so of each.
TEST_F( LinkSocketTest, EachLinkHasItsOwnError ) {
   std::vector< LinkResult > results;
   std::vector< LinkSetting > const settings{ { id( "et1" ), LinkState::down },
                                              { id( "et2" ), LinkState::down } };
   std::thread( [ & ] {
      Valen::Test::suspendCapability( CAP_NET_ADMIN );
      LinkSocket socket( netNs(), 10s );
      results = socket.statesAre( settings );
   } ).join();
   ASSERT_EQ( results.size(), 2u );
   for ( std::size_t i = 0; i < 2; ++i ) {
      EXPECT_EQ( results[ i ].error, EPERM );
      EXPECT_EQ( results[ i ].why,
                 "cannot set down " + settings[ i ].link.text() + ": Operation not permitted" );
   }
}

TEST_F( LinkSocketTest, WithoutAnAnswerTheSocketIsBroken ) {
   LinkSocket socket( netNs(), 50ms );
   answersAreLost( opened() );
   std::vector< LinkSetting > const settings{ { id( "et1" ), LinkState::down },
                                              { id( "et2" ), LinkState::down } };
   for ( auto const & result : socket.statesAre( settings ) ) {
      EXPECT_EQ( result.error, ETIMEDOUT );
   }
   EXPECT_TRUE( socket.broken() );
}

// The kernel goes by the privileges of the thread that asks, not of the one that opened the socket.
TEST_F( LinkSocketTest, ASocketOnWhichARequestWasRefusedIsGood ) {
   std::optional< LinkSocket > socket;
   std::thread( [ & ] {
      Valen::Test::suspendCapability( CAP_NET_ADMIN );
      socket.emplace( netNs(), 10s );
      EXPECT_EQ( errorOf( *socket, LinkState::down ), EPERM );
   } ).join();
   EXPECT_FALSE( socket->broken() );
   EXPECT_EQ( errorOf( *socket, LinkState::down ), 0 );
}

TEST_F( LinkSocketTest, TheAnswerToAnotherRequestIsNotTakenForItsOwn ) {
   LinkSocket socket( netNs(), 10s );
   sockaddr_nl kernel{};
   kernel.nl_family = AF_NETLINK;
   auto const request = Rtnetlink::downRequest( 99, 12345 ); // there is no such device
   ASSERT_GT( ::sendto( opened(), request.data(), request.size(), 0,
                        reinterpret_cast< sockaddr const * >( &kernel ), sizeof kernel ),
              0 );
   EXPECT_EQ( errorOf( socket, LinkState::down ), 0 ) << "not the error of the other one";
   EXPECT_EQ( socket.state( link_ ), LinkState::down );
}

TEST_F( LinkSocketTest, AWorkerOpensAnotherSocketInPlaceOfABrokenOne ) {
   LinkWorker worker( loop_ );
   worker.netNssAre( { blue_->text() } );
   std::vector< int > errors;
   auto const ask = [ & ]( LinkState state ) {
      worker.request( link_, state, {},
                      [ & ]( auto const & answer ) { errors.push_back( answer.error ); } );
      return turnUntil( [ &, count = errors.size() ] { return errors.size() > count; }, 60s );
   };
   ASSERT_TRUE( ask( LinkState::down ) );
   answersAreLost( opened() );
   ASSERT_TRUE( ask( LinkState::up ) );
   ASSERT_TRUE( ask( LinkState::down ) );
   EXPECT_EQ( errors, ( std::vector{ 0, ETIMEDOUT, 0 } ) );
}

} // namespace
} // namespace Valen::Linux
