// Reports when a named namespace is created, deleted, or recreated under the same name.
//
// Watches the directories with inotify; for a directory that does not exist yet, its nearest existing
// parent. `ip netns add` creates an empty file and mounts the namespace on it later, which inotify does
// not report. So a file that is not a namespace is checked again, with increasing pauses, as long as it
// exists. And when anything was mounted or unmounted, everything is checked again: a namespace may have
// been unmounted, or another one mounted over it, while its file stayed.
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
      replaced, // another namespace has the name now
   };
   using Changed = std::function< void( Corvid::NamespaceName const & name, Change change ) >;

   // Starts to watch. Existing namespaces are known and not reported. `loop` must outlive the watcher,
   // and `changed` must not destroy it. Throws Quill::ErrnoException if inotify is not available.
   NetNsWatcher( EventLoop & loop, NetNsDirectories directories, Changed changed );
   ~NetNsWatcher();
   NetNsWatcher( NetNsWatcher const & ) = delete;
   NetNsWatcher & operator=( NetNsWatcher const & ) = delete;

   // The existing namespaces by name, without the process's own.
   std::map< Corvid::NamespaceName, NetNsIdentity > const & known() const noexcept {
      return known_;
   }
   // Checks everything again and reports the differences.
   void rescan();

 private:
   struct Directory {
      std::string path;
      std::string watched; // the directory itself, or its nearest existing parent
      int watch = -1;
   };

   void watchDirectory( Directory & directory );
   void directoryWatchIs( Directory & directory, std::string const & path, int watch );
   void eventsReady();
   void mountsChanged();
   bool handleEvents( char const * bytes, std::size_t length );
   void directoriesChanged();
   void check( Corvid::NamespaceName const & name );
   void identityIs( Corvid::NamespaceName const & name,
                    std::optional< NetNsIdentity > const & identity );
   void retryLater( Corvid::NamespaceName const & name );
   void retry();
   bool fileExists( Corvid::NamespaceName const & name ) const noexcept;
   std::set< Corvid::NamespaceName > namesInDirectories() const;
   void report( Corvid::NamespaceName const & name, Change change );

   EventLoop & loop_;
   NetNsDirectories const netNsDirectories_;
   Changed const changed_;
   Fd const inotify_;
   std::vector< Directory > directories_;
   std::map< Corvid::NamespaceName, NetNsIdentity > known_;
   std::set< Corvid::NamespaceName > unfinished_; // files that are not namespaces yet
   Gantry::Backoff pause_;
   Gantry::Timer timer_;
   Fd const mounts_; // empty without /proc
   Gantry::Timer mountsTimer_;
};

} // namespace Valen::Linux
