// The hashes that this process is to keep in the database: the newest value of each key that has not left.
//
// A hash is replaced as a whole, in a transaction. After each connection, all are written, and keys below the names of ours
// that no longer exist are deleted: what the server had before is unknown. Memory is bounded by the number of keys,
// however slow the server is. What the server refuses is tried again with growing pauses, and the newest value then.
#pragma once

#include "database/Fields.h"
#include "database/Scan.h"

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Database {

class Outbox {
 public:
   // Why the server does not take what is to be written; empty when it does again.
   using Problem = std::function< void( std::string const & why ) >;

   // `connection` must outlive this. Its owner calls up(), lost() and ready() at its events.
   //   names   what the names of our keys begin with: nothing else may write such keys
   Outbox( Valen::Linux::EventLoop & loop, Connection & connection, std::string prefix,
           std::vector< std::string > names, Problem problem );

   // Before the first up(), everything that exists should be given: the rest is deleted then. Empty fields are no key.
   void hashIs( std::string const & name, Fields fields );
   void hashDel( std::string const & name );
   // Keys of which the server has not confirmed the newest value.
   std::size_t pending() const noexcept { return pending_; }
   std::size_t keys() const noexcept { return entries_.size(); }
   // How often a value was given to the connection.
   U64 writes() const noexcept { return writes_; }

   void up();
   void lost();
   void ready() { pump(); }

 private:
   struct Entry {
      Fields fields;       // empty: no key
      U64 version = 0;     // of the fields
      U64 confirmed = 0;   // that the server has; 0 for none
      bool queued = false; // for writing
   };
   using Entries = std::map< std::string, Entry >;

   void enqueue( Entries::value_type & entry );
   void pumpLater();
   void pump();
   void write( Entries::value_type & entry );
   void written( std::string const & name, U64 version, std::string const & error );
   void found( std::string const & name );
   void refused( std::string const & what, std::string const & error );
   void problemIs( std::string const & what, std::string const & error );

   Connection & connection_;
   std::string const prefix_;
   Problem const problem_;
   std::string error_; // as last reported
   Entries entries_;   // by name
   std::deque< std::string > queue_;
   std::size_t pending_ = 0; // entries whose version is not confirmed
   U64 version_ = 0;
   U64 writes_ = 0;
   Scan scan_;
   Gantry::Backoff backoff_;
   Gantry::Timer retry_; // nothing is written while it runs
   Gantry::PostedWork posted_;
   bool pumping_ = false; // it is posted
};

} // namespace Database
