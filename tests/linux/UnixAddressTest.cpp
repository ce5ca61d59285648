#include "linux/UnixAddress.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace Valen::Linux {
namespace {

std::string bytesOf( UnixAddress const & address ) {
   auto const * const bytes = reinterpret_cast< char const * >( address.get() );
   return std::string( bytes, address.size() ).substr( offsetof( sockaddr_un, sun_path ) );
}

TEST( UnixAddressTest, APathEndsInAZeroByteAndAnAbstractNameBeginsWithOne ) {
   EXPECT_EQ( bytesOf( *UnixAddress::at( "/run/x" ) ), std::string( "/run/x\0", 7 ) );
   EXPECT_EQ( bytesOf( *UnixAddress::abstract( "name" ) ), std::string( "\0name", 5 ) );
   EXPECT_EQ( UnixAddress::at( "/run/x" )->get()->sa_family, AF_UNIX );
}

TEST( UnixAddressTest, WhatDoesNotFitHasNoAddress ) {
   std::string const longest( 107, 'p' );
   EXPECT_EQ( bytesOf( *UnixAddress::at( longest ) ), longest + '\0' );
   EXPECT_EQ( bytesOf( *UnixAddress::abstract( longest ) ), '\0' + longest );
   EXPECT_FALSE( UnixAddress::at( longest + 'p' ) );
   EXPECT_FALSE( UnixAddress::abstract( longest + 'p' ) );
}

} // namespace
} // namespace Valen::Linux
