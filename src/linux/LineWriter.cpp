#include "linux/LineWriter.h"

#include "linux/Thread.h"

#include <condition_variable>
#include <list>
#include <mutex>
#include <system_error>
#include <utility>

namespace Valen::Linux {

namespace {

std::size_t sizeOf( LineWriter::Line const & line ) noexcept {
   return line.text.size() + line.message.size();
}

} // namespace

// A list, whose nodes are made before the mutex is locked: with it locked, nothing allocates, because
// the process may be ended for want of memory, and then flushes.
struct LineWriter::State {
   struct Entry {
      Line line;
      U64 dropped = 0; // not 0: in place of a line, the number of lines that were dropped here
   };

   explicit State( Output to ) : output( std::move( to ) ) {}

   // In the thread.
   void write( Entry const & entry );
   void sayDropped();
   void writtenIs( Entry const & entry );

   Output const output;
   U64 unsaid = 0; // dropped lines that no line was written about; the thread's

   std::mutex mutex;
   std::condition_variable changed; // signals a queued line, an empty queue, or the end
   // Guarded by the mutex.
   std::list< Entry > queue;
   std::size_t bytes = 0; // in the queue, and of the line that is being written
   bool writing = false;
   bool dropping = false;
   bool ending = false;
   U64 droppedHere = 0; // since the queue was full
   U64 droppedTotal = 0;
};

void LineWriter::State::write( Entry const & entry ) {
   unsaid += entry.dropped;
   sayDropped();
   if ( entry.dropped == 0 && !output.write( entry.line ) ) {
      ++unsaid;
      std::lock_guard const lock( mutex );
      ++droppedTotal;
   }
}

void LineWriter::State::sayDropped() {
   if ( unsaid > 0 && output.write( output.dropped( unsaid ) ) ) {
      unsaid = 0;
   }
}

void LineWriter::State::writtenIs( Entry const & entry ) {
   std::list< Entry > gap( 1 );
   std::lock_guard const lock( mutex );
   writing = false;
   bytes -= sizeOf( entry.line );
   if ( dropping && bytes <= maxBytes / 2 ) {
      dropping = false;
      gap.front().dropped = std::exchange( droppedHere, 0 );
      queue.splice( queue.end(), gap );
   }
   if ( queue.empty() ) {
      changed.notify_all();
   }
}

LineWriter::LineWriter( char const * name, Output output )
    : state_( std::make_shared< State >( std::move( output ) ) ) {
   try {
      startThread( name, [ state = state_ ] { work( *state ); } ).detach();
      threadStarted_ = true;
   } catch ( std::system_error const & ) { // put() writes
   }
}

LineWriter::~LineWriter() {
   if ( !abandoned_ ) {
      flush();
   }
   {
      std::lock_guard const lock( state_->mutex );
      state_->ending = true;
   }
   state_->changed.notify_all();
}

bool LineWriter::put( Line line ) noexcept {
   try {
      std::list< State::Entry > node;
      node.push_back( { std::move( line ), 0 } );
      if ( !threadStarted_ ) {
         state_->write( node.front() );
         return true;
      }
      auto const size = sizeOf( node.front().line );
      std::lock_guard const lock( state_->mutex );
      state_->dropping |= state_->bytes > 0 && state_->bytes + size > maxBytes;
      if ( state_->dropping ) {
         ++state_->droppedHere;
         ++state_->droppedTotal;
         return false;
      }
      state_->bytes += size;
      state_->queue.splice( state_->queue.end(), node );
   } catch ( std::exception const & ) { // no memory for it
      return false;
   }
   state_->changed.notify_all();
   return true;
}

bool LineWriter::flush( std::chrono::milliseconds limit ) noexcept {
   std::unique_lock lock( state_->mutex );
   return state_->changed.wait_for(
      lock, limit, [ this ] { return state_->queue.empty() && !state_->writing; } );
}

U64 LineWriter::dropped() const noexcept {
   std::lock_guard const lock( state_->mutex );
   return state_->droppedTotal;
}

bool LineWriter::dropping() const noexcept {
   std::lock_guard const lock( state_->mutex );
   return state_->dropping;
}

void LineWriter::work( State & state ) noexcept {
   std::unique_lock lock( state.mutex );
   for ( ;; ) {
      state.changed.wait( lock, [ & ] { return state.ending || !state.queue.empty(); } );
      if ( state.queue.empty() ) {
         return;
      }
      std::list< State::Entry > current;
      current.splice( current.end(), state.queue, state.queue.begin() );
      state.writing = true;
      lock.unlock();
      state.write( current.front() );
      state.writtenIs( current.front() );
      lock.lock();
   }
}

} // namespace Valen::Linux
