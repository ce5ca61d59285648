// Adds each shutdown that has ended to the stream "history" of the database, once.
//
// A record has an id in the stream, which follows from when it ended and grows from one to the next. After each
// connection, the writer asks for the newest id of the stream and adds what is newer: what was added before is not added
// again, whatever was lost in between, and a server that comes back empty gets everything that is remembered. That
// is what the daemon's own history has, which the journal keeps. A stream that has lost older entries (it was deleted, and
// another record was added before that was noticed) is written again from the start, because ids cannot be added below the newest.
#pragma once

#include "database/Connection.h"
#include "valend/shutdown/LinkController.h"

#include <deque>
#include <functional>
#include <string>

namespace Valend {

class HistoryWriter {
 public:
   // Why the server does not take records; empty when it does again.
   using Problem = std::function< void( std::string const & why ) >;

   HistoryWriter( Quill::Ptr< Gantry::TaskScheduler > scheduler, Problem problem );

   // All that have ended so far.
   void historyIs( History::Records const & history );
   // Another has ended. `request`: the id with which a client of the database asked for it; empty for others.
   void add( ShutdownRecord const & record, std::string const & request );

   // Where to; null for nowhere. The owner of `connection` calls up(), lost() and ready() at its events.
   void connectionIs( Database::Connection * connection, std::string const & prefix );
   void up();
   void lost();
   void ready() { pump(); }
   // Records that the server has not confirmed.
   std::size_t pending() const noexcept { return records_.size() - confirmed_; }

 private:
   // As the server orders them.
   struct Id {
      S64 ms = 0; // since 1970
      U64 number = 0;
      auto operator<=>( Id const & ) const = default;
      std::string text() const { return std::to_string( ms ) + "-" + std::to_string( number ); }
   };
   struct Record {
      Id id;
      std::string interface;
      std::string ending;
      std::string request;
      std::string json;
   };

   static S64 endOf( ShutdownRecord const & record );
   static Id idIn( Database::Reply const & newest );

   void remember( ShutdownRecord const & record, std::string const & request );
   void askNewest();
   void streamIs( Id newest, S64 length );
   void pump();
   void added( Id id, Database::Reply const & reply );
   void refused( std::string const & why );
   void problemIs( std::string const & why );

   Problem const problem_;
   std::string why_; // as last reported
   Database::Connection * connection_ = nullptr;
   std::string key_;
   std::deque< Record > records_; // in the order of their ids
   std::size_t given_ = 0;        // that the connection has, from the first
   std::size_t confirmed_ = 0;    // that the server has, from the first
   bool asked_ = false;           // the newest id of the stream is known
   U64 session_ = 0;
   Gantry::Backoff backoff_;
   Gantry::Timer retry_;
};

} // namespace Valend
