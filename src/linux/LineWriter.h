// Lines for an output whose reader may stop: a thread writes them, so that the caller never waits.
//
// A limited number of bytes is queued, in order. When the queue is full, lines are dropped and counted
// until half of it was written; then a line says how many.
#pragma once

#include "platform/quill/Int.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace Valen::Linux {

class LineWriter {
 public:
   static constexpr std::size_t maxBytes = 1u << 20;
   // How long the end of the process waits for a reader.
   static constexpr std::chrono::milliseconds flushTimeout{ 200 };

   struct Line {
      std::string text;
      std::string message; // the same for an output that is tried first; may be empty
   };
   // All run in the thread, which may still use them after the writer is destroyed.
   struct Output {
      // Writes a line. May block. Returns whether it was written; if not, it counts as dropped.
      std::function< bool( Line const & line ) > write;
      // The line that says that `count` lines were dropped.
      std::function< Line( U64 count ) > dropped;
   };

   //   name   of the thread, at most 15 characters
   LineWriter( char const * name, Output output );
   // Waits at most `flushTimeout` until all is written. The thread writes what is left while the process lives.
   ~LineWriter();
   LineWriter( LineWriter const & ) = delete;
   LineWriter & operator=( LineWriter const & ) = delete;

   // Queues a line. Returns false if it was dropped. If no thread can be started, writes it here.
   bool put( Line line ) noexcept;
   // Waits at most `limit` until all is written. Returns whether it is.
   bool flush( std::chrono::milliseconds limit = flushTimeout ) noexcept;
   // The destructor does not wait.
   void abandon() noexcept { abandoned_ = true; }

   // Lines that were dropped so far, and whether lines are being dropped now.
   U64 dropped() const noexcept;
   bool dropping() const noexcept;

 private:
   struct State;

   static void work( State & state ) noexcept;

   std::shared_ptr< State > const state_; // shared with the thread
   bool threadStarted_ = false;
   bool abandoned_ = false;
};

} // namespace Valen::Linux
