// Tells when a named namespace appears, goes, or is made anew under the same name.
//
// The folders are watched by inotify; one that does not exist yet by its nearest parent that does.
// `ip netns add` makes an empty file first and mounts the namespace on it later, which inotify does
// not tell, so a file that is no namespace is looked at again, after growing pauses, for as long as
// it is there.
#pragma once

#include "linux/EventLoop.h"
#include "linux/NetNs.h"
#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"

#include <map>
#include <set>

namespace Valen::Linux {

class NetNsWatcher {
 public:
   enum class Change : U8 {
      appeared,
      gone,
      replaced, // another namespace bears the name now
   };
   using Changed = std::function< void( Corvid::NamespaceName const & name, Change change ) >;

   // Watches from now on; namespaces that exist already are known and not told. `loop` must outlive
   // the watcher, which must not be destroyed by its own callback. Throws Quill::ErrnoException
   // when there is no inotify to be had.
   NetNsWatcher( EventLoop & loop, NetNsFolders folders, Changed changed );
   ~NetNsWatcher();
   NetNsWatcher( NetNsWatcher const & ) = delete;
   NetNsWatcher & operator=( NetNsWatcher const & ) = delete;

   // The namespaces there are, by name; the process's own is not among them.
   std::map< Corvid::NamespaceName, NetNsIdentity > const & known() const noexcept {
      return known_;
   }
   // Looks at everything again, and tells what differs. For what inotify does not tell: a namespace
   // mounted over another one in place.
   void rescan();

 private:
   struct Folder {
      std::string path;
      std::string watched; // the folder itself, or its nearest parent that exists
      int watch = -1;
   };

   void watchFolder( Folder & folder );
   void folderWatchIs( Folder & folder, std::string const & path, int watch );
   void eventsReady();
   bool handleEvents( char const * bytes, std::size_t length );
   void foldersChanged();
   void check( Corvid::NamespaceName const & name );
   void identityIs( Corvid::NamespaceName const & name,
                    std::optional< NetNsIdentity > const & identity );
   void retryLater( Corvid::NamespaceName const & name );
   void retry();
   bool fileExists( Corvid::NamespaceName const & name ) const noexcept;
   std::set< Corvid::NamespaceName > namesInFolders() const;
   void tell( Corvid::NamespaceName const & name, Change change );

   EventLoop & loop_;
   NetNsFolders const netNsFolders_;
   Changed const changed_;
   Fd const inotify_;
   std::vector< Folder > folders_;
   std::map< Corvid::NamespaceName, NetNsIdentity > known_;
   std::set< Corvid::NamespaceName > unfinished_; // files that are no namespaces, as yet
   Gantry::Backoff pause_;
   Gantry::Timer timer_;
};

} // namespace Valen::Linux
