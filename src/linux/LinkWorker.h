// Sets links up and down in a thread, because the kernel may take long for it: 0.4 s for one link beside a full IPv6
// table, and as long as others hold its lock for changes of the network (rtnl).
//
// The thread keeps a socket open in each namespace, so that no descriptor is needed when a link has to go
// down. Changes are made one after the other, as the kernel would make them, the earliest deadline first. While they
// take little time, the kernel is asked for some of them at once; all of these have begun then. While each
// takes long, the earliest and the latest come in turn: so one that is due now does not wait for hundreds that are
// overdue, and makes none of these wait for more than twice as long.
// All functions are for the loop's thread.
#pragma once

#include "linux/Inbox.h"
#include "linux/LinkSocket.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

namespace Valen::Linux {

class LinkWorker {
 public:
   // What became of a change.
   using Answer = LinkResult;
   // Called on the loop.
   using Done = std::function< void( Answer const & answer ) >;
   using Id = U64;

   // For how many changes the kernel is asked at once, at most.
   static constexpr std::size_t mostAtOnce = 8;

   // `loop` must outlive this.
   //   longAfter   how long what the kernel is asked for at once may take without being one of those that take
   //               long
   explicit LinkWorker( EventLoop & loop, NetNsDirectories directories = NetNsDirectories(),
                        std::chrono::nanoseconds longAfter = std::chrono::milliseconds( 1 ) );
   ~LinkWorker(); // drops the changes that have not begun, waits for the one under way, and answers none
   LinkWorker( LinkWorker const & ) = delete;
   LinkWorker & operator=( LinkWorker const & ) = delete;

   // Keeps a socket in each of these namespaces from now on, and in others only while they have changes.
   void netNssAre( std::set< std::string > const & netNss );
   // The namespace was created, deleted, or replaced under the same name.
   void refresh( std::string const & netNs );

   // Sets the link up or down; no effect if it is. Changes with the same deadline are made in the order of
   // the requests.
   Id request( LinkId link, LinkState state, Gantry::Time deadline, Done done );
   // Whether the change has begun, and `done` will be called.
   bool begun( Id id ) const;
   // Drops a change that has not begun, and returns whether that is so. The answer to one that has
   // begun is still to come.
   bool withdraw( Id id );
   // Does not answer this one. Drops the change if it has not begun.
   void forget( Id id );
   // Drops the changes that have not begun, without an answer, and those that are requested from now on.
   void stop();

 private:
   using Place = std::pair< Gantry::Time, Id >; // in the queue
   // Changes for which the kernel is asked at once: of different links in one namespace.
   struct Batch {
      std::vector< Id > ids;
      std::vector< LinkSetting > settings;
   };
   struct Waiting {
      Place place;
      Done done;
   };

   bool startThreadOnce();
   void wake();
   void work() noexcept;
   bool queued( Place const & place ) const;
   void answered( Id id, Answer const & answer );

   // In the thread:
   Batch takeNext();
   void took( std::size_t changes, std::chrono::nanoseconds time );
   void check( std::string const & netNs, bool wanted );
   LinkSocket & socketIn( std::string const & netNs );
   std::vector< Answer > execute( std::vector< LinkSetting > const & settings );

   NetNsDirectories const directories_;
   std::chrono::nanoseconds const longAfter_;
   Inbox inbox_;
   std::map< Id, Waiting > waiting_; // for their answers
   Id lastId_ = 0;
   bool stopped_ = false;

   std::mutex mutable mutex_;
   std::condition_variable changed_; // signals a change of these, which the mutex guards
   std::map< Place, LinkSetting > queue_;
   std::set< std::string > netNss_;
   std::set< std::string > unchecked_; // namespaces that came, went or changed
   bool ending_ = false;

   std::map< std::string, LinkSocket > sockets_; // by namespace; the thread's
   std::size_t atOnce_ = 1;                      // changes of the next batch, at most; the thread's
   unsigned longInARow_ = 0;                     // changes that took long; the thread's
   std::optional< std::thread > thread_;
};

} // namespace Valen::Linux
