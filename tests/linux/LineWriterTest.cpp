#include "linux/LineWriter.h"

#include <gmock/gmock.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

// An output that takes lines while it is open, or as many as it may.
class Reader {
 public:
   LineWriter::Output output( std::shared_ptr< Reader > const & self ) {
      return { [ self ]( auto const & line ) { return self->take( line.text ); },
               []( U64 count ) {
                  return LineWriter::Line{ std::to_string( count ) + " dropped", "" };
               } };
   }
   void openIs( bool open ) {
      std::lock_guard const lock( mutex_ );
      open_ = open;
      changed_.notify_all();
   }
   // Takes that many more lines though it is not open.
   void mayTake( int count ) {
      std::lock_guard const lock( mutex_ );
      may_ += count;
      changed_.notify_all();
   }
   // Waits until a line is being written, for a generous time. Returns whether one is.
   bool isAsked() {
      std::unique_lock lock( mutex_ );
      return changed_.wait_for( lock, 30s, [ & ] { return asked_; } );
   }
   void failsIs( bool fails ) {
      std::lock_guard const lock( mutex_ );
      fails_ = fails;
   }
   std::deque< std::string > lines() const {
      std::lock_guard const lock( mutex_ );
      return lines_;
   }

 private:
   bool take( std::string const & text ) {
      std::unique_lock lock( mutex_ );
      asked_ = true;
      changed_.notify_all();
      changed_.wait( lock, [ & ] { return open_ || may_ > 0; } );
      asked_ = false;
      may_ -= may_ > 0 ? 1 : 0;
      if ( !fails_ ) {
         lines_.push_back( text );
      }
      return !fails_;
   }

   mutable std::mutex mutex_;
   std::condition_variable changed_;
   bool open_ = true;
   bool fails_ = false;
   bool asked_ = false; // a line waits to be taken
   int may_ = 0;        // lines that it takes though it is not open
   std::deque< std::string > lines_;
};

class LineWriterTest : public ::testing::Test {
 protected:
   ~LineWriterTest() override { reader->openIs( true ); }

   bool put( std::string text ) { return writer->put( { std::move( text ), "" } ); }
   // Waits until that many lines were written and the next one is being written.
   bool written( std::size_t count ) const {
      for ( int i = 0; i < 3000 && reader->lines().size() < count; ++i ) {
         std::this_thread::sleep_for( 10ms );
      }
      return reader->lines().size() == count && reader->isAsked();
   }
   // A line of a quarter of the queue.
   static std::string quarter( char letter ) {
      return std::string( LineWriter::maxBytes / 4, letter );
   }

   std::shared_ptr< Reader > const reader = std::make_shared< Reader >();
   std::optional< LineWriter > writer{ std::in_place, "test", reader->output( reader ) };
};

TEST_F( LineWriterTest, LinesKeepTheirOrder ) {
   for ( int i = 0; i < 1000; ++i ) {
      EXPECT_TRUE( put( std::to_string( i ) ) );
   }
   EXPECT_TRUE( writer->flush( 30s ) );
   auto const lines = reader->lines();
   ASSERT_EQ( lines.size(), 1000u );
   for ( int i = 0; i < 1000; ++i ) {
      EXPECT_EQ( lines[ static_cast< std::size_t >( i ) ], std::to_string( i ) );
   }
   EXPECT_EQ( writer->dropped(), 0u );
}

TEST_F( LineWriterTest, AReaderThatHasStoppedIsToldHowManyLinesWereDropped ) {
   reader->openIs( false );
   for ( auto const letter : { 'a', 'b', 'c', 'd' } ) {
      EXPECT_TRUE( put( quarter( letter ) ) );
   }
   EXPECT_FALSE( writer->dropping() );
   EXPECT_FALSE( put( "e" ) );
   EXPECT_FALSE( put( "f" ) );
   EXPECT_TRUE( writer->dropping() );
   EXPECT_EQ( writer->dropped(), 2u );
   EXPECT_FALSE( writer->flush( 10ms ) );

   reader->openIs( true );
   EXPECT_TRUE( writer->flush( 30s ) );
   EXPECT_FALSE( writer->dropping() );
   EXPECT_TRUE( put( "g" ) );
   EXPECT_TRUE( writer->flush( 30s ) );
   EXPECT_THAT( reader->lines(), ElementsAre( quarter( 'a' ), quarter( 'b' ), quarter( 'c' ),
                                              quarter( 'd' ), "2 dropped", "g" ) );
}

