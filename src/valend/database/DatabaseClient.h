// The daemon as a client of the database that its configuration names, if any.
//
// What is read goes to a reader, which lays it over the configuration and acts on requests. Status, history, rejected values and
// a sign of life are written. A loss of the server changes nothing that runs: what was read stays, and what is to be
// written waits. Everything that does not work is in the condition `database`.
#pragma once

#include "valend/base/Conditions.h"
#include "valend/database/DatabaseSession.h"
#include "valend/database/Rejections.h"
#include "valend/database/StatusWriter.h"
#include "valend/report/DaemonStatus.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace Valend {

class DatabaseClient {
 public:
   // All must outlive this.
   struct Sources {
      Valen::Linux::EventLoop & loop;
      Store const & store;
      Feeder const & feeder;
      StatusReport const & report;
      DaemonStatus const & daemon;
      LinkController const & controller;
      Conditions & conditions;
      std::string bootId;
   };
   // Who is told what is in the database. Keys are without the prefix, but for those of leases.
   struct Reader {
      std::function< void( std::string const & key, Database::Fields const & fields ) > entityIs;
      std::function< void( std::string const & key ) > entityGone;
      std::function< void() > complete; // everything was read: first, and after each loss
      std::function< void( std::string const & key, bool exists ) > leaseIs;
      // What follows is of this server and prefix.
      std::function< void( std::string const & server, std::string const & prefix ) > restart;
      std::function< void() > clear; // there is no database any more
   };
   // Since the session began.
   struct Figures {
      bool connected = false;
      U64 reconnects = 0;
      U64 pending = 0;  // what the server has not taken yet
      U64 entities = 0; // that were read
      U64 rejected = 0; // of those
   };

   DatabaseClient( Sources const & sources, Reader reader,
                   Database::Connection::Timing timing = {} );
   ~DatabaseClient();
   DatabaseClient( DatabaseClient const & ) = delete;
   DatabaseClient & operator=( DatabaseClient const & ) = delete;

   // What the configuration has, now and after each reload. An empty server: no database.
   void settingsAre( std::string const & server, std::string const & prefix );

   // For the reader: why a value is not taken; empty when that is over.
   void rejectedIs( std::string const & key, std::string const & why ) {
      rejections_.rejectedIs( key, why );
   }
   // The same: the last request of an interface that was acted on, and its result.
   void resultIs( std::string const & interface, std::string const & id,
                  std::string const & result ) {
      status_.resultIs( interface, id, result );
   }
   // Frames of the interface were published or withdrawn.
   void framesChanged( std::string const & interface ) { status_.changed( interface ); }
   // For the reader: keys of which leaseIs() is to tell whether they exist.
   void leaseWantedIs( std::string const & key, bool wanted );

   // A shutdown has ended. `request`: the id of the request in the database; empty for others.
   void ended( ShutdownRecord const & record, std::string const & request );

   // Nothing without a database.
   std::optional< Figures > figures() const;

 private:
   struct Place {
      std::string server; // empty: none
      std::string prefix;
      bool operator==( Place const & ) const = default;
   };

   void begin();
   void end();
   DatabaseSession::Events events();
   Database::Fields alive() const;
   void problemIs( std::string const & why );

   Sources const sources_;
   Reader const reader_;
   Database::Connection::Timing const timing_;
   std::string const startMs_;
   std::string const host_;
   Place place_;
   std::string shownServer_; // without a password
   std::set< std::string > leases_;
   Condition condition_;
   StatusWriter status_;
   Rejections rejections_;
   HistoryWriter history_;
   bool historyKnown_ = false; // to the writer
   std::unique_ptr< DatabaseSession > session_;
};

} // namespace Valend
