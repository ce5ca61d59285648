// Blipline: the ring-buffer trace, always on and readable after a crash.
//
// The writer copies the values of a line, a time and the index of its trace point into a ring of
// binary records; it formats nothing, allocates nothing and makes no system call. The reader turns
// records into the very text of the framework trace.
//
// The ring lives in memory that is handed to it. A process maps a file there, so that the records
// outlive a crash of the process, and installs an abort hook (Quill::abortHookIs) that writes the
// mapping back to the disk.
#pragma once

#include "platform/trace/Twinlog.h"

#include <chrono>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace Quill {

struct TracePoint;

} // namespace Quill

namespace Blipline {

// The writing end. One writer, one thread.
class Ring {
 public:
   static constexpr std::size_t minSize = 4096;

   // Starts an empty ring in `memory`, overwriting what is there. The memory must begin at a
   // multiple of 8 and outlive the ring; it is the caller's to free. An eighth of it holds the
   // descriptions of trace points, the rest the records. Throws Quill::RangeException when it is
   // smaller than minSize.
   explicit Ring( std::span< std::byte > memory );
   Ring( Ring const & ) = delete;
   Ring & operator=( Ring const & ) = delete;

   // Appends one line and drops the oldest ones to make room. Only a line that would take more than
   // half of the ring has its texts cut. A line is lost, and counted, if there is no room for the
   // description of its trace point or its values do not fit at all.
   void write( Quill::TracePoint & point, std::chrono::nanoseconds time,
               std::span< Twinlog::Value const > values ) noexcept;

   U64 lost() const noexcept { return lost_; }

 private:
   // A count of bytes, and where in the ring it leads.
   struct Position {
      U64 count = 0;
      std::size_t offset = 0;
   };

   void describe( Quill::TracePoint & point ) noexcept;
   void lose() noexcept;
   std::size_t textLimit( std::size_t values ) const noexcept;
   std::byte * reserve( std::size_t size ) noexcept;
   void makeRoom( std::size_t size ) noexcept;
   void advance( Position & position, std::size_t size ) const noexcept;

   std::byte * const header_;
   std::span< std::byte > descriptors_;
   std::span< std::byte > ring_;
   Position head_;
   Position tail_;
   std::size_t descriptorEnd_ = 0;
   U32 descriptorCount_ = 0;
   U32 const generation_; // tells this ring from all others of the process
   U64 lost_ = 0;
};

// Installs the process's ring, which must outlive its use; null removes it. Returns the old one.
Ring * ringIs( Ring * ring ) noexcept;
Ring * ring() noexcept;

// A copy of a ring that its writer may go on writing to meanwhile, fit for a Reader. Begins at a
// multiple of 8, as `live` must.
std::vector< std::byte > snapshot( std::span< std::byte const > live );

// One line of the ring. The views are into the reader's memory.
struct Line {
   std::chrono::nanoseconds time{}; // on the monotonic clock
   std::string_view unit;
   U32 line = 0;
   U32 level = 0;
   Twinlog::Text text; // signature, ": ", message
};

// The reading end. The memory may be that of a dead process, cut short, damaged or forged: nothing
// outside it is ever read.
class Reader {
 public:
   // `memory` must outlive the reader and stay unchanged; take a snapshot of a ring in use.
   explicit Reader( std::span< std::byte const > memory );

   // Whether the memory holds a ring at all.
   bool valid() const noexcept { return valid_; }
   // The next line, oldest first. Returns false at the end. A damaged record is skipped; one whose
   // length is damaged ends the reading.
   bool next( Line & line );
   // Whether anything in the ring was damaged.
   bool damaged() const noexcept { return damaged_; }
   // Lines that the writer could not write.
   U64 lost() const noexcept { return lost_; }
   // The date of a line's time: nanoseconds since 1970 in UTC, by the clocks as they stood when the
   // ring was made.
   std::chrono::nanoseconds wallTime( std::chrono::nanoseconds time ) const noexcept;

 private:
   struct Description {
      U32 line;
      U32 level;
      std::string_view unit;
      std::string_view signature;
      std::string_view format;
   };

   bool readHeader( std::span< std::byte const > memory );
   bool readDescriptions( std::span< std::byte const > area );
   std::span< std::byte const > nextRecord();
   bool readRecord( std::span< std::byte const > record, Line & line );
   bool readValues( std::span< std::byte const > bytes );

   std::span< std::byte const > ring_;
   std::vector< Description > descriptions_;
   std::vector< Twinlog::Value > values_; // of the line being read
   U64 position_ = 0;
   U64 head_ = 0;
   U64 wallOffset_ = 0; // wall clock less monotonic clock
   U64 lost_ = 0;
   bool valid_ = false;
   bool damaged_ = false;
};

} // namespace Blipline