TEST_F( LineWriterTest, LinesAreDroppedUntilHalfOfTheQueueWasWritten ) {
   reader->openIs( false );
   for ( auto const letter : { 'a', 'b', 'c', 'd' } ) {
      EXPECT_TRUE( put( quarter( letter ) ) );
   }
   EXPECT_FALSE( put( "e" ) );
   reader->mayTake( 1 );
   ASSERT_TRUE( written( 1 ) );
   EXPECT_TRUE( writer->dropping() );
   EXPECT_FALSE( put( "f" ) ) << "there is room for it, but the reader is far behind";
   reader->mayTake( 1 );
   ASSERT_TRUE( written( 2 ) );
   EXPECT_FALSE( writer->dropping() );
   EXPECT_TRUE( put( "g" ) );
   reader->openIs( true );
   EXPECT_TRUE( writer->flush( 30s ) );
   EXPECT_THAT( reader->lines(), ElementsAre( quarter( 'a' ), quarter( 'b' ), quarter( 'c' ),
                                              quarter( 'd' ), "2 dropped", "g" ) );
}

TEST_F( LineWriterTest, ALineThatIsLargerThanTheQueueIsWrittenWhenNothingElseWaits ) {
   std::string const large( LineWriter::maxBytes + 1, 'x' );
   EXPECT_TRUE( put( large ) );
   EXPECT_TRUE( writer->flush( 30s ) );
   EXPECT_THAT( reader->lines(), ElementsAre( large ) );
}

TEST_F( LineWriterTest, ALineThatIsBeingWrittenIsWaitedFor ) {
   reader->openIs( false );
   put( "a" );
   ASSERT_TRUE( reader->isAsked() );
   EXPECT_FALSE( writer->flush( 10ms ) ) << "the queue is empty, but the line is not written";
   reader->openIs( true );
   EXPECT_TRUE( writer->flush( 30s ) );
   EXPECT_THAT( reader->lines(), ElementsAre( "a" ) );
}

TEST_F( LineWriterTest, LinesThatFailAreCountedAndReportedLater ) {
   reader->failsIs( true );
   put( "a" );
   put( "b" );
   EXPECT_TRUE( writer->flush( 30s ) );
   EXPECT_EQ( writer->dropped(), 2u );
   reader->failsIs( false );
   put( "c" );
   EXPECT_TRUE( writer->flush( 30s ) );
   EXPECT_THAT( reader->lines(), ElementsAre( "2 dropped", "c" ) );
}

TEST_F( LineWriterTest, WhatIsQueuedIsWrittenAtTheEnd ) {
   for ( int i = 0; i < 100; ++i ) {
      put( std::to_string( i ) );
   }
   writer.reset();
   EXPECT_EQ( reader->lines().size(), 100u );
}

TEST_F( LineWriterTest, TheEndWaitsOnlyAShortTime ) {
   reader->openIs( false );
   put( "a" );
   put( "b" );
   auto const begin = std::chrono::steady_clock::now();
   writer.reset();
   EXPECT_LT( std::chrono::steady_clock::now() - begin, 20s );
   EXPECT_TRUE( reader->lines().empty() );
   reader->openIs( true ); // its thread goes on
   for ( int i = 0; i < 3000 && reader->lines().size() < 2; ++i ) {
      std::this_thread::sleep_for( 10ms );
   }
   EXPECT_THAT( reader->lines(), ElementsAre( "a", "b" ) );
}

} // namespace
} // namespace Valen::Linux
