// What the server tells of changed keys, on a connection of its own.
//
// Notices are sent and forgotten: what changes while the connection is broken is not told later, and a server whose
// setting `notify-keyspace-events` lacks something says nothing, and no error either. So everything must be read
// after each subscription, and now and then a test shows whether a change is told.
#pragma once

#include "database/Connection.h"

#include <functional>
#include <string>
#include <vector>

namespace Database {

class Notices {
 public:
   struct Events {
      std::function< void() > subscribed; // now, and after each loss
      std::function< void( std::string const & name ) >
         changed;                    // a key was written, deleted, or has expired
      std::function< void() > state; // working(), or why() not, is another
   };

   // Of keys of the prefix whose names begin with one of `names`. `loop` must outlive this.
   //   noticeTimeout   how long a notice of a change may take
   Notices( Valen::Linux::EventLoop & loop, Connection::Options options, std::string prefix,
            std::vector< std::string > const & names, std::chrono::milliseconds noticeTimeout,
            Events events );

   void start() { connection_.start(); }

   // Writes a key and deletes it, and looks whether both are told. `writer` is another connection, to the same server, that is
   // up, and outlived by this.
   void test( Connection & writer );

   bool subscribed() const noexcept { return subscribed_; }
   // Whether notices can be relied upon: what is subscribed was not seen to fail.
   bool working() const noexcept { return subscribed_ && why_.empty(); }
   // Why they cannot.
   std::string const & why() const noexcept { return why_; }
   U64 connects() const noexcept { return connection_.connects(); }

 private:
   void up();
   void subscription( Reply const & reply );
   void lost( std::string const & why );
   void notice( std::string const & channel, std::string const & text );
   void written( Reply const & reply );
   void whyIs( std::string why );

   std::string const prefix_;
   std::string const channels_; // what the name of the channel of a key begins with
   std::string const testKey_;
   std::vector< std::string > patterns_;
   std::chrono::milliseconds const noticeTimeout_;
   Events const events_;
   Connection connection_;
   std::size_t awaited_ = 0; // subscriptions that are not confirmed
   bool subscribed_ = false;
   std::string why_;
   bool heardSet_ = false; // of the test
   bool heardDel_ = false;
   Gantry::Timer timeout_;
};

} // namespace Database
