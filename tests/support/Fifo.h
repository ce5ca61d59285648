// A FIFO in place of a file.
#pragma once

#include <chrono>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace Valen::Test {

// Puts a FIFO without a writer at `path`, and returns what `read` does. If that waits for a writer, the test fails.
template < class Read > auto readOfFifo( std::string const & path, Read const & read ) {
   EXPECT_EQ( ::mkfifo( path.c_str(), 0600 ), 0 );
   auto result = std::async( std::launch::async, read );
   if ( result.wait_for( std::chrono::seconds( 10 ) ) != std::future_status::ready ) {
      ADD_FAILURE() << "waits for a writer of " << path;
      ::close( ::open( path.c_str(), O_WRONLY ) ); // the writer, so that it ends
   }
   return result.get();
}

} // namespace Valen::Test
