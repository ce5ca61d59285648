// Outputs of the trace: standard error, a file, and the ring in a mapped file.
#pragma once

#include "linux/Fd.h"
#include "platform/trace/Blipline.h"
#include "platform/trace/Trace.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace Valen::Linux {

class LineWriter;

// Writes lines to standard error (StandardError.h): to the journal with its priorities, "<6>" for level 0 and "<7>" for the
// others; else with the time of day, as in a file.
class StderrTraceSink final : public Quill::TraceSink {
 public:
   enum class Reader : U8 { journal, other };

   // The journal reads standard error if that is the file in JOURNAL_STREAM.
   StderrTraceSink();
   explicit StderrTraceSink( Reader reader ) noexcept : reader_( reader ) {}

   bool journal() const noexcept { return reader_ == Reader::journal; }
   void line( Quill::TraceLine const & line ) noexcept override;

 private:
   Reader const reader_;
};

// Appends lines to a file, in a thread (LineWriter.h), each with its time in UTC, its unit and its level:
// "2026-01-31T12:00:00.123456Z ConfigSm/0 void Valen::ConfigSm::handleVrf(L3::VrfName): vrf red".
class FileTraceSink final : public Quill::TraceSink {
 public:
   // Throws Quill::ErrnoException if the file cannot be opened.
   explicit FileTraceSink( std::string path );
   ~FileTraceSink() override; // waits a short time until all lines are written

   void line( Quill::TraceLine const & line ) noexcept override;
   // Opens the path again, after log rotation has moved the file. If that fails, throws
   // Quill::ErrnoException and keeps the old file.
   void reopen();
   // Number of lines that could not be written completely, or were dropped because too many were queued.
   U64 lost() const noexcept;
   // Waits a short time until all lines are written.
   void flush() noexcept;

 private:
   void open();

   std::string const path_;
   std::unique_ptr< LineWriter > writer_;
   U64 lost_ = 0; // of the files before
};

// The process's trace ring in a file, which survives a crash. Installs the ring and the abort hook, and
// uninstalls both at its end. An existing file is renamed to PATH.previous, so that a restart keeps the
// trace of a crash.
class RingFile {
 public:
   //   bytes   size of the file, rounded up to whole pages
   // Throws Quill::ErrnoException, or Quill::RangeException if the size is too small for a ring.
   RingFile( std::string const & path, std::size_t bytes );
   ~RingFile();
   RingFile( RingFile const & ) = delete;
   RingFile & operator=( RingFile const & ) = delete;

   Blipline::Ring & ring() noexcept { return *ring_; }
   std::span< std::byte const > memory() const noexcept { return memory_; }

   // Reads the file of a ring, for a Blipline::Reader. Throws Quill::ErrnoException.
   static std::vector< std::byte > read( std::string const & path );

 private:
   std::span< std::byte > memory_; // mapped
   std::optional< Blipline::Ring > ring_;
};

} // namespace Valen::Linux
