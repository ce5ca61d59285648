// Standard error, or the system journal when that reads it.
//
// While a StandardError exists, its thread writes: a pipe that is not read, a stopped terminal or a stuck
// journal never holds up the caller. Without one the caller writes, as programs do before their work
// begins. The descriptor's flags are not changed: other processes share them.
#pragma once

#include "linux/LineWriter.h"

#include <functional>
#include <string>

namespace Valen::Linux {

class StandardError {
 public:
   static constexpr char const * journalSocket = "/run/systemd/journal/socket";

   // There is at most one in the process.
   StandardError();
   // Waits a short time until what is queued is written, as before an abort.
   ~StandardError();
   StandardError( StandardError const & ) = delete;
   StandardError & operator=( StandardError const & ) = delete;

   // `dropping` is called by put() when lines begin to be dropped.
   void droppingIs( std::function< void() > dropping ) { whenDropping_ = std::move( dropping ); }
   // Lines that were dropped so far, and whether lines are being dropped now.
   U64 dropped() const noexcept { return writer_.dropped(); }
   bool dropping() const noexcept { return writer_.dropping(); }

   // Writes a line.
   //   text      with the newline at its end
   //   message   the same in the journal's native protocol, which is sent instead, if it can be; empty
   //             when the journal does not read standard error
   static void put( std::string text, std::string message = "" );

   // Whether standard error is the journal's file, which JOURNAL_STREAM gives as "DEVICE:INODE".
   static bool isJournal() noexcept;

 private:
   static void beforeAbort() noexcept;

   LineWriter writer_;
   std::function< void() > whenDropping_;
   bool wasDropping_ = false;
};

// The journal's reply to a message.
enum class JournalSent : U8 {
   sent,
   full,  // it would block
   failed // there is no journal, or it does not take the message
};
enum class JournalWait : U8 { none, untilSent };

// Sends a message to the journal at `socket`.
JournalSent sendToJournal( std::string const & message, JournalWait wait = JournalWait::none,
                           std::string const & socket = StandardError::journalSocket ) noexcept;

} // namespace Valen::Linux
