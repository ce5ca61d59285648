// A file in the state directory to which lines are added. A line is added as a whole or not at all, and
// room for further ones can be reserved, which a full disk does not take away.
//
// Functions return an empty text, or why they failed: "cannot write PATH: No space left on device". A file
// that is replaced by a new one is renamed to "NAME.1".
#pragma once

#include "linux/Fd.h"
#include "valend/base/StateDirectory.h"

#include <optional>

namespace Valend {

class JournalFile {
 public:
   // How much more than needed is reserved at a time.
   static constexpr std::size_t reserveStep = 256u << 10;

   // `header` is the first line of every file. `directory` must outlive this.
   JournalFile( StateDirectory & directory, std::string name, std::string header );

   // Opens the file, and the directory, unless they are open. Writes the header of a new file.
   std::string open();
   // Adds lines.
   std::string append( std::string const & text );
   // Makes sure that `bytes` more fit. On a file system that cannot reserve room, this has no effect.
   std::string reserve( std::size_t bytes );
   // Whether `bytes` more fit in the room that is reserved.
   bool fits( std::size_t bytes ) const noexcept { return bytes_ + bytes <= reserved_; }
   // Gives back room, when much more than `bytes` is reserved.
   void release( std::size_t bytes );
   // Begins a new file with `text`, and room for `bytes` more; if that fails, the old one stays.
   std::string replace( std::string const & text, std::size_t bytes );

   // The size of the file.
   std::size_t bytes() const noexcept { return bytes_; }
   std::string path( char const * suffix = "" ) const {
      return directory_.pathOf( name_ + suffix );
   }
   std::string const & header() const noexcept { return header_; }

   // The whole file with that suffix. Nothing, with errno set, when it is not readable, not a regular
   // file or longer than `limit`.
   std::optional< std::string > content( char const * suffix, std::size_t limit ) const {
      return directory_.content( name_ + suffix, limit );
   }
   // Renames it. Returns errno, or 0.
   int rename( char const * from, char const * to ) const {
      return directory_.rename( name_ + from, name_ + to );
   }

 private:
   std::string failed( char const * what, int number ) const;

   StateDirectory & directory_;
   std::string const name_;
   std::string const header_;
   Valen::Linux::Fd file_;
   std::size_t bytes_ = 0;
   std::size_t reserved_ = 0; // at least `bytes_`
   bool canReserve_ = true;
};

} // namespace Valend
