// Network namespaces: opened by name, told apart by identity, entered and always left again.
#pragma once

#include "linux/Fd.h"
#include "platform/corvid/NamespaceName.h"

#include <optional>
#include <string>
#include <vector>

namespace Valen::Linux {

// What tells a namespace from all others that live at the same time: one that is made anew under
// the same name has another inode.
struct NetNsIdentity {
   U64 device = 0;
   U64 inode = 0;

   bool operator==( NetNsIdentity const & ) const noexcept = default;
   // "4:4026532211"
   std::string text() const;
};

// An open namespace. The descriptor keeps a deleted one alive, so do not hold it for long.
struct NetNs {
   Corvid::NamespaceName name;
   NetNsIdentity identity;
   Fd fd; // none for the process's own namespace, which needs no entering
};

// Where namespaces are found by name: as files in the usual folder, and in folders of the process's
// choosing, which are looked through in order. "default" is the process's own namespace.
class NetNsFolders {
 public:
   static constexpr char const * usual = "/run/netns";

   explicit NetNsFolders( std::vector< std::string > folders = { usual } );

   std::vector< std::string > const & folders() const noexcept { return folders_; }

   // Opens the namespace of that name. Throws Quill::ErrnoException: ENOENT when there is none,
   // EINVAL when the name is not one of a file ("", ".", with a '/' or "..") or the file is
   // something else than a network namespace, EMFILE or ENFILE without a descriptor left.
   NetNs open( Corvid::NamespaceName const & name ) const;
   // The identity of the namespace of that name; nothing when it cannot be opened.
   std::optional< NetNsIdentity > identity( Corvid::NamespaceName const & name ) const noexcept;

   // Whether `name` can be that of a file in a folder.
   static bool validName( std::string_view name ) noexcept;

 private:
   std::vector< std::string > folders_;
};

// On the stack around the system calls that are to be made in a namespace. Comes back to the
// namespace that the thread was in, whatever happens; a process that cannot come back is aborted,
// since all that it did from then on would happen in a foreign network.
class NetNsScope {
 public:
   // Throws Quill::ErrnoException (EPERM without CAP_SYS_ADMIN, EMFILE) and stays outside.
   explicit NetNsScope( NetNs const & netNs );
   ~NetNsScope();
   NetNsScope( NetNsScope const & ) = delete;
   NetNsScope & operator=( NetNsScope const & ) = delete;

 private:
   Fd home_; // none when nothing was entered
};

} // namespace Valen::Linux
