// Opening a file that a configuration names, without waiting for anything.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace Settings {

struct CloseFile {
   void operator()( std::FILE * file ) const noexcept { std::fclose( file ); }
};
using OpenFile = std::unique_ptr< std::FILE, CloseFile >;

// Why a file was not opened.
struct CannotOpen {
   enum class Why : unsigned char {
      missing,    // or not accessible
      directory,  // it is one
      notRegular, // a FIFO, a socket or a device, reading which may take forever
   };
   Why why;
   std::string text; // "cannot open: No such file or directory"
};

// Opens a regular file for reading; /dev/null is as good as an empty one. Throws CannotOpen.
OpenFile openForReading( std::string const & path );

} // namespace Settings
