// The outputs of the library's trace: the ring, which is always on; standard error or a file, if
// configured; and clients that follow it.
#pragma once

#include "linux/TraceOutputs.h"
#include "platform/gantry/WorkQueue.h"
#include "settings/Config.h"

#include <deque>
#include <memory>

namespace Valend {

class TraceHub final : public Quill::TraceSink {
 public:
   static constexpr std::size_t ringBytes = 4u << 20;

   struct Line {
      U64 timeNs; // since 1970, UTC
      std::string unit;
      U32 level;
      std::string text;
   };
   // Receives lines, and returns whether it wants more. Also called without lines, to ask only that.
   using Follower = std::function< bool( std::vector< Line > const & lines ) >;

   // Where lines go when no file is configured.
   enum class WithoutFile : U8 { nowhere, standardError };

   // Applies the levels and opens the outputs. `work` must outlive the hub. Throws
   // Quill::ErrnoException and Quill::RangeException.
   TraceHub( Gantry::WorkQueue & work, Settings::ProcessConfig const & config,
             WithoutFile withoutFile );
   ~TraceHub() override;
   TraceHub( TraceHub const & ) = delete;
   TraceHub & operator=( TraceHub const & ) = delete;

   // The newest lines of the ring, at most `count`, oldest first.
   std::vector< Line > recent( std::size_t count ) const;
   // Lines lost because the ring was full.
   U64 lost() const noexcept { return ring().lost(); }

   // Calls `follower`, from the loop, with the lines that are traced from now on.
   void follow( Follower follower );

   // Opens the file again, after it was renamed. No effect without a file. If it cannot be opened,
   // throws Quill::ErrnoException and continues with the old one.
   void reopen();

   void line( Quill::TraceLine const & line ) noexcept override;

 private:
   Blipline::Ring const & ring() const noexcept;
   void sinkUpdate() noexcept;
   void tell( std::vector< Line > const & lines );

   // The largest number of lines that wait for followers; further lines are dropped.
   static constexpr std::size_t maxPending = 10'000;

   Gantry::PostedWork posted_;
   std::unique_ptr< Valen::Linux::RingFile > ringFile_; // one of these two
   std::vector< U64 > ringMemory_;
   std::unique_ptr< Blipline::Ring > memoryRing_;
   std::unique_ptr< Valen::Linux::FileTraceSink > file_; // at most one of these two
   std::unique_ptr< Valen::Linux::StderrTraceSink > stderr_;
   std::vector< Follower > followers_;
   std::vector< Line > pending_;
};

} // namespace Valend
