// Network namespaces: opened by name, compared by identity, and entered for a scope.
#pragma once

#include "linux/Fd.h"
#include "platform/corvid/NamespaceName.h"

#include <optional>
#include <string>
#include <vector>

namespace Valen::Linux {

// Identifies a namespace among all that exist at the same time. A namespace that is recreated under the
// same name has another inode.
struct NetNsIdentity {
   U64 device = 0;
   U64 inode = 0;

   bool operator==( NetNsIdentity const & ) const noexcept = default;
   // "4:4026532211"
   std::string text() const;
};

// An open namespace. The descriptor keeps the namespace alive after its deletion, so close it soon.
struct NetNs {
   std::string name;
   NetNsIdentity identity;
   Fd fd; // empty for the process's own namespace, which need not be entered
};

// Finds namespaces by name, as files in /run/netns or in the given directories, which are searched in
// order. "default" is the process's own namespace.
class NetNsDirectories {
 public:
   static constexpr char const * usual = "/run/netns";

   explicit NetNsDirectories( std::vector< std::string > directories = { usual } );

   std::vector< std::string > const & directories() const noexcept { return directories_; }

   // Opens the namespace of that name. Throws Quill::ErrnoException: ENOENT if it does not exist, EINVAL
   // if the name is not a valid file name ("", ".", with a '/' or "..") or the file is not a network
   // namespace, EMFILE or ENFILE if no descriptor is left.
   NetNs open( Corvid::NamespaceName const & name ) const { return openNamed( name.stdString() ); }
   // The same, for any thread.
   NetNs openNamed( std::string const & name ) const;
   // The identity of the namespace of that name; nothing if it cannot be opened.
   std::optional< NetNsIdentity > identity( Corvid::NamespaceName const & name ) const noexcept;

   // Whether the namespace of that name is still the one with this identity. Needs no descriptor, and may be
   // called by any thread.
   bool isStill( std::string const & name, NetNsIdentity const & identity ) const noexcept;

   // Whether `name` is a valid name of a file in a directory.
   static bool validName( std::string_view name ) noexcept;

 private:
   std::vector< std::string > directories_;
};

// Enters a namespace for the scope of a few system calls, and returns to the thread's own namespace at
// its end. If it cannot return, it aborts the process, which would go on in the wrong network.
class NetNsScope {
 public:
   // If it throws Quill::ErrnoException (EPERM without CAP_SYS_ADMIN, EMFILE), nothing was entered.
   explicit NetNsScope( NetNs const & netNs );
   ~NetNsScope();
   NetNsScope( NetNsScope const & ) = delete;
   NetNsScope & operator=( NetNsScope const & ) = delete;

 private:
   Fd home_; // empty if nothing was entered
};

} // namespace Valen::Linux
