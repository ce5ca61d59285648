// Where an agent's trace goes: standard error, a file, and the ring in a mapped file.
#pragma once

#include "linux/Fd.h"
#include "platform/trace/Blipline.h"
#include "platform/trace/Trace.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>

namespace Valen::Linux {

// Lines on standard error. The journal gets them with its priorities: "<6>" for level 0, "<7>" for
// the others; anybody else with the time of day, as in a file.
class StderrTraceSink final : public Quill::TraceSink {
 public:
   // Looks for the journal: JOURNAL_STREAM names the file that standard error is.
   StderrTraceSink();
   explicit StderrTraceSink( bool journal ) noexcept : journal_( journal ) {}

   bool journal() const noexcept { return journal_; }
   void line( Quill::TraceLine const & line ) noexcept override;

 private:
   bool const journal_;
};

// Lines at the end of a file, each with its time in UTC, its unit and its level:
// "2026-01-31T12:00:00.123456Z ConfigSm/0 void Valen::ConfigSm::handleVrf(L3::VrfName): vrf red".
class FileTraceSink final : public Quill::TraceSink {
 public:
   // Throws Quill::ErrnoException when the file cannot be opened.
   explicit FileTraceSink( std::string path );

   void line( Quill::TraceLine const & line ) noexcept override;
   // Opens the path anew, after the file was moved aside. Throws Quill::ErrnoException, and goes on
   // with the old file, when that fails.
   void reopen();
   // Lines that could not be written whole.
   U64 lost() const noexcept { return lost_; }

 private:
   std::string const path_;
   Fd file_;
   U64 lost_ = 0;
};

// The process's trace ring in a file, which outlives a crash of the process. Installs the ring and
// the abort hook; takes both back at its end. What a file of that path held before is kept beside
// it, as PATH.previous, so that a restart does not wipe out the trace of a crash.
class RingFile {
 public:
   // `bytes`: the size of the file, rounded up to whole pages. Throws Quill::ErrnoException, or
   // Quill::RangeException when it is too small for a ring.
   RingFile( std::string const & path, std::size_t bytes );
   ~RingFile();
   RingFile( RingFile const & ) = delete;
   RingFile & operator=( RingFile const & ) = delete;

   Blipline::Ring & ring() noexcept { return *ring_; }
   std::span< std::byte const > memory() const noexcept { return memory_; }

   // The bytes of a ring's file, for a Blipline::Reader. Throws Quill::ErrnoException.
   static std::vector< std::byte > read( std::string const & path );

 private:
   std::span< std::byte > memory_; // mapped
   std::optional< Blipline::Ring > ring_;
};

} // namespace Valen::Linux
