// The state directory: what is in it survives a restart of valend. It belongs to one valend process at a time,
// by a lock that ends with the process, however that ends.
//
// It is opened once. Files are opened, created and renamed relative to that descriptor, so that a change of
// its path does not redirect them.
#pragma once

#include "linux/Fd.h"

#include <functional>
#include <optional>
#include <string>

namespace Valend {

class StateDirectory {
 public:
   // Called with what is wrong with the permissions of the directory.
   using Warning = std::function< void( std::string const & text ) >;

   static constexpr unsigned mode = 0700; // of one that valend creates

   // Opens the directory, and creates it if it does not exist. Without a path there is no such directory. Throws
   // Quill::ErrnoException when another valend process uses it; whatever else is wrong with it, open()
   // returns.
   explicit StateDirectory( std::string path );
   StateDirectory( std::string path, Warning const & warning );
   StateDirectory( StateDirectory const & ) = delete;
   StateDirectory & operator=( StateDirectory const & ) = delete;

   // Opens and locks it unless it is open. Returns an empty text, or what is wrong: "no state directory",
   // "cannot open PATH: Permission denied", "PATH is used by another valend process".
   std::string open();

   // Without a "/" at the end; empty if there is no such directory.
   std::string const & path() const noexcept { return path_; }
   // For texts: the path of the file `name` in it.
   std::string pathOf( std::string const & name ) const { return path_ + "/" + name; }
   // The whole file `name` in it. Nothing, with errno set, when it cannot be read, or is not a regular file, or is
   // longer than `limit`. A symbolic link is not followed.
   std::optional< std::string > content( std::string const & name, std::size_t limit ) const;
   // Renames a file in it. Returns errno, or 0.
   int rename( std::string const & from, std::string const & to ) const noexcept;
   // For openat() and others; -1 while it is not open. Once it is open, it stays so.
   int fd() const noexcept { return fd_.get(); }

 private:
   std::string const path_;
   Valen::Linux::Fd fd_; // locked
   bool usedByAnother_ = false;
};

} // namespace Valend
